#pragma once

// The test a search spends its time in: which of a run of feature entries
// (layout in spatialindex/BinIndexFormat.h) have grid boxes over the query's.

#include <cstdint>

#include "foundation/RecNumSet.h"
#include "spatialindex/BinGrid.h"

namespace quillet {

// Adds to `result`, in file order, the feature numbers of those of the
// `count` 8-byte entries at `entries` whose boxes are over `query`
// (IsOver(entry, query)), and returns how many it added.
int32_t AddEntriesOver(const unsigned char* entries, int32_t count, const SearchBox& query,
                       bool bigEndian, RecNumSet* result);

}  // namespace quillet
