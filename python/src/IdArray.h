#pragma once

// The record ids that a search gathered, as the numpy array of int32 that
// the module's searches return, ascending.

#include <pybind11/numpy.h>

#include "foundation/IFIDSet.h"

namespace quillet::python {

pybind11::array_t<int32_t> IdArray(IFIDSet& ids);

}  // namespace quillet::python
