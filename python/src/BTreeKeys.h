#pragma once

// The keys of a B-tree index as Python gives and gets them, by key type:
//   string, wstring           str
//   short, long, int64        int, checked against the type's range
//   float, double             int or float
//   date, datemap1, datemap2  datetime.date or datetime.datetime (or the OLE
//                             date as a number); read back as datetime.date,
//                             datetime.datetime when it has a time of day
// Keys are converted, all of them, before the index is touched: a value of
// the wrong kind raises before any file work, and the file work then runs
// without the interpreter.

#include <cstdint>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "attrindex/MTKey.h"

namespace quillet::python {

class KeyList {
public:
    explicit KeyList(MTDataType type) : type_(type) {}

    // TypeError for a value of another kind, OverflowError for an integer
    // the type cannot hold.
    void Append(const pybind11::handle& value);
    // Every value of a sequence, a numpy array of numbers without a Python
    // object each.
    void AppendAll(const pybind11::handle& values);
    // A key read from the index; needs no interpreter.
    void Append(const MTKey& key);
    size_t size() const;
    // Key i; a text key borrows the list's text, so the list must outlive it.
    void Get(size_t i, MTKey& key) const;
    pybind11::object ToPython(size_t i) const;

private:
    bool AppendNumbers(const pybind11::array& values);
    void AppendInteger(int64_t value);
    [[noreturn]] void OutOfRange(const std::string& value) const;

    MTDataType type_;
    std::vector<int64_t> integers_;
    std::vector<double> reals_;  // floats and dates
    std::vector<std::wstring> texts_;
};

}  // namespace quillet::python
