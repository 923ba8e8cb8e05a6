// Field definitions, the cleaning of names read from a table, adding and
// dropping columns, and compaction.

#include <gtest/gtest.h>

#include <functional>

#include "TableBuilder.h"
#include "dbase/DBase.h"

namespace quillet {
namespace {

using test::OpenTable;

TEST(DBaseFieldDefinition, WidthAndDecimalRules) {
    struct Case {
        char type;
        int width, decimals;
        int status, stored;  // stored: the width kept
    };
    const Case cases[] = {
        {'C', 255, 3, 0, 254}, {'C', 256, 0, 16, 0}, {'C', 0, 0, 16, 0}, {'N', 1, 1, 16, 0},
        {'N', 1, 0, 0, 1},     {'N', 5, 3, 0, 5},    {'N', 5, 4, 16, 0}, {'F', 19, 17, 0, 19},
        {'F', 20, 0, 16, 0},   {'D', 3, 2, 0, 8},    {'L', 9, 0, 0, 1},  {'M', 10, 0, 16, 0},
        {'X', 10, 0, 16, 0},
    };
    for (const Case& c : cases) {
        int width = c.width, decimals = c.decimals;
        int status =
            DBase::CheckLengthAndScale(static_cast<DBase::qovaDataType>(c.type), width, decimals);
        EXPECT_EQ(status, c.status) << c.type << c.width << "." << c.decimals;
        if (status == 0) {
            EXPECT_EQ(width, c.stored) << c.type << c.width << "." << c.decimals;
        }
    }
}

TEST(DBaseFieldNames, ClashingAndReservedNamesAreRenamedUntilUnique) {
    using Names = std::vector<std::wstring>;
    const std::pair<Names, Names> cases[] = {
        {{L"FID", L"fid", L"Fid"}, {L"FID_1", L"fid_12", L"Fid_123"}},
        {{L"oid", L"Shape", L"AREA"}, {L"oid_1", L"Shape_1", L"AREA"}},
        {{L"  A ", L"A", L"", L""}, {L"A", L"A_1", L"", L""}},  // empty names never clash
        {{L"AREA9", L"AREA9"}, {L"AREA9", L"AREA9_10"}},        // a trailing 9 grows a number
        {{L"A19", L"a19"}, {L"A19", L"a19_20"}},
        {{L"NAME_1", L"NAME_1"}, {L"NAME_1", L"NAME_12"}},  // appended, not substituted
        {{L"NAME_", L"NAME_"}, {L"NAME_", L"NAME_1"}},
        {{L"X-", L"X-"}, {L"X-", L"X-_1"}},
        {{L"ABCDEFGHIJ", L"abcdefghij"}, {L"ABCDEFGHIJ", L"abcdefgh_1"}},  // kept to ten characters
        {{L"ABCDEFGHI8", L"abcdefghi8"}, {L"ABCDEFGHI8", L"abcdefghi9"}},
        {{L"ABCDEFGHI9", L"abcdefghi9"}, {L"ABCDEFGHI9", L"abcdefg_10"}},
    };
    for (const auto& [in, out] : cases) {
        StringArray names;
        for (const auto& name : in) names.Add(name.c_str());
        DBase::RemoveUnnecessarySpaces(names);
        DBase::FixDuplicatedFieldNames(names);
        Names cleaned;
        for (const String& name : names) cleaned.push_back(name.str());
        EXPECT_EQ(cleaned, out) << in[0];
    }
    StringArray none;
    EXPECT_FALSE(DBase::FixDuplicatedFieldNames(none));
    StringArray many;
    for (int i = 0; i < 300; ++i) many.Add(L"FID");
    DBase::FixDuplicatedFieldNames(many);
    for (int i = 0; i < many.GetSize(); ++i)
        EXPECT_FALSE(DBase::CheckDuplicateFieldName(i, many)) << i;
}

const std::vector<test::FieldSpec> kFields = {{L"NAME", DBase::qovaCharacter, 5, 0},
                                              {L"AREA", DBase::qovaNumeric, 6, 1}};

class DBaseSchema : public test::TableTest {
protected:
    void SetUp() override { MakeTable(kFields); }

    void Fill(int count) {
        std::vector<std::vector<std::wstring>> rows;
        for (int i = 0; i < count; ++i)
            rows.push_back({L"r" + std::to_wstring(i), std::to_wstring(i) + L".5"});
        test::AppendRows(path_, rows);
    }
};

TEST_F(DBaseSchema, AddingToAnEmptyTableGrowsItBy32Bytes) {
    auto before = FileBytes();
    DBase table(path_);
    ASSERT_TRUE(table.AddColumn(L"ABCDEFGHIJKLM", DBase::qovaFloat, 10, 3));
    EXPECT_FALSE(table.IsOpen());
    auto after = FileBytes();
    ASSERT_EQ(after.size(), before.size() + 32);
    EXPECT_EQ(after[after.size() - 2], 0x0D);
    EXPECT_EQ(after.back(), 0x1A);
    EXPECT_EQ(after[8], 33 + 3 * 32);
    EXPECT_EQ(after[10], 1 + 5 + 6 + 10);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&after[96]), 11),
              std::string("ABCDEFGHIJ\0", 11));
    ASSERT_TRUE(OpenTable(table, true));
    EXPECT_EQ(table.GetFieldType(2), 'F');
    EXPECT_EQ(table.GetFieldDecimals(2), 3);
}

TEST_F(DBaseSchema, RefusedChangesLeaveTheFileAlone) {
    Fill(1);
    auto before = FileBytes();
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
    EXPECT_FALSE(table.DropColumn(L"NOPE"));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusBadField);
    EXPECT_EQ(FileBytes(), before);
    EXPECT_FALSE(table.IsOpen());
}

// A crash between writing records and writing the header leaves a count
// below the records the file holds. Every rewrite reads records up to the
// end of the file, so the uncounted live ones survive it.
TEST_F(DBaseSchema, CompactFileLostRecordsPastTheHeaderCount) {
    const std::pair<const char*, std::function<bool(DBase&)>> rewrites[] = {
        {"compact", [](DBase& t) { return OpenTable(t) && t.CompactFile(); }},
        {"add", [](DBase& t) { return t.AddColumn(L"NEW", DBase::qovaLogical, 1, 0); }},
        {"drop", [](DBase& t) { return t.DropColumn(L"AREA"); }},
    };
    for (const auto& [what, rewrite] : rewrites) {
        MakeTable(kFields);
        Fill(5);
        auto bytes = FileBytes();
        bytes[4] = 2;                // counts two of five records
        bytes[bytes[8] + 12] = '*';  // record 1 deleted
        test::WriteBytes(dir_ / "t.dbf", bytes);
        DBase table(path_);
        ASSERT_TRUE(rewrite(table)) << what;
        table.Close();
        ASSERT_TRUE(OpenTable(table, true)) << what;
        ASSERT_EQ(table.GetNumRecords(), 4) << what;
        for (int i = 0; i < 4; ++i) {
            ASSERT_TRUE(table.MoveTo(i));
            std::wstring expected = L"r" + std::to_wstring(i == 0 ? 0 : i + 1);  // r1 is deleted
            EXPECT_EQ(table.GetFieldString(0).str(), expected) << what << i;
        }
        EXPECT_EQ(FileBytes().back(), 0x1A) << what;
    }
}

TEST_F(DBaseSchema, CompactingWithoutDeletionsKeepsEveryByteButTheDate) {
    Fill(4);
    auto before = FileBytes();
    before[1] = before[2] = before[3] = 1;  // an old date
    test::WriteBytes(dir_ / "t.dbf", before);
    DBase table(path_);
    ASSERT_TRUE(OpenTable(table, true, true));  // read-only: compaction reopens for writing
    ASSERT_TRUE(table.CompactFile());
    EXPECT_EQ(table.GetNumRecords(), 4);
    ASSERT_TRUE(table.Close());
    auto after = FileBytes();
    ASSERT_EQ(after.size(), before.size());
    EXPECT_NE(after[2], 1);
    after[1] = after[2] = after[3] = 1;
    EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace quillet
