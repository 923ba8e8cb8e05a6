#include "Errors.h"

#include "Bindings.h"

namespace py = pybind11;

namespace quillet::python {

LibraryError::LibraryError(const std::filesystem::path& path, int32_t status,
                           const std::string& problem)
    : std::runtime_error(path.string() + ": " + problem + " (status " + std::to_string(status) +
                         ")"),
      status_(status),
      path_(path.string()) {}

void Raise(const std::filesystem::path& path, int32_t status, const std::string& problem) {
    throw LibraryError(path, status, problem);
}

void BindErrors(py::module_& module) {
    // OSError as the base: the failures are those of files, and callers
    // that catch OSError around file work catch these too.
    static py::exception<LibraryError> error(module, "Error", PyExc_OSError);
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown) std::rethrow_exception(thrown);
        } catch (const LibraryError& e) {
            py::object instance = py::reinterpret_borrow<py::object>(error)(e.what());
            instance.attr("status") = e.status();
            instance.attr("path") = e.path();
            PyErr_SetObject(error.ptr(), instance.ptr());
        }
    });
}

}  // namespace quillet::python
