// Adding and dropping columns, field definitions and compaction.

#include <gtest/gtest.h>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::CreateTable;
using test::ReadBytes;
using test::TempDir;

int Check(DBase::qovaDataType type, int width, int decimals, int* storedWidth = nullptr) {
    int status = DBase::CheckLengthAndScale(type, width, decimals);
    if (storedWidth) *storedWidth = width;
    return status;
}

TEST(DBaseFieldDefinition, WidthAndDecimalRules) {
    int stored = 0;
    EXPECT_EQ(Check(DBase::qovaCharacter, 255, 3, &stored), 0);
    EXPECT_EQ(stored, 254);
    EXPECT_EQ(Check(DBase::qovaCharacter, 256, 0), 16);
    EXPECT_EQ(Check(DBase::qovaCharacter, 0, 0), 16);
    EXPECT_EQ(Check(DBase::qovaNumeric, 1, 1), 16);
    EXPECT_EQ(Check(DBase::qovaNumeric, 1, 0), 0);
    EXPECT_EQ(Check(DBase::qovaNumeric, 5, 3), 0);
    EXPECT_EQ(Check(DBase::qovaNumeric, 5, 4), 16);
    EXPECT_EQ(Check(DBase::qovaFloat, 19, 17), 0);
    EXPECT_EQ(Check(DBase::qovaFloat, 20, 0), 16);
    EXPECT_EQ(Check(DBase::qovaDate, 3, 2, &stored), 0);
    EXPECT_EQ(stored, 8);
    EXPECT_EQ(Check(DBase::qovaLogical, 9, 0, &stored), 0);
    EXPECT_EQ(stored, 1);
    EXPECT_EQ(Check(DBase::qovaMemo, 10, 0), 16);
    EXPECT_EQ(Check(static_cast<DBase::qovaDataType>('X'), 10, 0), 16);
}

class DBaseSchema : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = dir_.Wide("s.dbf");
        CreateTable(path_, {{L"NAME", DBase::qovaCharacter, 5, 0}, {L"AREA", DBase::qovaNumeric, 6, 1}});
    }

    void Fill(int count) {
        DBase table(path_);
        ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(table.AddRecord());
            ASSERT_TRUE(table.SetFieldString(0, String::Formatted(L"r%d", i)));
            ASSERT_TRUE(table.SetFieldDouble(1, i + 0.5));
        }
        ASSERT_TRUE(table.Close());
    }

    TempDir dir_;
    std::wstring path_;
};

TEST_F(DBaseSchema, AddingToAnEmptyTableGrowsItBy32Bytes) {
    auto before = ReadBytes(dir_ / "s.dbf");
    DBase table(path_);
    ASSERT_TRUE(table.AddColumn(L"RATE", DBase::qovaFloat, 10, 3));
    EXPECT_FALSE(table.IsOpen());
    auto after = ReadBytes(dir_ / "s.dbf");
    ASSERT_EQ(after.size(), before.size() + 32);
    EXPECT_EQ(after[after.size() - 2], 0x0D);
    EXPECT_EQ(after.back(), 0x1A);
    EXPECT_EQ(after[8], 33 + 3 * 32);
    EXPECT_EQ(after[10], 1 + 5 + 6 + 10);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&after[96]), 4), "RATE");
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(table.GetFieldType(2), 'F');
    EXPECT_EQ(table.GetFieldDecimals(2), 3);
}

TEST_F(DBaseSchema, AddingToATableWithRecordsDropsDeletedAndZeroFills) {
    Fill(3);
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, true, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.DeleteRecord(1));
    ASSERT_TRUE(table.Flush());  // marked, not yet compacted
    ASSERT_TRUE(table.AddColumn(L"WHEN", DBase::qovaDate, 8, 0));
    EXPECT_TRUE(table.IsOpen());  // reopened as it was
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusOk);
    ASSERT_EQ(table.GetNumRecords(), 2);
    ASSERT_EQ(table.GetNumFields(), 3);
    ASSERT_TRUE(table.MoveTo(1));
    EXPECT_EQ(table.GetFieldString(0), String(L"r2"));
    EXPECT_EQ(std::string(table.GetFieldPointer(2), 8), std::string(8, '\0'));
    EXPECT_EQ(table.GetFieldString(2), String());
    ASSERT_TRUE(table.SetFieldString(2, L"2020-05-06"));
    ASSERT_TRUE(table.Close());
    auto bytes = ReadBytes(dir_ / "s.dbf");
    EXPECT_EQ(bytes.size(), 33u + 3 * 32 + 2 * 20 + 1);
}

TEST_F(DBaseSchema, ClashingOrRefusedColumnsChangeNothing) {
    Fill(1);
    auto before = ReadBytes(dir_ / "s.dbf");
    DBase table(path_);
    EXPECT_FALSE(table.AddColumn(L"Area", DBase::qovaNumeric, 5, 0));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusDuplicateName);
    StringArray names;
    names.Add(L"ONE");
    names.Add(L"one");
    DBase::qovaDataType types[] = {DBase::qovaLogical, DBase::qovaLogical};
    int widths[] = {1, 1}, decimals[] = {0, 0};
    EXPECT_FALSE(table.AddColumns(names, types, widths, decimals));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusDuplicateName);
    EXPECT_FALSE(table.AddColumn(L"WIDE", DBase::qovaCharacter, 256, 0));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusBadWidth);
    EXPECT_EQ(ReadBytes(dir_ / "s.dbf"), before);
    EXPECT_FALSE(table.IsOpen());
}

TEST_F(DBaseSchema, NewNamesAreCutToTenCharacters) {
    DBase table(path_);
    ASSERT_TRUE(table.AddColumn(L"ABCDEFGHIJKLM", DBase::qovaLogical, 1, 0));
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(table.GetFieldName(2), String(L"ABCDEFGHIJ"));
}

TEST_F(DBaseSchema, DroppingAColumnKeepsTheOthers) {
    Fill(3);
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.DeleteRecord(0));
    ASSERT_TRUE(table.DropColumn(L"name"));
    EXPECT_FALSE(table.IsOpen());
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageDefault));
    ASSERT_EQ(table.GetNumFields(), 1);
    EXPECT_EQ(table.GetFieldName(0), String(L"AREA"));
    ASSERT_EQ(table.GetNumRecords(), 2);
    ASSERT_TRUE(table.MoveTo(1));
    EXPECT_DOUBLE_EQ(table.GetFieldDouble(0), 2.5);
    auto bytes = ReadBytes(dir_ / "s.dbf");
    EXPECT_EQ(bytes.size(), 33u + 32 + 2 * 7 + 1);
}

TEST_F(DBaseSchema, DroppingAnUnknownColumnIsRefused) {
    Fill(1);
    auto before = ReadBytes(dir_ / "s.dbf");
    DBase table(path_);
    EXPECT_FALSE(table.DropColumn(L"NOPE"));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusBadField);
    EXPECT_EQ(ReadBytes(dir_ / "s.dbf"), before);
}

TEST_F(DBaseSchema, CompactingWithoutDeletionsKeepsEveryByteButTheDate) {
    Fill(4);
    auto before = ReadBytes(dir_ / "s.dbf");
    before[1] = before[2] = before[3] = 1;  // an old date
    test::WriteBytes(dir_ / "s.dbf", before);
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.CompactFile());
    ASSERT_TRUE(table.Close());
    auto after = ReadBytes(dir_ / "s.dbf");
    ASSERT_EQ(after.size(), before.size());
    EXPECT_NE(after[2], 1);
    after[1] = after[2] = after[3] = 1;
    EXPECT_EQ(after, before);
}

TEST_F(DBaseSchema, CompactionOfAReadOnlyOpenReopensForWriting) {
    Fill(2);
    DBase table(path_);
    ASSERT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
    EXPECT_TRUE(table.CompactFile());
    EXPECT_EQ(table.GetNumRecords(), 2);
}

}  // namespace
}  // namespace quillet
