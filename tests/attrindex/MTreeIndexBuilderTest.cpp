// The bulk builder's file: node geometry per field type, the empty index,
// exactly full leaves, interior levels, byte order, the date mappings, and
// text from a table with and without the shortcut for ASCII.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <utility>

#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "attrindex/MultiByteText.h"
#include "attrindex/TableColumn.h"
#include "dbase/DBase.h"
#include "foundation/ByteOrder.h"
#include "foundation/File.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;

int32_t WordAt(const Bytes& file, int32_t node, int32_t word) {
    return static_cast<int32_t>(
        DecodeFixed32BE(&file[static_cast<size_t>(node - 1) * 2048 + 4 * word]));
}

class MTreeIndexBuilderTest : public ::testing::Test {
protected:
    // Builds the index of `field` over ids 0 ... n - 1 with the value key(i).
    Bytes Build(Field field, int n, const std::function<Variant(int)>& key,
                MTreeIndexBuilder::TypeMapping map = MTreeIndexBuilder::kTypeMap0) {
        MTreeIndexBuilder builder;
        EXPECT_TRUE(builder.Init(path_.c_str(), &field, map));
        for (int i = 0; i < n; ++i) EXPECT_TRUE(builder.InsertEntry(i, key(i)));
        EXPECT_TRUE(builder.Write());
        return test::ReadBytes(dir_ / "i.atx");
    }

    test::TempDir dir_;
    std::wstring path_ = dir_.Wide("i.atx");
};

TEST_F(MTreeIndexBuilderTest, NodeGeometryFollowsTheFieldType) {
    struct Case {
        qovaFieldType type;
        int32_t length;
        int32_t width, stride, maxKeys;
    };
    const Case cases[] = {
        {qovaFieldTypeSmallInteger, 2, 2, 2, 253}, {qovaFieldTypeInteger, 4, 4, 4, 253},
        {qovaFieldTypeSingle, 4, 4, 4, 253},       {qovaFieldTypeDouble, 8, 8, 8, 167},
        {qovaFieldTypeDate, 8, 8, 8, 167},         {qovaFieldTypeString, 10, 10, 10, 125},
        {qovaFieldTypeString, 254, 254, 254, 5},   {qovaFieldTypeGUID, 38, 38, 40, 45},
    };
    for (const Case& c : cases) {
        Field field(L"f", c.type, c.length);
        MTreeIndexBuilder::MTreeNode node(nullptr, &field, MTreeIndexBuilder::kTypeMap0, true);
        EXPECT_EQ(node.GetLayout().width, c.width) << c.type;
        EXPECT_EQ(node.GetLayout().stride, c.stride) << c.type;
        EXPECT_EQ(node.GetLayout().maxKeys, c.maxKeys) << c.type;
    }
    Field blob(L"f", qovaFieldTypeBlob, 4);
    Field tooWide(L"f", qovaFieldTypeString, 600);
    MTreeIndexBuilder builder;
    EXPECT_FALSE(builder.Init(path_.c_str(), &blob, MTreeIndexBuilder::kTypeMap0));
    EXPECT_FALSE(builder.Init(path_.c_str(), &tooWide, MTreeIndexBuilder::kTypeMap0));
    EXPECT_FALSE(builder.Init(path_.c_str(), nullptr, MTreeIndexBuilder::kTypeMap0));
}

TEST_F(MTreeIndexBuilderTest, NoEntriesWriteOneEmptyLeafAndFullLeavesNoEmptyNode) {
    Field field(L"f", qovaFieldTypeInteger, 4);
    auto same = [](int i) { return Variant::I4(i); };
    EXPECT_EQ(Build(field, 0, same), Bytes(2048, 0));
    EXPECT_EQ(Build(field, 253, same).size(), 2048u);
    Bytes two = Build(field, 506, same);
    ASSERT_EQ(two.size(), 3u * 2048);
    EXPECT_EQ(WordAt(two, 1, 0), 2);  // the first leaf's brother
    EXPECT_EQ(WordAt(two, 2, 0), 0);
    EXPECT_EQ(WordAt(two, 3, 1), 1);  // the root: one key, two children
    EXPECT_EQ(WordAt(two, 3, 2), 1);
    EXPECT_EQ(WordAt(two, 3, 3), 2);
}

TEST_F(MTreeIndexBuilderTest, InteriorLevelsRepeatTheLastPointerOfTheLeftBrother) {
    Field field(L"f", qovaFieldTypeSmallInteger, 2);
    const int n = 253 * 254 + 7;  // three levels
    Bytes file = Build(field, n, [](int i) { return Variant::I2(static_cast<int16_t>(i % 5000)); });
    int32_t nodes = static_cast<int32_t>(file.size() / 2048);
    int32_t root = nodes;
    int32_t first = WordAt(file, root, 2);
    int32_t second = WordAt(file, first, 0);
    ASSERT_NE(second, 0);
    EXPECT_EQ(WordAt(file, first, 2 + 253), WordAt(file, second, 2));
    // 16-bit keys big-endian: the first leaf holds 13 keys 0, then 1.
    size_t keys = 16 + 4 * 253;
    EXPECT_EQ(file[keys + 26], 0);
    EXPECT_EQ(file[keys + 27], 1);
    int32_t descriptor[4] = {0, 2, 5, -1};
    LegacyIndex index((dir_ / "i.atx").string());
    ASSERT_TRUE(index.Open(LegacyIndex::LayoutOf(descriptor), false));
    int64_t entries = 0;
    EXPECT_EQ(index.Check(entries), "");
    EXPECT_EQ(entries, n);
}

TEST_F(MTreeIndexBuilderTest, DatesAreDoublesUnderMapZeroAndDayNumbersUnderMapTwo) {
    Field field(L"d", qovaFieldTypeDate, 8);
    auto date = [](int i) { return Variant::Date(i == 0 ? -3.5 : 45000.75); };
    Bytes doubles = Build(field, 2, date);
    double first = 0;
    SwapDouble(reinterpret_cast<const double*>(&doubles[16 + 4 * 167]), &first, 1);
    EXPECT_EQ(first, -3.5);
    Bytes days = Build(field, 2, date, MTreeIndexBuilder::kTypeMap2);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&days[16 + 4 * 167]), 16),
              "      -3   45000");
    MTreeIndexBuilder builder;
    EXPECT_FALSE(builder.Init(path_.c_str(), &field, MTreeIndexBuilder::kTypeMap1));
    // Map 1, which Init refuses, writes year, month and day space padded.
    File file(path_.c_str());
    ASSERT_TRUE(file.Create(0, 0));
    MTreeIndexBuilder::MTreeNode node(&file, &field, MTreeIndexBuilder::kTypeMap1, true);
    unsigned char element[12] = {};
    double day = 45296;  // 2024-01-05
    std::memcpy(element + 4, &day, 8);
    node.AddKey(element);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(node.GetLastRecord()), 8), "2024 1 5");
}

TEST_F(MTreeIndexBuilderTest, TableTextGivesTheSameFileWithOrWithoutTheAsciiShortcut) {
    const wchar_t* pieces[] = {L"ab", L"Zq", L" ", L"\u00e9", L"\u65e5", L"~+{", L"\\"};
    std::mt19937 random(5);
    for (auto kind : {CodePage::qovaCodePageANSI, CodePage::qovaCodePageUTF8}) {
        std::wstring tablePath = dir_.Wide("t.dbf");
        {
            DBase table(tablePath);
            ASSERT_TRUE(table.Create(kind));
            ASSERT_TRUE(table.AddColumn(L"NAME", DBase::qovaCharacter, 7, 0));
            ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
            for (int r = 0; r < 600; ++r) {
                std::wstring text;
                for (int p = 0; p < 4; ++p) text += pieces[random() % std::size(pieces)];
                ASSERT_TRUE(table.AddRecord());
                table.SetFieldString(0, text.substr(0, random() % 8));
            }
            ASSERT_TRUE(table.Close());
        }
        // 500 is EBCDIC and 65000 escapes "+": neither writes ASCII as is.
        const std::pair<const char*, bool> codePages[] = {
            {"1252", true}, {"932", true}, {"500", false}, {"65000", false}};
        for (const auto& [acp, asIs] : codePages) {
            test::ScopedEnv env("QUILLET_ACP", acp);
            EXPECT_EQ(WritesAsciiAsIs(static_cast<uint32_t>(std::stoi(acp))), asIs) << acp;
            DBase table(tablePath);
            ASSERT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
            Field column = ColumnField(table, 0);
            TableColumnEnumerator rows(table, 0);
            MTreeIndexBuilder shortcut;
            ASSERT_TRUE(shortcut.Create(path_.c_str(), &column, &rows, MTreeIndexBuilder::kTypeMap0));
            Bytes fast = test::ReadBytes(dir_ / "i.atx");
            TableColumnEnumerator values(table, 0);
            MTreeIndexBuilder builder;
            ASSERT_TRUE(builder.Init(path_.c_str(), &column, MTreeIndexBuilder::kTypeMap0));
            int32_t id = 0;
            Variant value;
            while (values.Next(id, value)) {
                ASSERT_TRUE(builder.InsertEntry(id, value));
                value.Clear();
            }
            ASSERT_TRUE(builder.Write());
            EXPECT_EQ(fast, test::ReadBytes(dir_ / "i.atx")) << kind << " " << acp;
        }
    }
}

}  // namespace
}  // namespace quillet
