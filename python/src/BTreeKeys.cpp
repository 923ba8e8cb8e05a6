#include "BTreeKeys.h"

#include <datetime.h>

#include <cmath>
#include <span>
#include <stdexcept>

#include "DateField.h"
#include "foundation/Variant.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

bool IsIntegerType(MTDataType type) { return type == MTShort || type == MTLong || type == MTInt64; }

std::string KindOf(const py::handle& value) {
    return py::str(value.get_type().attr("__name__"));
}

[[noreturn]] void WrongKind(MTDataType type, const py::handle& value, const char* expected) {
    throw py::type_error(std::string("a key of a ") + MTDataTypeName(type) + " index is " +
                         expected + ", not " + KindOf(value));
}

bool IsNumber(const py::handle& value) {
    return !PyBool_Check(value.ptr()) && (PyFloat_Check(value.ptr()) || PyIndex_Check(value.ptr()));
}

double RealOf(const py::handle& value) {
    double real = PyFloat_AsDouble(value.ptr());
    if (real == -1.0 && PyErr_Occurred()) throw py::error_already_set();
    return real;
}

double OleDateOfPython(const py::handle& value) {
    PyObject* p = value.ptr();
    CalendarDate date{PyDateTime_GET_YEAR(p), PyDateTime_GET_MONTH(p), PyDateTime_GET_DAY(p)};
    std::optional<double> ole =
        PyDateTime_Check(p) ? OleDateOf(date, PyDateTime_DATE_GET_HOUR(p),
                                        PyDateTime_DATE_GET_MINUTE(p), PyDateTime_DATE_GET_SECOND(p))
                            : OleDateOf(date);
    if (!ole) throw py::value_error("a date out of the range of an index: " + std::string(py::str(value)));
    return *ole;
}

py::object DateToPython(double ole) {
    SYSTEMTIME time{};
    if (!std::isfinite(ole) || !VariantTimeToSystemTime(ole, &time)) return py::float_(ole);
    if (time.wHour == 0 && time.wMinute == 0 && time.wSecond == 0) {
        return py::reinterpret_steal<py::object>(PyDate_FromDate(time.wYear, time.wMonth, time.wDay));
    }
    return py::reinterpret_steal<py::object>(PyDateTime_FromDateAndTime(
        time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, 0));
}

}  // namespace

void KeyList::AppendInteger(int64_t value) {
    int64_t low = type_ == MTShort ? INT16_MIN : type_ == MTLong ? INT32_MIN : INT64_MIN;
    int64_t high = type_ == MTShort ? INT16_MAX : type_ == MTLong ? INT32_MAX : INT64_MAX;
    if (value < low || value > high) OutOfRange(std::to_string(value));
    integers_.push_back(value);
}

void KeyList::OutOfRange(const std::string& value) const {
    throw std::overflow_error("key " + value + " is out of the range of a " +
                              MTDataTypeName(type_) + " index");
}

void KeyList::Append(const py::handle& value) {
    if (!PyDateTimeAPI) PyDateTime_IMPORT;
    if (IsStringType(type_)) {
        if (!PyUnicode_Check(value.ptr())) WrongKind(type_, value, "str");
        texts_.push_back(value.cast<std::wstring>());
    } else if (IsIntegerType(type_)) {
        if (PyBool_Check(value.ptr()) || !PyIndex_Check(value.ptr())) WrongKind(type_, value, "int");
        auto index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
        if (!index) throw py::error_already_set();
        int overflow = 0;
        long long integer = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
        if (overflow) OutOfRange(py::str(value));
        AppendInteger(integer);
    } else if (IsDateType(type_) && PyDate_Check(value.ptr())) {
        reals_.push_back(OleDateOfPython(value));
    } else if (IsNumber(value)) {
        reals_.push_back(RealOf(value));
    } else {
        WrongKind(type_, value, IsDateType(type_) ? "datetime.date" : "int or float");
    }
}

bool KeyList::AppendNumbers(const py::array& values) {
    char kind = values.dtype().kind();
    bool integers = kind == 'i' || (kind == 'u' && values.dtype().itemsize() < 8);
    if (IsStringType(type_) || values.ndim() != 1 || !(integers || kind == 'f')) return false;
    if (IsIntegerType(type_)) {
        if (!integers) return false;
        auto numbers = py::array_t<int64_t, py::array::forcecast>::ensure(values);
        for (int64_t value : std::span(numbers.data(), static_cast<size_t>(numbers.size()))) {
            AppendInteger(value);
        }
    } else {
        auto numbers = py::array_t<double, py::array::forcecast>::ensure(values);
        reals_.insert(reals_.end(), numbers.data(), numbers.data() + numbers.size());
    }
    return true;
}

void KeyList::AppendAll(const py::handle& values) {
    if (py::isinstance<py::array>(values) && AppendNumbers(py::reinterpret_borrow<py::array>(values))) {
        return;
    }
    for (const py::handle value : values) Append(value);
}

size_t KeyList::size() const {
    return IsStringType(type_) ? texts_.size() : IsIntegerType(type_) ? integers_.size() : reals_.size();
}

void KeyList::Get(size_t i, MTKey& key) const {
    if (IsStringType(type_)) {
        key.SetString(texts_[i].c_str(), false);
    } else if (IsIntegerType(type_)) {
        key.SetInt64(integers_[i]);
    } else if (IsDateType(type_)) {
        key.SetDate(reals_[i]);
    } else {
        key.SetDouble(reals_[i]);
    }
}

void KeyList::Append(const MTKey& key) {
    if (IsStringType(type_)) {
        texts_.emplace_back(key.GetString() ? key.GetString() : L"");
    } else if (IsIntegerType(type_)) {
        integers_.push_back(key.GetInteger());
    } else {
        reals_.push_back(static_cast<double>(key.GetWidened()));
    }
}

py::object KeyList::ToPython(size_t i) const {
    if (!PyDateTimeAPI) PyDateTime_IMPORT;
    if (IsStringType(type_)) return py::cast(texts_[i]);
    if (IsIntegerType(type_)) return py::int_(integers_[i]);
    return IsDateType(type_) ? DateToPython(reals_[i]) : py::float_(reals_[i]);
}

}  // namespace quillet::python
