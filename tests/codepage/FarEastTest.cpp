// The multi-byte and 7-bit paths: EUC-TW against glibc's own EUC-TW, EUC-JP
// through the system's Shift-JIS, and the 7-bit Arabic code pages with their
// mode switches.

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"

namespace quillet {
namespace {

using test::Decode;
using test::Encode;
using test::ScopedLocale;
using test::ScopedTableHome;

// glibc's reading of one EUC-TW code, or 0.
wchar_t IconvEucTw(iconv_t cd, const std::string& code) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    std::string in = code;
    wchar_t out = 0;
    char* inPtr = in.data();
    size_t inLeft = in.size();
    char* outPtr = reinterpret_cast<char*>(&out);
    size_t outLeft = sizeof out;
    if (iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<size_t>(-1)) return 0;
    return out;
}

TEST(EucTw, PlanesOneToThreeAgreeWithGlibc) {
    ScopedLocale taiwan(4, 886, 950, 950);
    CodePage page(CodePage::qovaCodePageISO);
    ASSERT_EQ(page.GetCodePageId(), 885950u);
    iconv_t cd = iconv_open("WCHAR_T", "EUC-TW");
    ASSERT_NE(cd, reinterpret_cast<iconv_t>(-1));
    const int lastRow[] = {0, 0x7D, 0x72, 0x62};
    int checked = 0;
    for (int plane = 1; plane <= 3; ++plane) {
        for (int row = 0xA1; row <= 0x80 + lastRow[plane]; ++row) {
            for (int cell = 0xA1; cell <= 0xFE; ++cell) {
                std::string code = {'\x8E', static_cast<char>(0xA0 + plane), static_cast<char>(row),
                                    static_cast<char>(cell)};
                wchar_t expected = IconvEucTw(cd, code);
                std::wstring text = Decode(page, code);
                ASSERT_EQ(text.size(), 1u);
                EXPECT_EQ(text[0], expected ? expected : 0xFFFD) << plane << " " << row << " " << cell;
                if (!expected) continue;
                ++checked;
                // Plane 1 is written in its two-byte form.
                std::string written = Encode(page, text);
                EXPECT_EQ(IconvEucTw(cd, written), expected);
                if (plane == 1) {
                    EXPECT_EQ(written, code.substr(2));
                }
            }
        }
    }
    // The extension set (plane byte 0xB0) is glibc's plane 15 in two ranges.
    for (std::string cells : {"\xA1\xA1", "\xCA\xFE", "\xD0\xA1", "\xE0\xB0"}) {
        wchar_t expected = IconvEucTw(cd, "\x8E\xAF" + cells);
        EXPECT_EQ(Decode(page, "\x8E\xB0" + cells), std::wstring(1, expected ? expected : 0xFFFD));
        if (expected) {
            EXPECT_EQ(Decode(page, Encode(page, std::wstring(1, expected))), std::wstring(1, expected));
        }
    }
    iconv_close(cd);
    EXPECT_GT(checked, 19000);
}

TEST(EucTw, ReplacesWhatItCannotDecodeOrEncode) {
    ScopedLocale taiwan(4, 886, 950, 950);
    CodePage page(CodePage::qovaCodePageISO);
    EXPECT_EQ(Decode(page, "\xC4\xA1\x80\xFEz\x8E\xA4\xA1\xA1"), L"\u4E00\uFFFD\uFFFDz\uFFFD");
    EXPECT_EQ(Decode(page, "\xFE\xFE\x8E\xB0\xCB\xA1"), L"\uFFFD\uFFFD");  // between the extension ranges
    EXPECT_EQ(Encode(page, L"a\u00E9\u4E00"), "a?\xC4\xA1");
}

TEST(EucTw, ChineseCountryFourUsesTheAnsiCodePage) {
    ScopedLocale mainland(4, 4, 936, 936);
    CodePage page(CodePage::qovaCodePageISO);
    EXPECT_EQ(Decode(page, "\xD6\xD0"), L"\u4E2D");
    EXPECT_EQ(Encode(page, L"\u4E2D"), "\xD6\xD0");
}

TEST(EucJp, GoesThroughShiftJis) {
    ScopedLocale japan(17, 81, 932, 932);
    CodePage page(CodePage::qovaCodePageISO);
    EXPECT_EQ(Decode(page, "\xA4\xA2\xB0\xA1\x8E\xB1!"), L"\u3042\u4E9C\uFF71!");
    EXPECT_EQ(Encode(page, L"\u3042\u4E9C\uFF71!"), "\xA4\xA2\xB0\xA1\x8E\xB1!");
    char out[8];
    CodePage::SJIS2EUC("", out, 8);
    EXPECT_STREQ(out, "");
    CodePage::SJIS2EUC("\x82\xA0", out, 1);
    EXPECT_STREQ(out, "");
    CodePage::EUC2SJIS("\xF4\xA6", out, 8);  // the last row of the EUC lead bytes
    EXPECT_STREQ(out, "\xEA\xA4");
}

class Arabic7 : public ::testing::Test {
protected:
    ScopedLocale arabic_{1, 20, 1256, 720};
};

TEST_F(Arabic7, SwitchesModesOnBraces) {
    CodePage page(449u);
    EXPECT_EQ(Decode(page, "Ab}HG{cd"), L"Ab\u0628\u0627cd");
    EXPECT_EQ(Encode(page, L"Ab\u0628\u0627cd"), "Ab}HG{cd");
    // Braces met in Latin mode nest, and are kept.
    EXPECT_EQ(Decode(page, "{x}}H"), L"{x}\u0628");
    page.Set_Arabic_Major();
    EXPECT_EQ(Decode(page, "HG{ab"), L"\u0628\u0627ab");
    EXPECT_EQ(Encode(page, L"\u0628\u0627ab"), "HG{ab");
    page.Set_Latin_Major();
    EXPECT_EQ(Decode(page, "HG"), L"HG");
}

TEST_F(Arabic7, AlarabiReadsItsOwnIndexFile) {
    ScopedTableHome home;
    home.Write("alarabi7index.txt", "0\n199\n");  // 0x41 is alef
    CodePage page(448u);
    EXPECT_EQ(Decode(page, "}AB"), L"\u0627");   // 0x42 has no letter: dropped
    EXPECT_EQ(Encode(page, L"\u0627"), "}A");
}

TEST_F(Arabic7, MissingIndexDropsTheArabicLetters) {
    ScopedTableHome home;
    CodePage page(449u);
    EXPECT_EQ(Decode(page, "a}HG"), L"a");
}

TEST_F(Arabic7, WithoutTablesTheBytesAreCopied) {
    test::ScopedEnv oem("QUILLET_OEMCP", "449");  // the system's own: nothing is loaded
    CodePage page(449u);
    std::wstring dst(8, L'#');
    EXPECT_FALSE(page.Source2Native("a}H", dst.data(), 8));
    EXPECT_EQ(std::wstring(dst.c_str()), L"a}H");
    std::string bytes(8, '#');
    EXPECT_FALSE(page.Native2Source(L"a}H", bytes.data(), 8));
    EXPECT_EQ(std::string(bytes.c_str()), "a}H");
}

}  // namespace
}  // namespace quillet
