// Keys, key types and the node: geometry, key encodings and comparisons.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "IndexTestSupport.h"
#include "attrindex/MTKey.h"
#include "attrindex/MTNodeGeometry.h"
#include "foundation/IField.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

TEST(MTNodeGeometryTest, MaxKeysMinimumFillSlotsAndKeysOffsetOfBothFormats) {
    MTNodeGeometry older = MTNodeGeometry::Older(4);
    MTNodeGeometry ng = MTNodeGeometry::NextGeneration(4);
    EXPECT_EQ(older.maxKeys, 253);
    EXPECT_EQ(ng.maxKeys, 510);
    EXPECT_EQ(older.minKeys, 126);
    EXPECT_EQ(ng.minKeys, 255);
    EXPECT_EQ(older.idSlots, 254);
    EXPECT_EQ(ng.idSlots, 510);
    EXPECT_EQ(older.keysOffset, 16 + 4 * 253);
    EXPECT_EQ(ng.keysOffset, 12 + 4 * 510);
    // Widths counted in whole words, and the maximum made odd.
    EXPECT_EQ(MTNodeGeometry::Older(5).maxKeys, 167);
    EXPECT_EQ(MTNodeGeometry::Older(8).maxKeys, 167);
    EXPECT_EQ(MTNodeGeometry::Older(160).maxKeys, 11);
    EXPECT_EQ(MTNodeGeometry::NextGeneration(160).maxKeys, 24);
    for (int width = 1; width <= 160; ++width) {
        MTNodeGeometry g = MTNodeGeometry::Older(width);
        EXPECT_EQ(g.maxKeys % 2, 1) << width;
        EXPECT_LE(g.keysOffset + g.maxKeys * width, 2048) << width;
        MTNodeGeometry n = MTNodeGeometry::NextGeneration(width);
        EXPECT_LE(n.keysOffset + n.maxKeys * width, 4096) << width;
    }
}

TEST(MTKeyTest, SettersVariantsAndCopies) {
    wchar_t text[] = L"abc";
    MTKey borrowed(text, false);
    MTKey copied(text, true);
    text[0] = L'x';
    EXPECT_EQ(borrowed.GetString(), text);
    EXPECT_STREQ(copied.GetString(), L"abc");
    MTKey copy(borrowed);  // a copy owns its text
    text[0] = L'y';
    EXPECT_STREQ(copy.GetString(), L"xbc");
    EXPECT_EQ(MTKey(nullptr, true).GetString(), nullptr);

    Variant cy;
    cy.vt = VT_CY;
    cy.cyVal.int64 = 123456789012345;
    EXPECT_EQ(MTKey(cy).GetType(), MTInt64);
    EXPECT_EQ(MTKey(cy).GetInt64(), 123456789012345);
    EXPECT_EQ(MTKey(Variant::I2(-7)).GetShort(), -7);
    EXPECT_EQ(MTKey(Variant::I4(70000)).GetType(), MTLong);
    EXPECT_EQ(MTKey(Variant::R4(1.5f)).GetType(), MTFloat);
    EXPECT_EQ(MTKey(Variant::Date(2.25)).GetType(), MTDate);
    Variant bstr = Variant::Bstr(L"t");
    EXPECT_EQ(MTKey(bstr).GetString(), bstr.bstrVal);
    MTKey unchanged(static_cast<int32_t>(5));
    unchanged.SetVariant(Variant::Null());
    EXPECT_EQ(unchanged.GetLong(), 5);
    SYSTEMTIME day{1900, 1, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(MTKey(day).GetDate(), 2.0);
}

TEST(MTTypeMapTest, FieldsBecomeKeyTypes) {
    MTIndex index;
    Field text(L"name", qovaFieldTypeString, 200);
    index.SetDataType(&text, MTTypeMap2);
    EXPECT_EQ(index.GetDataType(), MTString);
    EXPECT_EQ(index.GetKeyWidth(), 80);
    EXPECT_TRUE(index.GetKeysTruncated());
    MTIndex capped;
    capped.SetDataType(&text, MTTypeMap1);
    EXPECT_EQ(capped.GetKeyWidth(), 160);
    MTIndex wide(MTWString, 400, 0);  // 320 characters, then 160 bytes
    EXPECT_EQ(wide.GetKeyWidth(), 160);
    EXPECT_TRUE(wide.GetKeysTruncated());
    Field date(L"d", qovaFieldTypeDate, 8);
    MTIndex dates;
    dates.SetDataType(&date, MTTypeMap1);
    EXPECT_EQ(dates.GetDataType(), MTDateMap1);
    Field blob(L"b", qovaFieldTypeBlob, 8);
    dates.SetDataType(&blob, MTTypeMap0);
    EXPECT_EQ(dates.GetDataType(), MTNone);

    test::TempDir dir;
    MTIndexNG ng;
    Field shortText(L"s", qovaFieldTypeString, 30);
    ASSERT_EQ(ng.Create(dir.Wide("s.idx").c_str(), &shortText), S_OK);
    EXPECT_EQ(ng.GetDataType(), MTWString);
    EXPECT_EQ(ng.GetKeyWidth(), 60);
    MTIndexNG ngDates;
    ASSERT_EQ(ngDates.Create(dir.Wide("d.idx").c_str(), &date), S_OK);
    EXPECT_EQ(ngDates.GetDataType(), MTDouble);
}

class NodeKeyTest : public ::testing::Test {
protected:
    MTNode& Node(MTDataType type, int32_t size, bool ng = true) {
        index_ = test::MakeIndex({type, size, ng});
        EXPECT_EQ(test::OpenIndex(*index_, dir_.Wide("k.idx"), CREATE_ALWAYS), S_OK);
        node_ = std::make_unique<MTNode>(index_.get());
        node_->CreateNode(2);
        node_->SetCount(1);
        return *node_;
    }
    test::TempDir dir_;
    std::unique_ptr<MTIndex> index_;
    std::unique_ptr<MTNode> node_;
};

TEST_F(NodeKeyTest, TextInTheCodePagePaddedWithSpacesWithoutTerminator) {
    MTNode& node = Node(MTString, 4);
    ASSERT_EQ(node.SetKeyAsString(L"\u00e9t\u00e9s"), S_OK);  // exactly the width
    EXPECT_EQ(std::string(reinterpret_cast<char*>(node.GetKeyPtr(0)), 4), "\xe9t\xe9s");
    EXPECT_EQ(node.GetKeyAsString().str(), L"\u00e9t\u00e9s");
    node.SetKeyAsString(L"longer");
    EXPECT_EQ(node.GetKeyAsString().str(), L"long");
    node.SetKeyAsString(L"a");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(node.GetKeyPtr(0)), 4), "a   ");
    EXPECT_EQ(node.Compare(MTKey(L"a  ", false)), 0);
    EXPECT_EQ(node.Compare(MTKey(L"a  b", false)), -1);
    EXPECT_EQ(node.Compare(MTKey(L"a   and more", false)), 0);  // compared over the width
}

TEST_F(NodeKeyTest, WideTextIsSixteenBitUnits) {
    MTNode& node = Node(MTWString, 3);
    node.SetKeyAsString(L"\u20ac\U0001F600");
    const unsigned char* key = node.GetKeyPtr(0);
    EXPECT_EQ(key[0] | key[1] << 8, 0x20AC);
    EXPECT_EQ(key[2] | key[3] << 8, 0xF600);  // cut to 16 bits
    EXPECT_EQ(key[4] | key[5] << 8, 0x0020);
    EXPECT_EQ(node.GetKeyAsString().str(), L"\u20ac\uf600");
}

TEST_F(NodeKeyTest, FloatingToleranceNaNAndExactOrderWithRecordIds) {
    MTNode& node = Node(MTDouble, 8);
    double one = 1.0;
    node.SetKeyAsDouble(one);
    node.SetId(0, 10);
    MTKey next(std::nextafter(one, 2.0));
    EXPECT_EQ(node.Compare(next), 0);
    EXPECT_EQ(node.Compare(next, 10), -1);
    EXPECT_EQ(node.Compare(MTKey(one), 9), 1);
    EXPECT_EQ(node.Compare(MTKey(one), 11), -1);
    EXPECT_EQ(node.Compare(MTKey(1.0 + 1e-14)), -1);
    EXPECT_EQ(node.Compare(MTKey(std::numeric_limits<double>::quiet_NaN())), 0);
    EXPECT_EQ(node.Compare(MTKey(static_cast<int32_t>(1))), 0);  // a key of another type
    EXPECT_TRUE(FLOATING_PT_EQ(100.0L, 100.0L + 2e-14L, 2.220446049250313e-16L));
    EXPECT_FALSE(FLOATING_PT_EQ(100.0L, 100.0L + 3e-14L, 2.220446049250313e-16L));

    MTNode& floats = Node(MTFloat, 4);
    floats.SetKeyAsFloat(1.0f);
    EXPECT_EQ(floats.Compare(MTKey(1.0f + 1.1e-7f)), 0);
    EXPECT_EQ(floats.Compare(MTKey(1.0 + 3e-7)), -1);
    MTNode& dates = Node(MTDate, 8, false);  // the next generation reads dates back as doubles
    dates.SetKeyAsDate(1.0);
    MTKey date;
    date.SetDate(std::nextafter(1.0, 2.0));
    EXPECT_EQ(dates.Compare(date), -1);  // dates compare exactly
}

}  // namespace
}  // namespace quillet
