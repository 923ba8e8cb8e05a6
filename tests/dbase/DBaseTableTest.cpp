// Opening tables, the record cursor, appending, deleting and committing.

#include <gtest/gtest.h>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::CreateTable;
using test::ReadBytes;
using test::TempDir;

class DBaseTable : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = dir_.Wide("t.dbf");
        CreateTable(path_, {{L"NAME", DBase::qovaCharacter, 10, 0},
                            {L"COUNT", DBase::qovaNumeric, 6, 0},
                            {L"PRICE", DBase::qovaNumeric, 8, 2}});
    }

    // Appends records named by `names` and closes the table.
    void Fill(std::initializer_list<const wchar_t*> names) {
        DBase table(path_);
        ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
        int n = 0;
        for (const wchar_t* name : names) {
            ASSERT_TRUE(table.AddRecord());
            ASSERT_TRUE(table.SetFieldString(0, name));
            ASSERT_TRUE(table.SetFieldInteger(1, ++n));
        }
        ASSERT_TRUE(table.Close());
    }

    std::vector<std::wstring> Names() {
        DBase table(path_);
        EXPECT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
        std::vector<std::wstring> names;
        for (int i = 0; i < table.GetNumRecords(); ++i) {
            EXPECT_TRUE(table.MoveTo(i));
            names.push_back(table.GetFieldString(0).str());
        }
        return names;
    }

    TempDir dir_;
    std::wstring path_;
};

TEST_F(DBaseTable, EmptyTableOpensWithStatus11AndRefusesSetters) {
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusPastLastRecord);
    EXPECT_EQ(table.GetCurrentRecord(), -1);
    EXPECT_EQ(table.GetNumFields(), 3);
    EXPECT_FALSE(table.SetFieldString(0, L"x"));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusNoRecord);
    EXPECT_FALSE(table.SetFieldNull(1));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusNoRecord);
    EXPECT_FALSE(table.MoveTo(0));
}

TEST_F(DBaseTable, AppendedRecordsReachTheFileWithEndOfFileByte) {
    Fill({L"alpha", L"beta"});
    auto bytes = ReadBytes(dir_ / "t.dbf");
    // 32 + 3 * 32 + 1 header bytes, two records of 1 + 10 + 6 + 8 bytes, 0x1A.
    ASSERT_EQ(bytes.size(), 129u + 2 * 25 + 1);
    EXPECT_EQ(bytes[4], 2);
    EXPECT_EQ(std::string(bytes.begin() + 129, bytes.begin() + 154), " alpha          1        ");
    EXPECT_EQ(bytes.back(), 0x1A);
    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"alpha", L"beta"}));
}

TEST_F(DBaseTable, DeletingAnUnwrittenAppendLeavesNoTrace) {
    Fill({L"alpha"});
    auto before = ReadBytes(dir_ / "t.dbf");
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.AddRecord());
    ASSERT_TRUE(table.SetFieldString(0, L"ghost"));
    EXPECT_EQ(table.GetNumRecords(), 2);
    ASSERT_TRUE(table.DeleteRecord(1));
    EXPECT_EQ(table.GetNumRecords(), 1);
    EXPECT_EQ(table.GetCurrentRecord(), -1);
    ASSERT_TRUE(table.Close());
    EXPECT_EQ(ReadBytes(dir_ / "t.dbf"), before);  // written today: even the date is the same
}

TEST_F(DBaseTable, DeletedRecordsAreCompactedAwayOnClose) {
    Fill({L"a", L"b", L"c", L"d"});
    {
        DBase table(path_);
        ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
        ASSERT_TRUE(table.DeleteRecord(1));
        ASSERT_TRUE(table.DeleteRecord(3));
        EXPECT_TRUE(table.DeleteRecord(3));  // already marked: fine
        EXPECT_TRUE(table.IsRecordDeleted(1));
        EXPECT_FALSE(table.IsRecordDeleted(2));
        ASSERT_TRUE(table.MoveTo(3));
        EXPECT_FALSE(table.SetFieldString(0, L"x"));  // record 3 is deleted
        EXPECT_EQ(table.GetLastStatus(), DBase::kStatusNoRecord);
        ASSERT_TRUE(table.Close());
    }
    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"a", L"c"}));
    EXPECT_EQ(ReadBytes(dir_ / "t.dbf").size(), 129u + 2 * 25 + 1);
}

TEST_F(DBaseTable, CommitCompactsAndKeepsTheTableOpen) {
    Fill({L"a", L"b", L"c"});
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.DeleteRecord(0));
    ASSERT_TRUE(table.CommitChanges());
    EXPECT_TRUE(table.IsOpen());
    EXPECT_EQ(table.GetNumRecords(), 2);
    ASSERT_TRUE(table.MoveTo(0));
    EXPECT_EQ(table.GetFieldString(0), String(L"b"));
    EXPECT_EQ(table.GetFieldInteger(1), 2);
}

TEST_F(DBaseTable, RecordNumbersOutOfRange) {
    Fill({L"a"});
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    EXPECT_FALSE(table.DeleteRecord(-1));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusNegativeRecord);
    EXPECT_FALSE(table.DeleteRecord(1));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusPastLastRecord);
    EXPECT_TRUE(table.IsRecordDeleted(-1));
    EXPECT_TRUE(table.IsRecordDeleted(1));
    EXPECT_FALSE(table.MoveTo(1));
    EXPECT_FALSE(table.MoveTo(-1));
    EXPECT_EQ(table.GetFieldString(7), String());
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusBadField);
    EXPECT_EQ(table.GetFieldName(3), String());
    EXPECT_EQ(table.GetFieldType(-1), '\0');
    EXPECT_EQ(table.GetFieldWidth(3), 0);
}

TEST_F(DBaseTable, ChangedRecordIsWrittenBackWhenTheCursorMoves) {
    Fill({L"a", L"b"});
    DBase table(path_);
    ASSERT_TRUE(table.Open(false, true, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.SetFieldString(0, L"changed"));
    ASSERT_TRUE(table.MoveTo(1));
    EXPECT_EQ(table.GetFieldString(0), String(L"b"));  // reading moves the file's buffer on
    DBase reader(path_);
    ASSERT_TRUE(reader.Open(true, true, CodePage::qovaCodePageDefault));
    EXPECT_EQ(reader.GetFieldString(0), String(L"changed"));
}

TEST_F(DBaseTable, ReadOnlyTableFailsToWriteBack) {
    Fill({L"a"});
    DBase table(path_);
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.SetFieldString(0, L"b"));  // only the buffer changes
    EXPECT_FALSE(table.AddRecord());
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusWriteFailed);
    EXPECT_EQ(table.GetCurrentRecord(), -1);  // a failed flush forgets the record
}

TEST_F(DBaseTable, OpenFailuresMapTheFileError) {
    DBase missing(dir_.Wide("missing.dbf"));
    EXPECT_FALSE(missing.Open(true, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(missing.GetLastStatus(), 3);
    EXPECT_FALSE(missing.Exists());

    DBase writer(path_);
    ASSERT_TRUE(writer.Open(false, false, CodePage::qovaCodePageDefault));
    DBase second(path_);
    EXPECT_FALSE(second.Open(true, true, CodePage::qovaCodePageDefault));
    EXPECT_EQ(second.GetLastStatus(), 4);  // sharing violation, passed through
}

TEST_F(DBaseTable, FieldNumberComparesTenCharacters) {
    CreateTable(dir_.Wide("n.dbf"), {{L"ABCDEFGHIJ", DBase::qovaCharacter, 4, 0}});
    DBase table(dir_.Wide("n.dbf"));
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(table.GetFieldNumber(L"abcdefghijXYZ"), 0);
    EXPECT_EQ(table.GetFieldNumber(L"abcdefghi"), -1);
    EXPECT_EQ(table.GetFieldNumber(L""), -1);
}

TEST_F(DBaseTable, ElevenCharacterNameIsNeverFound) {
    auto bytes = test::RawTable(65, 5, 0, {test::RawField("ABCDEFGHIJK", 'C', 4)}, {});
    test::WriteBytes(dir_ / "eleven.dbf", bytes);
    DBase table(dir_.Wide("eleven.dbf"));
    ASSERT_TRUE(table.Open(true, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(table.GetFieldName(0), String(L"ABCDEFGHIJK"));
    EXPECT_EQ(table.GetFieldNumber(L"ABCDEFGHIJK"), -1);
}

TEST_F(DBaseTable, VersionByteIsKept) {
    Fill({L"a"});
    auto bytes = ReadBytes(dir_ / "t.dbf");
    bytes[0] = 0x8B;
    test::WriteBytes(dir_ / "t.dbf", bytes);
    {
        DBase table(path_);
        ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
        ASSERT_TRUE(table.SetFieldString(0, L"z"));
        ASSERT_TRUE(table.Close());
    }
    EXPECT_EQ(ReadBytes(dir_ / "t.dbf")[0], 0x8B);
}

TEST_F(DBaseTable, SetFileModeReopensWithoutLosingTheRecord) {
    Fill({L"a"});
    DBase table(path_);
    ASSERT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
    ASSERT_TRUE(table.SetFileMode(false, false));
    ASSERT_TRUE(table.SetFieldString(0, L"w"));
    ASSERT_TRUE(table.Close());
    EXPECT_EQ(Names(), std::vector<std::wstring>{L"w"});
    EXPECT_FALSE(table.SetFileMode(true, true));  // closed
}

TEST_F(DBaseTable, DeleteFileRemovesTableAndCpg) {
    DBase table(dir_.Wide("u.dbf"));
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageUTF8));
    ASSERT_TRUE(std::filesystem::exists(dir_ / "u.cpg"));
    EXPECT_TRUE(table.DeleteFileW());
    EXPECT_FALSE(std::filesystem::exists(dir_ / "u.dbf"));
    EXPECT_FALSE(std::filesystem::exists(dir_ / "u.cpg"));
}

TEST_F(DBaseTable, IndexExistsComparesModificationTimes) {
    DBase table(path_);
    ASSERT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
    FileSystemPath index;
    bool upToDate = true;
    EXPECT_FALSE(table.IndexExists(1, index, upToDate));
    EXPECT_EQ(String(index.GetPath()), String((dir_.Wide("t.COUNT.atx")).c_str()));
    test::WriteBytes(dir_ / "t.COUNT.atx", {1, 2, 3});
    EXPECT_TRUE(table.IndexExists(1, index, upToDate));
    EXPECT_TRUE(upToDate);
    std::filesystem::last_write_time(dir_ / "t.COUNT.atx",
                                     std::filesystem::last_write_time(dir_ / "t.dbf") - std::chrono::hours(1));
    EXPECT_TRUE(table.IndexExists(1, index, upToDate));
    EXPECT_FALSE(upToDate);
}

}  // namespace
}  // namespace quillet
