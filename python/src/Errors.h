#pragma once

// A failure of the library as the module reports it: the library's status
// code (the last status of the object that failed) and the path of the file
// it was working on. It becomes the Python exception quillet.Error, whose
// `status` and `path` attributes carry the two.

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace quillet::python {

class LibraryError : public std::runtime_error {
public:
    LibraryError(const std::filesystem::path& path, int32_t status, const std::string& problem);

    int32_t status() const { return status_; }
    const std::string& path() const { return path_; }

private:
    int32_t status_;
    std::string path_;
};

[[noreturn]] void Raise(const std::filesystem::path& path, int32_t status,
                        const std::string& problem);

}  // namespace quillet::python
