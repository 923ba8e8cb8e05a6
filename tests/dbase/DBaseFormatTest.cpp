// The header and descriptor records and the bytes of a new table.

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::ReadBytes;
using test::TempDir;

TEST(DBaseHeaderRecord, RoundTripsThroughItsFileForm) {
    DBase::HeaderRecord header;
    header.version = 0x83;
    header.year = 126;
    header.month = 11;
    header.day = 22;
    header.numRecords = 0x01020304;
    header.headerLength = 0x0141;
    header.recordLength = -2;  // read back as the signed value it is on disk
    header.languageDriver = 0x57;
    unsigned char disk[32];
    std::memset(disk, 0xEE, sizeof disk);
    DBase::SwapHeaderNL(header, disk);
    const unsigned char expected[32] = {0x83, 126, 11, 22, 4, 3, 2, 1, 0x41, 0x01, 0xFE, 0xFF,
                                        0,    0,   0,  0,  0, 0, 0, 0, 0,    0,    0,    0,
                                        0,    0,   0,  0,  0, 0x57, 0, 0};
    EXPECT_EQ(0, std::memcmp(disk, expected, 32));
    DBase::HeaderRecord back = DBase::SwapHeaderLN(disk);
    EXPECT_EQ(back.version, 0x83);
    EXPECT_EQ(back.numRecords, 0x01020304);
    EXPECT_EQ(back.headerLength, 0x0141);
    EXPECT_EQ(back.recordLength, -2);
    EXPECT_EQ(back.languageDriver, 0x57);
}

TEST(DBaseHeaderRecord, FieldCountTruncatesAndNeverGoesNegative) {
    DBase::HeaderRecord header;
    header.headerLength = 33;
    EXPECT_EQ(header.FieldCount(), 0);
    header.headerLength = 63;
    EXPECT_EQ(header.FieldCount(), 0);
    header.headerLength = 97;
    EXPECT_EQ(header.FieldCount(), 2);
    header.headerLength = 100;  // not 33 + 32k: still (100 - 32) / 32
    EXPECT_EQ(header.FieldCount(), 2);
    header.headerLength = -100;
    EXPECT_EQ(header.FieldCount(), 0);
}

TEST(DBaseFieldRecord, ElevenByteNameFillsTheSlot) {
    DBase::FieldRecord field = test::RawField("ABCDEFGHIJK", 'N', 12, 3);
    unsigned char disk[32];
    field.EncodeTo(disk);
    EXPECT_EQ(0, std::memcmp(disk, "ABCDEFGHIJK", 11));
    EXPECT_EQ(disk[11], 'N');
    EXPECT_EQ(disk[16], 12);
    EXPECT_EQ(disk[17], 3);
    for (int i : {12, 13, 14, 15, 18, 25, 31}) EXPECT_EQ(disk[i], 0) << i;
    DBase::FieldRecord back;
    back.DecodeFrom(disk);
    EXPECT_EQ(0, std::memcmp(back.name, "ABCDEFGHIJK", 11));
    EXPECT_EQ(back.type, 'N');
    EXPECT_EQ(back.width, 12);
    EXPECT_EQ(back.decimals, 3);
}

// Header, terminator and end-of-file byte: 32 + 1 + 1 bytes.
TEST(DBaseCreate, EmptyTableIsHeaderTerminatorAndEndOfFile) {
    TempDir dir;
    DBase table(dir.Wide("t.dbf"));
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageANSI));
    EXPECT_FALSE(table.IsOpen());
    auto bytes = ReadBytes(dir / "t.dbf");
    ASSERT_EQ(bytes.size(), 34u);
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    EXPECT_EQ(bytes[0], 3);
    EXPECT_EQ(bytes[1], local.tm_year);
    EXPECT_EQ(bytes[2], local.tm_mon + 1);
    EXPECT_EQ(bytes[3], local.tm_mday);
    EXPECT_EQ(bytes[8], 33);
    EXPECT_EQ(bytes[10], 1);
    EXPECT_EQ(bytes[29], 0x57);  // ANSI 1252 in an English locale
    EXPECT_EQ(bytes[32], 0x0D);
    EXPECT_EQ(bytes[33], 0x1A);
    EXPECT_FALSE(std::filesystem::exists(dir / "t.cpg"));
}

TEST(DBaseCreate, CodePageWithoutLanguageDriverWritesCpg) {
    TempDir dir;
    DBase table(dir.Wide("u.dbf"));
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageUTF8));
    auto bytes = ReadBytes(dir / "u.dbf");
    ASSERT_EQ(bytes.size(), 34u);
    EXPECT_EQ(bytes[29], 0);
    auto cpg = ReadBytes(dir / "u.cpg");
    EXPECT_EQ(std::string(cpg.begin(), cpg.end()), "UTF-8");

    DBase reopened(dir.Wide("u.dbf"));
    ASSERT_TRUE(reopened.Open(true, false, CodePage::qovaCodePageANSI));
    EXPECT_EQ(reopened.GetCodePage().GetCodePageId(), 65001u);
}

TEST(DBaseCreate, UncreatableFileMapsTheFileError) {
    DBase table(L"/nonexistent-folder/t.dbf");
    EXPECT_FALSE(table.Create(CodePage::qovaCodePageANSI));
    EXPECT_EQ(table.GetLastStatus(), 3);  // not found, passed through
}

}  // namespace
}  // namespace quillet
