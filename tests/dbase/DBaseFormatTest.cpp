// The header and descriptor records and the bytes of a new table, against
// bytes worked out by hand.

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "TableBuilder.h"
#include "dbase/DBase.h"

namespace quillet {
namespace {

using test::ReadBytes;
using test::TempDir;

TEST(DBaseFormat, HeaderRecordRoundTripsThroughItsFileForm) {
    // The record length reads back as the signed value it is on disk.
    const DBase::HeaderRecord header{0x83, 126, 11, 22, 0x01020304, 0x0141, -2, 0x57};
    unsigned char disk[32];
    std::memset(disk, 0xEE, sizeof disk);
    DBase::SwapHeaderNL(header, disk);
    const unsigned char expected[32] = {0x83, 126, 11, 22, 4, 3, 2, 1,    0x41, 0x01, 0xFE,
                                        0xFF, 0,   0,  0,  0, 0, 0, 0,    0,    0,    0,
                                        0,    0,   0,  0,  0, 0, 0, 0x57, 0,    0};
    EXPECT_EQ(0, std::memcmp(disk, expected, 32));
    DBase::HeaderRecord back = DBase::SwapHeaderLN(disk);
    unsigned char again[32];
    DBase::SwapHeaderNL(back, again);
    EXPECT_EQ(0, std::memcmp(again, expected, 32));
    EXPECT_EQ(back.recordLength, -2);
}

TEST(DBaseFormat, ElevenByteNameFillsTheFieldRecordSlot) {
    unsigned char disk[32];
    test::RawField("ABCDEFGHIJK", 'N', 12, 3).EncodeTo(disk);
    unsigned char expected[32] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I',
                                  'J', 'K', 'N', 0,   0,   0,   0,   12,  3};
    EXPECT_EQ(0, std::memcmp(disk, expected, 32));
    DBase::FieldRecord back;
    back.DecodeFrom(disk);
    unsigned char again[32];
    back.EncodeTo(again);
    EXPECT_EQ(0, std::memcmp(again, expected, 32));
}

// Header, terminator and end-of-file byte: 32 + 1 + 1 bytes.
TEST(DBaseFormat, EmptyTableIsHeaderTerminatorAndEndOfFile) {
    TempDir dir;
    DBase table(dir.Wide("t.dbf"));
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageANSI));
    EXPECT_FALSE(table.IsOpen());
    auto bytes = ReadBytes(dir / "t.dbf");
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    auto expected = test::RawTable(33, 1, 0, {}, {});  // ANSI 1252 in an English locale
    expected[1] = static_cast<unsigned char>(local.tm_year);
    expected[2] = static_cast<unsigned char>(local.tm_mon + 1);
    expected[3] = static_cast<unsigned char>(local.tm_mday);
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(dir.Files(), std::vector<std::string>{"t.dbf"});
}

TEST(DBaseFormat, CodePageWithoutLanguageDriverLivesInACpgFile) {
    TempDir dir;
    DBase table(dir.Wide("u.dbf"));
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageUTF8));
    auto bytes = ReadBytes(dir / "u.dbf");
    ASSERT_EQ(bytes.size(), 34u);
    EXPECT_EQ(bytes[29], 0);
    auto cpg = ReadBytes(dir / "u.cpg");
    EXPECT_EQ(std::string(cpg.begin(), cpg.end()), "UTF-8");
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageANSI));
    EXPECT_EQ(table.GetCodePage().GetCodePageId(), 65001u);
    EXPECT_TRUE(table.DeleteFileW());  // the .cpg file goes with the table
    EXPECT_TRUE(dir.Files().empty());
}

}  // namespace
}  // namespace quillet
