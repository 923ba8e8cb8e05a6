#pragma once

// Helpers for the tests: a temporary folder removed at the end of a test, and
// the folder of sample files that other programs wrote.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace quillet::test {

// A fresh folder under the system's temporary folder, removed with its
// contents when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // A path inside the folder, as the library takes paths.
    std::wstring Wide(const std::string& name) const;
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    // The names of the files now in the folder, sorted.
    std::vector<std::string> Files() const;

private:
    std::filesystem::path path_;
};

using Bytes = std::vector<unsigned char>;
Bytes ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, const Bytes& bytes);
// A path as the library takes it (the tests' paths are ASCII).
std::wstring WidePath(const std::filesystem::path& path);

// The read-only folder of sample files written by other programs, or an empty
// path when the shared folder is not beside the repository.
std::filesystem::path PeerSamplesDir();

}  // namespace quillet::test

// Skips the current test, with a clear message, when the samples are absent.
#define QUILLET_REQUIRE_PEER_SAMPLES()                                                  \
    do {                                                                                \
        if (::quillet::test::PeerSamplesDir().empty())                                  \
            GTEST_SKIP() << "shared/data/peer-samples is not beside the repository";  \
    } while (0)
