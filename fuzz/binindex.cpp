// Opens a spatial bin index made of the fuzz bytes and runs a few searches,
// turning each result into a vector of feature numbers as a program that
// lists them does.
//
// Input: a 2-byte little-endian length n, then n bytes of the .sbx (the record
// file's index file), then the .sbn (its data file). A shorter input than n
// gives the .sbx all that remains and an empty .sbn.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "FuzzFiles.h"
#include "foundation/IEnvelope.h"
#include "foundation/RecNumSet.h"
#include "spatialindex/BinIndex.h"

namespace {

using quillet::fuzz::Folder;
using quillet::fuzz::WriteFile;

// More numbers than a fuzz input can index (each takes an 8-byte entry); a
// result above it comes from a claimed count (a query that covers the
// extent), which a program must read by ranges, not number by number.
constexpr int64_t kMostNumbers = int64_t{1} << 22;

void Search(quillet::BinIndex& index, double xmin, double ymin, double xmax, double ymax) {
    quillet::Envelope query(xmin, ymin, xmax, ymax);
    quillet::RecNumSet found;
    index.Search(&query, &found);
    // The ranges cost memory in proportion to themselves, whatever the count.
    std::vector<std::pair<int32_t, int32_t>> ranges(found.Ranges().begin(), found.Ranges().end());
    int64_t count = 0;
    for (size_t i = 0; i < ranges.size(); ++i) {
        if (ranges[i].first > ranges[i].second) abort();
        if (i > 0 && int64_t{ranges[i - 1].second} + 1 >= ranges[i].first) abort();
        count += int64_t{ranges[i].second} - ranges[i].first + 1;
    }
    if (count != found.Count()) abort();
    std::vector<int32_t> numbers;
    if (!found.ToVector(numbers, kMostNumbers)) {
        if (count <= kMostNumbers || !numbers.empty()) abort();
        return;
    }
    if (static_cast<int64_t>(numbers.size()) != count) abort();
    for (size_t i = 1; i < numbers.size(); ++i) {
        if (numbers[i - 1] >= numbers[i]) abort();
    }
    if (!numbers.empty() &&
        (numbers.front() != ranges.front().first || numbers.back() != ranges.back().second)) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    quillet::fuzz::InputScope scope;
    size_t indexSize = std::min<size_t>(data[0] | (data[1] << 8), size - 2);
    WriteFile(Folder() / "f.sbx", data + 2, indexSize);
    WriteFile(Folder() / "f.sbn", data + 2 + indexSize, size - 2 - indexSize);

    quillet::BinIndex index(quillet::fuzz::Wide(Folder() / "f.sbn").c_str());
    const quillet::WKSEnvelope& e = index.GetExtent();
    double w = e.XMax - e.XMin;
    double h = e.YMax - e.YMin;
    Search(index, e.XMin, e.YMin, e.XMax, e.YMax);
    Search(index, e.XMin + w / 4, e.YMin + h / 4, e.XMin + w / 2, e.YMin + h / 2);
    Search(index, e.XMin, e.YMin, e.XMin, e.YMin);
    Search(index, e.XMin - w, e.YMax, e.XMax + w, e.YMax + h);
    for (int32_t bin = 1; bin <= index.GetBinCount(); ++bin) (void)index.GetBin(bin);
    return 0;
}
