// ExternalSort of 10 million 12-byte elements (the spatial index builder's
// (box, feature, bin) records) with a 4 MiB budget, against std::sort of the
// same elements in memory. The counter "vs_std_sort" is the external sort's
// elapsed time divided by std::sort's, "vs_std_sort_cpu" the same for the
// process's CPU time (steadier on a busy machine).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "foundation/ExternalSort.h"

namespace {

constexpr int kCount = 10'000'000;
constexpr int32_t kBudget = 4 << 20;

struct Element {
    uint8_t box[4];
    int32_t feature;
    int32_t bin;
};
static_assert(sizeof(Element) == 12);

const std::vector<Element>& Input() {
    static const std::vector<Element> input = [] {
        std::mt19937 random(42);
        std::vector<Element> v(kCount);
        for (int i = 0; i < kCount; ++i) {
            v[i] = {{1, 2, 3, 4}, i + 1, static_cast<int32_t>(random() % 87381) + 1};
        }
        return v;
    }();
    return input;
}

bool Less(const Element& a, const Element& b) {
    return a.bin != b.bin ? a.bin < b.bin : a.feature < b.feature;
}

int Compare(const quillet::ExternalSort::SortElement* a,
            const quillet::ExternalSort::SortElement* b) {
    Element x, y;
    std::memcpy(&x, a->data, sizeof x);
    std::memcpy(&y, b->data, sizeof y);
    if (x.bin != y.bin) return x.bin < y.bin ? -1 : 1;
    return x.feature < y.feature ? -1 : (x.feature > y.feature ? 1 : 0);
}

// Elapsed and CPU seconds since construction.
struct Stopwatch {
    std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
    std::clock_t cpu = std::clock();

    double Wall() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
    }
    double Cpu() const { return static_cast<double>(std::clock() - cpu) / CLOCKS_PER_SEC; }
};

void StdSortOnce(double* wall, double* cpu) {
    std::vector<Element> v = Input();
    Stopwatch watch;
    std::sort(v.begin(), v.end(), Less);
    benchmark::DoNotOptimize(v.data());
    *wall = watch.Wall();
    *cpu = watch.Cpu();
}

void BM_StdSort(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<Element> v = Input();
        state.ResumeTiming();
        std::sort(v.begin(), v.end(), Less);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}

void BM_ExternalSort(benchmark::State& state) {
    const std::vector<Element>& input = Input();
    double baseWall, baseCpu;
    StdSortOnce(&baseWall, &baseCpu);
    double wall = 0, cpu = 0;
    int runs = 0;
    for (auto _ : state) {
        Stopwatch watch;
        quillet::ExternalSort sort;
        if (!sort.Init(Compare, kBudget, 1024)) state.SkipWithError("Init failed");
        for (const Element& e : input) {
            if (!sort.Add(sizeof e, &e)) state.SkipWithError("Add failed");
        }
        if (!sort.Sort()) state.SkipWithError("Sort failed");
        int32_t size;
        const unsigned char* data;
        int64_t seen = 0;
        while (sort.Next(&size, &data) == 0) ++seen;
        if (seen != kCount) state.SkipWithError("lost elements");
        runs = sort.GetRunCount();
        wall += watch.Wall();
        cpu += watch.Cpu();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
    state.counters["runs"] = runs;
    auto n = static_cast<double>(state.iterations());
    state.counters["vs_std_sort"] = wall / n / baseWall;
    state.counters["vs_std_sort_cpu"] = cpu / n / baseCpu;
}

}  // namespace

BENCHMARK(BM_StdSort)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ExternalSort)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_MAIN();
