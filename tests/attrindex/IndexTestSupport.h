#pragma once

// Helpers of the attribute index tests: indexes of either format over a
// temporary file, keys made from small integers, and a check of the file's
// bytes that the tree itself does not look at.

#include <memory>
#include <set>
#include <string>

#include "attrindex/MTIndex.h"
#include "attrindex/MTIndexNG.h"
#include "foundation/IFIDSet.h"

namespace quillet::test {

// Code page of the text keys in these tests.
inline constexpr uint32_t kTestCodePage = 1252;

struct IndexKind {
    MTDataType type;
    int32_t size;  // the size argument of SetDataType
    bool ng;       // next-generation format, else older
};

std::unique_ptr<MTIndex> MakeIndex(const IndexKind& kind);
// Opens read-write with the disposition (OPEN_ALWAYS, CREATE_ALWAYS, ...).
HRESULT OpenIndex(MTIndex& index, const std::wstring& path, uint32_t disposition);

// A key of the kind's type from k: numbers k (k / 4 for floats, k + 0.5 for
// dates), text from the digits of k in an alphabet with a space and "é".
MTKey KeyOf(MTDataType type, int k, std::wstring& text);

// An empty string when every node of the file keeps zeros where it holds no
// entry (and free nodes zeros but for their brother word); else what is wrong.
std::string UnusedBytesFault(const std::wstring& path, const MTIndex& index);

// The ids of a set, ascending.
std::set<int32_t> IdsOf(IFIDSet& set);

}  // namespace quillet::test
