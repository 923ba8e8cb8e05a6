#pragma once

// A new numpy array of zeros whose pages are all mapped by the one call that
// makes it. Filling fresh memory otherwise takes a page fault per page, and on
// a virtual machine those cost more than the filling itself: a column of a
// million records is tens of megabytes. The memory goes when the array does.

#include <pybind11/numpy.h>

namespace quillet::python {

// Needs the interpreter; releases it while the pages are mapped. Raises
// MemoryError when they cannot be.
pybind11::array PopulatedArray(const pybind11::dtype& dtype, pybind11::ssize_t count);

}  // namespace quillet::python
