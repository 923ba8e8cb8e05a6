// Operations of a next-generation record file on its files as a whole:
// emptying, deleting, renaming and copying the data file, its index and its
// free list together.

#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"
#include "recordfile/VFileNG.h"

namespace quillet {

namespace {

// A missing file counts as deleted.
bool S_Delete(const wchar_t* path) {
    return !FileExists(path) || ::quillet::DeleteFileW(path);
}

}  // namespace

bool VFileNG::Truncate() {
    Mode mode = mode_;
    int32_t pointerLength = header_.pointerLength;
    Close(false);
    FreeList(path_.c_str(), pointerLength).Delete();
    return Create(mode, false, pointerLength, false);
}

bool VFileNG::DeleteFileW() {
    CloseFiles(false);
    FreeList list(path_.c_str(), header_.pointerLength);
    bool deleted =
        S_Delete(path_.c_str()) && S_Delete(index_.GetName().c_str()) && SUCCEEDED(list.Delete());
    if (!deleted)
        return Fail(GetLastError() == ERROR_ACCESS_DENIED ? kErrorReadOnly : kErrorNoRecord);
    return true;
}

bool VFileNG::RenameFile(const wchar_t* newPath) {
    bool wasOpen = IsOpen();
    Mode mode = mode_;
    String oldPath = path_;
    CloseFiles(false);
    if (!MoveFileW(oldPath.c_str(), newPath)) return Fail(kErrorNoRecord);
    if (!index_.RenameFile(newPath)) {
        MoveFileW(newPath, oldPath.c_str());
        return Fail(index_.GetLastError());
    }
    FreeList list(oldPath.c_str(), header_.pointerLength);
    if (FAILED(list.Rename(String(newPath)))) {
        MoveFileW(newPath, oldPath.c_str());
        index_.RenameFile(oldPath.c_str());
        return Fail(kErrorNoRecord);
    }
    path_ = newPath;
    return wasOpen ? Open(mode, share_, shareWrites_) : true;
}

bool VFileNG::CopyFileW(const wchar_t* destination) const {
    if (file_) file_->Flush();
    if (FileExists(destination) && !::quillet::DeleteFileW(destination)) return false;
    if (!::quillet::CopyFileW(path_.c_str(), destination, 0) || !FileExists(destination)) {
        return false;
    }
    // The index's copy removes the file at `destination` first: a whole copy
    // copies the data file again afterwards.
    return index_.CopyFileW(destination);
}

}  // namespace quillet
