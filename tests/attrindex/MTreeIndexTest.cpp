// MTreeIndex: its key descriptor, its modes, the null rules, and each place
// where the kept behaviour of the shared format's index differs from SQL
// (each test names the difference).

#include <gtest/gtest.h>

#include <set>

#include "IndexTestSupport.h"
#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndex.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

class MTreeIndexTest : public ::testing::Test {
protected:
    // An open index of `field` holding keys[i] with id i.
    void Build(Field field, const std::vector<Variant>& keys) {
        field_ = std::make_unique<Field>(field);
        ASSERT_EQ(index_.Create(path_.c_str(), field_.get(), true), S_OK);
        for (size_t i = 0; i < keys.size(); ++i) {
            ASSERT_EQ(index_.InsertEntry(keys[i], static_cast<int32_t>(i)), S_OK);
        }
        ASSERT_EQ(index_.Close(), S_OK);
        ASSERT_EQ(index_.Open(path_.c_str(), field_.get(), MTreeIndex::kModeUpdate), S_OK);
    }
    HRESULT Search(std::vector<Variant> values, qovaSQLPredicates predicate,
                   std::set<int32_t>* ids = nullptr) {
        std::vector<VARIANT*> pointers;
        for (Variant& v : values) pointers.push_back(&v);
        FIDSet result;
        HRESULT hr = index_.Search(pointers, predicate, &result);
        if (ids) *ids = test::IdsOf(result);
        return hr;
    }
    std::set<int32_t> Found(std::vector<Variant> values, qovaSQLPredicates predicate) {
        std::set<int32_t> ids;
        EXPECT_EQ(Search(std::move(values), predicate, &ids), S_OK);
        return ids;
    }
    static std::vector<Variant> Texts(std::initializer_list<const wchar_t*> texts) {
        std::vector<Variant> values;
        for (const wchar_t* t : texts) values.push_back(Variant::Bstr(t));
        return values;
    }

    test::TempDir dir_;
    std::wstring path_ = dir_.Wide("t.NAME.atx");
    std::unique_ptr<Field> field_;
    MTreeIndex index_;
};

TEST_F(MTreeIndexTest, SetupFieldPropertiesCoversEveryRow) {
    struct Row {
        qovaFieldType type;
        int32_t length, precision, scale;
        int32_t width, kind, decimals;
    };
    const Row rows[] = {
        {qovaFieldTypeDate, 8, 0, 0, 8, 1, 0},      {qovaFieldTypeString, 12, 0, 0, 12, 2, -1},
        {qovaFieldTypeSingle, 4, 0, 0, 4, 6, 3},    {qovaFieldTypeSingle, 4, 17, 0, 4, 6, 3},
        {qovaFieldTypeDouble, 8, 0, 0, 8, 6, 5},    {qovaFieldTypeSmallInteger, 2, 0, 0, 2, 5, -1},
        {qovaFieldTypeInteger, 4, 20, 0, 4, 5, -1}, {qovaFieldTypeSmallInteger, 4, 4, 0, 4, 3, -1},
        {qovaFieldTypeInteger, 9, 9, 0, 9, 3, -1},  {qovaFieldTypeSingle, 8, 8, 2, 8, 4, 2},
        {qovaFieldTypeDouble, 16, 16, 5, 16, 4, 5},
    };
    for (const Row& r : rows) {
        Field field(L"f", r.type, r.length, r.precision, r.scale);
        ASSERT_EQ(index_.SetupFieldProperties(&field), S_OK);
        const int32_t* key = index_.GetKeyDescriptor();
        EXPECT_EQ((std::vector<int32_t>{key[0], key[1], key[2], key[3]}),
                  (std::vector<int32_t>{0, r.width, r.kind, r.decimals}))
            << r.type << " precision " << r.precision;
    }
    Field blob(L"f", qovaFieldTypeBlob, 4);
    EXPECT_EQ(index_.SetupFieldProperties(&blob), E_FAIL);
}

TEST_F(MTreeIndexTest, ModesGuardUpdatesAndSearches) {
    Field field(L"n", qovaFieldTypeInteger, 4);
    EXPECT_EQ(index_.Open(path_.c_str(), &field, MTreeIndex::kModeBulk), E_FAIL);
    EXPECT_EQ(Search({Variant::I4(1)}, qovaSQLEqual), E_FAIL);  // not open
    ASSERT_EQ(index_.Create(path_.c_str(), &field, true), S_OK);
    EXPECT_EQ(index_.InsertEntry(Variant::I4(5), 1), S_OK);
    EXPECT_EQ(index_.DeleteEntry(Variant::I4(5), 1), E_FAIL);  // bulk creation
    ASSERT_EQ(index_.Close(), S_OK);
    ASSERT_EQ(index_.Open(path_.c_str(), &field, MTreeIndex::kModeRead), S_OK);
    EXPECT_EQ(index_.InsertEntry(Variant::I4(6), 2), E_FAIL);  // read only
    ASSERT_EQ(index_.Open(path_.c_str(), &field, MTreeIndex::kModeUpdate), S_OK);
    EXPECT_EQ(index_.InsertEntry(Variant::Bstr(L"6"), 2), E_FAIL);  // text on a number
    EXPECT_EQ(index_.InsertEntry(Variant::I4(5), 1), E_FAIL);       // already there
    EXPECT_EQ(index_.InsertEntry(Variant::R8(6), 2), S_OK);
    EXPECT_EQ(Found({Variant::I4(6)}, qovaSQLEqual), (std::set<int32_t>{2}));
    EXPECT_EQ(index_.DeleteEntry(Variant::I4(5), 2), E_FAIL);  // no such entry
    EXPECT_EQ(index_.DeleteEntry(Variant::I4(5), 1), S_OK);
    EXPECT_EQ(Found({Variant::I4(0)}, qovaSQLGreaterThan), (std::set<int32_t>{2}));
    EXPECT_EQ(Search({Variant::I4(1)}, static_cast<qovaSQLPredicates>(3)), E_FAIL);
    index_.Close();
    EXPECT_TRUE(MTreeIndex::IndexExists(path_.c_str()));
    EXPECT_TRUE(MTreeIndex::DeleteIndex(path_.c_str()));
    EXPECT_FALSE(MTreeIndex::IndexExists(path_.c_str()));
    EXPECT_EQ(index_.Open(path_.c_str(), &field, MTreeIndex::kModeRead), E_FAIL);
}

// SQL compares with NULL as unknown; here a null (or missing) first value
// matches nothing, and the two-value and not-in predicates refuse it.
TEST_F(MTreeIndexTest, NullValueMatchesNothingAndFailsBetweensAndNotIn) {
    Build(Field(L"n", qovaFieldTypeInteger, 4), {Variant::I4(1), Variant::I4(2)});
    for (int p = 1; p <= 1024; p <<= 1) {
        auto predicate = static_cast<qovaSQLPredicates>(p);
        bool fails = p == qovaSQLBetween || p == qovaSQLNotBetween || p == qovaSQLNotIn;
        std::set<int32_t> ids;
        EXPECT_EQ(Search({Variant::Null()}, predicate, &ids), fails ? E_FAIL : S_OK) << p;
        EXPECT_TRUE(ids.empty());
        EXPECT_EQ(Search({}, predicate), fails ? E_FAIL : S_OK) << p;
    }
}

// SQL NOT IN (1, 2) leaves out every 2; the index moves past 1 at the first
// greater key and adds that entry unseen, so the first 2 is returned.
TEST_F(MTreeIndexTest, NotInMovesPastAValueInOneStep) {
    Build(Field(L"n", qovaFieldTypeInteger, 4), {Variant::I4(1), Variant::I4(2), Variant::I4(2)});
    EXPECT_EQ(Found({Variant::I4(2), Variant::I4(1)}, qovaSQLNotIn), (std::set<int32_t>{1}));
    EXPECT_EQ(Found({Variant::I4(1), Variant::I4(2)}, qovaSQLIn), (std::set<int32_t>{0, 1, 2}));
}

// SQL LIKE 'a%b_c' matches "axxb1c"; the index cuts its prefix at the first
// "_" even after a "%", so it scans only keys that start with "a%b".
TEST_F(MTreeIndexTest, LikeCutsItsPrefixAtTheFirstUnderscoreEvenAfterAPercent) {
    Build(Field(L"s", qovaFieldTypeString, 8),
          Texts({L"axxb1c", L"a%b1c", L"abxc", L"abxcd", L"ab", L"abc", L"b"}));
    EXPECT_EQ(Found(Texts({L"a%b_c"}), qovaSQLLike), (std::set<int32_t>{1}));
    EXPECT_EQ(Found(Texts({L"ab_c%"}), qovaSQLLike), (std::set<int32_t>{2, 3}));
    EXPECT_EQ(Found(Texts({L"ab"}), qovaSQLLike), (std::set<int32_t>{4}));
    EXPECT_EQ(Search(Texts({L"%abc"}), qovaSQLLike), E_FAIL);
    EXPECT_EQ(Search(Texts({L"_bc"}), qovaSQLLike), E_FAIL);
    EXPECT_EQ(Search({Variant::I4(1)}, qovaSQLLike), E_FAIL);
}

// SQL compares CHAR values over their whole length; the index compares only
// the key width, so a longer value equals the key it starts with, and
// trailing spaces do not count.
TEST_F(MTreeIndexTest, TextComparesOverTheKeyWidth) {
    Build(Field(L"s", qovaFieldTypeString, 4), Texts({L"abcd", L"ab", L"abcdzz"}));
    EXPECT_EQ(Found(Texts({L"abcdef"}), qovaSQLEqual), (std::set<int32_t>{0, 2}));
    EXPECT_EQ(Found(Texts({L"ab  "}), qovaSQLEqual), (std::set<int32_t>{1}));
    EXPECT_EQ(Found(Texts({L"ab", L"abcd"}), qovaSQLBetween), (std::set<int32_t>{0, 1, 2}));
}

// SQL would find 1.1 in a REAL column holding 1.1; the index compares the
// float key widened to double with the value exactly, so only a float value
// finds it.
TEST_F(MTreeIndexTest, FloatKeysCompareExactlyAsDoubles) {
    Build(Field(L"f", qovaFieldTypeSingle, 4), {Variant::R4(1.1f), Variant::R4(2.5f)});
    EXPECT_TRUE(Found({Variant::R8(1.1)}, qovaSQLEqual).empty());
    EXPECT_EQ(Found({Variant::R4(1.1f)}, qovaSQLEqual), (std::set<int32_t>{0}));
    EXPECT_EQ(Found({Variant::R8(2.5)}, qovaSQLEqual), (std::set<int32_t>{1}));
}

TEST_F(MTreeIndexTest, InSortsItsValuesInPlaceAndRaisesWhatCannotConvert) {
    Build(Field(L"s", qovaFieldTypeString, 4), Texts({L"1", L"2", L"3"}));
    std::vector<Variant> values = {Variant::I4(3), Variant::I4(1)};
    std::vector<VARIANT*> pointers = {&values[0], &values[1]};
    FIDSet result;
    ASSERT_EQ(index_.Search(pointers, qovaSQLIn, &result), S_OK);
    EXPECT_EQ(test::IdsOf(result), (std::set<int32_t>{0, 2}));
    EXPECT_EQ(pointers[0]->vt, VT_BSTR);
    EXPECT_STREQ(pointers[0]->bstrVal, L"1");
    Build(Field(L"n", qovaFieldTypeInteger, 4), {Variant::I4(1)});
    EXPECT_THROW(Search({Variant::I4(1), Variant::Bstr(L"x")}, qovaSQLIn), int32_t);
}

TEST(LegacyIndexCalls, RefuseClosedHandlesMissingFilesAndBadDescriptors) {
    test::TempDir dir;
    std::string path = (dir / "x.atx").string();
    const int32_t number[4] = {0, 4, 5, -1};
    const int32_t unknown[4] = {0, 4, 9, -1};
    EXPECT_EQ(atx_open(number, path.c_str(), 2), 0);
    EXPECT_EQ(atx_create(unknown, path.c_str()), 0);
    int32_t handle = atx_create(number, path.c_str());
    ASSERT_GT(handle, 0);
    EXPECT_EQ(atx_add(handle, 7, nullptr, 1), 1);
    EXPECT_EQ(atx_add(handle, 7, nullptr, 1), 0);
    EXPECT_EQ(atx_add(handle, 1e12, nullptr, 2), 0);  // beyond a 32-bit key
    EXPECT_EQ(atx_delete(handle, 7, nullptr, 2), 0);
    EXPECT_EQ(atx_seek(handle, 7.5, nullptr, 1), 0);
    EXPECT_EQ(atx_seek(handle, 7, nullptr, 1), 1);
    int32_t id = 0;
    double key = 0;
    EXPECT_EQ(atx_next(handle, &id, nullptr, &key), 1);
    EXPECT_EQ(key, 7);
    EXPECT_EQ(atx_next(handle, &id, nullptr, &key), 0);
    EXPECT_EQ(atx_close(handle), 1);
    EXPECT_EQ(atx_close(handle), 0);
    EXPECT_EQ(atx_top(handle), 0);
    EXPECT_EQ(atx_add(handle, 8, nullptr, 3), 0);
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"x.atx"}));
}

}  // namespace
}  // namespace quillet
