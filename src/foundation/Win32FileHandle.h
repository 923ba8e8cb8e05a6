#pragma once

// Win32-named calls on file handles, over POSIX: open (CreateFileW), read,
// write, move the file pointer, truncate, flush and close. A handle owns one
// descriptor and its own file pointer. A handle that shuts every other open
// out (a writer that shares nothing) maps its file, so that reads and writes
// inside the file cost no system call; any other read or write at the pointer
// is one positioned system call. Sharing follows File's rule: a handle opened
// for writing that shares neither reading nor writing takes an exclusive lock
// on the whole file, every other open a shared one, and the loser of a
// conflict fails at once with ERROR_SHARING_VIOLATION.
//
// Each call returns as its Win32 namesake does and otherwise sets the
// thread's last error (Win32Error.h). A handle is used by one thread at a
// time; CloseHandle frees it.

#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

using HANDLE = void*;
struct SECURITY_ATTRIBUTES;  // accepted and ignored

inline HANDLE const INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(-1);

inline constexpr uint32_t GENERIC_READ = 0x80000000u;
inline constexpr uint32_t GENERIC_WRITE = 0x40000000u;
inline constexpr uint32_t FILE_SHARE_READ = 0x1;
inline constexpr uint32_t FILE_SHARE_WRITE = 0x2;
inline constexpr uint32_t FILE_SHARE_DELETE = 0x4;
inline constexpr uint32_t CREATE_NEW = 1;
inline constexpr uint32_t CREATE_ALWAYS = 2;
inline constexpr uint32_t OPEN_EXISTING = 3;
inline constexpr uint32_t OPEN_ALWAYS = 4;
inline constexpr uint32_t TRUNCATE_EXISTING = 5;
inline constexpr uint32_t FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr uint32_t FILE_BEGIN = 0;
inline constexpr uint32_t FILE_CURRENT = 1;
inline constexpr uint32_t FILE_END = 2;
inline constexpr uint32_t INVALID_SET_FILE_POINTER = 0xFFFFFFFFu;
inline constexpr uint32_t INVALID_FILE_SIZE = 0xFFFFFFFFu;

// INVALID_HANDLE_VALUE on failure. CREATE_ALWAYS and OPEN_ALWAYS succeed on an
// existing file with the last error ERROR_ALREADY_EXISTS; CREATE_NEW fails on
// one with ERROR_FILE_EXISTS. Security, flags and template are ignored.
QUILLET_EXPORT HANDLE CreateFileW(const wchar_t* path, uint32_t access, uint32_t share,
                                  SECURITY_ATTRIBUTES* security, uint32_t disposition,
                                  uint32_t flags, HANDLE templateFile);
// Nonzero on success. Reading at or past the end succeeds with fewer bytes
// (0 at the end); `overlapped` must be null.
QUILLET_EXPORT int ReadFile(HANDLE file, void* buffer, uint32_t count, uint32_t* read,
                            void* overlapped);
QUILLET_EXPORT int WriteFile(HANDLE file, const void* buffer, uint32_t count, uint32_t* written,
                             void* overlapped);
// Moves the file pointer; the low 32 bits of the new position, the high ones
// into *distanceHigh when it is given. INVALID_SET_FILE_POINTER with a last
// error on failure (ERROR_NEGATIVE_SEEK before the start).
QUILLET_EXPORT uint32_t SetFilePointer(HANDLE file, int32_t distance, int32_t* distanceHigh,
                                       uint32_t method);
// Truncates or extends the file to the file pointer.
QUILLET_EXPORT int SetEndOfFile(HANDLE file);
// The low 32 bits of the size, the high ones into *high when given.
QUILLET_EXPORT uint32_t GetFileSize(HANDLE file, uint32_t* high);
QUILLET_EXPORT int FlushFileBuffers(HANDLE file);
QUILLET_EXPORT int CloseHandle(HANDLE file);

}  // namespace quillet
