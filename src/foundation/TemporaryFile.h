#pragma once

// Rewrites build their new contents in the temporary directory (TMPDIR) and
// must leave nothing there whatever happens: a TemporaryFile owns such a file
// and deletes it when it goes.

#include <memory>
#include <string>

namespace quillet {

class File;

// A file in the temporary directory, deleted when the object goes.
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
