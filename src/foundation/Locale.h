#pragma once

// Locale queries. They come from the environment, never from the process's C
// locale: QUILLET_LANGID (primary language id, default 9, English),
// QUILLET_COUNTRYID (default 1), QUILLET_ACP (ANSI code page, default 1252),
// QUILLET_OEMCP (OEM code page, default 437). Each is read at every call so
// that tests can switch locales through the environment.

#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

inline constexpr uint32_t LOCALE_SYSTEM_DEFAULT = 2048;
inline constexpr uint32_t LOCALE_USER_DEFAULT = 1024;
inline constexpr uint32_t LOCALE_IDEFAULTCODEPAGE = 11;
inline constexpr uint32_t LOCALE_IDEFAULTANSICODEPAGE = 0x1004;
inline constexpr uint32_t LOCALE_ICOUNTRY = 5;

class QUILLET_EXPORT QovaLocale {
public:
    // Primary language id of the user's locale (9 English, 10 Spanish, 17
    // Japanese, 4 Chinese, ...).
    static uint16_t GetLangID();
    static uint16_t GetCountryID();
};

QUILLET_EXPORT uint32_t GetACP();
QUILLET_EXPORT uint32_t GetOEMCP();
// Writes the locale value as decimal text (for the code page and country
// queries) into `buffer` of `size` characters; returns the characters written
// with the terminator, 0 on failure or unknown type.
QUILLET_EXPORT int GetLocaleInfoW(uint32_t locale, uint32_t type, wchar_t* buffer, int size);

// The decimal point of the current C locale (localeconv), which number text
// on disk is converted to and from.
QUILLET_EXPORT char LocaleDecimalPoint();

}  // namespace quillet
