// Random sequences of appends, sets of every type, deletes, flushes, added
// and dropped columns, commits and reopens, checked against an in-memory
// model of the table.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "TableBuilder.h"
#include "dbase/DBase.h"

namespace quillet {
namespace {

// The kinds of field the model knows, indexed by Kind.
enum Kind { kText, kInteger, kDecimal, kDate, kLogical, kKinds };
const test::FieldSpec kKindFields[kKinds] = {{L"", DBase::qovaCharacter, 8, 0},
                                             {L"", DBase::qovaNumeric, 10, 0},
                                             {L"", DBase::qovaNumeric, 12, 3},
                                             {L"", DBase::qovaDate, 8, 0},
                                             {L"", DBase::qovaLogical, 1, 0}};

// A value as the model knows it: null (spaces), zero bytes (a column added to
// a table with records), or what was set.
struct Value {
    enum { kNull, kZero, kSet } state = kNull;
    std::wstring text;    // texts and dates
    int64_t integer = 0;  // integers, decimals in thousandths, logicals
};

struct Row {
    std::vector<Value> values;
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

struct Op {
    int kind;  // see Apply
    int a;
    int b;
    int64_t c;
};

rc::Gen<Op> GenOp() {
    return rc::gen::build<Op>(
        rc::gen::set(&Op::kind,
                     rc::gen::weightedElement<int>({{6, 0}, {12, 1}, {3, 2}, {2, 3}, {1, 4}, {1, 5}, {1, 6}, {1, 7}})),
        rc::gen::set(&Op::a, rc::gen::inRange(0, 1000)), rc::gen::set(&Op::b, rc::gen::inRange(0, 1000)),
        rc::gen::set(&Op::c, rc::gen::inRange<int64_t>(-99999999, 99999999)));
}

// Sets field `f` of the current record from `c` and records it in `value`.
void Set(DBase& table, int f, Kind kind, int64_t c, Value& value) {
    value.state = Value::kSet;
    int64_t n = c < 0 ? -c : c;
    switch (kind) {
        case kText:
            value.text.clear();
            for (int i = 0; i <= n % 10; ++i) value.text += L"abcxyz"[(c >> i) & 3];
            RC_ASSERT(table.SetFieldString(f, value.text));
            value.text.resize(std::min<size_t>(value.text.size(), 8));
            break;
        case kInteger:
            RC_ASSERT((c % 2 == 0 ? table.SetFieldInteger(f, static_cast<int32_t>(c))
                                  : table.SetFieldString(f, std::to_wstring(c))));
            value.integer = c;
            break;
        case kDecimal:
            RC_ASSERT(table.SetFieldDouble(f, static_cast<double>(c) / 1000.0));
            value.integer = c;
            break;
        case kDate: {
            value.text = String::Formatted(L"%04d%02d%02d", 1900 + static_cast<int>(n % 200),
                                           1 + static_cast<int>(n & 7), 10 + static_cast<int>((n >> 3) & 15))
                             .str();
            DBase::DateRec date;
            std::copy(value.text.begin(), value.text.begin() + 4, date.year);
            std::copy(value.text.begin() + 4, value.text.begin() + 6, date.month);
            std::copy(value.text.begin() + 6, value.text.end(), date.day);
            RC_ASSERT(table.SetFieldDate(f, date));
            break;
        }
        default:
            RC_ASSERT(table.SetFieldLogical(f, c % 2 != 0));
            value.integer = c % 2 != 0;
            break;
    }
}

void CheckValue(DBase& table, int f, Kind kind, const Value& value) {
    bool set = value.state == Value::kSet;
    switch (kind) {
        case kText:
            RC_ASSERT(table.GetFieldString(f).str() == (set ? value.text : value.state == Value::kNull ? L" " : L""));
            break;
        case kInteger:
            RC_ASSERT(table.GetFieldInteger(f) == (set ? value.integer : 0));
            break;
        case kDecimal:
            RC_ASSERT(std::fabs(table.GetFieldDouble(f) - (set ? static_cast<double>(value.integer) / 1000.0 : 0.0)) <
                      1e-6);
            break;
        case kDate: {
            DBase::DateRec date = table.GetFieldDate(f);
            std::wstring text = std::wstring(date.year, 4) + std::wstring(date.month, 2) + std::wstring(date.day, 2);
            RC_ASSERT(text == (set ? value.text : std::wstring(8, value.state == Value::kNull ? L' ' : L'\0')));
            break;
        }
        default:
            RC_ASSERT(table.GetFieldLogical(f) == (set && value.integer != 0));
            break;
    }
}

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
            CheckValue(table, f, model.columns[static_cast<size_t>(f)].second, row.values[static_cast<size_t>(f)]);
        }
    }
}

void Reopen(DBase& table) {
    RC_ASSERT(table.Close());
    RC_ASSERT(test::OpenTable(table));
}

void Apply(DBase& table, Model& model, const Op& op) {
    int count = static_cast<int>(model.rows.size());
    bool pending = model.pendingAppend;
    model.pendingAppend = false;
    switch (op.kind) {
        case 0:  // append
            RC_ASSERT(table.AddRecord());
            model.rows.push_back({std::vector<Value>(model.columns.size()), false});
            model.pendingAppend = true;
            break;
        case 1: {  // set a field of a record; a deleted one refuses
            if (count == 0) break;
            int r = op.a % count, f = op.b % static_cast<int>(model.columns.size());
            Row& row = model.rows[static_cast<size_t>(r)];
            RC_ASSERT(table.MoveTo(r));
            if (row.deleted) {
                RC_ASSERT(!table.SetFieldNull(f));
                RC_ASSERT(table.GetLastStatus() == DBase::kStatusNoRecord);
            } else if (op.c % 7 == 0) {
                RC_ASSERT(table.SetFieldNull(f));
                row.values[static_cast<size_t>(f)] = Value();
            } else {
                Set(table, f, model.columns[static_cast<size_t>(f)].second, op.c, row.values[static_cast<size_t>(f)]);
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
        case 3:
            RC_ASSERT(table.Flush());
            break;
        case 4: {  // add a column (the table is closed, compacted and reopened)
            Kind kind = static_cast<Kind>(op.b % kKinds);
            std::wstring name = L"X" + std::to_wstring(model.nextColumn++);
            const test::FieldSpec& spec = kKindFields[kind];
            RC_ASSERT(table.AddColumn(name, spec.type, spec.width, spec.decimals));
            model.Compact();
            model.columns.emplace_back(name, kind);
            for (Row& row : model.rows) row.values.push_back(Value{Value::kZero, {}, 0});
            break;
        }
        case 5: {  // drop a column, keeping at least one
            if (model.columns.size() < 2) break;
            size_t f = static_cast<size_t>(op.b) % model.columns.size();
            RC_ASSERT(table.DropColumn(model.columns[f].first));
            RC_ASSERT(test::OpenTable(table));
            model.Compact();
            model.columns.erase(model.columns.begin() + static_cast<std::ptrdiff_t>(f));
            for (Row& row : model.rows) row.values.erase(row.values.begin() + static_cast<std::ptrdiff_t>(f));
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
    model.columns = {{L"TEXT", kText}, {L"COUNT", kInteger}, {L"PRICE", kDecimal}, {L"DAY", kDate}, {L"OK", kLogical}};
    std::vector<test::FieldSpec> specs;
    for (const auto& [name, kind] : model.columns) {
        specs.push_back(kKindFields[kind]);
        specs.back().name = name;
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
    RC_ASSERT(std::filesystem::file_size(dir / "p.dbf") ==
              static_cast<uintmax_t>(header.headerLength + header.numRecords * header.recordLength + 1));
}

}  // namespace
}  // namespace quillet
