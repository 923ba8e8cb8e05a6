#include "PopulatedArray.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace py = pybind11;

namespace quillet::python {

namespace {

struct Mapping {
    void* memory;
    size_t bytes;
};

void Unmap(void* mapping) {
    auto* held = static_cast<Mapping*>(mapping);
    munmap(held->memory, held->bytes);
    delete held;
}

}  // namespace

py::array PopulatedArray(const py::dtype& dtype, py::ssize_t count) {
    // mmap refuses an empty mapping.
    size_t bytes = std::max<size_t>(static_cast<size_t>(count * dtype.itemsize()), 1);
    void* memory;
    {
        py::gil_scoped_release release;
        memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    }
    if (memory == MAP_FAILED) throw std::bad_alloc();
    py::capsule owner(new Mapping{memory, bytes}, &Unmap);
    return py::array(dtype, {count}, {}, memory, owner);
}

}  // namespace quillet::python
