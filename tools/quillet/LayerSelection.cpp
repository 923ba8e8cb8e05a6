#include "LayerSelection.h"

#include <algorithm>
#include <sstream>

#include "AtxSearch.h"
#include "Common.h"
#include "foundation/IEnvelope.h"
#include "foundation/RecNumSet.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/ShapeIndexing.h"

namespace quillet::tool {

namespace fs = std::filesystem;

namespace {

using Range = LayerSelection::Range;

// The features whose bins meet the window, as records of a layer of
// `records`, or every record when the layer has no readable bin index or one
// that counts other features than the layer has records: that index was made
// for other shapes, and would miss some.
std::vector<Range> BinCandidates(const fs::path& shp, int32_t records, const WKSEnvelope& window) {
    std::vector<Range> all = {{0, records - 1}};
    fs::path path = Utf8(BinIndexPathFor(WidePath(shp).c_str()).GetPath().str());
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return all;
    BinIndex index(WidePath(path).c_str());
    if (!index.IsOpen() || index.GetFeatureCount() != records) return all;
    Envelope query(window);
    RecNumSet found;
    index.Search(&query, &found);
    std::vector<Range> ranges;
    // A damaged index may name numbers no record has.
    for (auto [first, last] : found.Ranges()) {
        first = std::max(first, 1);
        last = std::min(last, records);
        if (first <= last) ranges.push_back({first - 1, last - 1});
    }
    return ranges;
}

// The records of `sorted` (ascending) that lie in `ranges`, as ranges.
std::vector<Range> Intersect(const std::vector<Range>& ranges, const std::vector<int32_t>& sorted) {
    std::vector<Range> out;
    auto range = ranges.begin();
    for (int32_t n : sorted) {
        while (range != ranges.end() && range->second < n) ++range;
        if (range == ranges.end()) break;
        if (n < range->first) continue;
        if (!out.empty() && out.back().second + 1 == n) {
            out.back().second = n;
        } else {
            out.push_back({n, n});
        }
    }
    return out;
}

}  // namespace

WKSEnvelope ParseBox(const std::string& text, const std::string& option) {
    std::istringstream in(text);
    double v[4];
    char comma = ',';
    for (int i = 0; i < 4; ++i) {
        if ((i > 0 && !(in >> comma)) || comma != ',' || !(in >> v[i])) {
            throw UsageError(option + ": expected XMIN,YMIN,XMAX,YMAX, got '" + text + "'");
        }
    }
    in >> std::ws;
    if (!in.eof()) throw UsageError(option + ": expected XMIN,YMIN,XMAX,YMAX, got '" + text + "'");
    return WKSEnvelope{v[0], v[1], v[2], v[3]};
}

LayerSelection::LayerSelection(const fs::path& shp, int32_t records,
                               const std::optional<WKSEnvelope>& window,
                               const std::optional<Condition>& condition)
    : window_(window) {
    if (records <= 0) return;
    candidates_ =
        window ? BinCandidates(shp, records, *window) : std::vector<Range>{{0, records - 1}};
    if (!condition) return;
    bool indexed = false;
    fs::path table = fs::path(shp).replace_extension(".dbf");
    candidates_ = Intersect(candidates_, MatchingRecords(table, condition->field, condition->op,
                                                         condition->values, indexed));
}

bool LayerSelection::InWindow(const unsigned char* record, int32_t length) const {
    if (!window_) return true;
    WKSEnvelope box;
    return ShapeRecordEnvelope(record, length, &box) && !box.IsEmpty() && box.Intersects(*window_);
}

}  // namespace quillet::tool
