#pragma once

// Win32-named file calls over POSIX. Paths are wide and reach the system as
// UTF-8. Each returns nonzero (true) on success and otherwise sets the thread's
// last error (Win32Error.h) from the system's error.

#include <cstdint>
#include <string>

#include "foundation/Export.h"

namespace quillet {

QUILLET_EXPORT int DeleteFileW(const wchar_t* path);
// Renames; fails when the target exists (as the Win32 call does).
QUILLET_EXPORT int MoveFileW(const wchar_t* from, const wchar_t* to);
QUILLET_EXPORT int CopyFileW(const wchar_t* from, const wchar_t* to, int failIfExists);
// The temporary directory ($TMPDIR, else /tmp) with a trailing "/". Returns the
// length written, or the length needed (with the terminator) when it does not
// fit; 0 on failure.
QUILLET_EXPORT uint32_t GetTempPathW(uint32_t size, wchar_t* buffer);
// Makes a unique file name in `directory` from the first three characters of
// `prefix` and a hexadecimal number ("<directory>/<pre><HEX>.tmp"), creates the
// (empty) file and writes the full path into `out` (room for 4096 characters). `unique` 0 asks for a fresh
// number; otherwise that number is used and nothing is created. Returns the
// number used, 0 on failure.
QUILLET_EXPORT uint32_t GetTempFileNameW(const wchar_t* directory, const wchar_t* prefix,
                                         uint32_t unique, wchar_t* out);
QUILLET_EXPORT void Sleep(uint32_t milliseconds);

// Modification time of a file in nanoseconds since the epoch; false when it
// cannot be asked.
QUILLET_EXPORT bool GetFileModificationTime(const wchar_t* path, int64_t& nanoseconds);

// The path in the encoding the system takes (UTF-8), and back.
QUILLET_EXPORT std::string NativePath(const wchar_t* path);

}  // namespace quillet
