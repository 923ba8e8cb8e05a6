// Decoding and encoding 64 MiB of text with CodePage against glibc's iconv
// converting the same bytes in one call:
//   1252 through a loaded 8-bit table (the system's ANSI code page is 1250),
//   437 through the OEM path (the system's OEM code page),
//   UTF-8,
//   932 (the OEM code page of a Japanese locale).
// After the runs a table gives each row's CPU time (the machine is shared, so
// wall time says more about the neighbours) and the ratio iconv / Quillet
// (above 1: Quillet is faster).

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "codepage/CodePage.h"

namespace {

constexpr size_t kTextBytes = size_t{64} << 20;

struct Row {
    const char* name;
    const char* iconvName;
    const char* language;
    const char* ansi;
    const char* oem;
    uint32_t codePage;
    std::wstring alphabet;  // characters the text is made of, beside ASCII words
};

const Row kRows[] = {
    {"1252-table", "CP1252", "9", "1250", "437", 1252, L"\u00E9\u00E8\u00E0\u00FC\u00F1\u00DF\u20AC\u00E7"},
    {"437-oem", "CP437", "9", "1252", "437", 437, L"\u00E9\u00E8\u00E0\u00FC\u00F1\u00DF\u00E7\u2591"},
    {"utf-8", "UTF-8", "9", "1252", "437", 65001, L"\u00E9\u00DF\u20AC\u03B1\u0436\u4E2D\u65E5\u3042"},
    {"932", "CP932", "17", "932", "932", 932, L"\u3042\u3044\u3046\u65E5\u672C\u8A9E\u30A2\uFF71"},
};

// The same bytes for Quillet and iconv: words of ASCII with one character of
// the row's alphabet in every few, encoded once by iconv.
struct Corpus {
    std::string bytes;  // zero-terminated by std::string
    std::wstring text;  // what the bytes decode to
};

const Corpus& CorpusOf(const Row& row) {
    static std::map<const Row*, Corpus> corpora;
    Corpus& corpus = corpora[&row];
    if (!corpus.bytes.empty()) return corpus;
    std::wstring chunk;
    uint32_t seed = 12345;
    while (chunk.size() < 60000) {
        seed = seed * 1103515245 + 12345;
        int word = 2 + (seed >> 16) % 8;
        for (int i = 0; i < word; ++i) chunk += static_cast<wchar_t>(L'a' + (seed >> (i + 3)) % 26);
        if ((seed >> 24) % 3 == 0) chunk += row.alphabet[(seed >> 8) % row.alphabet.size()];
        chunk += (seed >> 20) % 12 == 0 ? L'\n' : L' ';
    }
    std::string encoded(chunk.size() * 4, '\0');
    iconv_t cd = iconv_open(row.iconvName, "WCHAR_T");
    char* in = reinterpret_cast<char*>(chunk.data());
    size_t inLeft = chunk.size() * sizeof(wchar_t);
    char* out = encoded.data();
    size_t outLeft = encoded.size();
    iconv(cd, &in, &inLeft, &out, &outLeft);
    iconv_close(cd);
    encoded.resize(encoded.size() - outLeft);
    while (corpus.bytes.size() + encoded.size() <= kTextBytes) {
        corpus.bytes += encoded;
        corpus.text += chunk;
    }
    return corpus;
}

void UseLocale(const Row& row) {
    setenv("QUILLET_LANGID", row.language, 1);
    setenv("QUILLET_COUNTRYID", "1", 1);
    setenv("QUILLET_ACP", row.ansi, 1);
    setenv("QUILLET_OEMCP", row.oem, 1);
}

void QuilletDecode(benchmark::State& state, const Row& row) {
    UseLocale(row);
    const Corpus& corpus = CorpusOf(row);
    quillet::CodePage page(row.codePage);
    std::vector<wchar_t> dst(corpus.bytes.size() + 1);
    for (auto _ : state) {
        if (!page.Source2Native(corpus.bytes.c_str(), dst.data(), static_cast<uint32_t>(dst.size()))) {
            state.SkipWithError("conversion failed");
        }
        benchmark::DoNotOptimize(dst.data());
    }
    if (std::wstring(dst.data()) != corpus.text) state.SkipWithError("wrong text");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * corpus.bytes.size()));
}

void QuilletEncode(benchmark::State& state, const Row& row) {
    UseLocale(row);
    const Corpus& corpus = CorpusOf(row);
    quillet::CodePage page(row.codePage);
    std::vector<char> dst(corpus.bytes.size() + 1);
    for (auto _ : state) {
        if (!page.Native2Source(corpus.text.c_str(), dst.data(), static_cast<uint32_t>(dst.size()))) {
            state.SkipWithError("conversion failed");
        }
        benchmark::DoNotOptimize(dst.data());
    }
    if (std::string(dst.data(), dst.size() - 1) != corpus.bytes) state.SkipWithError("wrong bytes");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * corpus.bytes.size()));
}

void Iconv(benchmark::State& state, const char* to, const char* from, const char* src, size_t srcBytes,
           char* dst, size_t dstBytes, size_t textBytes) {
    iconv_t cd = iconv_open(to, from);
    for (auto _ : state) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char* in = const_cast<char*>(src);
        size_t inLeft = srcBytes;
        char* out = dst;
        size_t outLeft = dstBytes;
        if (iconv(cd, &in, &inLeft, &out, &outLeft) == static_cast<size_t>(-1)) {
            state.SkipWithError("iconv failed");
        }
        benchmark::DoNotOptimize(dst);
    }
    iconv_close(cd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * textBytes));
}

void IconvDecode(benchmark::State& state, const Row& row) {
    const Corpus& corpus = CorpusOf(row);
    std::vector<wchar_t> dst(corpus.bytes.size() + 1);
    Iconv(state, "WCHAR_T", row.iconvName, corpus.bytes.data(), corpus.bytes.size(),
          reinterpret_cast<char*>(dst.data()), dst.size() * sizeof(wchar_t), corpus.bytes.size());
}

void IconvEncode(benchmark::State& state, const Row& row) {
    const Corpus& corpus = CorpusOf(row);
    std::vector<char> dst(corpus.bytes.size() + 1);
    Iconv(state, row.iconvName, "WCHAR_T", reinterpret_cast<const char*>(corpus.text.data()),
          corpus.text.size() * sizeof(wchar_t), dst.data(), dst.size(), corpus.bytes.size());
}

// Keeps each run's time per iteration, to print the ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs) {
            // With repetitions, the median stands for the row.
            bool aggregate = run.run_type == Run::RT_Aggregate;
            if (aggregate && run.aggregate_name != "median") continue;
            seconds_[run.run_name.str()] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatios() const {
        std::printf("\n%-12s %-7s %12s %12s %8s\n", "code page", "way", "quillet ms", "iconv ms", "ratio");
        for (const auto& row : kRows) {
            for (const char* way : {"decode", "encode"}) {
                auto quillet = seconds_.find(std::string("quillet/") + way + "/" + row.name);
                auto iconv = seconds_.find(std::string("iconv/") + way + "/" + row.name);
                if (quillet == seconds_.end() || iconv == seconds_.end()) continue;
                std::printf("%-12s %-7s %12.1f %12.1f %8.2f\n", row.name, way, quillet->second,
                            iconv->second, iconv->second / quillet->second);
            }
        }
    }

private:
    std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
    using Runner = void (*)(benchmark::State&, const Row&);
    struct Way {
        const char* name;
        Runner quillet;
        Runner iconv;
    };
    const Way kWays[] = {{"decode", QuilletDecode, IconvDecode}, {"encode", QuilletEncode, IconvEncode}};
    for (const auto& row : kRows) {
        for (const auto& [way, quillet, iconv] : kWays) {
            benchmark::RegisterBenchmark((std::string("quillet/") + way + "/" + row.name).c_str(), quillet, row)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark((std::string("iconv/") + way + "/" + row.name).c_str(), iconv, row)
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
