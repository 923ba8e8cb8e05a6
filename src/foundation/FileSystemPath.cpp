#include "foundation/FileSystemPath.h"

#include <sys/stat.h>

#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr wchar_t kSeparator = L'/';

}  // namespace

// The pieces are found from the last separator and, within the name after it,
// the last "." that does not start the name.
int FileSystemPath::NameStart() const {
    return path_.ReverseFind(kSeparator) + 1;
}

int FileSystemPath::ExtensionDot() const {
    int start = NameStart();
    int dot = path_.ReverseFind(L'.');
    return dot > start ? dot : -1;
}

String FileSystemPath::GetPath(bool withSeparator) const {
    if (withSeparator && (path_.IsEmpty() || path_[path_.GetLength() - 1] != kSeparator)) {
        return path_ + String(L"/");
    }
    return path_;
}

String FileSystemPath::GetDirectory() const {
    int start = NameStart();
    if (start == 0) return String();
    // The root keeps its separator; any other folder drops it.
    return start == 1 ? path_.Left(1) : path_.Left(start - 1);
}

String FileSystemPath::GetBaseName() const {
    int start = NameStart();
    int dot = ExtensionDot();
    return path_.Mid(start, (dot < 0 ? path_.GetLength() : dot) - start);
}

String FileSystemPath::GetExtension() const {
    int dot = ExtensionDot();
    return dot < 0 ? String() : path_.Mid(dot + 1);
}

String FileSystemPath::GetFileName() const {
    return path_.Mid(NameStart());
}

void FileSystemPath::SetBaseName(const String& name) {
    int dot = ExtensionDot();
    String extension = dot < 0 ? String() : path_.Mid(dot);
    path_ = path_.Left(NameStart()) + name + extension;
}

void FileSystemPath::SetExtension(const String& extension) {
    int dot = ExtensionDot();
    if (dot >= 0) path_ = path_.Left(dot);
    if (extension.IsEmpty()) return;
    if (extension[0] != L'.') path_ += L'.';
    path_ += extension;
}

void FileSystemPath::AppendFile(const String& name) {
    String rest = name;
    while (!rest.IsEmpty() && rest[0] == kSeparator) rest = rest.Mid(1);
    path_ = (path_.IsEmpty() ? String() : GetPath(true)) + rest;
}

bool FileSystemPath::Exists() const {
    struct stat info;
    return !path_.IsEmpty() && ::stat(NativePath(path_).c_str(), &info) == 0;
}

}  // namespace quillet
