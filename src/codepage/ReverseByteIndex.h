#pragma once

// The reverse map of the 8-bit tables as pages by code point, so that encoding
// finds a character's byte in constant time rather than along a hash chain.
// Rebuilt from the map whenever a table file adds to it.

#include "codepage/CodePage.h"
#include "foundation/CodePointPages.h"

namespace quillet {

struct CodePage::ReverseByteIndex : CodePointPages<int16_t, -1> {};

}  // namespace quillet
