#include "foundation/Descriptor.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/HeldFiles.h"

namespace quillet {

int64_t ReadAt(int fd, unsigned char* out, size_t n, int64_t at) {
    size_t done = 0;
    while (done < n) {
        ssize_t got = ::pread(fd, out + done, n - done, at + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return static_cast<int64_t>(done);
}

bool WriteAt(int fd, const unsigned char* data, size_t n, int64_t at) {
    while (n > 0) {
        ssize_t written = ::pwrite(fd, data, n, at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            if (written == 0) errno = ENOSPC;
            return false;
        }
        data += written;
        at += written;
        n -= static_cast<size_t>(written);
    }
    return true;
}

bool LockWholeFile(int fd, bool exclusive) {
    if (HeldFiles::ContainsDescriptor(fd)) return true;
    struct flock lock {};
    lock.l_type = exclusive ? F_WRLCK : F_RDLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(fd, F_OFD_SETLK, &lock) == 0) return true;
    if (errno == EINVAL || errno == ENOLCK || errno == EOPNOTSUPP) return true;
    if (errno == EACCES) errno = EAGAIN;
    return false;
}

int OpenUnnamed(const char* folder) {
    int fd = ::open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
    // File systems without unnamed files: a name that goes at once.
    std::string pattern = std::string(folder) + "/.quillet-XXXXXX";
    fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd >= 0) ::unlink(pattern.c_str());
    return fd;
}

bool SyncFolderOf(const char* path) {
    std::string folder = path;
    size_t slash = folder.rfind('/');
    folder = slash == std::string::npos ? "." : slash == 0 ? "/" : folder.substr(0, slash);
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool synced = ::fsync(fd) == 0 || errno == EINVAL;
    ::close(fd);
    return synced;
}

}  // namespace quillet
