#pragma once

// Reads chosen fields of a table's live records into numpy arrays, column by
// column, without a Python object for any number, date or logical:
//   N, F   float64 (NaN where blank); int64 when the field has no decimals
//          and every value is whole
//   D      datetime64[D] (NaT where there is no date)
//   L      bool; object (True, False, None) when some are unknown
//   others object arrays of str (None where blank), or with TextForm::kFixed
//          fixed-width unicode arrays as wide as the field ("" where blank),
//          which need no Python object per value
// The file work runs without the interpreter, a chunk of records at a time;
// the interpreter is taken back only to make the text values of each chunk
// as str objects.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "dbase/DBase.h"

namespace quillet::python {

enum class TextForm { kObject, kFixed };

class ColumnReader {
public:
    // Opens the table to read records [start, stop) of the file, deleted ones
    // counted (the live ones among them are read), cut to the records the
    // table has, so that ranges side by side read each live record once;
    // `names` empty means every field.
    ColumnReader(const std::filesystem::path& path, const std::vector<std::string>& names,
                 int64_t start, int64_t stop, TextForm textForm);
    ~ColumnReader();

    // The arrays by field name, in the table's order of the names asked for.
    pybind11::dict ReadAll();

private:
    struct Column;

    void ReadChunk(int32_t first, int32_t end);
    void ReadValue(Column& column);
    void ReadText(Column& column, const char* raw, bool blank);
    void FillFixedText(Column& column, const char* raw, bool blank);
    void MakeTexts(Column& column);
    pybind11::object Finish(Column& column);

    std::filesystem::path path_;
    DBase table_;
    std::vector<std::unique_ptr<Column>> columns_;
    int32_t first_ = 0, end_ = 0;  // the records to read
    int64_t live_ = 0;  // records read so far
    bool keepsAscii_ = false;
};

}  // namespace quillet::python
