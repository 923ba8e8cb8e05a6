// Cleaning of field names read from a table.

#include <gtest/gtest.h>

#include "dbase/DBase.h"

namespace quillet {
namespace {

StringArray Names(std::initializer_list<const wchar_t*> names) {
    StringArray array;
    for (const wchar_t* name : names) array.Add(name);
    return array;
}

std::vector<std::wstring> Cleaned(StringArray names) {
    DBase::RemoveUnnecessarySpaces(names);
    DBase::FixDuplicatedFieldNames(names);
    std::vector<std::wstring> out;
    for (const String& name : names) out.push_back(name.str());
    return out;
}

TEST(FieldNames, ReservedNamesAreRenamedUntilUnique) {
    EXPECT_EQ(Cleaned(Names({L"FID", L"fid", L"Fid"})),
              (std::vector<std::wstring>{L"FID_1", L"fid_12", L"Fid_123"}));
    EXPECT_EQ(Cleaned(Names({L"oid", L"Shape", L"AREA"})),
              (std::vector<std::wstring>{L"oid_1", L"Shape_1", L"AREA"}));
}

TEST(FieldNames, BlanksAreTrimmedAndEmptyNamesNeverClash) {
    EXPECT_EQ(Cleaned(Names({L"  A ", L"A", L"", L""})), (std::vector<std::wstring>{L"A", L"A_1", L"", L""}));
}

TEST(FieldNames, TrailingNineGrowsADecimalSuffix) {
    EXPECT_EQ(Cleaned(Names({L"AREA9", L"AREA9"})), (std::vector<std::wstring>{L"AREA9", L"AREA9_10"}));
    EXPECT_EQ(Cleaned(Names({L"A19", L"a19"})), (std::vector<std::wstring>{L"A19", L"a19_20"}));
}

TEST(FieldNames, AddOnCharacterIsAppendedNotSubstituted) {
    EXPECT_EQ(Cleaned(Names({L"NAME_1", L"NAME_1"})), (std::vector<std::wstring>{L"NAME_1", L"NAME_12"}));
    EXPECT_EQ(Cleaned(Names({L"NAME_", L"NAME_"})), (std::vector<std::wstring>{L"NAME_", L"NAME_1"}));
    EXPECT_EQ(Cleaned(Names({L"X-", L"X-"})), (std::vector<std::wstring>{L"X-", L"X-_1"}));
}

TEST(FieldNames, LongNamesAreCutToTenCharacters) {
    EXPECT_EQ(Cleaned(Names({L"ABCDEFGHIJ", L"abcdefghij"})),
              (std::vector<std::wstring>{L"ABCDEFGHIJ", L"abcdefgh_1"}));
    EXPECT_EQ(Cleaned(Names({L"ABCDEFGHI8", L"abcdefghi8"})),
              (std::vector<std::wstring>{L"ABCDEFGHI8", L"abcdefghi9"}));
    EXPECT_EQ(Cleaned(Names({L"ABCDEFGHI9", L"abcdefghi9"})),
              (std::vector<std::wstring>{L"ABCDEFGHI9", L"abcdefg_10"}));
}

TEST(FieldNames, AddOnHelpers) {
    wchar_t c;
    DBase::FindAddOnChar(L"A", &c);
    EXPECT_EQ(c, L'_');
    DBase::FindAddOnChar(L"A7", &c);
    EXPECT_EQ(c, L'8');
    DBase::FindAddOnChar(L"A9", &c);
    EXPECT_EQ(c, L'_');
    DBase::FindAddOnChar(L"A_", &c);
    EXPECT_EQ(c, L'1');
    DBase::FindAddOnChar(L"A ", &c);
    EXPECT_EQ(c, L'_');
    String s;
    DBase::FindAddOnString(L"X199", s);
    EXPECT_EQ(s, String(L"200"));
    DBase::FindAddOnString(L"9", s);
    EXPECT_EQ(s, String(L"10"));
    DBase::FindAddOnString(L"AB", s);
    EXPECT_EQ(s, String(L"_"));
}

TEST(FieldNames, EmptyListIsNotFixed) {
    StringArray none;
    EXPECT_FALSE(DBase::FixDuplicatedFieldNames(none));
}

TEST(FieldNames, ManyAlikeNamesEndUnique) {
    StringArray names;
    for (int i = 0; i < 300; ++i) names.Add(L"FID");
    DBase::FixDuplicatedFieldNames(names);
    for (int i = 0; i < names.GetSize(); ++i) {
        EXPECT_FALSE(DBase::CheckDuplicateFieldName(i, names)) << i;
    }
}

}  // namespace
}  // namespace quillet
