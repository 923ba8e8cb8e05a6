#include "ColumnReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

#include "CellValue.h"
#include "DateField.h"
#include "Errors.h"
#include "PopulatedArray.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

constexpr int32_t kChunkRecords = 65536;
constexpr int64_t kNotATime = std::numeric_limits<int64_t>::min();
constexpr uint8_t kUnknown = 2;

enum class ColumnKind { kNumber, kDate, kLogical, kText };

// Where a text value of a chunk ends, in `ascii` or in `chars`.
struct TextCell {
    enum class Kind : uint8_t { kBlank, kAscii, kWide } kind;
    size_t end;
};

// Whether the code page reads the bytes below 0x80 as those code points, so
// that ASCII text can skip its conversion (7-bit Arabic, for one, does not).
bool KeepsAscii(const CodePage& tablePage) {
    CodePage page(tablePage.GetCodePageId());
    char bytes[128];
    for (int i = 1; i < 128; ++i) bytes[i - 1] = static_cast<char>(i);
    bytes[127] = '\0';
    wchar_t wide[128] = {};
    page.Source2Native(bytes, wide, 128);
    for (int i = 1; i < 128; ++i) {
        if (wide[i - 1] != static_cast<wchar_t>(i)) return false;
    }
    return true;
}

// The length of a text field's value as the library reads it: up to a zero
// byte, without trailing spaces.
size_t TextLength(const char* raw, int width) {
    size_t length = strnlen(raw, static_cast<size_t>(width));
    while (length > 1 && raw[length - 1] == ' ') --length;
    return length;
}

// The strings of a column's first ASCII values, by a hash of their bytes:
// equal values, which columns of names and codes repeat a lot, share one
// string object instead of each making its own. A slot, once filled, keeps
// its string, and the hash is compared before the string's bytes.
// The slots are made at the first value, no more than the table has
// records: a small table does not pay for a large cache. A column whose
// values hardly repeat (ids, free text) would pay the hash and a miss in a
// large table for each value: once a slots' worth of values has found few
// strings to share, the column makes each string without looking.
class AsciiStrings {
public:
    explicit AsciiStrings(size_t records) : size_(std::clamp<size_t>(records, 1, kMaxSlots)) {}

    // A new reference to the string of these bytes; null with a Python
    // error set when it cannot be made.
    PyObject* Get(const char* bytes, size_t length) {
        if (++looked_ == size_ && shared_ < size_ / kFewShared) StopSharing();
        if (!sharing_) return Make(bytes, length);
        if (slots_.empty()) slots_.resize(size_);
        size_t hash = std::hash<std::string_view>()(std::string_view(bytes, length));
        Slot& slot = slots_[hash % size_];
        PyObject* held = slot.text.ptr();
        if (held && slot.hash == hash && size_t(PyUnicode_GET_LENGTH(held)) == length &&
            std::memcmp(PyUnicode_1BYTE_DATA(held), bytes, length) == 0) {
            Py_INCREF(held);
            ++shared_;
            return held;
        }
        PyObject* text = Make(bytes, length);
        if (text && !held) slot = {hash, py::reinterpret_borrow<py::object>(text)};
        return text;
    }

private:
    struct Slot {
        size_t hash = 0;
        py::object text;
    };
    static constexpr size_t kMaxSlots = 65536;
    // Fewer than one value in this many found its string: few enough.
    static constexpr size_t kFewShared = 8;

    static PyObject* Make(const char* bytes, size_t length) {
        PyObject* text = PyUnicode_New(static_cast<Py_ssize_t>(length), 127);
        if (text) std::memcpy(PyUnicode_1BYTE_DATA(text), bytes, length);
        return text;
    }

    void StopSharing() {
        sharing_ = false;
        std::vector<Slot>().swap(slots_);
    }

    size_t size_;
    std::vector<Slot> slots_;
    bool sharing_ = true;
    size_t looked_ = 0;
    size_t shared_ = 0;  // of the values looked for, those that found their string
};

// Widens the bytes into a fixed-width array's UCS-4 units; whether all were
// ASCII, so that the units hold the text. Every unit is written whatever the
// bytes, which keeps the loop free of branches.
bool AsciiToUnits(const char* bytes, size_t length, char32_t* units) {
    unsigned char seen = 0;
    for (size_t i = 0; i < length; ++i) {
        auto byte = static_cast<unsigned char>(bytes[i]);
        seen |= byte;
        units[i] = byte;
    }
    return seen < 0x80;
}

bool IsAscii(const char* text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(text[i]) >= 0x80) return false;
    }
    return true;
}

// The array a column's file work fills: numbers, dates (as days) and
// logicals (as 0, 1 or kUnknown) in buffers that Finish gives their dtypes;
// text as an object array of None, or with a width as a fixed-width array of
// empty strings.
py::array NewValues(ColumnKind kind, py::ssize_t count, size_t fixedWidth) {
    switch (kind) {
        case ColumnKind::kNumber: return PopulatedArray(py::dtype::of<double>(), count);
        case ColumnKind::kDate: return PopulatedArray(py::dtype::of<int64_t>(), count);
        case ColumnKind::kLogical: return PopulatedArray(py::dtype::of<uint8_t>(), count);
        case ColumnKind::kText: break;
    }
    if (fixedWidth > 0) return PopulatedArray(py::dtype("<U" + std::to_string(fixedWidth)), count);
    return py::module_::import("numpy").attr("full")(count, py::none(),
                                                     py::arg("dtype") = "object");
}

ColumnKind KindOf(char type) {
    switch (type) {
        case DBase::qovaNumeric:
        case DBase::qovaFloat: return ColumnKind::kNumber;
        case DBase::qovaDate: return ColumnKind::kDate;
        case DBase::qovaLogical: return ColumnKind::kLogical;
        default: return ColumnKind::kText;
    }
}

}  // namespace

struct ColumnReader::Column {
    int field;
    std::string name;
    ColumnKind kind;
    bool wholeNumbers;  // an integer field, while every value read is whole
    bool anyUnknown = false;
    // Characters per value of a fixed-width text array; 0 when text is str.
    size_t fixedWidth = 0;
    py::array values;      // float64, int64 (dates), uint8 (logicals), object or <U
    void* data = nullptr;  // its buffer, which the file work fills without the interpreter
    // The text values of the chunk being read, end to end: ASCII ones as
    // their bytes, others as the code page's characters.
    std::vector<char> ascii;
    std::vector<wchar_t> chars;
    std::vector<TextCell> cells;
    AsciiStrings strings;

    Column(int field, size_t records) : field(field), strings(records) {}
};

ColumnReader::ColumnReader(const std::filesystem::path& path, const std::vector<std::string>& names,
                           int64_t start, int64_t stop, TextForm textForm)
    : path_(path), table_(String::FromUtf8(path.string())) {
    bool opened;
    {
        py::gil_scoped_release release;
        opened = table_.Open(true, true, CodePage::qovaCodePageDefault);
    }
    if (!opened) Raise(path, table_.GetLastStatus(), "cannot open the table");
    keepsAscii_ = KeepsAscii(table_.GetCodePage());
    std::vector<int> fields;
    for (const auto& name : names) {
        int field = table_.GetFieldNumber(String::FromUtf8(name));
        if (field < 0) throw py::key_error("no field named " + name + " in " + path.string());
        fields.push_back(field);
    }
    if (names.empty()) {
        for (int i = 0; i < table_.GetNumFields(); ++i) fields.push_back(i);
    }
    int64_t records = table_.GetNumRecords();
    first_ = static_cast<int32_t>(std::min(start, records));
    end_ = static_cast<int32_t>(std::clamp(stop, int64_t{first_}, records));
    auto count = static_cast<py::ssize_t>(end_ - first_);
    for (int field : fields) {
        auto column = std::make_unique<Column>(field, static_cast<size_t>(count));
        column->name = table_.GetFieldName(field).ToUtf8();
        column->kind = KindOf(table_.GetFieldType(field));
        column->wholeNumbers = table_.GetFieldDecimals(field) == 0;
        if (column->kind == ColumnKind::kText && textForm == TextForm::kFixed) {
            column->fixedWidth = static_cast<size_t>(std::max(table_.GetFieldWidth(field), 1));
        }
        column->values = NewValues(column->kind, count, column->fixedWidth);
        column->data = column->values.mutable_data();
        columns_.push_back(std::move(column));
    }
}

ColumnReader::~ColumnReader() = default;

void ColumnReader::ReadValue(Column& column) {
    const char* raw = table_.GetFieldPointer(column.field);
    bool blank = IsBlank(raw);
    switch (column.kind) {
        case ColumnKind::kNumber: {
            double value = blank || IsNoNumber(raw) ? std::nan("") : table_.GetFieldDouble(column.field);
            if (!std::isfinite(value)) value = std::nan("");
            column.wholeNumbers = column.wholeNumbers && value == std::trunc(value) &&
                                  std::fabs(value) < 9007199254740992.0;
            static_cast<double*>(column.data)[live_] = value;
            return;
        }
        case ColumnKind::kDate: {
            auto date = blank ? std::nullopt : ReadDate(table_, column.field);
            static_cast<int64_t*>(column.data)[live_] =
                date ? DaysSinceEpoch(*date) : kNotATime;
            return;
        }
        case ColumnKind::kLogical: {
            uint8_t value = blank || raw[0] == '?' ? kUnknown : table_.GetFieldLogical(column.field);
            column.anyUnknown = column.anyUnknown || value == kUnknown;
            static_cast<uint8_t*>(column.data)[live_] = value;
            return;
        }
        case ColumnKind::kText:
            if (column.fixedWidth > 0) {
                FillFixedText(column, raw, blank);
            } else {
                ReadText(column, raw, blank);
            }
    }
}

void ColumnReader::ReadText(Column& column, const char* raw, bool blank) {
    if (blank) {
        column.cells.push_back({TextCell::Kind::kBlank, 0});
        return;
    }
    size_t length = TextLength(raw, table_.GetFieldWidth(column.field));
    if (keepsAscii_ && IsAscii(raw, length)) {
        column.ascii.insert(column.ascii.end(), raw, raw + length);
        column.cells.push_back({TextCell::Kind::kAscii, column.ascii.size()});
        return;
    }
    String text = table_.GetFieldString(column.field);
    column.chars.insert(column.chars.end(), text.c_str(), text.c_str() + text.GetLength());
    column.cells.push_back({TextCell::Kind::kWide, column.chars.size()});
}

// Into the array, which starts out all empty strings, so that a blank value
// stays empty. A code page decodes no byte into more than one character, so
// the field's width holds its text; the copy is bounded all the same.
void ColumnReader::FillFixedText(Column& column, const char* raw, bool blank) {
    if (blank) return;
    static_assert(sizeof(wchar_t) == sizeof(char32_t));
    char32_t* units =
        static_cast<char32_t*>(column.data) + live_ * static_cast<int64_t>(column.fixedWidth);
    size_t length = TextLength(raw, table_.GetFieldWidth(column.field));
    if (AsciiToUnits(raw, length, units) && keepsAscii_) return;
    String text = table_.GetFieldString(column.field);
    size_t kept = std::min<size_t>(static_cast<size_t>(text.GetLength()), column.fixedWidth);
    std::copy_n(text.c_str(), kept, units);
    std::fill(units + kept, units + column.fixedWidth, U'\0');
}

void ColumnReader::ReadChunk(int32_t first, int32_t end) {
    for (int32_t n = first; n < end; ++n) {
        if (!IsLiveRecord(table_, n, path_)) continue;
        for (auto& column : columns_) ReadValue(*column);
        ++live_;
    }
}

// With the interpreter: the chunk's text values into the object array, which
// starts out all None.
void ColumnReader::MakeTexts(Column& column) {
    auto** rows = static_cast<PyObject**>(column.data);
    int64_t row = live_ - static_cast<int64_t>(column.cells.size());
    size_t asciiStart = 0, wideStart = 0;
    for (const TextCell& cell : column.cells) {
        PyObject* text = nullptr;
        if (cell.kind == TextCell::Kind::kAscii) {
            text = column.strings.Get(&column.ascii[asciiStart], cell.end - asciiStart);
            asciiStart = cell.end;
        } else if (cell.kind == TextCell::Kind::kWide) {
            text = PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, &column.chars[wideStart],
                                             static_cast<Py_ssize_t>(cell.end - wideStart));
            wideStart = cell.end;
        }
        if (cell.kind != TextCell::Kind::kBlank) {
            if (!text) throw py::error_already_set();
            Py_DECREF(rows[row]);
            rows[row] = text;
        }
        ++row;
    }
    column.ascii.clear();
    column.chars.clear();
    column.cells.clear();
}

py::object ColumnReader::Finish(Column& column) {
    py::object values = column.values;
    if (live_ < column.values.shape(0)) {
        values = values[py::slice(0, live_, 1)].attr("copy")();
    }
    switch (column.kind) {
        case ColumnKind::kNumber:
            return column.wholeNumbers ? values.attr("astype")("int64") : values;
        case ColumnKind::kDate: return values.attr("view")("datetime64[D]");
        case ColumnKind::kLogical: {
            if (!column.anyUnknown) return values.attr("astype")("bool");
            py::object choices = py::module_::import("numpy").attr("array")(
                py::make_tuple(false, true, py::none()), py::arg("dtype") = "object");
            return choices.attr("take")(values);
        }
        default: return values;
    }
}

py::dict ColumnReader::ReadAll() {
    for (int32_t first = first_; first < end_; first += kChunkRecords) {
        int32_t end = end_ - first > kChunkRecords ? first + kChunkRecords : end_;
        {
            py::gil_scoped_release release;
            ReadChunk(first, end);
        }
        for (auto& column : columns_) {
            if (column->kind == ColumnKind::kText && column->fixedWidth == 0) MakeTexts(*column);
        }
    }
    py::dict out;
    for (auto& column : columns_) out[py::str(column->name)] = Finish(*column);
    return out;
}

}  // namespace quillet::python
