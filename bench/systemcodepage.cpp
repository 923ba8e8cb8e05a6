// The system code page conversions on field-sized text (16 bytes), as table
// reading calls them: the ANSI code page of the environment, an explicit
// single-byte code page served from its table, UTF-8, and a double-byte code
// page through the tables filled from iconv.

#include <benchmark/benchmark.h>

#include <string>

#include "foundation/SystemCodePage.h"

namespace {

void Decode(benchmark::State& state, uint32_t codePage, const std::string& text) {
    wchar_t out[64];
    for (auto _ : state) {
        int n = quillet::MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()),
                                             out, 64);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void BM_Decode1252(benchmark::State& state) { Decode(state, 1252, "Caf\xE9 du march\xE9 1"); }
void BM_DecodeAnsi(benchmark::State& state) { Decode(state, quillet::CP_ACP, "Caf\xE9 du march\xE9 1"); }
void BM_DecodeUtf8(benchmark::State& state) { Decode(state, quillet::CP_UTF8, "Caf\xC3\xA9 du march\xC3\xA9"); }
void BM_Decode932(benchmark::State& state) { Decode(state, 932, "\x93\xFA\x96\x7B\x8C\xEA abcdefghij"); }

void BM_SysMbstowcs(benchmark::State& state) {
    wchar_t out[64];
    for (auto _ : state) {
        size_t n = quillet::sys::mbstowcs(out, "Caf\xE9 du march\xE9 1", 64);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(state.iterations() * 16);
}

void BM_Encode1252(benchmark::State& state) {
    const wchar_t text[] = L"Caf\u00E9 du march\u00E9 1";
    char out[64];
    for (auto _ : state) {
        int n = quillet::WideCharToMultiByte(1252, 0, text, 16, out, 64, nullptr, nullptr);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(state.iterations() * 16);
}

BENCHMARK(BM_Decode1252);
BENCHMARK(BM_DecodeAnsi);
BENCHMARK(BM_DecodeUtf8);
BENCHMARK(BM_Decode932);
BENCHMARK(BM_SysMbstowcs);
BENCHMARK(BM_Encode1252);

}  // namespace

BENCHMARK_MAIN();
