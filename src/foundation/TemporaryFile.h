#pragma once

// Rewrites build their new contents in the temporary directory (TMPDIR) and
// must leave nothing there whatever happens, a kill included: a TemporaryFile
// is deleted from its folder as soon as it is created, and lives on through
// its open descriptor until the object goes.

#include <memory>
#include <string>

namespace quillet {

class File;

// A file in the temporary directory, with no name once created.
class TemporaryFile {
public:
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // A name in the temporary directory that no file has, starting with
    // `prefix`, or an empty string when none can be made. The caller creates
    // (and removes) the file.
    static std::wstring UniqueName(const wchar_t* prefix);

    // Makes a unique name starting with `prefix` and creates the file, open
    // for reading and writing.
    bool Create(const wchar_t* prefix);
    File& file() { return *file_; }

private:
    std::unique_ptr<File> file_;
};

}  // namespace quillet
