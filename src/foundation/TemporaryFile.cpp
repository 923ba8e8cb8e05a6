#include "foundation/TemporaryFile.h"

#include "foundation/File.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr uint32_t kMaxTempPath = 4096;

}  // namespace

TemporaryFile::TemporaryFile() = default;

TemporaryFile::~TemporaryFile() = default;

std::wstring TemporaryFile::UniqueName(const wchar_t* prefix) {
    wchar_t directory[kMaxTempPath];
    uint32_t length = GetTempPathW(kMaxTempPath, directory);
    if (length == 0 || length >= kMaxTempPath) return {};
    wchar_t name[kMaxTempPath];
    if (GetTempFileNameW(directory, prefix, 0, name) == 0) return {};
    // Making the name reserves it with an empty file; the caller makes its own.
    ::quillet::DeleteFileW(name);
    return name;
}

bool TemporaryFile::Create(const wchar_t* prefix) {
    std::wstring name = UniqueName(prefix);
    if (name.empty()) return false;
    file_ = std::make_unique<File>(name.c_str());
    bool created = file_->Create(1, 0);
    // From here on the file is reached through its descriptor only, so that
    // nothing is left behind, even by a process that is killed.
    ::quillet::DeleteFileW(name.c_str());
    if (!created) file_.reset();
    return created;
}

}  // namespace quillet
