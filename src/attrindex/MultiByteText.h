#pragma once

// The text of .atx keys and paths is in the system's multibyte (ANSI) code
// page, as the files of other programs hold it. Characters the code page
// lacks become its default character, so a key never fails to convert.

#include <cstdint>
#include <string>

#include "foundation/Export.h"
#include "foundation/SystemCodePage.h"

namespace quillet {

QUILLET_EXPORT std::string ToMultiByte(const wchar_t* text, uint32_t codePage = CP_ACP);
// n bytes (or up to the first zero byte) back to wide characters.
QUILLET_EXPORT std::wstring FromMultiByte(const char* text, size_t n);

// Whether the code page writes every ASCII character as its own byte and
// reads it back so, alone and in a run, so that ASCII text needs no
// conversion. Not so for the 7-bit national and EBCDIC code pages, nor for
// those that escape some ASCII (UTF-7).
QUILLET_EXPORT bool WritesAsciiAsIs(uint32_t codePage);

}  // namespace quillet
