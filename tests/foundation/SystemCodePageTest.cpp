// The locale and settings the environment sets, and the system's code page
// conversions.

#include "foundation/SystemCodePage.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <rapidcheck/gtest.h>

#include <clocale>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "foundation/Locale.h"
#include "foundation/Settings.h"
#include "foundation/Win32Error.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

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

TEST(SystemCodePageTest, LengthsBoundsAndBadArguments) {
    // A length of -1 converts the terminator too.
    wchar_t wide[8];
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "ab", -1, wide, 8), 3);
    EXPECT_STREQ(wide, L"ab");
    char bytes[8];
    EXPECT_EQ(WideCharToMultiByte(1252, 0, L"ab", -1, bytes, 8, nullptr, nullptr), 3);
    EXPECT_STREQ(bytes, "ab");
    std::wmemset(wide, L'#', 8);
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abcdef", 6, wide, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(wide[3], L'#');
    std::memset(bytes, '#', 8);
    EXPECT_EQ(WideCharToMultiByte(65001, 0, L"a\u20AC", 2, bytes, 3, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(bytes[3], '#');
    EXPECT_EQ(MultiByteToWideChar(1252, 0, nullptr, 3, wide, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", 0, wide, 4), 0);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", 3, nullptr, 4), 0);
    EXPECT_EQ(MultiByteToWideChar(99999, 0, "abc", 3, wide, 4), 0);  // an unknown code page
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
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

TEST(SysConversionTest, SingleByteAnsiCodePage) {
    ScopedEnv acp("QUILLET_ACP", "1252");
    EXPECT_EQ(sys::mbstowcs(nullptr, "caf\xE9", 0), 4u);
    wchar_t wide[8];
    EXPECT_EQ(sys::mbstowcs(wide, "caf\xE9", 8), 4u);
    EXPECT_STREQ(wide, L"caf\u00E9");
    wchar_t small[3] = {L'#', L'#', L'#'};
    EXPECT_EQ(sys::mbstowcs(small, "abcdef", 2), 2u);
    EXPECT_EQ(small[2], L'#');  // no room for the terminator: none written
    // Wcstombs refuses what the code page cannot represent.
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

// The double-byte code pages convert through tables filled from iconv; they
// must give what iconv gives converting the same text in one run: the same
// characters, the same invalid bytes replaced or refused, the same stop when
// the room runs out.
const std::vector<uint32_t> kCodePages = {932, 936, 949, 950};
constexpr size_t kFailed = static_cast<size_t>(-1);

// What a conversion call returned, its last error, and its whole destination.
template <class Out>
struct Outcome {
    int result;
    uint32_t error;
    std::basic_string<Out> dst;
    bool operator==(const Outcome&) const = default;
    friend std::ostream& operator<<(std::ostream& os, const Outcome& o) {
        os << o.result << " error " << o.error << " [" << std::hex;
        for (auto unit : o.dst)
            os << ' ' << static_cast<uint32_t>(static_cast<std::make_unsigned_t<Out>>(unit));
        return os << std::dec << " ]";
    }
};

// iconv over the whole text at once; an invalid or cut-short sequence is
// refused (`strict`) or becomes `replacement` and its first unit is skipped.
template <class In, class Out>
Outcome<Out> ThroughIconv(const char* to, const char* from, const std::basic_string<In>& text,
                          size_t room, bool strict, Out replacement) {
    iconv_t cd = iconv_open(to, from);
    std::basic_string<Out> dst(room, Out('#'));
    auto* in = reinterpret_cast<char*>(const_cast<In*>(text.data()));
    size_t inLeft = text.size() * sizeof(In);
    auto* out = reinterpret_cast<char*>(dst.data());
    size_t outLeft = room * sizeof(Out);
    Outcome<Out> outcome{0, 0, {}};
    while (inLeft > 0 || outcome.error == 0) {
        size_t result = inLeft > 0 ? iconv(cd, &in, &inLeft, &out, &outLeft)
                                   : iconv(cd, nullptr, nullptr, &out, &outLeft);
        if (result != kFailed && inLeft == 0) break;
        if (result != kFailed) continue;
        if (errno == E2BIG || (!strict && outLeft == 0)) {
            outcome.error = ERROR_INSUFFICIENT_BUFFER;
        } else if (strict) {
            outcome.error = ERROR_NO_UNICODE_TRANSLATION;
        } else {
            std::memcpy(out, &replacement, sizeof(Out));
            out += sizeof(Out);
            outLeft -= sizeof(Out);
            in += sizeof(In);
            inLeft -= sizeof(In);
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
            continue;
        }
        break;
    }
    iconv_close(cd);
    if (outcome.error == 0) outcome.result = static_cast<int>(room - outLeft / sizeof(Out));
    outcome.dst = dst;
    return outcome;
}

std::string IconvName(uint32_t codePage) {
    return "CP" + std::to_string(codePage);
}

rc::Gen<std::string> MixedBytes() {
    // Mostly ASCII words, with lead bytes, trail bytes of either half and
    // zeros among them.
    return rc::gen::container<std::string>(rc::gen::weightedOneOf<char>({
        {6, rc::gen::inRange<char>('a', 'z' + 1)},
        {3, rc::gen::cast<char>(rc::gen::inRange(0x80, 0x100))},
        {1, rc::gen::cast<char>(rc::gen::inRange(0x40, 0x80))},
        {1, rc::gen::just('\0')},
    }));
}

RC_GTEST_PROP(DoubleByteCodePage, DecodesAsIconvInOneRun, ()) {
    uint32_t codePage = *rc::gen::elementOf(kCodePages);
    std::string bytes = *MixedBytes();
    RC_PRE(!bytes.empty());
    bool strict = *rc::gen::arbitrary<bool>();
    auto room = *rc::gen::inRange<size_t>(0, bytes.size() + 2);
    uint32_t flags = strict ? MB_ERR_INVALID_CHARS : 0;

    auto whole = ThroughIconv<char, wchar_t>("WCHAR_T", IconvName(codePage).c_str(), bytes,
                                             4 * bytes.size(), strict, L'\uFFFD');
    int n = static_cast<int>(bytes.size());
    SetLastError(0);
    RC_ASSERT(MultiByteToWideChar(codePage, flags, bytes.data(), n, nullptr, 0) == whole.result);
    RC_ASSERT(GetLastError() == whole.error);

    Outcome<wchar_t> ours{0, 0, std::wstring(room, L'#')};
    SetLastError(0);
    ours.result = MultiByteToWideChar(codePage, flags, bytes.data(), n,
                                      room ? ours.dst.data() : nullptr, static_cast<int>(room));
    ours.error = GetLastError();
    if (room == 0) return;  // a count, as above
    RC_ASSERT(ours == (ThroughIconv<char, wchar_t>("WCHAR_T", IconvName(codePage).c_str(), bytes,
                                                   room, strict, L'\uFFFD')));
}

RC_GTEST_PROP(DoubleByteCodePage, EncodesAsIconvInOneRun, ()) {
    uint32_t codePage = *rc::gen::elementOf(kCodePages);
    // Characters of the code page come from decoding pairs of bytes.
    std::string pairs =
        *rc::gen::container<std::string>(rc::gen::cast<char>(rc::gen::inRange(0x81, 0xFF)));
    auto decoded = ThroughIconv<char, wchar_t>("WCHAR_T", IconvName(codePage).c_str(), pairs,
                                               2 * pairs.size(), false, L'\uFFFD');
    std::vector<wchar_t> pool(decoded.dst.begin(), decoded.dst.begin() + decoded.result);
    pool.insert(pool.end(), {L'a', L'z', L'\0', L'\u00C5', L'\u20AC', static_cast<wchar_t>(0x1F600),
                             static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x7FFFFFFF)});
    std::wstring text = *rc::gen::container<std::wstring>(rc::gen::elementOf(pool));
    RC_PRE(!text.empty());
    auto room = *rc::gen::inRange<size_t>(0, 2 * text.size() + 2);
    bool strict = *rc::gen::arbitrary<bool>();

    Outcome<char> ours{0, 0, std::string(room, '#')};
    int usedDefault = -1;
    SetLastError(0);
    ours.result = WideCharToMultiByte(
        codePage, strict ? WC_ERR_INVALID_CHARS : 0, text.data(), static_cast<int>(text.size()),
        room ? ours.dst.data() : nullptr, static_cast<int>(room), nullptr, &usedDefault);
    ours.error = GetLastError();
    size_t iconvRoom = room ? room : 2 * text.size();
    auto expected = ThroughIconv<wchar_t, char>(IconvName(codePage).c_str(), "WCHAR_T", text,
                                                iconvRoom, strict, '?');
    if (room == 0) {
        RC_ASSERT(ours.result == expected.result);
        return;
    }
    RC_ASSERT(ours == expected);
}

class SettingsTest : public ::testing::Test {
protected:
    void WriteStore(const std::string& text) {
        std::ofstream((dir_ / "settings").string()) << text;
    }

    test::TempDir dir_;
    ScopedEnv config_{"QUILLET_CONFIG", (dir_ / "settings").c_str()};
};

TEST_F(SettingsTest, StorePathFollowsTheEnvironment) {
    EXPECT_EQ(CRegKey::StorePath(), (dir_ / "settings").string());
    ScopedEnv noConfig("QUILLET_CONFIG", nullptr);
    ScopedEnv xdg("XDG_CONFIG_HOME", "/x");
    EXPECT_EQ(CRegKey::StorePath(), "/x/quillet/settings");
    ScopedEnv noXdg("XDG_CONFIG_HOME", nullptr);
    ScopedEnv home("HOME", "/home/q");
    EXPECT_EQ(CRegKey::StorePath(), "/home/q/.config/quillet/settings");
}

// A byte order mark and Windows line ends are ignored.
TEST_F(SettingsTest, ReadsValuesOfAKey) {
    WriteStore(
        "\xEF\xBB\xBFSOFTWARE\\QOVA\\Common\\CodePage\\dbfDefault =  UTF-8  \r\n"
        "# defaults\n"
        "; also a comment\n"
        "  SOFTWARE\\QOVA\\Common\\CodePage\\other=caf\xC3\xA9\n"
        "not a setting\n"
        "SOFTWARE\\QOVA\\Elsewhere\\dbfDefault = 1252\n");
    CRegKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"SOFTWARE\\QOVA\\Common\\CodePage", KEY_READ),
              static_cast<int32_t>(ERROR_SUCCESS));
    wchar_t value[16];
    uint32_t chars = 16;
    ASSERT_EQ(key.QueryStringValue(L"dbfDefault", value, &chars), 0);
    EXPECT_STREQ(value, L"UTF-8");
    EXPECT_EQ(chars, 6u);
    chars = 16;
    ASSERT_EQ(key.QueryStringValue(L"OTHER", value, &chars), 0);  // names ignore case
    EXPECT_STREQ(value, L"caf\u00E9");
    chars = 16;
    EXPECT_EQ(key.QueryStringValue(L"missing", value, &chars),
              static_cast<int32_t>(ERROR_FILE_NOT_FOUND));
    uint32_t bytes = sizeof(value);
    ASSERT_EQ(key.QueryValue(value, L"dbfDefault", &bytes), 0);
    EXPECT_EQ(bytes, 6 * sizeof(wchar_t));
    EXPECT_EQ(key.Close(), 0);
    EXPECT_EQ(key.QueryStringValue(L"dbfDefault", value, &chars),
              static_cast<int32_t>(ERROR_INVALID_HANDLE));
}

TEST_F(SettingsTest, TooSmallABufferGetsTheSizeNeededAndNothingWritten) {
    WriteStore("A\\B\\name = 12345\n");
    CRegKey key;
    ASSERT_EQ(key.Open(HKEY_CURRENT_USER, L"a\\b"), 0);
    wchar_t value[4] = {L'#', L'#', L'#', L'#'};
    uint32_t chars = 4;
    EXPECT_EQ(key.QueryStringValue(L"name", value, &chars),
              static_cast<int32_t>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(chars, 6u);
    EXPECT_EQ(value[0], L'#');
}

TEST_F(SettingsTest, MissingKeysAndStores) {
    WriteStore("A\\B\\C\\name = 1\n");
    CRegKey key;
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"A\\B"), 0) << "a key with subkeys exists";
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"A\\X"), static_cast<int32_t>(ERROR_FILE_NOT_FOUND));
    ScopedEnv noStore("QUILLET_CONFIG", (dir_ / "absent").c_str());
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, L"A\\B\\C"), static_cast<int32_t>(ERROR_FILE_NOT_FOUND));
}

}  // namespace
}  // namespace quillet
