// The locale the environment sets, and the system's code page conversions.

#include "foundation/SystemCodePage.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "foundation/Locale.h"
#include "foundation/Win32Error.h"
#include "support/ScopedEnv.h"

namespace quillet {
namespace {

using test::ScopedEnv;

std::wstring ToWide(uint32_t codePage, const std::string& bytes, uint32_t flags = 0) {
    int n = MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    if (n == 0) return L"<failed>";
    std::wstring out(static_cast<size_t>(n), L'\0');
    EXPECT_EQ(MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()),
                                  out.data(), n),
              n);
    return out;
}

std::string ToBytes(uint32_t codePage, const std::wstring& text, int* usedDefault = nullptr) {
    int n = WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                nullptr, usedDefault);
    if (n == 0) return "<failed>";
    std::string out(static_cast<size_t>(n), '\0');
    EXPECT_EQ(WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()),
                                  out.data(), n, nullptr, usedDefault),
              n);
    return out;
}

TEST(SystemCodePageTest, BytesToWideAndBack) {
    const struct {
        uint32_t codePage;
        std::string bytes;
        std::wstring text;
    } cases[] = {
        {1252, "Caf\xE9 \x80 \x9F\xFF", L"Caf\u00E9 \u20AC \u0178\u00FF"},
        {437, "\x81\x9B\xE1\xB0", L"\u00FC\u00A2\u00DF\u2591"},
        {65001, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", L"\u00E9\u20AC\U0001F600"},
        {1251, "\xCF\xF0\xE8", L"\u041F\u0440\u0438"},
        {28591, "\xE9", L"\u00E9"},
        {1258, "\xC3\xD0", L"\u0102\u0110"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ToWide(c.codePage, c.bytes), c.text) << c.codePage;
        EXPECT_EQ(ToBytes(c.codePage, c.text), c.bytes) << c.codePage;
    }
}

TEST(SystemCodePageTest, EveryByteOfASingleByteCodePageRoundTrips) {
    for (uint32_t codePage : {1252u, 437u, 850u, 1251u, 874u}) {
        std::string all;
        for (int b = 1; b < 256; ++b) all += static_cast<char>(b);
        std::wstring wide = ToWide(codePage, all);
        ASSERT_EQ(wide.size(), all.size()) << codePage;
        EXPECT_EQ(ToBytes(codePage, wide), all) << codePage;
    }
    // Undefined in 1252: kept as the code point of the same number.
    EXPECT_EQ(ToWide(1252, "\x81\x8D"), L"\u0081\u008D");
}

TEST(SystemCodePageTest, TerminatorIsConvertedWithLengthMinusOne) {
    wchar_t wide[8];
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "ab", -1, wide, 8), 3);
    EXPECT_STREQ(wide, L"ab");
    char bytes[8];
    EXPECT_EQ(WideCharToMultiByte(1252, 0, L"ab", -1, bytes, 8, nullptr, nullptr), 3);
    EXPECT_STREQ(bytes, "ab");
}

TEST(SystemCodePageTest, DestinationBoundsAreRespected) {
    wchar_t wide[4] = {L'#', L'#', L'#', L'#'};
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abcdef", 6, wide, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(wide[3], L'#');

    char bytes[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(WideCharToMultiByte(65001, 0, L"a\u20AC", 2, bytes, 3, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(bytes[3], '#');
}

TEST(SystemCodePageTest, UnrepresentableCharactersBecomeTheDefault) {
    int usedDefault = -1;
    EXPECT_EQ(ToBytes(1252, L"a\u4E2Db", &usedDefault), "a?b");
    EXPECT_EQ(usedDefault, 1);
    EXPECT_EQ(ToBytes(1252, L"ab", &usedDefault), "ab");
    EXPECT_EQ(usedDefault, 0);
    char out[4];
    EXPECT_EQ(WideCharToMultiByte(437, 0, L"\u20AC", 1, out, 4, "_", nullptr), 1);
    EXPECT_EQ(out[0], '_');
    EXPECT_EQ(ToBytes(932, L"\u00C5x", &usedDefault), "?x");
    EXPECT_EQ(usedDefault, 1);
}

TEST(SystemCodePageTest, InvalidInputIsReplacedOrRefused) {
    EXPECT_EQ(ToWide(65001, "a\xFF" "b"), L"a\uFFFDb");
    EXPECT_EQ(ToWide(65001, "\xC0\xAF"), L"\uFFFD\uFFFD");  // overlong
    EXPECT_EQ(ToWide(65001, "a\xFF", MB_ERR_INVALID_CHARS), L"<failed>");
    EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    char out[8];
    EXPECT_EQ(WideCharToMultiByte(65001, WC_ERR_INVALID_CHARS, L"\xD800", 1, out, 8, nullptr, nullptr),
              0);
    EXPECT_EQ(ToBytes(65001, L"\xD800"), "\xEF\xBF\xBD");
}

TEST(SystemCodePageTest, BadArgumentsAndUnknownCodePages) {
    wchar_t wide[4];
    EXPECT_EQ(MultiByteToWideChar(1252, 0, nullptr, 3, wide, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", 0, wide, 4), 0);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", 3, nullptr, 4), 0);
    EXPECT_EQ(MultiByteToWideChar(99999, 0, "abc", 3, wide, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(SystemCodePageTest, AnsiAndOemCodePagesFollowTheEnvironment) {
    ScopedEnv acp("QUILLET_ACP", "1251");
    ScopedEnv oem("QUILLET_OEMCP", "866");
    EXPECT_EQ(ToWide(CP_ACP, "\xCF"), L"\u041F");
    EXPECT_EQ(ToWide(CP_OEMCP, "\x8F"), L"\u041F");
    wchar_t wide[3];
    ASSERT_TRUE(OemToCharBuffW("\x8F\x80", wide, 2));
    EXPECT_EQ(std::wstring(wide, 2), L"\u041F\u0410");
    char bytes[2];
    ASSERT_TRUE(CharToOemBuffW(L"\u041F\u0410", bytes, 2));
    EXPECT_EQ(std::string(bytes, 2), "\x8F\x80");
    ScopedEnv back("QUILLET_ACP", nullptr);
    EXPECT_EQ(ToWide(CP_ACP, "\xCF"), L"\u00CF");
}

TEST(SysConversionTest, MbstowcsCountsConvertsAndTerminatesWithinBounds) {
    ScopedEnv acp("QUILLET_ACP", "1252");
    EXPECT_EQ(sys::mbstowcs(nullptr, "caf\xE9", 0), 4u);
    wchar_t wide[8];
    EXPECT_EQ(sys::mbstowcs(wide, "caf\xE9", 8), 4u);
    EXPECT_STREQ(wide, L"caf\u00E9");
    wchar_t small[3] = {L'#', L'#', L'#'};
    EXPECT_EQ(sys::mbstowcs(small, "abcdef", 2), 2u);
    EXPECT_EQ(small[2], L'#');  // no room for the terminator: none written
}

TEST(SysConversionTest, WcstombsRefusesUnrepresentableCharacters) {
    ScopedEnv acp("QUILLET_ACP", "1252");
    char bytes[8];
    EXPECT_EQ(sys::wcstombs(bytes, L"caf\u00E9", 8), 4u);
    EXPECT_STREQ(bytes, "caf\xE9");
    EXPECT_EQ(sys::wcstombs(nullptr, L"\u20AC", 0), 1u);
    EXPECT_EQ(sys::wcstombs(bytes, L"a\u4E2D", 8), static_cast<size_t>(-1));
    EXPECT_EQ(sys::wcstombs(bytes, L"a\u4E2D", 1), 1u) << "stops when full, before the bad one";
}

TEST(SysConversionTest, MultiByteAnsiCodePage) {
    ScopedEnv acp("QUILLET_ACP", "932");
    wchar_t wide[8];
    EXPECT_EQ(sys::mbstowcs(wide, "\x93\xFA" "a", 8), 2u);
    EXPECT_STREQ(wide, L"\u65E5a");
    EXPECT_EQ(sys::mbstowcs(wide, "\x93", 8), static_cast<size_t>(-1));
    char bytes[8] = {};
    EXPECT_EQ(sys::wcstombs(bytes, L"\u65E5\u672C", 3), 2u);  // the second does not fit
    EXPECT_EQ(std::string(bytes, 2), "\x93\xFA");
    wchar_t one = 0;
    EXPECT_EQ(sys::mbtowc(&one, "\x93\xFA", 2), 2);
    EXPECT_EQ(one, L'\u65E5');
    EXPECT_EQ(sys::mbtowc(&one, "\x93\xFA", 1), -1);
    EXPECT_EQ(sys::wctomb(bytes, L'\u672C'), 2);
    EXPECT_EQ(std::string(bytes, 2), "\x96\x7B");
    EXPECT_EQ(sys::wctomb(bytes, L'\u00C5'), -1);
}

TEST(SysConversionTest, SingleCharacterCalls) {
    ScopedEnv acp("QUILLET_ACP", "65001");
    wchar_t one = L'#';
    EXPECT_EQ(sys::mbtowc(&one, "\xE2\x82\xAC", 3), 3);
    EXPECT_EQ(one, L'\u20AC');
    EXPECT_EQ(sys::mbtowc(&one, "", 1), 0);
    EXPECT_EQ(sys::mbtowc(&one, "a\xFF", 2), 1) << "what follows the character does not matter";
    EXPECT_EQ(sys::mbtowc(&one, "\xE2\x82", 2), -1);
    EXPECT_EQ(sys::mbtowc(nullptr, nullptr, 0), 0);
    char bytes[8];
    EXPECT_EQ(sys::wctomb(bytes, L'\U0001F600'), 4);
    EXPECT_EQ(sys::wctomb(bytes, L'\0'), 1);
    EXPECT_EQ(bytes[0], '\0');
}

// Read at every call, so that tests can switch locales in between.
TEST(LocaleTest, TheEnvironmentSetsTheLocaleElseEnglishWithWesternCodePages) {
    ScopedEnv noLang("QUILLET_LANGID", nullptr);
    ScopedEnv noCountry("QUILLET_COUNTRYID", nullptr);
    ScopedEnv noAcp("QUILLET_ACP", nullptr);
    ScopedEnv noOem("QUILLET_OEMCP", nullptr);
    {
        ScopedEnv lang("QUILLET_LANGID", "17");
        ScopedEnv acp("QUILLET_ACP", "932");
        EXPECT_EQ(QovaLocale::GetLangID(), 17);
        EXPECT_EQ(GetACP(), 932u);
    }
    EXPECT_EQ(QovaLocale::GetCountryID(), 1);
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_EQ(GetOEMCP(), 437u);
    ScopedEnv junk("QUILLET_LANGID", "ten");
    EXPECT_EQ(QovaLocale::GetLangID(), 9);
}

TEST(LocaleTest, LocaleInfoAsDecimalText) {
    ScopedEnv oem("QUILLET_OEMCP", "850");
    ScopedEnv country("QUILLET_COUNTRYID", "49");
    wchar_t buffer[8];
    EXPECT_EQ(GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_IDEFAULTCODEPAGE, buffer, 8), 4);
    EXPECT_STREQ(buffer, L"850");
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDEFAULTANSICODEPAGE, buffer, 8), 5);
    EXPECT_STREQ(buffer, L"1252");
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, buffer, 8), 3);
    EXPECT_STREQ(buffer, L"49");
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDEFAULTCODEPAGE, nullptr, 0), 4);
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDEFAULTCODEPAGE, buffer, 3), 0);
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, 0x9999, buffer, 8), 0);
}

TEST(LocaleTest, DecimalPointOfTheCLocale) {
    EXPECT_EQ(LocaleDecimalPoint(), '.');
    const char* before = std::setlocale(LC_NUMERIC, nullptr);
    std::string saved = before ? before : "C";
    for (const char* name : {"de_DE.UTF-8", "de_DE", "fr_FR.UTF-8"}) {
        if (std::setlocale(LC_NUMERIC, name)) {
            EXPECT_EQ(LocaleDecimalPoint(), ',');
            std::setlocale(LC_NUMERIC, saved.c_str());
            return;
        }
    }
    GTEST_SKIP() << "no locale with a decimal comma is installed";
}

}  // namespace
}  // namespace quillet
