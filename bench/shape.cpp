// Shape data files of 1,000,000 polygon records of 200 bytes: writing them
// through ShpFile, reading them back in order and at random, and compacting
// after deleting every tenth. Reads report "vs_read": their time divided by
// plain read()/pread() of the same bytes from the same (cached) file, and
// "anon_rss_growth_mb": how much the process's own memory grew while reading
// (it must stay flat in the file's size). Items per second are by CPU time,
// as the machine is shared; the wall time is in the Time column.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/ByteOrder.h"
#include "recordfile/VFile.h"
#include "shape/ShpFile.h"
#include "BenchSupport.h"

namespace {

using namespace quillet;

constexpr int32_t kRecords = 1'000'000;
constexpr int32_t kRecordBytes = 200;
constexpr int64_t kSlot = kRecordBytes + 8;  // record header + content

struct Folder {
    std::string path;
    Folder() {
        char pattern[] = "/tmp/quillet-bench-shape-XXXXXX";
        path = mkdtemp(pattern) ? pattern : "/tmp";
    }
    ~Folder() { std::filesystem::remove_all(path); }
};

const Folder& TheFolder() {
    static Folder folder;
    return folder;
}

std::wstring Wide(const std::string& path) { return std::wstring(path.begin(), path.end()); }
std::string DataPath() { return TheFolder().path + "/polygons.shp"; }

// A polygon record of 200 bytes in the standard layout (one ring of 10 points).
std::vector<unsigned char> Polygon(int32_t n) {
    std::vector<unsigned char> record(kRecordBytes, 0);
    EncodeFixed32LE(&record[0], ShpFile::qovaShapePolygon);
    for (int i = 0; i < 4; ++i) EncodeDoubleLE(&record[4 + 8 * i], n + i);
    EncodeFixed32LE(&record[36], 1);
    EncodeFixed32LE(&record[40], 10);
    for (int i = 0; i < 19; ++i) EncodeDoubleLE(&record[48 + 8 * i], n * 0.5 + i);
    return record;
}

bool WriteLayer(const std::string& path) {
    quillet::ShpFile shp(Wide(path).c_str());
    if (!shp.Create(quillet::ShpFile::qovaShapePolygon)) return false;
    for (int32_t n = 0; n < kRecords; ++n) {
        auto record = Polygon(n);
        if (!shp.InsertRecord(record.data(), kRecordBytes)) return false;
    }
    return shp.Close();
}

void EnsureLayer() {
    static bool written = WriteLayer(DataPath());
    if (!written) std::abort();
}

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The next record number of a full-period walk over 0..kRecords-1.
int32_t NextRandom(uint64_t& state) {
    do {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
    } while ((state >> 33) % (1u << 20) >= static_cast<uint64_t>(kRecords));
    return static_cast<int32_t>((state >> 33) % (1u << 20));
}



void BM_WritePolygons(benchmark::State& state) {
    std::string path = TheFolder().path + "/written.shp";
    for (auto _ : state) {
        if (!WriteLayer(path)) state.SkipWithError("writing failed");
    }
    state.SetItemsProcessed(int64_t{kRecords} * state.iterations());
    std::filesystem::remove(path);
    std::filesystem::remove(TheFolder().path + "/written.shx");
}

// Plain read() of the whole data file in 64 KiB chunks.
double PlainSequentialSeconds() {
    auto start = std::chrono::steady_clock::now();
    int fd = open(DataPath().c_str(), O_RDONLY);
    std::vector<unsigned char> chunk(1 << 16);
    uint64_t sum = 0;
    for (ssize_t n; (n = read(fd, chunk.data(), chunk.size())) > 0;) sum += chunk[0];
    close(fd);
    benchmark::DoNotOptimize(sum);
    return Seconds(start);
}

// Plain pread() of each record's bytes, in the same random order.
double PlainRandomSeconds() {
    auto start = std::chrono::steady_clock::now();
    int fd = open(DataPath().c_str(), O_RDONLY);
    unsigned char record[kRecordBytes];
    uint64_t random = 1, sum = 0;
    for (int32_t i = 0; i < kRecords; ++i) {
        int32_t n = NextRandom(random);
        if (pread(fd, record, kRecordBytes, 100 + kSlot * n + 8) != kRecordBytes) std::abort();
        sum += record[0];
    }
    close(fd);
    benchmark::DoNotOptimize(sum);
    return Seconds(start);
}

template <typename NextNumber>
void ReadAll(benchmark::State& state, NextNumber next, double (*plain)()) {
    EnsureLayer();
    double ours = 0, theirs = 0;
    long rssBefore = quillet::bench::AnonymousRssKb();
    long rssPeak = rssBefore;
    for (auto _ : state) {
        ShpFile shp(Wide(DataPath()).c_str());
        if (!shp.Open(true, false, false)) state.SkipWithError("open failed");
        auto start = std::chrono::steady_clock::now();
        uint64_t sum = 0, cursor = 1;
        for (int32_t i = 0; i < kRecords; ++i) {
            int32_t length = 0;
            const unsigned char* bytes = shp.ReadRecord(next(i, cursor), length);
            if (length != kRecordBytes) state.SkipWithError("short record");
            sum += bytes[4];
        }
        benchmark::DoNotOptimize(sum);
        ours += Seconds(start);
        rssPeak = std::max(rssPeak, quillet::bench::AnonymousRssKb());
        state.PauseTiming();
        theirs += plain();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t{kRecords} * state.iterations());
    state.counters["vs_read"] = ours / theirs;
    state.counters["anon_rss_growth_mb"] = (rssPeak - rssBefore) / 1024.0;
}

void BM_ReadSequential(benchmark::State& state) {
    ReadAll(state, [](int32_t i, uint64_t&) { return i; }, PlainSequentialSeconds);
}

void BM_ReadRandom(benchmark::State& state) {
    ReadAll(state, [](int32_t, uint64_t& cursor) { return NextRandom(cursor); }, PlainRandomSeconds);
}

void BM_CompactAfterDeletingEveryTenth(benchmark::State& state) {
    EnsureLayer();
    std::string copy = TheFolder().path + "/compact.shp";
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::copy_file(DataPath(), copy, std::filesystem::copy_options::overwrite_existing);
        std::filesystem::copy_file(TheFolder().path + "/polygons.shx", TheFolder().path + "/compact.shx",
                                   std::filesystem::copy_options::overwrite_existing);
        state.ResumeTiming();
        VFile file(Wide(copy).c_str());
        if (!file.Open(VFile::kReadWrite, VFile::kIndexed, false, false)) state.SkipWithError("open failed");
        for (int32_t n = 0; n < kRecords; n += 10) file.DeleteRecord(n);
        if (!file.CompactFile() || file.GetNumRecs() != kRecords - kRecords / 10) {
            state.SkipWithError("compaction failed");
        }
        file.Close();
    }
    state.SetItemsProcessed(int64_t{kRecords} * state.iterations());
}

}  // namespace

BENCHMARK(BM_WritePolygons)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_ReadSequential)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_ReadRandom)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CompactAfterDeletingEveryTenth)->Unit(benchmark::kMillisecond)->Iterations(2);

BENCHMARK_MAIN();
