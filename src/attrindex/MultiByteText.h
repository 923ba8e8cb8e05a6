#pragma once

// The text of .atx keys and paths is in the system's multibyte (ANSI) code
// page, as the files of other programs hold it. Characters the code page
// lacks become its default character, so a key never fails to convert.

#include <string>

#include "foundation/Export.h"

namespace quillet {

QUILLET_EXPORT std::string ToMultiByte(const wchar_t* text);
// n bytes (or up to the first zero byte) back to wide characters.
QUILLET_EXPORT std::wstring FromMultiByte(const char* text, size_t n);

}  // namespace quillet
