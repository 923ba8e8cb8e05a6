#pragma once

// Copies a dBASE table as its bytes stand: the header and field descriptors
// as they are but for the record count, and each record kept byte for byte.
// Whatever a field holds reaches the copy, including values the library's
// typed setters would refuse or change (a date of zeros, text in a code
// page the process cannot convert, a number wider than the library makes).

#include <cstdint>
#include <filesystem>
#include <vector>

#include "DbfLayout.h"

namespace quillet::tool {

// Which records of the table are marked deleted.
std::vector<bool> DeletedRecords(const std::filesystem::path& path, const DbfLayout& layout);

// Writes the table at `source` to `target`, leaving out record n where
// `dropped[n]` holds. The layout must be intact. Returns the records written.
int32_t CopyTableRecords(const std::filesystem::path& source, const DbfLayout& layout,
                         const std::filesystem::path& target, const std::vector<bool>& dropped);

}  // namespace quillet::tool
