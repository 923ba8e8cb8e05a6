#pragma once

// Which records of a shape layer a window (--bbox) and a condition on the
// table (--where) leave. The bin index beside the layer, when there is one,
// and the column's index, when there is one, name the candidates, so that a
// small window or a rare value costs little on a big layer; a candidate then
// passes only when its own box meets the window, since a bin index names
// every feature whose bins the window meets.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/WKSEnvelope.h"

namespace quillet::tool {

// XMIN,YMIN,XMAX,YMAX; a usage error naming `option` when the text is not
// four numbers so separated.
WKSEnvelope ParseBox(const std::string& text, const std::string& option = "--bbox");

struct Condition {
    std::string field;
    std::string op;  // as `atx query` takes it
    std::vector<std::string> values;
};

class LayerSelection {
public:
    // Record numbers from 0; ranges hold both ends.
    using Range = std::pair<int32_t, int32_t>;

    LayerSelection(const std::filesystem::path& shp, int32_t records,
                   const std::optional<WKSEnvelope>& window,
                   const std::optional<Condition>& condition);

    // The candidates, ascending.
    const std::vector<Range>& Candidates() const { return candidates_; }
    // Whether a candidate's record (its bytes as the shape file holds them)
    // meets the window; every record does when there is none.
    bool InWindow(const unsigned char* record, int32_t length) const;

private:
    std::optional<WKSEnvelope> window_;
    std::vector<Range> candidates_;
};

}  // namespace quillet::tool
