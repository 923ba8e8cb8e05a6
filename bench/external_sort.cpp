// ExternalSort of 10 million 12-byte elements (the spatial index builder's
// (box, feature, bin) records) with a 4 MiB budget, against std::sort of the
// same elements in memory. The counter "vs_std_sort" is the external sort's
// time divided by std::sort's.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
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
    return Less(x, y) ? -1 : (Less(y, x) ? 1 : 0);
}

double StdSortSeconds() {
    std::vector<Element> v = Input();
    auto start = std::chrono::steady_clock::now();
    std::sort(v.begin(), v.end(), Less);
    benchmark::DoNotOptimize(v.data());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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
    double baseline = StdSortSeconds();
    double total = 0;
    int runs = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
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
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
    state.counters["runs"] = runs;
    state.counters["vs_std_sort"] = total / static_cast<double>(state.iterations()) / baseline;
}

}  // namespace

BENCHMARK(BM_StdSort)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ExternalSort)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_MAIN();
