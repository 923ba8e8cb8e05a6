// Opens a spatial bin index made of the fuzz bytes and runs a few searches.
//
// Input: a 2-byte little-endian length n, then n bytes of the .sbx (the record
// file's index file), then the .sbn (its data file). A shorter input than n
// gives the .sbx all that remains and an empty .sbn.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "FuzzFiles.h"
#include "foundation/IEnvelope.h"
#include "foundation/RecNumSet.h"
#include "spatialindex/BinIndex.h"

namespace {

using quillet::fuzz::Folder;
using quillet::fuzz::WriteFile;

void Search(quillet::BinIndex& index, double xmin, double ymin, double xmax, double ymax) {
    quillet::Envelope query(xmin, ymin, xmax, ymax);
    quillet::RecNumSet found;
    index.Search(&query, &found);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
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
