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
#include "support/TestSupport.h"

namespace quillet {
namespace {

// What the model keeps of a field: its kind, and per record what was set.
enum class Kind { kText, kInteger, kDecimal, kDate, kLogical };

struct Column {
    std::wstring name;
    Kind kind;
};

// A value as the model knows it: null (spaces), zero bytes (a fresh column),
// or what was set.
struct Value {
    enum { kNull, kZero, kSet } state = kNull;
    std::wstring text;
    int64_t integer = 0;  // integers, decimals in thousandths, logicals
};

struct Row {
    std::vector<Value> values;
    bool deleted = false;
};

struct Model {
    std::vector<Column> columns;
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
    return rc::gen::build<Op>(rc::gen::set(&Op::kind, rc::gen::weightedElement<int>({{6, 0}, {12, 1}, {3, 2},
                                                                                    {2, 3}, {1, 4}, {1, 5},
                                                                                    {1, 6}, {1, 7}})),
                              rc::gen::set(&Op::a, rc::gen::inRange(0, 1000)),
                              rc::gen::set(&Op::b, rc::gen::inRange(0, 1000)),
                              rc::gen::set(&Op::c, rc::gen::inRange<int64_t>(-99999999, 99999999)));
}

DBase::qovaDataType TypeOf(Kind kind) {
    switch (kind) {
        case Kind::kText: return DBase::qovaCharacter;
        case Kind::kDate: return DBase::qovaDate;
        case Kind::kLogical: return DBase::qovaLogical;
        default: return DBase::qovaNumeric;
    }
}

int WidthOf(Kind kind) { return kind == Kind::kText ? 8 : kind == Kind::kInteger ? 10 : 12; }
int DecimalsOf(Kind kind) { return kind == Kind::kDecimal ? 3 : 0; }

std::wstring DateText(int64_t n) {
    int year = 1900 + static_cast<int>((n < 0 ? -n : n) % 200), month = 1 + static_cast<int>(n & 7),
        day = 10 + static_cast<int>((n >> 3) & 15);
    return String::Formatted(L"%04d%02d%02d", year, month, day).str();
}

// Sets field `f` of the current record from `c` and records it in `value`.
void Set(DBase& table, int f, Kind kind, int64_t c, Value& value) {
    value.state = Value::kSet;
    switch (kind) {
        case Kind::kText: {
            std::wstring text;
            for (int i = 0; i < 1 + static_cast<int>((c < 0 ? -c : c) % 10); ++i) text += L"abcxyz"[(c >> i) & 3];
            RC_ASSERT(table.SetFieldString(f, text));
            value.text = text.substr(0, 8);
            break;
        }
        case Kind::kInteger:
            if (c % 2 == 0) {
                RC_ASSERT(table.SetFieldInteger(f, static_cast<int32_t>(c)));
            } else {
                RC_ASSERT(table.SetFieldString(f, std::to_wstring(c)));
            }
            value.integer = c;
            break;
        case Kind::kDecimal:
            RC_ASSERT(table.SetFieldDouble(f, static_cast<double>(c) / 1000.0));
            value.integer = c;
            break;
        case Kind::kDate: {
            std::wstring text = DateText(c);
            DBase::DateRec date;
            std::copy(text.begin(), text.begin() + 4, date.year);
            std::copy(text.begin() + 4, text.begin() + 6, date.month);
            std::copy(text.begin() + 6, text.end(), date.day);
            RC_ASSERT(table.SetFieldDate(f, date));
            value.text = text;
            break;
        }
        case Kind::kLogical:
            RC_ASSERT(table.SetFieldLogical(f, c % 2 != 0));
            value.integer = c % 2 != 0;
            break;
    }
}

void CheckValue(DBase& table, int f, Kind kind, const Value& value) {
    switch (kind) {
        case Kind::kText: {
            std::wstring expected = value.state == Value::kSet ? value.text
                                    : value.state == Value::kNull ? L" "
                                                                  : L"";
            RC_ASSERT(table.GetFieldString(f).str() == expected);
            break;
        }
        case Kind::kInteger:
            RC_ASSERT(table.GetFieldInteger(f) == (value.state == Value::kSet ? value.integer : 0));
            break;
        case Kind::kDecimal:
            RC_ASSERT(std::fabs(table.GetFieldDouble(f) -
                                (value.state == Value::kSet ? static_cast<double>(value.integer) / 1000.0 : 0.0)) <
                      1e-6);
            break;
        case Kind::kDate: {
            DBase::DateRec date = table.GetFieldDate(f);
            std::wstring text(date.year, 4);
            text.append(date.month, 2).append(date.day, 2);
            std::wstring expected = value.state == Value::kSet ? value.text
                                    : value.state == Value::kNull ? std::wstring(8, L' ')
                                                                  : std::wstring(8, L'\0');
            RC_ASSERT(text == expected);
            break;
        }
        case Kind::kLogical:
            RC_ASSERT(table.GetFieldLogical(f) == (value.state == Value::kSet && value.integer != 0));
            break;
    }
}

void CheckTable(DBase& table, const Model& model) {
    RC_ASSERT(table.GetNumFields() == static_cast<int>(model.columns.size()));
    RC_ASSERT(table.GetNumRecords() == static_cast<int32_t>(model.rows.size()));
    for (int f = 0; f < table.GetNumFields(); ++f) {
        RC_ASSERT(table.GetFieldName(f).str() == model.columns[static_cast<size_t>(f)].name);
    }
    for (int r = 0; r < table.GetNumRecords(); ++r) {
        const Row& row = model.rows[static_cast<size_t>(r)];
        RC_ASSERT(table.IsRecordDeleted(r) == row.deleted);
        for (int f = 0; f < table.GetNumFields(); ++f) {
            CheckValue(table, f, model.columns[static_cast<size_t>(f)].kind, row.values[static_cast<size_t>(f)]);
        }
    }
}

void Reopen(DBase& table) {
    RC_ASSERT(table.Close());
    RC_ASSERT(table.Open(false, false, CodePage::qovaCodePageDefault));
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
        case 1: {  // set a field of a live record
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
                Set(table, f, model.columns[static_cast<size_t>(f)].kind, op.c, row.values[static_cast<size_t>(f)]);
            }
            break;
        }
        case 2: {  // delete
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
        case 3:  // flush
            RC_ASSERT(table.Flush());
            break;
        case 4: {  // add a column (the table is closed, compacted and reopened)
            Kind kind = static_cast<Kind>(op.b % 5);
            std::wstring name = L"X" + std::to_wstring(model.nextColumn++);
            RC_ASSERT(table.AddColumn(name, TypeOf(kind), WidthOf(kind), DecimalsOf(kind)));
            model.Compact();
            model.columns.push_back({name, kind});
            for (Row& row : model.rows) {
                Value fresh;
                fresh.state = model.rows.empty() ? Value::kNull : Value::kZero;
                row.values.push_back(fresh);
            }
            break;
        }
        case 5: {  // drop a column, keeping at least one
            if (model.columns.size() < 2) break;
            size_t f = static_cast<size_t>(op.b) % model.columns.size();
            RC_ASSERT(table.DropColumn(model.columns[f].name));
            RC_ASSERT(table.Open(false, false, CodePage::qovaCodePageDefault));
            model.Compact();
            model.columns.erase(model.columns.begin() + static_cast<std::ptrdiff_t>(f));
            for (Row& row : model.rows) row.values.erase(row.values.begin() + static_cast<std::ptrdiff_t>(f));
            break;
        }
        case 6:  // commit
            RC_ASSERT(table.CommitChanges());
            model.Compact();
            break;
        default:  // reopen
            Reopen(table);
            model.Compact();
            break;
    }
}

RC_GTEST_PROP(DBaseProperty, MatchesAModelOfTheTable, ()) {
    test::TempDir dir;
    std::wstring path = dir.Wide("p.dbf");
    Model model;
    model.columns = {{L"TEXT", Kind::kText}, {L"COUNT", Kind::kInteger}, {L"PRICE", Kind::kDecimal},
                     {L"DAY", Kind::kDate}, {L"OK", Kind::kLogical}};
    std::vector<test::FieldSpec> specs;
    for (const Column& column : model.columns) {
        specs.push_back({column.name, TypeOf(column.kind), WidthOf(column.kind), DecimalsOf(column.kind)});
    }
    test::CreateTable(path, specs);
    DBase table(path);
    RC_ASSERT(table.Open(false, false, CodePage::qovaCodePageDefault));
    const auto ops = *rc::gen::container<std::vector<Op>>(GenOp());
    for (const Op& op : ops) Apply(table, model, op);
    CheckTable(table, model);
    Reopen(table);
    model.Compact();
    CheckTable(table, model);
}

}  // namespace
}  // namespace quillet
