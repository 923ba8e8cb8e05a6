#include "foundation/Win32FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <new>

#include "foundation/Descriptor.h"
#include "foundation/FaultInjection.h"
#include "foundation/HandleMapping.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

// What a HANDLE points at.
struct OpenFile {
    int fd;
    bool writable;
    int64_t position;
    HandleMapping mapping;
};

OpenFile* FileOf(HANDLE handle) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return static_cast<OpenFile*>(handle);
}

int Fail(uint32_t error) {
    SetLastError(error);
    return 0;
}

int FailFromErrno(int err) {
    return Fail(Win32ErrorFromErrno(err));
}

// The file's length, -1 with errno set on failure.
int64_t LengthOf(const OpenFile& file) {
    if (file.mapping.IsMapped()) return file.mapping.Length();
    struct stat st {};
    return ::fstat(file.fd, &st) == 0 ? st.st_size : -1;
}

uint32_t FailPointer(uint32_t error) {
    SetLastError(error);
    return INVALID_SET_FILE_POINTER;
}

int OpenFlags(uint32_t access, uint32_t disposition) {
    int flags = (access & GENERIC_WRITE) ? ((access & GENERIC_READ) ? O_RDWR : O_WRONLY) : O_RDONLY;
    switch (disposition) {
        case CREATE_NEW: return flags | O_CREAT | O_EXCL;
        case CREATE_ALWAYS:
        case OPEN_ALWAYS: return flags | O_CREAT;
        default: return flags;
    }
}

// Opens and locks; the descriptor, or -1 with errno set.
int OpenLocked(const std::string& path, int flags, bool exclusive) {
    // Not blocking, so that a pipe or device at the path cannot hang the
    // open; only regular files are taken.
    int fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) return -1;
    struct stat st {};
    int err = ::fstat(fd, &st) != 0 ? errno : S_ISREG(st.st_mode) ? 0 : EISDIR;
    if (err == 0 && !LockWholeFile(fd, exclusive)) err = errno;
    if (err == 0) return fd;
    ::close(fd);
    errno = err;
    return -1;
}

}  // namespace

HANDLE CreateFileW(const wchar_t* path, uint32_t access, uint32_t share, SECURITY_ATTRIBUTES*,
                   uint32_t disposition, uint32_t, HANDLE) {
    if (!path || disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING ||
        (disposition == TRUNCATE_EXISTING && !(access & GENERIC_WRITE))) {
        Fail(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::string native = NativePath(path);
    if (FaultInjection::ShouldFail(FaultInjection::kCreate)) {
        Fail(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    struct stat before {};
    bool existed = ::stat(native.c_str(), &before) == 0;
    bool writable = (access & GENERIC_WRITE) != 0;
    bool exclusive = writable && (share & (FILE_SHARE_READ | FILE_SHARE_WRITE)) == 0;
    int fd = OpenLocked(native, OpenFlags(access, disposition), exclusive);
    if (fd < 0) {
        SetLastError(errno == EEXIST ? ERROR_FILE_EXISTS
                                     : Win32ErrorForPath(errno, native.c_str()));
        return INVALID_HANDLE_VALUE;
    }
    // Emptied only once the lock is held, so that a file in use elsewhere
    // keeps its contents.
    bool truncate = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    auto* file = new (std::nothrow) OpenFile{fd, writable, 0, {}};
    if (!file || (truncate && ::ftruncate(fd, 0) != 0)) {
        int err = file ? errno : ENOMEM;
        delete file;
        ::close(fd);
        FailFromErrno(err);
        return INVALID_HANDLE_VALUE;
    }
    bool reportExisting = existed && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS);
    // Only a handle that shuts every other open out owns the file's length,
    // which the map relies on; the others keep to the descriptor.
    if (exclusive) file->mapping.Map(fd);
    SetLastError(reportExisting ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return file;
}

int ReadFile(HANDLE handle, void* buffer, uint32_t count, uint32_t* read, void* overlapped) {
    if (read) *read = 0;
    OpenFile* file = FileOf(handle);
    if (!file) return 0;
    if (overlapped || (!buffer && count > 0)) return Fail(ERROR_INVALID_PARAMETER);
    if (FaultInjection::ShouldFail(FaultInjection::kRead)) return Fail(ERROR_READ_FAULT);
    auto* out = static_cast<unsigned char*>(buffer);
    int64_t got = file->mapping.IsMapped()
                      ? static_cast<int64_t>(file->mapping.Read(out, count, file->position))
                      : ReadAt(file->fd, out, count, file->position);
    if (got < 0) return FailFromErrno(errno);
    file->position += got;
    if (read) *read = static_cast<uint32_t>(got);
    return 1;
}

int WriteFile(HANDLE handle, const void* buffer, uint32_t count, uint32_t* written,
              void* overlapped) {
    if (written) *written = 0;
    OpenFile* file = FileOf(handle);
    if (!file) return 0;
    if (overlapped || (!buffer && count > 0)) return Fail(ERROR_INVALID_PARAMETER);
    if (!file->writable) return Fail(ERROR_ACCESS_DENIED);
    if (FaultInjection::ShouldFail(FaultInjection::kWrite)) return Fail(ERROR_DISK_FULL);
    const auto* data = static_cast<const unsigned char*>(buffer);
    if (!(file->mapping.IsMapped() ? file->mapping.Write(data, count, file->position)
                                   : WriteAt(file->fd, data, count, file->position))) {
        return FailFromErrno(errno);
    }
    file->position += count;
    if (written) *written = count;
    return 1;
}

uint32_t SetFilePointer(HANDLE handle, int32_t distance, int32_t* distanceHigh, uint32_t method) {
    OpenFile* file = FileOf(handle);
    if (!file) return INVALID_SET_FILE_POINTER;
    int64_t move =
        distanceHigh ? (static_cast<int64_t>(*distanceHigh) << 32) | static_cast<uint32_t>(distance)
                     : distance;
    int64_t base = 0;
    if (method == FILE_CURRENT) {
        base = file->position;
    } else if (method == FILE_END) {
        base = LengthOf(*file);
        if (base < 0) return FailPointer(Win32ErrorFromErrno(errno));
    } else if (method != FILE_BEGIN) {
        return FailPointer(ERROR_INVALID_PARAMETER);
    }
    if (FaultInjection::ShouldFail(FaultInjection::kSeek)) {
        return FailPointer(ERROR_INVALID_PARAMETER);
    }
    if (move < 0 ? base < -move : base > std::numeric_limits<int64_t>::max() - move) {
        return FailPointer(move < 0 ? ERROR_NEGATIVE_SEEK : ERROR_INVALID_PARAMETER);
    }
    file->position = base + move;
    if (distanceHigh) *distanceHigh = static_cast<int32_t>(file->position >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<uint32_t>(file->position);
}

int SetEndOfFile(HANDLE handle) {
    OpenFile* file = FileOf(handle);
    if (!file) return 0;
    if (!file->writable) return Fail(ERROR_ACCESS_DENIED);
    if (FaultInjection::ShouldFail(FaultInjection::kWrite)) return Fail(ERROR_DISK_FULL);
    bool done = file->mapping.IsMapped() ? file->mapping.SetLength(file->position)
                                         : ::ftruncate(file->fd, file->position) == 0;
    return done ? 1 : FailFromErrno(errno);
}

uint32_t GetFileSize(HANDLE handle, uint32_t* high) {
    OpenFile* file = FileOf(handle);
    int64_t length = file ? LengthOf(*file) : -1;
    if (length < 0) {
        if (file) FailFromErrno(errno);
        return INVALID_FILE_SIZE;
    }
    auto size = static_cast<uint64_t>(length);
    if (high) *high = static_cast<uint32_t>(size >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<uint32_t>(size);
}

int FlushFileBuffers(HANDLE handle) {
    OpenFile* file = FileOf(handle);
    if (!file) return 0;
    if (FaultInjection::ShouldFail(FaultInjection::kFlush)) return Fail(ERROR_DISK_FULL);
    if (file->mapping.IsMapped() && !file->mapping.Sync()) return FailFromErrno(errno);
    if (::fdatasync(file->fd) != 0 && errno != EINVAL && errno != EROFS)
        return FailFromErrno(errno);
    return 1;
}

int CloseHandle(HANDLE handle) {
    OpenFile* file = FileOf(handle);
    if (!file) return 0;
    int result = ::close(file->fd);
    delete file;
    return result == 0 ? 1 : FailFromErrno(errno);
}

}  // namespace quillet
