#include "foundation/TemporaryFile.h"

#include "foundation/File.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr uint32_t kMaxTempPath = 4096;

}  // namespace

TemporaryFile::TemporaryFile() = default;

TemporaryFile::~TemporaryFile() = default;

std::wstring TemporaryFile::Folder() {
    wchar_t directory[kMaxTempPath];
    uint32_t length = GetTempPathW(kMaxTempPath, directory);
    return length == 0 || length >= kMaxTempPath ? std::wstring() : std::wstring(directory);
}

bool TemporaryFile::Create() {
    std::wstring folder = Folder();
    if (folder.empty()) return false;
    file_ = std::make_unique<File>(folder.c_str());
    if (file_->CreateUnnamed()) return true;
    file_.reset();
    return false;
}

}  // namespace quillet
