// DBase on a table of 1,000,000 records, 20 fields of every type, 206 bytes a
// record: full scans reading every field as a string, every numeric field as a
// double, and every field through GetValue; appending the records; compacting
// after deleting every other record. Counters: "records_per_s", and "x_read",
// the scan's time divided by the time plain read() calls take for the same
// bytes (page cache warm); "heap_growth_kb" is how much resident anonymous
// memory grew during the scan (flat: independent of the table's size). The
// machine is shared, so the CPU column is the steadier figure.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "dbase/DBase.h"
#include "BenchSupport.h"

namespace {

using quillet::CodePage;
using quillet::DBase;
using quillet::String;
using quillet::StringArray;

constexpr int kRecords = 1'000'000;

struct Field {
    const wchar_t* name;
    DBase::qovaDataType type;
    int width;
    int decimals;
};

const Field kFields[] = {
    {L"NAME", DBase::qovaCharacter, 30, 0},  {L"CITY", DBase::qovaCharacter, 20, 0},
    {L"CODE", DBase::qovaCharacter, 10, 0},  {L"NOTE", DBase::qovaCharacter, 25, 0},
    {L"TAG", DBase::qovaCharacter, 4, 0},    {L"ID", DBase::qovaNumeric, 9, 0},
    {L"COUNT", DBase::qovaNumeric, 6, 0},    {L"PRICE", DBase::qovaNumeric, 10, 2},
    {L"AREA", DBase::qovaNumeric, 12, 3},    {L"POP", DBase::qovaNumeric, 8, 0},
    {L"SCORE", DBase::qovaNumeric, 5, 1},    {L"YEAR", DBase::qovaNumeric, 4, 0},
    {L"RATIO", DBase::qovaFloat, 13, 0},     {L"LAT", DBase::qovaFloat, 15, 0},
    {L"LON", DBase::qovaFloat, 15, 0},       {L"DAY", DBase::qovaDate, 8, 0},
    {L"UPDATED", DBase::qovaDate, 8, 0},     {L"OK", DBase::qovaLogical, 1, 0},
    {L"FLAG", DBase::qovaLogical, 1, 0},     {L"DONE", DBase::qovaLogical, 1, 0},
};
constexpr int kFieldCount = static_cast<int>(sizeof kFields / sizeof kFields[0]);

std::filesystem::path Folder() {
    static const std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() / ("quillet-bench-dbase-" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

std::wstring Wide(const std::filesystem::path& path) { return String::FromUtf8(path.string()).str(); }

// Creates `path` with the fields and appends `records` records through the
// typed setters.
void WriteTable(const std::filesystem::path& path, int records) {
    DBase table(Wide(path));
    table.Create(CodePage::qovaCodePageANSI);
    StringArray names;
    std::vector<DBase::qovaDataType> types;
    std::vector<int> widths, decimals;
    for (const Field& field : kFields) {
        names.Add(field.name);
        types.push_back(field.type);
        widths.push_back(field.width);
        decimals.push_back(field.decimals);
    }
    table.AddColumns(names, types.data(), widths.data(), decimals.data());
    table.Open(false, false, CodePage::qovaCodePageDefault);
    DBase::DateRec day;
    for (int i = 0; i < 4; ++i) day.year[i] = L"2024"[i];
    for (int i = 0; i < 2; ++i) day.month[i] = day.day[i] = L"07"[i];
    const String names5[] = {L"Hofstätte", L"Riverside Cottage", L"Old mill", L"Κήπος", L"Ward 7"};
    for (int r = 0; r < records; ++r) {
        table.AddRecord();
        table.SetFieldString(0, names5[r % 5]);
        table.SetFieldString(1, L"Springfield");
        table.SetFieldString(2, L"AB-1234");
        table.SetFieldString(3, L"a note of some length");
        table.SetFieldString(4, L"x");
        table.SetFieldInteger(5, r);
        table.SetFieldInteger(6, r % 1000);
        table.SetFieldDouble(7, r * 0.25);
        table.SetFieldDouble(8, r * 1.125);
        table.SetFieldInteger(9, r % 100000);
        table.SetFieldDouble(10, (r % 1000) / 10.0);
        table.SetFieldInteger(11, 1900 + r % 120);
        table.SetFieldDouble(12, 1.0 / (r + 1));
        table.SetFieldDouble(13, 47.5 + r * 1e-6);
        table.SetFieldDouble(14, 8.25 - r * 1e-6);
        table.SetFieldDate(15, day);
        table.SetFieldDate(16, day);
        table.SetFieldLogical(17, r % 2 == 0);
        table.SetFieldLogical(18, r % 3 == 0);
        table.SetFieldLogical(19, true);
    }
    table.Close();
}

const std::filesystem::path& ScanTable() {
    static const std::filesystem::path path = [] {
        auto p = Folder() / "scan.dbf";
        WriteTable(p, kRecords);
        return p;
    }();
    return path;
}

// Seconds plain read() calls take for the whole file, cache warm.
double PlainReadSeconds(const std::filesystem::path& path) {
    std::vector<char> buffer(1 << 16);
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
        int fd = open(path.c_str(), O_RDONLY);
        auto start = std::chrono::steady_clock::now();
        while (read(fd, buffer.data(), buffer.size()) > 0) benchmark::ClobberMemory();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        close(fd);
    }
    return best;
}

template <typename ReadRecord>
void Scan(benchmark::State& state, ReadRecord readRecord) {
    const auto& path = ScanTable();
    double readSeconds = PlainReadSeconds(path);
    DBase table(Wide(path));
    table.Open(true, true, CodePage::qovaCodePageDefault);
    long rssBefore = quillet::bench::AnonymousRssKb();
    double scanSeconds = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        for (int r = 0; r < kRecords; ++r) {
            table.MoveTo(r);
            readRecord(table);
        }
        scanSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    double perScan = scanSeconds / static_cast<double>(state.iterations());
    state.counters["records_per_s"] = kRecords / perScan;
    state.counters["x_read"] = perScan / readSeconds;
    state.counters["heap_growth_kb"] = static_cast<double>(quillet::bench::AnonymousRssKb() - rssBefore);
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_ScanStrings(benchmark::State& state) {
    Scan(state, [](DBase& table) {
        for (int f = 0; f < kFieldCount; ++f) {
            String text = table.GetFieldString(f);
            benchmark::DoNotOptimize(text);
        }
    });
}
BENCHMARK(BM_ScanStrings)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_ScanDoubles(benchmark::State& state) {
    Scan(state, [](DBase& table) {
        for (int f = 5; f <= 14; ++f) benchmark::DoNotOptimize(table.GetFieldDouble(f));
    });
}
BENCHMARK(BM_ScanDoubles)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_ScanValues(benchmark::State& state) {
    Scan(state, [](DBase& table) {
        quillet::Variant value;
        for (int f = 0; f < kFieldCount; ++f) {
            table.GetValue(f, value);
            benchmark::DoNotOptimize(value);
        }
    });
}
BENCHMARK(BM_ScanValues)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_Append(benchmark::State& state) {
    auto path = Folder() / "append.dbf";
    for (auto _ : state) WriteTable(path, kRecords);
    state.counters["records_per_s"] =
        benchmark::Counter(static_cast<double>(kRecords) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
    std::filesystem::remove(path);
}
BENCHMARK(BM_Append)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

void BM_CompactHalfDeleted(benchmark::State& state) {
    auto path = Folder() / "compact.dbf";
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::copy_file(ScanTable(), path, std::filesystem::copy_options::overwrite_existing);
        DBase table(Wide(path));
        table.Open(false, false, CodePage::qovaCodePageDefault);
        for (int r = 0; r < kRecords; r += 2) table.DeleteRecord(r);
        table.Flush();
        state.ResumeTiming();
        table.CompactFile();
    }
    state.counters["records_per_s"] =
        benchmark::Counter(static_cast<double>(kRecords) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
    std::filesystem::remove(path);
}
BENCHMARK(BM_CompactHalfDeleted)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(Folder());
    return 0;
}
