#include "foundation/Win32File.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cwchar>

#include "foundation/FaultInjection.h"
#include "foundation/Utf8.h"
#include "foundation/Win32Error.h"

namespace quillet {

namespace {

constexpr size_t kMaxTempPath = 4096;

int FailOnPath(int err, const std::string& path) {
    SetLastError(Win32ErrorForPath(err, path.c_str()));
    return 0;
}

// Closes a descriptor when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    // Closes now, so that a failure of the close is seen.
    bool Close() {
        int fd = fd_;
        fd_ = -1;
        return ::close(fd) == 0;
    }

private:
    int fd_;
};

bool WriteFully(int fd, const char* data, size_t n) {
    while (n > 0) {
        ssize_t written = ::write(fd, data, n);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            if (written == 0) errno = ENOSPC;
            return false;
        }
        data += written;
        n -= static_cast<size_t>(written);
    }
    return true;
}

// Copies the bytes of one open file into another; errno tells a failure.
bool CopyBytes(int from, int to) {
    char chunk[64 * 1024];
    for (;;) {
        ssize_t got = ::read(from, chunk, sizeof(chunk));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        if (!WriteFully(to, chunk, static_cast<size_t>(got))) return false;
    }
}

// The copy of CopyFileW, with errno telling a failure. A destination left
// half-written is removed, since it holds nothing the caller asked for.
bool CopyFileContents(const std::string& from, const std::string& to, bool failIfExists) {
    Descriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (source.get() < 0) return false;
    struct stat st{};
    if (::fstat(source.get(), &st) != 0) return false;
    if (!S_ISREG(st.st_mode)) {
        errno = EISDIR;  // reported as access denied, as for a folder
        return false;
    }
    // Copying a file onto itself would empty it before reading it.
    struct stat existing{};
    if (::stat(to.c_str(), &existing) == 0 && existing.st_dev == st.st_dev &&
        existing.st_ino == st.st_ino) {
        errno = failIfExists ? EEXIST : EBUSY;
        return false;
    }
    int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (failIfExists ? O_EXCL : O_TRUNC);
    Descriptor target(::open(to.c_str(), flags, st.st_mode & 0777));
    if (target.get() < 0) return false;
    if (CopyBytes(source.get(), target.get()) && target.Close()) return true;
    int err = errno;
    ::unlink(to.c_str());
    errno = err;
    return false;
}

// Renames without replacing an existing target. renameat2 refuses atomically;
// file systems without it get a check first.
bool RenameNoReplace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) return false;
    struct stat st{};
    if (::lstat(to.c_str(), &st) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::rename(from.c_str(), to.c_str()) == 0;
}

// A fresh number for a temporary name: different across processes and calls.
uint32_t NextTempNumber() {
    static std::atomic<uint32_t> counter{static_cast<uint32_t>(::getpid()) * 2654435761u ^
                                         static_cast<uint32_t>(::time(nullptr))};
    uint32_t number;
    do {
        number = counter.fetch_add(0x9E3779B9u);
    } while (number == 0);
    return number;
}

}  // namespace

std::string NativePath(const wchar_t* path) { return path ? utf8::Encode(path) : std::string(); }

int DeleteFileW(const wchar_t* path) {
    std::string native = NativePath(path);
    if (::unlink(native.c_str()) != 0) return FailOnPath(errno, native);
    return 1;
}

int MoveFileW(const wchar_t* from, const wchar_t* to) {
    std::string source = NativePath(from);
    std::string target = NativePath(to);
    if (FaultInjection::ShouldFail(FaultInjection::kRename)) return FailOnPath(EACCES, target);
    if (RenameNoReplace(source, target)) return 1;
    if (errno == EEXIST) {
        SetLastError(ERROR_ALREADY_EXISTS);
        return 0;
    }
    if (errno != EXDEV) return FailOnPath(errno, source);
    // Another file system: copy, then remove the original.
    if (!CopyFileContents(source, target, true)) return FailOnPath(errno, target);
    if (::unlink(source.c_str()) != 0) return FailOnPath(errno, source);
    return 1;
}

int CopyFileW(const wchar_t* from, const wchar_t* to, int failIfExists) {
    std::string source = NativePath(from);
    std::string target = NativePath(to);
    if (FaultInjection::ShouldFail(FaultInjection::kRename)) return FailOnPath(EACCES, target);
    if (CopyFileContents(source, target, failIfExists != 0)) return 1;
    return FailOnPath(errno, errno == ENOENT && ::access(source.c_str(), F_OK) != 0 ? source : target);
}

uint32_t GetTempPathW(uint32_t size, wchar_t* buffer) {
    const char* tmp = std::getenv("TMPDIR");
    std::wstring path = utf8::Decode(tmp && *tmp ? tmp : "/tmp");
    if (path.back() != L'/') path += L'/';
    if (!buffer || path.size() >= size) return static_cast<uint32_t>(path.size() + 1);
    path.copy(buffer, path.size());
    buffer[path.size()] = L'\0';
    return static_cast<uint32_t>(path.size());
}

uint32_t GetTempFileNameW(const wchar_t* directory, const wchar_t* prefix, uint32_t unique,
                          wchar_t* out) {
    if (!directory || !out) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::wstring stem = directory;
    if (!stem.empty() && stem.back() != L'/') stem += L'/';
    if (prefix) stem.append(prefix, std::min<size_t>(std::wcslen(prefix), 3));

    bool create = unique == 0;
    for (int attempt = 0; attempt < 1000; ++attempt) {
        uint32_t number = create ? NextTempNumber() : unique;
        wchar_t digits[16];
        std::swprintf(digits, std::size(digits), L"%X.tmp", number);
        std::wstring name = stem + digits;
        if (name.size() >= kMaxTempPath) {
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return 0;
        }
        if (create) {
            std::string native = NativePath(name.c_str());
            if (FaultInjection::ShouldFail(FaultInjection::kCreate)) return FailOnPath(EACCES, native);
            int fd = ::open(native.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd < 0 && errno == EEXIST) continue;
            if (fd < 0) return FailOnPath(errno, native);
            ::close(fd);
        }
        name.copy(out, name.size());
        out[name.size()] = L'\0';
        return number;
    }
    SetLastError(ERROR_FILE_EXISTS);
    return 0;
}

void Sleep(uint32_t milliseconds) {
    timespec wait{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1000000L};
    while (::nanosleep(&wait, &wait) != 0 && errno == EINTR) {
    }
}

bool GetFileModificationTime(const wchar_t* path, int64_t& nanoseconds) {
    std::string native = NativePath(path);
    struct stat st{};
    if (::stat(native.c_str(), &st) != 0) {
        FailOnPath(errno, native);
        return false;
    }
    nanoseconds = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return true;
}

}  // namespace quillet
