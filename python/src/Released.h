#pragma once

// File work of an object that Python threads may share: it runs with the
// interpreter released and the object's lock held. The lock is taken only
// once the interpreter is released and given up before it is taken back, so
// a thread never waits for the interpreter while it holds the lock, and two
// threads cannot block each other for good.

#include <mutex>

#include <pybind11/pybind11.h>

namespace quillet::python {

template <typename Work>
auto Released(std::mutex& mutex, Work work) {
    pybind11::gil_scoped_release release;
    std::lock_guard<std::mutex> lock(mutex);
    return work();
}

}  // namespace quillet::python
