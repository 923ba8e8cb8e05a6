// Sequential File reads and writes of 64-byte records against the system
// calls doing the same: read()/write() of each record (what an unbuffered
// file layer costs), and of 64 KiB blocks (the ceiling). The ratio benchmarks
// time both sides in each iteration and report file throughput over that of
// per-record system calls; the target is at least 0.8.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/File.h"
#include "foundation/Win32File.h"

namespace {

constexpr int kRecord = 64;
constexpr int64_t kFileBytes = 32 << 20;
constexpr int64_t kRecords = kFileBytes / kRecord;

std::string BenchPath() {
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/quillet-bench-file-" + std::to_string(getpid());
}

std::wstring Wide(const std::string& path) { return std::wstring(path.begin(), path.end()); }

std::vector<unsigned char> Records() {
    std::vector<unsigned char> bytes(kRecord * 1024);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 31);
    return bytes;
}

const unsigned char* RecordAt(const std::vector<unsigned char>& records, int64_t i) {
    return records.data() + (i % 1024) * kRecord;
}

void FileWrite(const std::string& path, const std::vector<unsigned char>& records) {
    quillet::File file(Wide(path).c_str());
    if (!file.Create(1, 0)) std::abort();
    for (int64_t i = 0; i < kRecords; ++i) {
        if (file.Write(RecordAt(records, i), kRecord) != kRecord) std::abort();
    }
    if (!file.Close()) std::abort();
}

void FileRead(const std::string& path, bool readOnly) {
    quillet::File file(Wide(path).c_str());
    if (!file.Open(readOnly, 1, readOnly, 0, 0)) std::abort();
    unsigned char record[kRecord];
    for (int64_t i = 0; i < kRecords; ++i) {
        if (file.Read(record, kRecord) != kRecord) std::abort();
        benchmark::DoNotOptimize(record);
    }
}

void PlainWrite(const std::string& path, const std::vector<unsigned char>& records, int chunk) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) std::abort();
    std::vector<unsigned char> block(static_cast<size_t>(chunk));
    for (int64_t at = 0; at < kFileBytes; at += chunk) {
        const unsigned char* data = RecordAt(records, at / kRecord);
        if (chunk > kRecord) {
            for (int r = 0; r < chunk / kRecord; ++r) {
                std::copy_n(RecordAt(records, at / kRecord + r), kRecord, block.data() + r * kRecord);
            }
            data = block.data();
        }
        if (::write(fd, data, static_cast<size_t>(chunk)) != chunk) std::abort();
    }
    if (::close(fd) != 0) std::abort();
}

void PlainRead(const std::string& path, int chunk) {
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) std::abort();
    std::vector<unsigned char> block(static_cast<size_t>(chunk));
    for (int64_t at = 0; at < kFileBytes; at += chunk) {
        if (::read(fd, block.data(), static_cast<size_t>(chunk)) != chunk) std::abort();
        benchmark::DoNotOptimize(block.data());
    }
    ::close(fd);
}

// The process's CPU time, which other work on a shared machine disturbs less
// than the wall clock.
double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename F>
double Seconds(F&& run) {
    double start = CpuSeconds();
    run();
    return CpuSeconds() - start;
}

void BM_FileWrite(benchmark::State& state) {
    std::string path = BenchPath();
    auto records = Records();
    for (auto _ : state) FileWrite(path, records);
    state.SetBytesProcessed(state.iterations() * kFileBytes);
    ::unlink(path.c_str());
}

void BM_PlainWrite(benchmark::State& state) {
    std::string path = BenchPath();
    auto records = Records();
    for (auto _ : state) PlainWrite(path, records, static_cast<int>(state.range(0)));
    state.SetBytesProcessed(state.iterations() * kFileBytes);
    ::unlink(path.c_str());
}

// Read-only opens read through the mapping, writable ones through the buffer.
void BM_FileRead(benchmark::State& state) {
    std::string path = BenchPath();
    PlainWrite(path, Records(), 64 * 1024);
    for (auto _ : state) FileRead(path, state.range(0) != 0);
    state.SetBytesProcessed(state.iterations() * kFileBytes);
    ::unlink(path.c_str());
}

void BM_PlainRead(benchmark::State& state) {
    std::string path = BenchPath();
    PlainWrite(path, Records(), 64 * 1024);
    for (auto _ : state) PlainRead(path, static_cast<int>(state.range(0)));
    state.SetBytesProcessed(state.iterations() * kFileBytes);
    ::unlink(path.c_str());
}

void BM_WriteRatio(benchmark::State& state) {
    std::string path = BenchPath();
    auto records = Records();
    double fileSeconds = 0, plainSeconds = 0;
    for (auto _ : state) {
        fileSeconds += Seconds([&] { FileWrite(path, records); });
        plainSeconds += Seconds([&] { PlainWrite(path, records, kRecord); });
    }
    state.counters["ratio"] = plainSeconds / fileSeconds;
    ::unlink(path.c_str());
}

void BM_ReadRatio(benchmark::State& state) {
    std::string path = BenchPath();
    PlainWrite(path, Records(), 64 * 1024);
    double fileSeconds = 0, plainSeconds = 0;
    for (auto _ : state) {
        fileSeconds += Seconds([&] { FileRead(path, state.range(0) != 0); });
        plainSeconds += Seconds([&] { PlainRead(path, kRecord); });
    }
    state.counters["ratio"] = plainSeconds / fileSeconds;
    ::unlink(path.c_str());
}

BENCHMARK(BM_FileWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainWrite)->ArgName("chunk")->Arg(kRecord)->Arg(64 * 1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileRead)->ArgName("readonly")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainRead)->ArgName("chunk")->Arg(kRecord)->Arg(64 * 1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteRatio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadRatio)->ArgName("readonly")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
