// What each kind of converter does to text: the 8-bit tables (when
// LoadMatchTables reads them, and a round trip through every shipped table),
// UTF-8, and the multi-byte and 7-bit paths.

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"
#include "foundation/DebugOutput.h"

namespace quillet {
namespace {

using test::Decode;
using test::Encode;
using test::ScopedLocale;
using test::ScopedTableHome;

unsigned DecodeByte(CodePage& page, int byte) {
    return Decode(page, std::string(1, static_cast<char>(byte)))[0];
}

int EncodeChar(CodePage& page, unsigned ch) {
    std::string bytes = Encode(page, std::wstring(1, static_cast<wchar_t>(ch)));
    return static_cast<unsigned char>(bytes[0]);
}

// A table file that maps byte 0x80 to `unicode`, so that a test sees whether
// it was read.
void WriteMarkerTable(const ScopedTableHome& home, const std::string& name, unsigned unicode) {
    char line[32];
    std::snprintf(line, sizeof line, "0x80 0x%04X\n", unicode);
    home.Write(name, line);
}

TEST(CodePageTables, NothingIsLoadedWhereTheSystemServes) {
    ScopedLocale locale(9, 1, 1250, 852);
    ScopedTableHome home;
    for (const char* name : {"1250.txt", "852.txt", "88591.txt", "885932.txt", "1251.txt"}) {
        WriteMarkerTable(home, name, 0x100);
    }
    auto loaded = [](uint32_t id) {
        CodePage page(id);
        return DecodeByte(page, 0x80) == 0x100;
    };
    // The ANSI and the OEM code page, 88591, and those above 885920.
    for (uint32_t id : {1250u, 852u, 88591u, 885932u}) EXPECT_FALSE(loaded(id)) << id;
    EXPECT_TRUE(loaded(1251u));
    ScopedLocale japanese(17, 81, 932, 932);
    EXPECT_FALSE(loaded(1251u));
}

TEST(CodePageTables, AreNeverClearedByALaterCodePage) {
    ScopedLocale locale(9, 1, 1252, 437);
    ScopedTableHome home;
    WriteMarkerTable(home, "1250.txt", 0x100);
    home.Write("1251.txt", "0x81 0x0101\n");
    CodePage page(1250u);
    EXPECT_TRUE(page.SetCodePage(1251u));
    EXPECT_EQ(EncodeChar(page, 0x100), 0x80);  // the reverse map only gains
    EXPECT_EQ(EncodeChar(page, 0x101), 0x81);
    EXPECT_EQ(DecodeByte(page, 0x80), 0x80);  // the forward table is overwritten
    EXPECT_TRUE(page.SetCodePage(1252u));     // the system's: nothing loaded
    EXPECT_EQ(DecodeByte(page, 0x81), 0x101);
}

TEST(CodePageTables, MalformedLineEndsTheTable) {
    auto locale = test::English();
    ScopedTableHome home;
    home.Write("1250.txt", "0x41 0x0100\n0x80 0x0102\nzz\n0x81 0x0103\n");
    CodePage page(1250u);
    EXPECT_EQ(DecodeByte(page, 0x41), L'A');  // pairs below 0x80 are ignored
    EXPECT_EQ(DecodeByte(page, 0x80), 0x102);
    EXPECT_EQ(DecodeByte(page, 0x81), 0x81);  // not given: the byte's own value
}

TEST(CodePageTables, UnmappedCharactersBecomeUnderscore) {
    auto locale = test::English();
    CodePage page(1253u);
    char dst[4];
    EXPECT_TRUE(page.Native2Source(L"\u00E9\u03B1", dst, 4));
    EXPECT_STREQ(dst, "_\xE1");
    EXPECT_EQ(page.GetByteLength(L"\u00E9\u03B1x"), 3u);
}

TEST(CodePageTables, ByteConverterWritesNoTerminatorWhenFull) {
    auto locale = test::English();
    CodePage page(1253u);
    char dst[4] = {'#', '#', '#', '#'};
    page.Ntv2Src8Bit(L"abc", dst, 2);
    EXPECT_EQ(std::string(dst, 4), "ab##");
}

// The pairs of a shipped table file, byte to Unicode value.
std::map<int, unsigned> ReadTable(const std::filesystem::path& path) {
    std::map<int, unsigned> pairs;
    FILE* file = std::fopen(path.c_str(), "r");
    unsigned byte = 0, unicode = 0;
    while (file && std::fscanf(file, "%x %x", &byte, &unicode) == 2) pairs[byte] = unicode;
    if (file) std::fclose(file);
    return pairs;
}

TEST(CodePageTables, EveryShippedTableRoundTripsEveryByteThatMaps) {
    int tables = 0;
    for (const auto& entry : std::filesystem::directory_iterator(test::ShippedTables())) {
        std::string stem = entry.path().stem().string();
        if (stem.find_first_not_of("0123456789") != std::string::npos || stem == "88591") continue;
        auto number = static_cast<uint32_t>(std::stoul(stem));
        // A locale whose system code pages are not this one, so that the table is read.
        ScopedLocale locale(9, 1, number == 1250 ? 1252 : 1250, number == 852 ? 437 : 852);
        CodePage page(number);
        ASSERT_EQ(page.GetCodePageId(), number);
        auto pairs = ReadTable(entry.path());
        std::map<unsigned, int> owner;  // the byte that wins each value
        for (int b = 0x80; b <= 0xFF; ++b) owner[pairs.count(b) ? pairs[b] : b] = b;
        for (auto [byte, unicode] : pairs) {
            EXPECT_EQ(DecodeByte(page, byte), unicode) << stem << " " << byte;
            EXPECT_EQ(EncodeChar(page, unicode), owner[unicode]) << stem;
        }
        ++tables;
    }
    EXPECT_GE(tables, 35);
}

// UTF-8 conversion: the checks of the decoder with their diagnostic lines, the
// RFC 2279 encoder, and how both fill a bounded destination.
const wchar_t* const kM1 = L"Wrong character code: (c < 0xc2)\n";
const wchar_t* const kM2 = L"Wrong character code: (!((pFromStr[i + 1] ^ 0x80) < 0x40))\n";
const wchar_t* const kM3 = L"Wrong character code: (c >= 0xe1 || pFromStr[i + 1] >= 0xa0)\n";
const wchar_t* const kM4 = L"Wrong character code: (c >= 0xf1 || pFromStr[i + 1] >= 0x90)\n";
const wchar_t* const kM5 = L"Wrong character code: (c >= 0xf9 || pFromStr[i+1] >= 0x88)\n";
const wchar_t* const kM6 = L"Wrong character code: (c >= 0xfd || pFromStr[i+1] >= 0x84)\n";

// Captures the debug output for the length of a test.
class Utf8Decode : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = SetDebugOutputSink([this](const wchar_t* m) { messages_.emplace_back(m); });
    }
    void TearDown() override { SetDebugOutputSink(previous_); }

    // Decodes into a destination pre-filled with '#', so that skipped
    // positions show.
    std::wstring Decode(const std::string& bytes, uint32_t size = 32) {
        std::vector<wchar_t> dst(size, L'#');
        EXPECT_TRUE(page_.Utf82CharBuff(bytes.c_str(), dst.data(), size));
        return std::wstring(dst.data(), wcsnlen(dst.data(), size));
    }

    CodePage page_{65001u};
    std::vector<std::wstring> messages_;
    DebugSink previous_;
};

TEST_F(Utf8Decode, AcceptsEveryLengthAndSurrogates) {
    EXPECT_EQ(Decode("a\xC3\xA9\xE2\x82\xAC"), L"a\u00E9\u20AC");
    EXPECT_EQ(Decode("\xED\xA0\x80"), std::wstring(1, 0xD800));
    EXPECT_EQ(Decode("\xF4\x90\x80\x80"), std::wstring(1, 0x110000));
    EXPECT_EQ(Decode("\xF8\x88\x80\x80\x80"), std::wstring(1, 0x200000));
    EXPECT_EQ(Decode("\xFD\xBF\xBF\xBF\xBF\xBF"), std::wstring(1, 0x7FFFFFFF));
    // The ends of the two- and three-byte forms.
    EXPECT_EQ(Decode("\xC2\x80\xDF\xBF\xE0\xA0\x80\xE1\x80\x80\xEF\xBF\xBF"),
              (std::wstring{0x80, 0x7FF, 0x800, 0x1000, 0xFFFF}));
    EXPECT_TRUE(messages_.empty());
    EXPECT_EQ(Decode("\xE0\x9F\xBFz"), L"###z");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM3, kM1, kM1}));
}

TEST_F(Utf8Decode, RejectsWithTheMessageOfTheLeadByteRow) {
    EXPECT_EQ(Decode("\xC0\x80z"), L"##z");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM1, kM1}));
    messages_.clear();
    EXPECT_EQ(Decode("\xE0\x80\x80z"), L"###z");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM3, kM1, kM1}));
    messages_.clear();
    Decode("\xC3z");
    Decode("\xF0\x80\x80\x80");
    Decode("\xF8\x80\x80\x80\x80");
    Decode("\xFC\x80\x80\x80\x80\x80");
    EXPECT_EQ(messages_[0], kM2);
    EXPECT_EQ(messages_[1], kM4);
    EXPECT_EQ(messages_[5], kM5);
    EXPECT_EQ(messages_[10], kM6);
}

TEST_F(Utf8Decode, FeAndFfAreSkippedSilently) {
    EXPECT_EQ(Decode("\xFE\xFFz"), L"##z");
    EXPECT_TRUE(messages_.empty());
}

TEST_F(Utf8Decode, TruncatedSequencesStopAtTheTerminator) {
    EXPECT_EQ(Decode("\xE2\x82"), L"##");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM3, kM1}));
}

std::string Encode(const std::wstring& text, uint32_t size) {
    CodePage page(65001u);
    std::vector<char> dst(size + 1, '#');
    EXPECT_TRUE(page.Char2Utf8Buff(text.c_str(), dst.data(), size));
    EXPECT_EQ(dst[size], '#');
    return std::string(dst.data(), size);
}

TEST(Utf8Encode, WritesUpToSixBytes) {
    std::wstring text = {L'a', 0xE9, 0x20AC, 0x10FFFF, 0x200000, 0x7FFFFFFF};
    EXPECT_EQ(Encode(text, 24).c_str(),
              std::string("a\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF"
                          "\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF"));
}

TEST(Utf8Encode, CutsTheTextWhereASequenceDoesNotFit) {
    std::wstring text = {L'a', 0xE9, 0x20AC};
    EXPECT_EQ(Encode(text, 4), std::string("a\xC3\xA9\0", 4));
    // One byte left for a 3-byte sequence: a zero stands in its place.
    EXPECT_EQ(Encode({0x20AC, L'b'}, 3), std::string("\0b\0", 3));
    EXPECT_EQ(Encode(text, 2), std::string("a\0", 2));
    EXPECT_EQ(Encode(text, 1), std::string("\0", 1));
    EXPECT_EQ(Encode(L"", 8).c_str(), std::string());
}

TEST(Utf8Encode, ByteLength) {
    CodePage page(65001u);
    EXPECT_EQ(page.GetByteLength(L""), 0u);
    EXPECT_EQ(page.GetByteLength(L"\u20AC"), 3u);
    std::wstring longText(300, 0x20AC);  // beyond the stack buffer
    EXPECT_EQ(page.GetByteLength(longText.c_str()), 900u);
}

// The multi-byte and 7-bit paths: EUC-TW against glibc's own EUC-TW, EUC-JP
// through the system's Shift-JIS, and the 7-bit Arabic code pages with their
// mode switches.

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
                EXPECT_EQ(text[0], expected ? expected : 0xFFFD)
                    << plane << " " << row << " " << cell;
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
            EXPECT_EQ(Decode(page, Encode(page, std::wstring(1, expected))),
                      std::wstring(1, expected));
        }
    }
    iconv_close(cd);
    EXPECT_GT(checked, 19000);
}

TEST(EucTw, ReplacesWhatItCannotDecodeOrEncode) {
    ScopedLocale taiwan(4, 886, 950, 950);
    CodePage page(CodePage::qovaCodePageISO);
    EXPECT_EQ(Decode(page, "\xC4\xA1\x80\xFEz\x8E\xA4\xA1\xA1"), L"\u4E00\uFFFD\uFFFDz\uFFFD");
    EXPECT_EQ(Decode(page, "\xFE\xFE\x8E\xB0\xCB\xA1"),
              L"\uFFFD\uFFFD");  // between the extension ranges
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
    EXPECT_EQ(Decode(page, "}AB"), L"\u0627");  // 0x42 has no letter: dropped
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
