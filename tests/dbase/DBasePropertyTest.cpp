// Random sequences of appends, sets of every type, deletes, flushes, added
// and dropped columns, commits and reopens, checked against an in-memory
// model of the table.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TableBuilder.h"
#include "dbase/DBase.h"

namespace quillet {
namespace {

// The model keeps each field as it reads through the getter of its kind
// (Read): what was set, or what a null field (spaces) and a fresh column's
// zero bytes read as.
enum Kind { kText, kInteger, kDecimal, kDate, kLogical, kKinds };
struct KindInfo {
    DBase::qovaDataType type;
    int width, decimals;
    std::wstring null, zero;
};
const KindInfo kKindInfo[kKinds] = {
    {DBase::qovaCharacter, 8, 0, L" ", L""},
    {DBase::qovaNumeric, 10, 0, L"0", L"0"},
    {DBase::qovaNumeric, 12, 3, L"0.000", L"0.000"},
    {DBase::qovaDate, 8, 0, std::wstring(8, L' '), std::wstring(8, L'\0')},
    {DBase::qovaLogical, 1, 0, L"0", L"0"}};

std::wstring Read(DBase& table, int f, Kind kind) {
    DBase::DateRec date;
    switch (kind) {
        case kText: return table.GetFieldString(f).str();
        case kInteger: return std::to_wstring(table.GetFieldInteger(f));
        case kDecimal: return String::Formatted(L"%.3f", table.GetFieldDouble(f)).str();
        case kDate:
            date = table.GetFieldDate(f);
            return std::wstring(date.year, 4) + std::wstring(date.month, 2) +
                   std::wstring(date.day, 2);
        default: return table.GetFieldLogical(f) ? L"1" : L"0";
    }
}

// Sets field `f` of the current record from `c` through the setter of its
// kind; returns what it must read as.
std::wstring Set(DBase& table, int f, Kind kind, int64_t c) {
    int64_t n = c < 0 ? -c : c;
    switch (kind) {
        case kText: {
            std::wstring text;
            for (int i = 0; i <= n % 10; ++i) text += L"abcxyz"[(c >> i) & 3];
            RC_ASSERT(table.SetFieldString(f, text));
            return text.substr(0, 8);
        }
        case kInteger:
            RC_ASSERT((c % 2 == 0 ? table.SetFieldInteger(f, static_cast<int32_t>(c))
                                  : table.SetFieldString(f, std::to_wstring(c))));
            return std::to_wstring(c);
        case kDecimal:
            RC_ASSERT(table.SetFieldDouble(f, static_cast<double>(c) / 1000.0));
            return String::Formatted(L"%.3f", static_cast<double>(c) / 1000.0).str();
        case kDate: {
            std::wstring text =
                String::Formatted(L"%04d%02d%02d", 1900 + static_cast<int>(n % 200),
                                  1 + static_cast<int>(n & 7), 10 + static_cast<int>((n >> 3) & 15))
                    .str();
            DBase::DateRec date;
            std::copy(text.begin(), text.begin() + 4, date.year);
            std::copy(text.begin() + 4, text.begin() + 6, date.month);
            std::copy(text.begin() + 6, text.end(), date.day);
            RC_ASSERT(table.SetFieldDate(f, date));
            return text;
        }
        default:
            RC_ASSERT(table.SetFieldLogical(f, c % 2 != 0));
            return c % 2 != 0 ? L"1" : L"0";
    }
}

struct Row {
    std::vector<std::wstring> values;
    bool deleted = false;
};

struct Model {
    std::vector<std::pair<std::wstring, Kind>> columns;
    std::vector<Row> rows;
    bool pendingAppend = false;
    int nextColumn = 0;

    void Compact() {
        std::erase_if(rows, [](const Row& row) { return row.deleted; });
    }
};

void CheckTable(DBase& table, const Model& model) {
    RC_ASSERT(table.GetNumFields() == static_cast<int>(model.columns.size()));
    RC_ASSERT(table.GetNumRecords() == static_cast<int32_t>(model.rows.size()));
    for (int f = 0; f < table.GetNumFields(); ++f) {
        RC_ASSERT(table.GetFieldName(f).str() == model.columns[static_cast<size_t>(f)].first);
    }
    for (int r = 0; r < table.GetNumRecords(); ++r) {
        const Row& row = model.rows[static_cast<size_t>(r)];
        RC_ASSERT(table.IsRecordDeleted(r) == row.deleted);
        for (int f = 0; f < table.GetNumFields(); ++f) {
            RC_ASSERT(Read(table, f, model.columns[static_cast<size_t>(f)].second) ==
                      row.values[static_cast<size_t>(f)]);
        }
    }
}

void Reopen(DBase& table) {
    RC_ASSERT(table.Close());
    RC_ASSERT(test::OpenTable(table));
}

struct Op {
    int kind;  // see Apply
    int a;
    int b;
    int64_t c;
};

rc::Gen<Op> GenOp() {
    return rc::gen::build<Op>(
        rc::gen::set(&Op::kind,
                     rc::gen::weightedElement<int>(
                         {{6, 0}, {12, 1}, {3, 2}, {2, 3}, {1, 4}, {1, 5}, {1, 6}, {1, 7}})),
        rc::gen::set(&Op::a, rc::gen::inRange(0, 1000)),
        rc::gen::set(&Op::b, rc::gen::inRange(0, 1000)),
        rc::gen::set(&Op::c, rc::gen::inRange<int64_t>(-99999999, 99999999)));
}

void Apply(DBase& table, Model& model, const Op& op) {
    int count = static_cast<int>(model.rows.size());
    bool pending = model.pendingAppend;
    model.pendingAppend = false;
    switch (op.kind) {
        case 0: {  // append
            RC_ASSERT(table.AddRecord());
            Row row;
            for (const auto& column : model.columns)
                row.values.push_back(kKindInfo[column.second].null);
            model.rows.push_back(row);
            model.pendingAppend = true;
            break;
        }
        case 1: {  // set a field of a record; a deleted one refuses
            if (count == 0) break;
            int r = op.a % count, f = op.b % static_cast<int>(model.columns.size());
            Row& row = model.rows[static_cast<size_t>(r)];
            Kind kind = model.columns[static_cast<size_t>(f)].second;
            RC_ASSERT(table.MoveTo(r));
            if (row.deleted) {
                RC_ASSERT(!table.SetFieldNull(f));
                RC_ASSERT(table.GetLastStatus() == DBase::kStatusNoRecord);
            } else if (op.c % 7 == 0) {
                RC_ASSERT(table.SetFieldNull(f));
                row.values[static_cast<size_t>(f)] = kKindInfo[kind].null;
            } else {
                row.values[static_cast<size_t>(f)] = Set(table, f, kind, op.c);
            }
            break;
        }
        case 2: {  // delete; an append not yet written is forgotten
            if (count == 0) break;
            int r = op.a % count;
            RC_ASSERT(table.DeleteRecord(r));
            if (pending && r == count - 1) {
                model.rows.pop_back();
            } else {
                model.rows[static_cast<size_t>(r)].deleted = true;
            }
            break;
        }
        case 3: RC_ASSERT(table.Flush()); break;
        case 4: {  // add a column (the table is closed, compacted and reopened)
            Kind kind = static_cast<Kind>(op.b % kKinds);
            const KindInfo& info = kKindInfo[kind];
            std::wstring name = L"X" + std::to_wstring(model.nextColumn++);
            RC_ASSERT(table.AddColumn(name, info.type, info.width, info.decimals));
            RC_ASSERT(table.IsOpen());  // reopened as it was
            model.Compact();
            model.columns.emplace_back(name, kind);
            for (Row& row : model.rows) row.values.push_back(info.zero);
            break;
        }
        case 5: {  // drop a column, keeping at least one
            if (model.columns.size() < 2) {
                model.pendingAppend = pending;  // nothing happened to the table
                break;
            }
            size_t f = static_cast<size_t>(op.b) % model.columns.size();
            RC_ASSERT(table.DropColumn(model.columns[f].first));
            RC_ASSERT(!table.IsOpen());  // left closed for the caller to reopen
            RC_ASSERT(test::OpenTable(table));
            model.Compact();
            model.columns.erase(model.columns.begin() + static_cast<std::ptrdiff_t>(f));
            for (Row& row : model.rows)
                row.values.erase(row.values.begin() + static_cast<std::ptrdiff_t>(f));
            break;
        }
        case 6:
            RC_ASSERT(table.CommitChanges());
            model.Compact();
            break;
        default:
            Reopen(table);
            model.Compact();
            break;
    }
}

RC_GTEST_PROP(DBaseProperty, MatchesAModelOfTheTable, ()) {
    test::TempDir dir;
    std::wstring path = dir.Wide("p.dbf");
    Model model;
    model.columns = {{L"TEXT", kText}, {L"COUNT", kInteger}, {L"PRICE", kDecimal},
                     {L"DAY", kDate}, {L"OK", kLogical}};
    std::vector<test::FieldSpec> specs;
    for (const auto& [name, kind] : model.columns) {
        specs.push_back(
            {name, kKindInfo[kind].type, kKindInfo[kind].width, kKindInfo[kind].decimals});
    }
    test::CreateTable(path, specs);
    DBase table(path);
    RC_ASSERT(test::OpenTable(table));
    for (const Op& op : *rc::gen::container<std::vector<Op>>(GenOp())) Apply(table, model, op);
    CheckTable(table, model);
    Reopen(table);
    model.Compact();
    CheckTable(table, model);
    // Compaction leaves no stale records behind the last one.
    const DBase::HeaderRecord& header = table.GetHeader();
    RC_ASSERT(
        std::filesystem::file_size(dir / "p.dbf") ==
        static_cast<uintmax_t>(header.headerLength + header.numRecords * header.recordLength + 1));
}

}  // namespace
}  // namespace quillet
