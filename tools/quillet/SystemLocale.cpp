#include "SystemLocale.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "Common.h"
#include "foundation/Locale.h"

namespace quillet::tool {

namespace {

constexpr int kOem = 1, kAnsi = 2, kIso = 3, kUtf8 = 4;
// The EUC pages of Far East locales, as the library numbers them.
constexpr uint32_t kEucJp = 885932, kEucTw = 885950;

bool HasTableFile(uint32_t codePage) {
    for (const auto& page : ConvertibleCodePages()) {
        if (page.id == codePage) return std::string(page.source) == "table file";
    }
    return false;
}

TextReading Through(const char* which, uint32_t system, uint32_t codePage) {
    return {system == codePage,
            std::string("the system's ") + which + " code page " + std::to_string(system)};
}

// A page with a table of its own reads through it, except where
// the library skips its tables: on a Far East locale, or when the page is the
// system's own.
TextReading OwnTableOrSystem(uint32_t codePage, const char* which, uint32_t system,
                             const SystemLocale& locale) {
    if (codePage == system || locale.IsFarEast() || !HasTableFile(codePage)) {
        return Through(which, system, codePage);
    }
    return {true, "its own table"};
}

// On a Far East locale ISO text is the locale's EUC, whatever the page says.
TextReading Iso(uint32_t codePage, const SystemLocale& locale) {
    if (codePage == 88591) return {locale.ansi == 1252, "the system's ANSI code page"};
    if (!locale.IsFarEast()) return {HasTableFile(codePage), "its own table"};
    bool traditionalChinese = locale.language == 4 && locale.country != 2 && locale.country != 4;
    if (traditionalChinese) return {codePage == kEucTw, "the built-in EUC-TW conversion"};
    if (locale.language == 17) {
        return {codePage == kEucJp && locale.ansi == 932,
                "EUC-JP through the system's ANSI code page"};
    }
    return {false, "the system's ANSI code page " + std::to_string(locale.ansi)};
}

std::string Normalized(std::string name) {
    name = name.substr(0, name.find_first_of(".@"));
    for (char& c : name)
        c = c == '-' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

bool SameValues(const SystemLocale& a, const SystemLocale& b) {
    return a.language == b.language && a.country == b.country && a.ansi == b.ansi && a.oem == b.oem;
}

}  // namespace

const std::vector<SystemLocale>& KnownLocales() {
    static const std::vector<SystemLocale> locales = {
        {"en_US", 9, 1, 1252, 437},  {"en_GB", 9, 2, 1252, 850},  {"de_DE", 7, 1, 1252, 850},
        {"fr_FR", 12, 1, 1252, 850}, {"es_ES", 10, 3, 1252, 850}, {"it_IT", 16, 1, 1252, 850},
        {"nl_NL", 19, 1, 1252, 850}, {"pt_BR", 22, 1, 1252, 850}, {"pl_PL", 21, 1, 1250, 852},
        {"cs_CZ", 5, 1, 1250, 852},  {"hu_HU", 14, 1, 1250, 852}, {"ru_RU", 25, 1, 1251, 866},
        {"el_GR", 8, 1, 1253, 737},  {"tr_TR", 31, 1, 1254, 857}, {"he_IL", 13, 1, 1255, 862},
        {"ar_SA", 1, 1, 1256, 720},  {"th_TH", 30, 1, 874, 874},  {"vi_VN", 42, 1, 1258, 1258},
        {"ja_JP", 17, 1, 932, 932},  {"zh_CN", 4, 2, 936, 936},   {"zh_TW", 4, 1, 950, 950},
        {"ko_KR", 18, 1, 949, 949}};
    return locales;
}

std::optional<SystemLocale> FindLocale(const std::string& name) {
    for (const auto& locale : KnownLocales()) {
        if (Normalized(locale.name) == Normalized(name)) return locale;
    }
    return std::nullopt;
}

SystemLocale CurrentLocale() {
    SystemLocale current{"", QovaLocale::GetLangID(), QovaLocale::GetCountryID(), GetACP(),
                         GetOEMCP()};
    for (const auto& locale : KnownLocales()) {
        if (SameValues(locale, current)) return locale;
    }
    current.name = "language " + std::to_string(current.language) + ", ANSI " +
                   std::to_string(current.ansi) + ", OEM " + std::to_string(current.oem);
    return current;
}

void ApplyLocale(const SystemLocale& locale) {
    setenv("QUILLET_LANGID", std::to_string(locale.language).c_str(), 1);
    setenv("QUILLET_COUNTRYID", std::to_string(locale.country).c_str(), 1);
    setenv("QUILLET_ACP", std::to_string(locale.ansi).c_str(), 1);
    setenv("QUILLET_OEMCP", std::to_string(locale.oem).c_str(), 1);
}

TextReading ReadingUnder(uint32_t codePage, int kind, const SystemLocale& locale) {
    switch (kind) {
        case kUtf8: return {true, "the built-in UTF-8 conversion"};
        case kIso: return Iso(codePage, locale);
        case kOem:
            if (codePage == 448 || codePage == 449) {
                return {locale.ansi == 1256, "its 7-bit index and the system's ANSI code page " +
                                                 std::to_string(locale.ansi)};
            }
            return OwnTableOrSystem(codePage, "OEM", locale.oem, locale);
        case kAnsi: return OwnTableOrSystem(codePage, "ANSI", locale.ansi, locale);
        default: return Through("ANSI", locale.ansi, codePage);
    }
}

std::optional<SystemLocale> LocaleReading(uint32_t codePage, int kind) {
    SystemLocale current = CurrentLocale();
    if (ReadingUnder(codePage, kind, current).right) return current;
    const auto& known = KnownLocales();
    auto found = std::find_if(known.begin(), known.end(), [&](const SystemLocale& locale) {
        return ReadingUnder(codePage, kind, locale).right;
    });
    if (found == known.end()) return std::nullopt;
    return *found;
}

}  // namespace quillet::tool
