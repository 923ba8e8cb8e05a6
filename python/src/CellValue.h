#pragma once

// One field's value of one record, typed as the field says, held in C++ so
// that a record can be read while the interpreter runs other threads and
// turned into Python objects afterwards:
//   blank field                          None
//   N, F  numbers                        int when the field has no decimals
//                                        and the value is whole, else float;
//                                        None when marked as none (asterisks)
//   D     dates                          datetime.date; None when no date
//   L     logicals                       bool; None when unknown ("?")
//   C and any other type                 str

#include <cstdint>
#include <filesystem>
#include <string>

#include <pybind11/pybind11.h>

#include "DateField.h"
#include "dbase/DBase.h"

namespace quillet::python {

struct CellValue {
    enum class Kind : uint8_t { kNone, kInteger, kReal, kDate, kLogical, kText };
    Kind kind = Kind::kNone;
    int64_t integer = 0;  // the integer, or the logical as 0 or 1
    double real = 0;
    CalendarDate date{};
    std::wstring text;
};

// Whether the raw bytes of a field (as GetFieldPointer gives them) are all
// spaces.
bool IsBlank(const char* raw);

// Other writers fill a number they could not store, or none, with asterisks.
bool IsNoNumber(const char* raw);

// Whether record n is live. It raises when the library cannot read it:
// the library answers "deleted" for such a record, too.
bool IsLiveRecord(DBase& table, int32_t n, const std::filesystem::path& path);

// Field `field` of the table's current record; runs without the interpreter.
void ReadCell(DBase& table, int field, CellValue& cell);

// Needs the interpreter.
pybind11::object ToPython(const CellValue& cell);

}  // namespace quillet::python
