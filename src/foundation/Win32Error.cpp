#include "foundation/Win32Error.h"

#include <cerrno>
#include <string>
#include <sys/stat.h>

namespace quillet {

namespace {

thread_local uint32_t t_lastError = ERROR_SUCCESS;

}  // namespace

uint32_t GetLastError() { return t_lastError; }

void SetLastError(uint32_t error) { t_lastError = error; }

uint32_t Win32ErrorFromErrno(int err) {
    switch (err) {
        case 0: return ERROR_SUCCESS;
        case ENOENT: return ERROR_FILE_NOT_FOUND;
        case ENOTDIR: return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR: return ERROR_ACCESS_DENIED;
        case EMFILE:
        case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
        case EBADF: return ERROR_INVALID_HANDLE;
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        // A conflicting lock of another open: the file is in use.
        case EAGAIN:
        case EBUSY:
        case ETXTBSY: return ERROR_SHARING_VIOLATION;
        case EEXIST: return ERROR_FILE_EXISTS;
        case EINVAL:
        case EOVERFLOW: return ERROR_INVALID_PARAMETER;
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return ERROR_DISK_FULL;
        case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
        case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
        case EXDEV: return ERROR_NOT_SAME_DEVICE;
        default: return ERROR_GEN_FAILURE;
    }
}

uint32_t Win32ErrorForPath(int err, const char* nativePath) {
    if (err != ENOENT || !nativePath) return Win32ErrorFromErrno(err);
    // POSIX says ENOENT for a missing file and for a missing folder on the way
    // to it alike; callers tell the two apart, so look at the folder.
    std::string folder(nativePath);
    size_t slash = folder.find_last_of('/');
    if (slash == std::string::npos) return ERROR_FILE_NOT_FOUND;
    folder.resize(slash == 0 ? 1 : slash);
    struct stat st{};
    if (::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return ERROR_FILE_NOT_FOUND;
    return ERROR_PATH_NOT_FOUND;
}

}  // namespace quillet
