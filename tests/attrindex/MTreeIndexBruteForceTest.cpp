// Every predicate of the .atx index against a plain scan of the table, on
// random tables of every code page kind with numeric, date, text and logical
// columns, many duplicates and blanks; and an index grown by single inserts
// (then shrunk by deletes) against one built in bulk.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <set>

#include "IndexTestSupport.h"
#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "attrindex/MultiByteText.h"
#include "attrindex/TableColumn.h"
#include "dbase/DBase.h"
#include "foundation/SqlParse.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

constexpr int kRows = 160;
constexpr int kQueriesPerColumn = 60;

struct ColumnSpec {
    const wchar_t* name;
    DBase::qovaDataType type;
    int width;
    int decimals;
};

constexpr ColumnSpec kColumns[] = {
    {L"SHORT", DBase::qovaNumeric, 3, 0},  {L"LONG", DBase::qovaNumeric, 7, 0},
    {L"FLT", DBase::qovaNumeric, 6, 2},    {L"DBL", DBase::qovaNumeric, 12, 3},
    {L"WIDEF", DBase::qovaFloat, 11, 2},   {L"DAY", DBase::qovaDate, 8, 0},
    {L"NAME", DBase::qovaCharacter, 4, 0}, {L"FLAG", DBase::qovaLogical, 1, 0},
};

const wchar_t* const kWords[] = {L"",       L"a", L"ab",  L"ab ", L"abc", L"abcd",
                                 L"abcdef", L"b", L"é",   L"éa",  L"中",  L"a_b",
                                 L"a%b",    L"A", L"ab_", L"ba",  L"a b", L"Ωx"};

// The text of a random value of a column; few distinct values, so that
// every key has duplicates, and blanks.
std::wstring RandomText(const ColumnSpec& column, std::mt19937& random) {
    auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    switch (column.type) {
        case DBase::qovaCharacter: return kWords[pick(std::size(kWords))];
        case DBase::qovaDate:
            return pick(8) == 0
                       ? L""
                       : L"20" + std::to_wstring(10 + pick(3)) + L"0" +
                             std::to_wstring(1 + pick(3)) + L"1" + std::to_wstring(pick(3));
        case DBase::qovaLogical: return pick(2) ? L"T" : L"F";
        default: break;
    }
    if (pick(10) == 0) return L"";
    int value = pick(21) - 10;
    if (column.decimals == 0) return std::to_wstring(value * (column.width > 3 ? 777 : 3));
    return std::to_wstring(value) + L"." + std::to_wstring(pick(4) * 25);
}

// One indexed entry as the plain scan sees it.
struct Entry {
    double number;
    std::string text;  // the key's bytes: multibyte, cut or padded to the width
    int32_t id;
};

class Reference {
public:
    Reference(bool isText, int width) : text_(isText), width_(width) {}

    // The key of a value, or false for a value that is not indexed.
    bool KeyOf(const VARIANT& value, Entry& entry) const {
        switch (value.vt) {
            case VT_I2: entry.number = value.iVal; return !text_;
            case VT_I4: entry.number = value.lVal; return !text_;
            case VT_R4: entry.number = value.fltVal; return !text_;
            case VT_R8: entry.number = value.dblVal; return !text_;
            case VT_DATE: entry.number = value.date; return !text_;
            case VT_BSTR:
                entry.text = ToMultiByte(value.bstrVal).substr(0, static_cast<size_t>(width_));
                entry.text.resize(static_cast<size_t>(width_), ' ');
                return text_;
            default: return false;
        }
    }
    int Compare(const Entry& a, const Entry& b) const {
        if (text_)
            return std::clamp(std::memcmp(a.text.data(), b.text.data(), a.text.size()), -1, 1);
        return a.number < b.number ? -1 : (a.number > b.number ? 1 : 0);
    }
    void Add(Entry entry) { entries_.push_back(std::move(entry)); }
    void Remove(int32_t id) {
        std::erase_if(entries_, [id](const Entry& e) { return e.id == id; });
    }
    const std::vector<Entry>& Entries() const { return entries_; }

    std::set<int32_t> Where(const std::function<bool(const Entry&)>& matches) const {
        std::set<int32_t> ids;
        for (const Entry& e : entries_) {
            if (matches(e)) ids.insert(e.id);
        }
        return ids;
    }

    // In and not in as the index keeps them, over the entries in key order
    // with the values in the order given: in seeks to the first value and
    // moves through the values as the keys pass them; not in moves past a
    // value in one step and adds that entry unseen.
    std::set<int32_t> InScan(const std::vector<Entry>& values, bool inside) const {
        std::vector<Entry> sorted = entries_;
        std::sort(sorted.begin(), sorted.end(), [this](const Entry& a, const Entry& b) {
            int c = Compare(a, b);
            return c != 0 ? c < 0 : a.id < b.id;
        });
        std::set<int32_t> ids;
        size_t current = 0;
        for (const Entry& e : sorted) {
            if (inside) {
                if (Compare(e, values[0]) < 0) continue;
                while (current < values.size() && Compare(e, values[current]) > 0) ++current;
                if (current == values.size()) break;
                if (Compare(e, values[current]) == 0) ids.insert(e.id);
                continue;
            }
            int c = current < values.size() ? Compare(e, values[current]) : -1;
            if (c > 0) ++current;
            if (c != 0) ids.insert(e.id);
        }
        return ids;
    }

    std::set<int32_t> Like(const std::wstring& pattern) const {
        size_t cut = pattern.find(L'_');
        if (cut == std::wstring::npos) cut = pattern.find(L'%');
        std::string prefix = ToMultiByte(pattern.substr(0, cut).c_str());
        return Where([&](const Entry& e) {
            if (e.text.compare(0, prefix.size(), prefix) != 0) return false;
            std::wstring key = FromMultiByte(e.text.data(), e.text.size());
            key.erase(key.find_last_not_of(L' ') + 1);
            return SqlParse::PatternMatch(key.c_str(), pattern.c_str());
        });
    }

private:
    bool text_;
    int width_;
    std::vector<Entry> entries_;
};

class MTreeIndexBruteForce : public ::testing::TestWithParam<CodePage::qovaCodePageEnum> {
protected:
    void MakeTable(std::mt19937& random) {
        DBase table(table_);
        ASSERT_TRUE(table.Create(GetParam()));
        StringArray names;
        std::vector<DBase::qovaDataType> types;
        std::vector<int> widths, decimals;
        for (const ColumnSpec& c : kColumns) {
            names.Add(c.name);
            types.push_back(c.type);
            widths.push_back(c.width);
            decimals.push_back(c.decimals);
        }
        ASSERT_TRUE(table.AddColumns(names, types.data(), widths.data(), decimals.data()));
        ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
        for (int r = 0; r < kRows; ++r) {
            ASSERT_TRUE(table.AddRecord());
            for (int f = 0; f < static_cast<int>(std::size(kColumns)); ++f) {
                table.SetFieldString(f, RandomText(kColumns[f], random));
            }
        }
        ASSERT_TRUE(table.Close());
    }

    // A query value: mostly a value of the column, sometimes another text or
    // number, as the variant type the column's values take.
    Variant RandomValue(DBase& table, int field, std::mt19937& random) {
        Variant value;
        table.MoveTo(static_cast<int32_t>(random() % kRows));
        table.GetValue(field, value);
        if (value.vt == VT_BSTR && random() % 4 == 0) {
            value = Variant::Bstr(kWords[random() % std::size(kWords)]);
        } else if (value.vt == VT_R4 && random() % 4 == 0) {
            value = Variant::R4(value.fltVal + 0.25f);
        } else if (value.vt == VT_NULL) {
            value = Variant::Date(40000 + static_cast<double>(random() % 1500));
        }
        return value;
    }

    void CheckColumn(DBase& table, int field, std::mt19937& random);

    test::TempDir dir_;
    std::wstring table_ = dir_.Wide("t.dbf");
};

void Query(MTreeIndex& index, std::vector<Variant>& values, qovaSQLPredicates predicate,
           const std::set<int32_t>& expected, const std::string& what) {
    std::vector<VARIANT*> pointers;
    for (Variant& v : values) pointers.push_back(&v);
    FIDSet result;
    ASSERT_EQ(index.Search(pointers, predicate, &result), S_OK) << what;
    EXPECT_EQ(test::IdsOf(result), expected) << what << " predicate " << predicate;
}

// The records a predicate selects, by the plain scan.
std::set<int32_t> Expected(const Reference& ref, qovaSQLPredicates predicate,
                           const std::vector<Entry>& keys, const std::wstring& pattern) {
    const Entry& k = keys[0];
    auto where = [&](auto test) {
        return ref.Where([&](const Entry& e) { return test(ref.Compare(e, k)); });
    };
    switch (predicate) {
        case qovaSQLEqual: return where([](int c) { return c == 0; });
        case qovaSQLNotEqual: return where([](int c) { return c != 0; });
        case qovaSQLLessThan: return where([](int c) { return c < 0; });
        case qovaSQLGreaterThan: return where([](int c) { return c > 0; });
        case qovaSQLLessOrEqual: return where([](int c) { return c <= 0; });
        case qovaSQLGreaterOrEqual: return where([](int c) { return c >= 0; });
        case qovaSQLBetween:
            return ref.Where([&](const Entry& e) {
                return ref.Compare(e, k) >= 0 && ref.Compare(e, keys[1]) <= 0;
            });
        case qovaSQLNotBetween:
            return ref.Where([&](const Entry& e) {
                return ref.Compare(e, k) < 0 || ref.Compare(e, keys[1]) > 0;
            });
        case qovaSQLIn: return ref.InScan(keys, true);
        case qovaSQLNotIn: return ref.InScan(keys, false);
        default: return ref.Like(pattern);
    }
}

void MTreeIndexBruteForce::CheckColumn(DBase& table, int field, std::mt19937& random) {
    Field column = ColumnField(table, field);
    bool isText = table.GetFieldType(field) == 'C';
    Reference reference(isText, table.GetFieldWidth(field));
    std::wstring bulkPath = dir_.Wide("bulk.atx");
    std::wstring singlePath = dir_.Wide("single.atx");
    MTreeIndex bulk;
    MTreeIndex single;
    ASSERT_EQ(bulk.Create(bulkPath.c_str(), &column, true), S_OK);
    ASSERT_EQ(single.Create(singlePath.c_str(), &column, false), S_OK);
    TableColumnEnumerator rows(table, field);
    int32_t id = 0;
    Variant value;
    while (rows.Next(id, value)) {
        Entry entry{0, std::string(), id};
        ASSERT_TRUE(reference.KeyOf(value, entry));
        reference.Add(entry);
        ASSERT_EQ(bulk.InsertEntry(value, id), S_OK);
        ASSERT_EQ(single.InsertEntry(value, id), S_OK);
        value.Clear();
    }
    ASSERT_EQ(bulk.Close(), S_OK);
    // Grown one entry at a time, the file is the one a bulk build writes.
    EXPECT_EQ(test::ReadBytes(dir_ / "bulk.atx"), test::ReadBytes(dir_ / "single.atx"));
    ASSERT_EQ(bulk.Open(bulkPath.c_str(), &column, MTreeIndex::kModeRead), S_OK);
    const Reference all = reference;
    for (int d = 0; d < 8; ++d) {
        int32_t victim = static_cast<int32_t>(random() % kRows);
        Variant v;
        table.MoveTo(victim);
        table.GetValue(field, v);
        bool indexed = std::any_of(reference.Entries().begin(), reference.Entries().end(),
                                   [&](const Entry& e) { return e.id == victim; });
        EXPECT_EQ(single.DeleteEntry(v, victim), indexed ? S_OK : E_FAIL);
        reference.Remove(victim);
    }

    for (int q = 0; q < kQueriesPerColumn; ++q) {
        auto predicate = static_cast<qovaSQLPredicates>(1 << (random() % 11));
        size_t count = predicate == qovaSQLIn || predicate == qovaSQLNotIn ? 1 + random() % 4
                       : predicate == qovaSQLBetween || predicate == qovaSQLNotBetween ? 2
                                                                                       : 1;
        std::vector<Variant> values;
        std::vector<Entry> keys;
        for (size_t i = 0; i < count; ++i) {
            values.push_back(RandomValue(table, field, random));
            keys.push_back(Entry{0, std::string(), 0});
            reference.KeyOf(values.back(), keys.back());
        }
        // The index sorts the values of in and not in as text (by code point)
        // or as numbers before its scan; a text index then compares keys as
        // multibyte bytes, in which order two values may stand the other way.
        std::vector<size_t> order(count);
        for (size_t i = 0; i < count; ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
            const VARIANT& x = values[a];
            const VARIANT& y = values[b];
            if (x.vt == VT_BSTR) return std::wcscmp(x.bstrVal, y.bstrVal) < 0;
            return reference.Compare(keys[a], keys[b]) < 0;
        });
        std::vector<Entry> scanKeys;
        for (size_t i : order) scanKeys.push_back(keys[i]);
        if (predicate == qovaSQLIn || predicate == qovaSQLNotIn) keys = scanKeys;
        std::wstring pattern;
        if (predicate == qovaSQLLike) {
            if (!isText) continue;
            pattern = values[0].bstrVal;
            if (pattern.empty() || pattern[0] == L'%' || pattern[0] == L'_') continue;
            pattern += random() % 2 ? L"%" : L"_";
            values[0] = Variant::Bstr(pattern.c_str());
        }
        std::vector<Variant> copy = values;
        Query(bulk, copy, predicate, Expected(all, predicate, keys, pattern), "bulk");
        Query(single, values, predicate, Expected(reference, predicate, keys, pattern), "single");
    }
    int64_t entries = 0;
    LegacyIndex check((dir_ / "single.atx").string());
    ASSERT_TRUE(check.Open(LegacyIndex::LayoutOf(single.GetKeyDescriptor()), false));
    EXPECT_EQ(check.Check(entries), "");
    EXPECT_EQ(entries, static_cast<int64_t>(reference.Entries().size()));
    single.Close();
    bulk.Close();
}

TEST_P(MTreeIndexBruteForce, EveryPredicateMatchesAPlainScan) {
    std::mt19937 random(20261123u + static_cast<unsigned>(GetParam()));
    MakeTable(random);
    DBase table(table_);
    ASSERT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
    for (int f = 0; f < static_cast<int>(std::size(kColumns)); ++f) {
        SCOPED_TRACE(testing::Message() << "column " << f);
        CheckColumn(table, f, random);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryCodePageKind, MTreeIndexBruteForce,
                         ::testing::Values(CodePage::qovaCodePageDefault, CodePage::qovaCodePageOEM,
                                           CodePage::qovaCodePageANSI, CodePage::qovaCodePageISO,
                                           CodePage::qovaCodePageUTF8));

}  // namespace
}  // namespace quillet
