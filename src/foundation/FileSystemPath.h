#pragma once

// FileSystemPath: a path with the pieces the stores name their side files by.
// The separator is "/". The extension is the part of the last component after
// its last "."; a leading "." of a component does not start an extension.

#include "foundation/Export.h"
#include "foundation/String.h"

namespace quillet {

class QUILLET_EXPORT FileSystemPath {
public:
    FileSystemPath() = default;
    FileSystemPath(const wchar_t* path) : path_(path) {}  // NOLINT: implicit by design
    FileSystemPath(const String& path) : path_(path) {}  // NOLINT: implicit by design

    // The whole path; with `withSeparator`, a trailing "/" is added when missing.
    String GetPath(bool withSeparator = false) const;
    // The folder part without the trailing "/", empty when there is none.
    String GetDirectory() const;
    // The file name without directory and extension.
    String GetBaseName() const;
    // The extension without its ".", empty when there is none.
    String GetExtension() const;
    // The file name with its extension.
    String GetFileName() const;
    void SetBaseName(const String& name);
    // Replaces (or adds) the extension; with or without a leading ".". An
    // empty extension removes it.
    void SetExtension(const String& extension);
    // Adds a path component, with a "/" between when needed.
    void AppendFile(const String& name);
    // Whether anything (file or folder) exists at the path.
    bool Exists() const;

    const wchar_t* c_str() const { return path_.c_str(); }
    operator const wchar_t*() const { return path_.c_str(); }  // NOLINT: implicit by design

private:
    // Index of the first character of the last component.
    int NameStart() const;
    // Index of the "." that starts the extension, or -1.
    int ExtensionDot() const;

    String path_;
};

}  // namespace quillet
