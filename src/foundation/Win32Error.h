#pragma once

// The thread's last system error, in Win32 numbering, as the platform's
// Win32-named calls report it.

#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

inline constexpr uint32_t ERROR_SUCCESS = 0;
inline constexpr uint32_t ERROR_INVALID_FUNCTION = 1;
inline constexpr uint32_t ERROR_FILE_NOT_FOUND = 2;
inline constexpr uint32_t ERROR_PATH_NOT_FOUND = 3;
inline constexpr uint32_t ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr uint32_t ERROR_ACCESS_DENIED = 5;
inline constexpr uint32_t ERROR_INVALID_HANDLE = 6;
inline constexpr uint32_t ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr uint32_t ERROR_NOT_SAME_DEVICE = 17;
inline constexpr uint32_t ERROR_WRITE_FAULT = 29;
inline constexpr uint32_t ERROR_READ_FAULT = 30;
inline constexpr uint32_t ERROR_GEN_FAILURE = 31;
inline constexpr uint32_t ERROR_SHARING_VIOLATION = 32;
inline constexpr uint32_t ERROR_LOCK_VIOLATION = 33;
inline constexpr uint32_t ERROR_HANDLE_EOF = 38;
inline constexpr uint32_t ERROR_FILE_EXISTS = 80;
inline constexpr uint32_t ERROR_INVALID_PARAMETER = 87;
inline constexpr uint32_t ERROR_DISK_FULL = 112;
inline constexpr uint32_t ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr uint32_t ERROR_NEGATIVE_SEEK = 131;
inline constexpr uint32_t ERROR_DIR_NOT_EMPTY = 145;
inline constexpr uint32_t ERROR_ALREADY_EXISTS = 183;
inline constexpr uint32_t ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr uint32_t ERROR_NO_UNICODE_TRANSLATION = 1113;

QUILLET_EXPORT uint32_t GetLastError();
QUILLET_EXPORT void SetLastError(uint32_t error);

// The Win32 number of a POSIX errno value (ENOENT -> 2, EACCES -> 5, ...).
QUILLET_EXPORT uint32_t Win32ErrorFromErrno(int err);
// The same for a failure on a path: a missing file (ENOENT) whose folder is
// missing too is ERROR_PATH_NOT_FOUND (3) rather than ERROR_FILE_NOT_FOUND (2).
QUILLET_EXPORT uint32_t Win32ErrorForPath(int err, const char* nativePath);

}  // namespace quillet
