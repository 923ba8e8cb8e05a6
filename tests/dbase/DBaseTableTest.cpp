// Opening tables, the record cursor, appending, deleting and committing; and
// the header and descriptor records and the bytes of a new table, against
// bytes worked out by hand.

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "TableBuilder.h"
#include "dbase/DBase.h"

namespace quillet {
namespace {

using test::OpenTable;
using test::ReadBytes;
using test::TempDir;

class DBaseTable : public test::TableTest {
protected:
    void SetUp() override {
        MakeTable({{L"NAME", DBase::qovaCharacter, 10, 0},
                   {L"COUNT", DBase::qovaNumeric, 6, 0},
                   {L"PRICE", DBase::qovaNumeric, 8, 2}});
    }

    void Fill(std::initializer_list<const wchar_t*> names) {
        std::vector<std::vector<std::wstring>> rows;
        for (const wchar_t* name : names) rows.push_back({name, std::to_wstring(rows.size() + 1)});
        test::AppendRows(path_, rows);
    }

    std::vector<std::wstring> Names() {
        DBase table(path_);
        EXPECT_TRUE(OpenTable(table, true, true));
        std::vector<std::wstring> names;
        for (int i = 0; i < table.GetNumRecords() && table.MoveTo(i); ++i) {
            names.push_back(table.GetFieldString(0).str());
        }
        return names;
    }
};

TEST_F(DBaseTable, EmptyTableOpensWithStatus11AndRefusesSetters) {
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table));
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
    auto bytes = FileBytes();
    // 32 + 3 * 32 + 1 header bytes, two records of 1 + 10 + 6 + 8 bytes, 0x1A.
    ASSERT_EQ(bytes.size(), 129u + 2 * 25 + 1);
    EXPECT_EQ(bytes[4], 2);
    EXPECT_EQ(std::string(bytes.begin() + 129, bytes.begin() + 154), " alpha          1        ");
    EXPECT_EQ(bytes.back(), 0x1A);
    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"alpha", L"beta"}));
}

TEST_F(DBaseTable, DeletingAnUnwrittenAppendLeavesNoTrace) {
    Fill({L"alpha"});
    auto before = FileBytes();
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table));
    ASSERT_TRUE(table.AddRecord());
    ASSERT_TRUE(table.SetFieldString(0, L"ghost"));
    ASSERT_TRUE(table.DeleteRecord(1));
    EXPECT_EQ(table.GetNumRecords(), 1);
    EXPECT_EQ(table.GetCurrentRecord(), -1);
    ASSERT_TRUE(table.Close());
    EXPECT_EQ(FileBytes(), before);  // written today: even the date is the same
}

TEST_F(DBaseTable, NumbersOutOfRange) {
    Fill({L"a"});
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table));
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
    ASSERT_TRUE(OpenTable(table, false, true));
    ASSERT_TRUE(table.SetFieldString(0, L"changed"));
    ASSERT_TRUE(table.MoveTo(1));
    EXPECT_EQ(table.GetFieldString(0), String(L"b"));  // reading moves the file's buffer on
    DBase reader(path_);
    ASSERT_TRUE(OpenTable(reader, true, true));
    EXPECT_EQ(reader.GetFieldString(0), String(L"changed"));
}

TEST_F(DBaseTable, FlushLeftTheHeaderInABuffer) {
    Fill({L"a"});
    DBase writer(path_);
    ASSERT_TRUE(OpenTable(writer, false, true));
    ASSERT_TRUE(writer.AddRecord());
    ASSERT_TRUE(writer.SetFieldString(0, L"added"));
    ASSERT_TRUE(writer.Flush());
    DBase reader(path_);
    ASSERT_TRUE(OpenTable(reader, true, true));
    ASSERT_EQ(reader.GetNumRecords(), 2);
    ASSERT_TRUE(reader.MoveTo(1));
    EXPECT_EQ(reader.GetFieldString(0), String(L"added"));
}

TEST_F(DBaseTable, ReadOnlyTableFailsToWriteBack) {
    Fill({L"a"});
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table, true));
    ASSERT_TRUE(table.SetFieldString(0, L"b"));  // only the buffer changes
    EXPECT_FALSE(table.AddRecord());
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusWriteFailed);
    EXPECT_EQ(table.GetCurrentRecord(), -1);  // a failed flush forgets the record
}

TEST_F(DBaseTable, FileErrorsArePassedThrough) {
    DBase missing(dir_.Wide("missing.dbf"));
    EXPECT_FALSE(OpenTable(missing, true));
    EXPECT_EQ(missing.GetLastStatus(), 3);  // not found
    EXPECT_FALSE(missing.Exists());
    DBase uncreatable(L"/nonexistent-folder/t.dbf");
    EXPECT_FALSE(uncreatable.Create(CodePage::qovaCodePageANSI));
    EXPECT_EQ(uncreatable.GetLastStatus(), 3);

    DBase writer(path_);
    ASSERT_TRUE(OpenTable(writer));
    DBase second(path_);
    EXPECT_FALSE(OpenTable(second, true, true));
    EXPECT_EQ(second.GetLastStatus(), 4);  // sharing violation
}

TEST_F(DBaseTable, FieldNumberComparesTenCharacters) {
    test::WriteBytes(dir_ / "n.dbf", test::RawTable(97, 9, 0,
                                                    {test::RawField("ABCDEFGHIJ", 'C', 4),
                                                     test::RawField("ABCDEFGHIJK", 'C', 4)},
                                                    {}));
    DBase table(dir_.Wide("n.dbf"));
    ASSERT_TRUE(OpenTable(table, true));
    EXPECT_EQ(table.GetFieldNumber(L"abcdefghijXYZ"), 0);
    EXPECT_EQ(table.GetFieldNumber(L"abcdefghi"), -1);
    EXPECT_EQ(table.GetFieldNumber(L""), -1);
    // A name may fill its 11-byte slot, but is never found by it.
    EXPECT_EQ(table.GetFieldName(1), String(L"ABCDEFGHIJK"));
    EXPECT_EQ(table.GetFieldNumber(L"ABCDEFGHIJK"), 0);
}

TEST_F(DBaseTable, VersionByteIsKept) {
    Fill({L"a"});
    auto bytes = FileBytes();
    bytes[0] = 0x8B;
    test::WriteBytes(dir_ / "t.dbf", bytes);
    test::AppendRows(path_, {{L"z"}});
    EXPECT_EQ(FileBytes()[0], 0x8B);
}

TEST_F(DBaseTable, SetFileModeReopensWithoutLosingTheRecord) {
    Fill({L"a"});
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table, true, true));
    ASSERT_TRUE(table.SetFileMode(false, false));
    ASSERT_TRUE(table.SetFieldString(0, L"w"));
    ASSERT_TRUE(table.Close());
    EXPECT_EQ(Names(), std::vector<std::wstring>{L"w"});
    EXPECT_FALSE(table.SetFileMode(true, true));  // closed
}

TEST_F(DBaseTable, IndexExistsComparesModificationTimes) {
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table, true, true));
    FileSystemPath index;
    bool upToDate = true;
    EXPECT_FALSE(table.IndexExists(1, index, upToDate));
    EXPECT_EQ(String(index.GetPath()), String(dir_.Wide("t.COUNT.atx").c_str()));
    test::WriteBytes(dir_ / "t.COUNT.atx", {1, 2, 3});
    EXPECT_TRUE(table.IndexExists(1, index, upToDate));
    EXPECT_TRUE(upToDate);
    std::filesystem::last_write_time(
        dir_ / "t.COUNT.atx",
        std::filesystem::last_write_time(dir_ / "t.dbf") - std::chrono::hours(1));
    EXPECT_TRUE(table.IndexExists(1, index, upToDate));
    EXPECT_FALSE(upToDate);
}

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
