#pragma once

// The system locale the library sees, and whether a table's text reads right
// under it. The library converts a code page that has no table of its own
// (the double-byte ones, 932, 936, 949 and 950, among them) through the
// system's ANSI or OEM code page, so on a Western locale such a table reads
// as code page 437 text. The tool cannot change that rule, but it can give
// the process the locale in which the rule reads the table's own code page:
// the library takes its locale from the environment at every query.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillet::tool {

struct SystemLocale {
    std::string name;   // "ja_JP"
    uint16_t language;  // primary language id
    uint16_t country;   // sublanguage id
    uint32_t ansi;      // ANSI code page
    uint32_t oem;       // OEM code page

    bool IsFarEast() const { return language == 4 || language == 17 || language == 18; }
};

// The locales `--locale` knows, Western first.
const std::vector<SystemLocale>& KnownLocales();
// The one named ("ja_JP", "ja_JP.UTF-8", "ja-jp"); nothing when unknown.
std::optional<SystemLocale> FindLocale(const std::string& name);
// What the library sees now; named after a known locale with the same values,
// else "LANGID/ANSI/OEM".
SystemLocale CurrentLocale();
// Gives the process `locale`'s system code pages and language. Runs before
// any thread starts: it sets environment variables.
void ApplyLocale(const SystemLocale& locale);

// How text in a code page (of a kind, CodePage::qovaCodePageEnum) is read
// under a locale.
struct TextReading {
    bool right;               // as the code page's own text
    std::string throughWhat;  // "its own table", "the system's OEM code page 437", ...
};
TextReading ReadingUnder(uint32_t codePage, int kind, const SystemLocale& locale);

// The locale `auto` takes for text in `codePage`: the current one when it
// reads right, else the first known locale that does; nothing when none does.
std::optional<SystemLocale> LocaleReading(uint32_t codePage, int kind);

}  // namespace quillet::tool
