#pragma once

// A file a command needs only while it runs, such as an index built to answer
// one search. It has no name in any folder, so a killed command leaves
// nothing behind; the library reaches it through the path of its descriptor.

#include <filesystem>

namespace quillet::tool {

class ScratchFile {
public:
    // A new empty file in the temporary folder; Failure when none can be made.
    ScratchFile();
    ~ScratchFile();
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    // A path that opens this file while the object lives.
    const std::filesystem::path& Path() const { return path_; }

private:
    int fd_;
    std::filesystem::path path_;
};

}  // namespace quillet::tool
