#include "IdArray.h"

namespace quillet::python {

pybind11::array_t<int32_t> IdArray(IFIDSet& ids) {
    int32_t count = 0;
    ids.get_Count(&count);
    pybind11::array_t<int32_t> out(count);
    int32_t* data = out.mutable_data();
    // The set enumerates its ids ascending.
    int32_t filled = 0;
    ids.Reset();
    while (filled < count && ids.Next(data + filled) == S_OK) ++filled;
    return out;
}

}  // namespace quillet::python
