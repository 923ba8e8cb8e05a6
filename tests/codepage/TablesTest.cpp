// The 8-bit tables: when LoadMatchTables reads them, what they do to text, and
// a round trip through every shipped table.

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <map>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"

namespace quillet {
namespace {

using test::ScopedLocale;
using test::ScopedTableHome;

wchar_t DecodeByte(CodePage& page, unsigned char byte) {
    char src[2] = {static_cast<char>(byte), 0};
    wchar_t dst[2] = {L'#', L'#'};
    page.Source2Native(src, dst, 2);
    return dst[0];
}

int EncodeChar(CodePage& page, wchar_t ch) {
    wchar_t src[2] = {ch, 0};
    char dst[2] = {'#', '#'};
    page.Native2Source(src, dst, 2);
    return static_cast<unsigned char>(dst[0]);
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
    EXPECT_NE(DecodeByte(*std::make_unique<CodePage>(1250u), 0x80), 0x100);    // the ANSI code page
    EXPECT_NE(DecodeByte(*std::make_unique<CodePage>(852u), 0x80), 0x100);     // the OEM code page
    EXPECT_NE(DecodeByte(*std::make_unique<CodePage>(88591u), 0x80), 0x100);
    EXPECT_NE(DecodeByte(*std::make_unique<CodePage>(885932u), 0x80), 0x100);  // above 885920
    EXPECT_EQ(DecodeByte(*std::make_unique<CodePage>(1251u), 0x80), 0x100);
    ScopedLocale japanese(17, 81, 932, 932);
    EXPECT_NE(DecodeByte(*std::make_unique<CodePage>(1251u), 0x80), 0x100);
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
    EXPECT_EQ(DecodeByte(page, 0x80), 0x80);   // the forward table is overwritten
    EXPECT_TRUE(page.SetCodePage(1252u));      // the system's: nothing loaded
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
            EXPECT_EQ(static_cast<unsigned>(DecodeByte(page, byte)), unicode) << stem << " " << byte;
            EXPECT_EQ(EncodeChar(page, static_cast<wchar_t>(unicode)), owner[unicode]) << stem;
        }
        ++tables;
    }
    EXPECT_GE(tables, 35);
}

}  // namespace
}  // namespace quillet
