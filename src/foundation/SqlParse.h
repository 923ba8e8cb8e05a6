#pragma once

// SqlParse: the two text comparisons of SQL predicates that the attribute
// indexes need. Both compare code points exactly (no case folding), so that an
// index that inserts and searches with them orders and matches alike.

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT SqlParse {
public:
    // SQL LIKE: whether `text` matches `pattern` as a whole, where "%" stands
    // for any run of characters (also none) and "_" for exactly one. There is
    // no escape character. A null text or pattern counts as empty.
    static bool PatternMatch(const wchar_t* text, const wchar_t* pattern);

    // Compares at most n characters of a and b as if the shorter were padded
    // with spaces; returns -1, 0 or 1. A null string counts as empty; n <= 0
    // compares nothing.
    static int lstrncmp_pad(const wchar_t* a, const wchar_t* b, int n);
};

}  // namespace quillet
