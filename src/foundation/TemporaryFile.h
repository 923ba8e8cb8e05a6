#pragma once

// Rewrites build their new contents in the temporary directory (TMPDIR) and
// must leave nothing there whatever happens, a kill included: a TemporaryFile
// has no name in its folder, and lives through its open descriptor until the
// object goes.

#include <memory>
#include <string>

namespace quillet {

class File;

// A file in the temporary directory, with no name.
class TemporaryFile {
public:
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // The temporary directory, with a trailing "/"; empty when it is unknown.
    static std::wstring Folder();

    // Creates the file, with no name, open for reading and writing.
    bool Create();
    File& file() { return *file_; }

private:
    std::unique_ptr<File> file_;
};

}  // namespace quillet
