#include "foundation/Locale.h"

#include <clocale>
#include <cstdlib>
#include <string>

#include "foundation/Win32Error.h"

namespace quillet {

namespace {

// A positive decimal number from the environment, else the fallback.
uint32_t EnvironmentNumber(const char* name, uint32_t fallback) {
    const char* text = std::getenv(name);
    if (!text || !*text) return fallback;
    char* end = nullptr;
    unsigned long value = std::strtoul(text, &end, 10);
    if (*end != '\0' || value == 0 || value > 0xFFFFFFFFul) return fallback;
    return static_cast<uint32_t>(value);
}

// The flags a locale query may carry beside its type.
constexpr uint32_t kLocaleFlags = 0x80000000u /* LOCALE_NOUSEROVERRIDE */ |
                                  0x40000000u /* LOCALE_USE_CP_ACP */;

}  // namespace

uint16_t QovaLocale::GetLangID() {
    return static_cast<uint16_t>(EnvironmentNumber("QUILLET_LANGID", 9));
}

uint16_t QovaLocale::GetCountryID() {
    return static_cast<uint16_t>(EnvironmentNumber("QUILLET_COUNTRYID", 1));
}

uint32_t GetACP() { return EnvironmentNumber("QUILLET_ACP", 1252); }

uint32_t GetOEMCP() { return EnvironmentNumber("QUILLET_OEMCP", 437); }

int GetLocaleInfoW(uint32_t, uint32_t type, wchar_t* buffer, int size) {
    uint32_t value;
    switch (type & ~kLocaleFlags) {
        case LOCALE_IDEFAULTCODEPAGE: value = GetOEMCP(); break;
        case LOCALE_IDEFAULTANSICODEPAGE: value = GetACP(); break;
        case LOCALE_ICOUNTRY: value = QovaLocale::GetCountryID(); break;
        default: SetLastError(ERROR_INVALID_PARAMETER); return 0;
    }
    std::string text = std::to_string(value);
    int needed = static_cast<int>(text.size()) + 1;
    if (size == 0) return needed;
    if (!buffer || size < needed) {
        SetLastError(size < 0 || !buffer ? ERROR_INVALID_PARAMETER : ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    for (size_t i = 0; i < text.size(); ++i) buffer[i] = static_cast<wchar_t>(text[i]);
    buffer[text.size()] = L'\0';
    return needed;
}

char LocaleDecimalPoint() {
    const std::lconv* conventions = std::localeconv();
    const char* point = conventions ? conventions->decimal_point : nullptr;
    return point && *point ? *point : '.';
}

}  // namespace quillet
