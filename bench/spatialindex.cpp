// The spatial bin index: building the index of 1,000,000 random boxes, and
// random window queries of 0.01 %, 1 % and 10 % of the extent's area, each
// against a linear scan over the same boxes held in memory.
//
// Every query benchmark walks one fixed list of 10,000 random windows, one
// window an iteration (the scans, slow by nature, take the first few hundred).
//
// Beside them, the same index opened and searched by libshp's reader
// (SBNOpenDiskTree, SBNSearchDiskTree), timed in the same iterations as ours.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "foundation/IEnvelope.h"
#include "foundation/RecNumSet.h"
#include "recordfile/VFile.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexBuilder.h"

#ifdef QUILLET_HAVE_LIBSHP
#include <shapefil.h>
#endif

namespace {

using quillet::WKSEnvelope;

constexpr int kFeatures = 1000000;
constexpr int kWindows = 10000;
constexpr double kSide = 1e6;

std::wstring Wide(const std::filesystem::path& path) {
    std::string s = path.string();
    return std::wstring(s.begin(), s.end());
}

// Boxes of up to a thousandth of the extent's side, anywhere in it.
std::vector<WKSEnvelope> RandomBoxes() {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> at(0, kSide);
    std::uniform_real_distribution<double> size(0, kSide / 1000);
    std::vector<WKSEnvelope> boxes(kFeatures);
    for (auto& b : boxes) {
        double x = at(random);
        double y = at(random);
        b = WKSEnvelope{x, y, std::min(kSide, x + size(random)), std::min(kSide, y + size(random))};
    }
    return boxes;
}

bool BuildIndex(const std::filesystem::path& path, const std::vector<WKSEnvelope>& boxes) {
    quillet::BinIndexBuilder builder;
    quillet::Envelope extent(0, 0, kSide, kSide);
    if (!builder.Create(Wide(path).c_str(), kFeatures, &extent)) return false;
    for (int i = 0; i < kFeatures; ++i) {
        quillet::Envelope box(boxes[static_cast<size_t>(i)]);
        builder.AddFeature(i + 1, &box);
    }
    return builder.Finish();
}

// The boxes, a folder for index files, and the index of the boxes, made once.
class Data {
public:
    static Data& Get() {
        static Data data;
        return data;
    }
    ~Data() {
        index_.reset();
        std::filesystem::remove_all(folder_);
    }

    const std::vector<WKSEnvelope>& boxes() const { return boxes_; }
    std::filesystem::path Path(const std::string& name) const { return folder_ / name; }
    quillet::BinIndex& index() { return *index_; }

private:
    Data() : boxes_(RandomBoxes()) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quillet-bench-XXXXXX").string();
        if (!mkdtemp(pattern.data())) std::abort();
        folder_ = pattern;
        if (!BuildIndex(Path("layer.sbn"), boxes_)) std::abort();
        index_ = std::make_unique<quillet::BinIndex>(Wide(Path("layer.sbn")).c_str());
    }

    std::vector<WKSEnvelope> boxes_;
    std::filesystem::path folder_;
    std::unique_ptr<quillet::BinIndex> index_;
};

// Square windows of `areaFraction` of the extent, inside it.
std::vector<WKSEnvelope> Windows(double areaFraction) {
    std::mt19937_64 random(static_cast<uint64_t>(areaFraction * 1e6) + 7);
    double side = kSide * std::sqrt(areaFraction);
    std::uniform_real_distribution<double> at(0, kSide - side);
    std::vector<WKSEnvelope> windows(kWindows);
    for (auto& w : windows) {
        double x = at(random);
        double y = at(random);
        w = WKSEnvelope{x, y, x + side, y + side};
    }
    return windows;
}

void BM_Build(benchmark::State& state) {
    Data& data = Data::Get();
    auto path = data.Path("build.sbn");
    for (auto _ : state) {
        if (!BuildIndex(path, data.boxes())) state.SkipWithError("the build failed");
    }
    quillet::VFile(Wide(path).c_str()).DeleteFileW();
    state.SetItemsProcessed(state.iterations() * kFeatures);
}

void BM_IndexQuery(benchmark::State& state, double areaFraction) {
    Data& data = Data::Get();
    auto windows = Windows(areaFraction);
    size_t next = 0;
    int64_t found = 0;
    quillet::RecNumSet result;
    for (auto _ : state) {
        quillet::Envelope query(windows[next]);
        next = (next + 1) % windows.size();
        result.Clear();
        found += data.index().Search(&query, &result);
    }
    state.counters["candidates"] =
        benchmark::Counter(static_cast<double>(found), benchmark::Counter::kAvgIterations);
}

void BM_LinearScan(benchmark::State& state, double areaFraction) {
    Data& data = Data::Get();
    auto windows = Windows(areaFraction);
    size_t next = 0;
    int64_t found = 0;
    std::vector<int32_t> result;
    for (auto _ : state) {
        const WKSEnvelope& window = windows[next];
        next = (next + 1) % windows.size();
        result.clear();
        const auto& boxes = data.boxes();
        for (size_t i = 0; i < boxes.size(); ++i) {
            if (boxes[i].Intersects(window)) result.push_back(static_cast<int32_t>(i + 1));
        }
        found += static_cast<int64_t>(result.size());
        benchmark::DoNotOptimize(result.data());
    }
    state.counters["found"] =
        benchmark::Counter(static_cast<double>(found), benchmark::Counter::kAvgIterations);
}

// Ours against libshp's reader of the same index, in the same run: the ratio
// counter is libshp's time over ours, so above 1 means we are faster.

#ifdef QUILLET_HAVE_LIBSHP

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

void ReportRatio(benchmark::State& state, double ours, double peer) {
    state.counters["ours_ms"] = benchmark::Counter(ours * 1e3 / static_cast<double>(state.iterations()));
    state.counters["libshp_ms"] = benchmark::Counter(peer * 1e3 / static_cast<double>(state.iterations()));
    state.counters["ratio"] = benchmark::Counter(ours > 0 ? peer / ours : 0);
}

void BM_OpenVersusLibshp(benchmark::State& state) {
    Data& data = Data::Get();
    auto path = data.Path("layer.sbn");
    double ours = 0;
    double peer = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        {
            quillet::BinIndex index(Wide(path).c_str());
            benchmark::DoNotOptimize(index.GetBinCount());
        }
        ours += Seconds(start);
        start = Clock::now();
        SBNSearchHandle handle = SBNOpenDiskTree(path.string().c_str(), nullptr);
        if (!handle) state.SkipWithError("libshp could not open the index");
        if (handle) SBNCloseDiskTree(handle);
        peer += Seconds(start);
    }
    ReportRatio(state, ours, peer);
}

// Each iteration runs the same 1,000 windows through both readers.
void BM_SearchVersusLibshp(benchmark::State& state, double areaFraction) {
    Data& data = Data::Get();
    auto windows = Windows(areaFraction);
    windows.resize(1000);
    SBNSearchHandle handle = SBNOpenDiskTree(data.Path("layer.sbn").string().c_str(), nullptr);
    if (!handle) {
        state.SkipWithError("libshp could not open the index");
        return;
    }
    double ours = 0;
    double peer = 0;
    int64_t oursFound = 0;
    int64_t peerFound = 0;
    quillet::RecNumSet result;
    for (auto _ : state) {
        auto start = Clock::now();
        for (const auto& w : windows) {
            quillet::Envelope query(w);
            result.Clear();
            oursFound += data.index().Search(&query, &result);
        }
        ours += Seconds(start);
        start = Clock::now();
        for (const auto& w : windows) {
            double min[4] = {w.XMin, w.YMin, 0, 0};
            double max[4] = {w.XMax, w.YMax, 0, 0};
            int count = 0;
            int* ids = SBNSearchDiskTree(handle, min, max, &count);
            peerFound += count;
            SBNSearchFreeIds(ids);
        }
        peer += Seconds(start);
    }
    SBNCloseDiskTree(handle);
    ReportRatio(state, ours, peer);
    auto perIteration = static_cast<double>(state.iterations() * 1000);
    state.counters["ours_found"] = benchmark::Counter(static_cast<double>(oursFound) / perIteration);
    state.counters["libshp_found"] = benchmark::Counter(static_cast<double>(peerFound) / perIteration);
}

#else

void BM_OpenVersusLibshp(benchmark::State& state) {
    state.SkipWithError("libshp (shapefil.h) was not found at build time: no comparison");
}

void BM_SearchVersusLibshp(benchmark::State& state, double) { BM_OpenVersusLibshp(state); }

#endif

}  // namespace

// The build writes files: its rate is taken over the wall clock.
BENCHMARK(BM_Build)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK_CAPTURE(BM_IndexQuery, area_0_01pct, 0.0001)->Unit(benchmark::kMicrosecond)->Iterations(kWindows);
BENCHMARK_CAPTURE(BM_LinearScan, area_0_01pct, 0.0001)->Unit(benchmark::kMicrosecond)->Iterations(300);
BENCHMARK_CAPTURE(BM_IndexQuery, area_1pct, 0.01)->Unit(benchmark::kMicrosecond)->Iterations(kWindows);
BENCHMARK_CAPTURE(BM_LinearScan, area_1pct, 0.01)->Unit(benchmark::kMicrosecond)->Iterations(300);
BENCHMARK_CAPTURE(BM_IndexQuery, area_10pct, 0.1)->Unit(benchmark::kMicrosecond)->Iterations(2000);
BENCHMARK_CAPTURE(BM_LinearScan, area_10pct, 0.1)->Unit(benchmark::kMicrosecond)->Iterations(300);
BENCHMARK(BM_OpenVersusLibshp)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK_CAPTURE(BM_SearchVersusLibshp, area_0_01pct, 0.0001)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_SearchVersusLibshp, area_1pct, 0.01)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_CAPTURE(BM_SearchVersusLibshp, area_10pct, 0.1)->Unit(benchmark::kMillisecond)->Iterations(1);

BENCHMARK_MAIN();
