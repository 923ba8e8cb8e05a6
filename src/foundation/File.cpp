#include "foundation/File.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

#include "foundation/Descriptor.h"
#include "foundation/FaultInjection.h"
#include "foundation/MappingGuard.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

// Large enough that sequential access of small records costs a system call
// per thousand records, small enough to keep many files open.
constexpr int32_t kBufferSize = 64 * 1024;
// What a read away from the buffer fetches first. Record files read a
// header here and a record there: filling the whole buffer at each such
// jump copied sixteen times what was used. Reads that go on from the
// buffer's end double the fill up to the whole buffer.
constexpr int32_t kFirstFill = 4 * 1024;

File::Error KindOfErrno(int err, File::Error otherwise) {
    switch (err) {
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR: return File::kAccessDenied;
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG: return File::kNotFound;
        case EAGAIN: return File::kSharingViolation;
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return File::kDiskFull;
        case EMFILE:
        case ENFILE:
        case ENOMEM: return File::kTooManyOpenFiles;
        case EBADF: return File::kNotOpen;
        default: return otherwise;
    }
}

uint32_t Win32ErrorOfKind(File::Error error) {
    switch (error) {
        case File::kNoError: return ERROR_SUCCESS;
        case File::kAccessDenied: return ERROR_ACCESS_DENIED;
        case File::kNotFound: return ERROR_FILE_NOT_FOUND;
        case File::kSharingViolation: return ERROR_SHARING_VIOLATION;
        case File::kReadFailed: return ERROR_HANDLE_EOF;
        case File::kSeekFailed: return ERROR_INVALID_PARAMETER;
        case File::kWriteFailed: return ERROR_WRITE_FAULT;
        case File::kNotOpen: return ERROR_INVALID_HANDLE;
        case File::kDiskFull: return ERROR_DISK_FULL;
        case File::kTooManyOpenFiles: return ERROR_TOO_MANY_OPEN_FILES;
        case File::kGeneralFailure: break;
    }
    return ERROR_GEN_FAILURE;
}

// The mappings this process holds, by file identity and mapped length. A file
// cut below a mapping of it would make reads of that mapping fault (SIGBUS),
// so SetLength refuses to, as Win32 refuses to cut a file with a mapped view.
class MappedFiles {
public:
    using Key = std::pair<uint64_t, uint64_t>;  // device, inode

    static void Add(Key key, int64_t length) {
        std::lock_guard<std::mutex> lock(Mutex());
        Lengths().emplace(key, length);
    }
    static void Remove(Key key, int64_t length) {
        std::lock_guard<std::mutex> lock(Mutex());
        auto [first, last] = Lengths().equal_range(key);
        for (auto it = first; it != last; ++it) {
            if (it->second == length) {
                Lengths().erase(it);
                return;
            }
        }
    }
    static int64_t Longest(Key key) {
        std::lock_guard<std::mutex> lock(Mutex());
        int64_t longest = 0;
        auto [first, last] = Lengths().equal_range(key);
        for (auto it = first; it != last; ++it) longest = std::max(longest, it->second);
        return longest;
    }

private:
    // Never destroyed: a File that a static object holds open closes after
    // every function-local static is gone.
    static std::mutex& Mutex() {
        static auto* mutex = new std::mutex;
        return *mutex;
    }
    static std::multimap<Key, int64_t>& Lengths() {
        static auto* lengths = new std::multimap<Key, int64_t>;
        return *lengths;
    }
};

// Whether a read of the mapping in the slot met a page that another program
// cut from the file; one load, on every read from a mapping.
inline bool Cut(int slot) {
    return slot >= 0 && MappingGuard::FirstFault(slot) >= 0;
}

MappedFiles::Key IdentityOf(const struct stat& st) {
    return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

}  // namespace

File::File(const wchar_t* path) : path_(path ? path : L""), nativePath_(NativePath(path_.c_str())) {}

File::~File() { Close(); }

int File::Open(int readOnly, int, int shareA, int shareB, int) {
    Close();
    if (FaultInjection::ShouldFail(FaultInjection::kCreate)) return FailFromErrno(EACCES);
    bool exclusive = !readOnly && !shareA && !shareB;
    return OpenDescriptor(readOnly ? O_RDONLY : O_RDWR, readOnly != 0, exclusive, shareB != 0);
}

int File::Create(int, int) {
    Close();
    if (FaultInjection::ShouldFail(FaultInjection::kCreate)) return FailFromErrno(EACCES);
    if (!OpenDescriptor(O_RDWR | O_CREAT, false, true, false)) return 0;
    // Emptied only once the lock is held, so that a file in use elsewhere
    // keeps its contents.
    if (!(writeMap_.IsMapped() ? writeMap_.SetLength(0) : ::ftruncate(fd_, 0) == 0)) {
        int err = errno;
        Close();
        return FailFromErrno(err);
    }
    return 1;
}

int File::CreateUnnamed() {
    Close();
    if (FaultInjection::ShouldFail(FaultInjection::kCreate)) return FailFromErrno(EACCES);
    int fd = OpenUnnamed(nativePath_.c_str());
    if (fd < 0) return FailFromErrno(errno);
    Adopt(fd, false, false);
    return Succeed();
}

void File::Adopt(int fd, bool readOnly, bool othersMayWrite) {
    fd_ = fd;
    readOnly_ = readOnly;
    othersMayWrite_ = othersMayWrite;
    position_ = 0;
    bufferFill_ = 0;
    writeFill_ = 0;
}

int File::OpenDescriptor(int flags, bool readOnly, bool exclusiveLock, bool othersMayWrite) {
    // Not blocking, so that a pipe or device at the path cannot hang the
    // open; only regular files are taken (O_NONBLOCK does nothing to them).
    int fd = ::open(nativePath_.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) return FailFromErrno(errno);
    struct stat st{};
    int err = ::fstat(fd, &st) != 0 ? errno : S_ISREG(st.st_mode) ? 0 : EISDIR;
    if (err == 0 && !LockWholeFile(fd, exclusiveLock)) err = errno;
    if (err != 0) {
        ::close(fd);
        return FailFromErrno(err);
    }
    Adopt(fd, readOnly, othersMayWrite);
    if (readOnly_ && !othersMayWrite_) MapIfWorthIt();
    if (exclusiveLock) writeMap_.Map(fd_);
    return Succeed();
}

int File::Close() {
    if (fd_ < 0) return 1;
    bool flushed = FlushWriteBuffer();
    Unmap();
    writeMap_.Unmap();
    // Closing the description also releases its lock.
    if (::close(fd_) != 0 && flushed) flushed = FailFromErrno(errno, kWriteFailed);
    fd_ = -1;
    buffer_.reset();
    writeBuffer_.reset();
    bufferFill_ = 0;
    writeFill_ = 0;
    return flushed ? Succeed() : 0;
}

int File::Flush() {
    if (fd_ < 0) return Fail(kNotOpen);
    if (!FlushWriteBuffer()) return 0;
    if (!readOnly_ && ::fdatasync(fd_) != 0 && errno != EINVAL) {
        return FailFromErrno(errno, kWriteFailed);
    }
    return Succeed();
}

int File::Delete() {
    Close();
    if (::unlink(nativePath_.c_str()) != 0) return FailFromErrno(errno);
    return Succeed();
}

int File::Seek(int32_t offset, MoveMethod method) { return SeekEx(offset, method); }

int File::SeekEx(int64_t offset, MoveMethod method) {
    if (fd_ < 0) return Fail(kNotOpen);
    if (FaultInjection::ShouldFail(FaultInjection::kSeek)) return Fail(kSeekFailed);
    int64_t base;
    switch (method) {
        case kBegin: base = 0; break;
        case kCurrent: base = position_; break;
        case kEnd:
            base = GetLengthEx();
            if (base < 0) return 0;
            break;
        default: return Fail(kSeekFailed);
    }
    int64_t target;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) return Fail(kSeekFailed);
    if (writeFill_ > 0 && !writeMap_.IsMapped() && target != writeStart_ + writeFill_ &&
        !FlushWriteBuffer()) {
        return 0;
    }
    if (othersMayWrite_) bufferFill_ = 0;
    position_ = target;
    return Succeed();
}

int File::Read(void* buffer, int n) {
    if (fd_ < 0) return Fail(kNotOpen);
    if (n < 0 || (!buffer && n > 0)) return Fail(kNotOpen);
    if (n == 0) {
        Succeed();
        return 0;
    }
    if (FaultInjection::ShouldFail(FaultInjection::kRead)) return FailFromErrno(EIO, kReadFailed);
    if (writeMap_.IsMapped()) return ReadWriteMapped(static_cast<unsigned char*>(buffer), n);
    if (writeFill_ > 0 && !FlushWriteBuffer()) return 0;
    // Sequential reading mostly finds all n bytes at hand.
    if (map_ && !mapCut_ && position_ <= mapLength_ - n) {
        std::memcpy(buffer, map_ + position_, static_cast<size_t>(n));
        // A copy that met a cut page (this one, or a caller's read of memory
        // handed out) read zeros there: the descriptor tells what the file
        // now holds, and reads the rest from now on.
        if (Cut(mapSlot_)) {
            mapCut_ = true;
            return ReadBuffered(static_cast<unsigned char*>(buffer), n);
        }
        position_ += n;
        Succeed();
        return n;
    }
    if (int64_t offset = position_ - bufferStart_; offset >= 0 && offset <= bufferFill_ - n) {
        std::memcpy(buffer, buffer_.get() + offset, static_cast<size_t>(n));
        position_ += n;
        Succeed();
        return n;
    }
    return ReadBuffered(static_cast<unsigned char*>(buffer), n);
}

int32_t File::ReadBuffered(unsigned char* out, int32_t n) {
    int32_t done = 0;
    while (done < n) {
        int64_t offset = position_ - bufferStart_;
        if (offset >= 0 && offset < bufferFill_) {
            int32_t take = std::min(n - done, bufferFill_ - static_cast<int32_t>(offset));
            std::memcpy(out + done, buffer_.get() + offset, static_cast<size_t>(take));
            done += take;
            position_ += take;
            continue;
        }
        int32_t left = n - done;
        if (left >= kBufferSize) {
            // Too big to gain from the buffer: straight into the caller's.
            int64_t got = ReadAt(fd_, out + done, static_cast<size_t>(left), position_);
            if (got < 0) {
                FailFromErrno(errno, kReadFailed);
                return done;
            }
            done += static_cast<int32_t>(got);
            position_ += got;
            break;
        }
        if (!buffer_) buffer_ = std::make_unique<unsigned char[]>(kBufferSize);
        bool onward = bufferFill_ > 0 && position_ == bufferStart_ + bufferFill_;
        int32_t fill = onward ? std::min(kBufferSize, 2 * lastFill_) : kFirstFill;
        fill = std::max(fill, left);
        lastFill_ = fill;
        int64_t got = ReadAt(fd_, buffer_.get(), static_cast<size_t>(fill), position_);
        bufferStart_ = position_;
        bufferFill_ = got < 0 ? 0 : static_cast<int32_t>(got);
        if (got < 0) {
            FailFromErrno(errno, kReadFailed);
            return done;
        }
        if (got == 0) break;
    }
    if (done < n) {
        Fail(kReadFailed);
    } else {
        Succeed();
    }
    return done;
}

int File::Write(const void* buffer, int n) {
    if (fd_ < 0) return Fail(kNotOpen);
    if (n < 0 || (!buffer && n > 0)) return Fail(kNotOpen);
    if (readOnly_) return Fail(kAccessDenied);
    if (n == 0) {
        Succeed();
        return 0;
    }
    if (FaultInjection::ShouldFail(FaultInjection::kWrite)) return FailFromErrno(ENOSPC);
    if (position_ > std::numeric_limits<int64_t>::max() - n) return Fail(kSeekFailed);
    const auto* data = static_cast<const unsigned char*>(buffer);
    if (writeMap_.IsMapped() && position_ + n <= writeMap_.Length()) {
        return WriteWriteMapped(data, n);
    }
    bool contiguous = writeFill_ == 0 || position_ == writeStart_ + writeFill_;
    if ((!contiguous || writeFill_ + n > kBufferSize) && !FlushWriteBuffer()) return 0;

    if (bufferFill_ > 0) PatchReadBuffer(position_, data, n);
    if (n >= kBufferSize) {
        if (!WriteThrough(data, static_cast<size_t>(n), position_)) {
            return FailFromErrno(errno, kWriteFailed);
        }
    } else {
        if (!writeBuffer_) writeBuffer_ = std::make_unique<unsigned char[]>(kBufferSize);
        if (writeFill_ == 0) writeStart_ = position_;
        std::memcpy(writeBuffer_.get() + writeFill_, data, static_cast<size_t>(n));
        writeFill_ += n;
    }
    position_ += n;
    Succeed();
    return n;
}

void File::PatchReadBuffer(int64_t at, const unsigned char* data, int32_t n) {
    int64_t from = std::max(at, bufferStart_);
    int64_t to = std::min(at + n, bufferStart_ + bufferFill_);
    if (from >= to) return;
    std::memcpy(buffer_.get() + (from - bufferStart_), data + (from - at),
                static_cast<size_t>(to - from));
}

bool File::FlushWriteBuffer() {
    if (writeFill_ == 0) return true;
    int32_t fill = writeFill_;
    // The buffered bytes are dropped even when they cannot be written: the
    // failure is reported once, here, and not again at every later call.
    writeFill_ = 0;
    if (FaultInjection::ShouldFail(FaultInjection::kFlush)) return FailFromErrno(ENOSPC);
    if (!WriteThrough(writeBuffer_.get(), static_cast<size_t>(fill), writeStart_)) {
        return FailFromErrno(errno, kWriteFailed);
    }
    return true;
}

bool File::WriteThrough(const unsigned char* data, size_t n, int64_t at) {
    return writeMap_.IsMapped() ? writeMap_.Write(data, n, at) : WriteAt(fd_, data, n, at);
}

int File::ReadWriteMapped(unsigned char* out, int n) {
    // Buffered bytes, and the gap before them, are in the file only once
    // written.
    bool pending = OverlapsWriteBuffer(position_, n) ||
                   (writeFill_ > 0 && position_ + n > writeMap_.Length());
    if (pending && !FlushWriteBuffer()) return 0;
    auto got = static_cast<int>(writeMap_.Read(out, static_cast<size_t>(n), position_));
    position_ += got;
    if (got < n) {
        Fail(kReadFailed);
    } else {
        Succeed();
    }
    return got;
}

int File::WriteWriteMapped(const unsigned char* data, int n) {
    // Bytes still buffered for the same place would overwrite these later.
    if (OverlapsWriteBuffer(position_, n) && !FlushWriteBuffer()) return 0;
    if (!writeMap_.Write(data, static_cast<size_t>(n), position_)) {
        return FailFromErrno(errno, kWriteFailed);
    }
    position_ += n;
    Succeed();
    return n;
}

int32_t File::GetMemory(void** out, int32_t n) {
    if (!out || n < 0) return Fail(kNotOpen);
    if (!map_) return Fail(kNotOpen);
    if (Cut(mapSlot_)) return Fail(kReadFailed);
    int64_t available = std::max<int64_t>(0, mapLength_ - position_);
    auto take = static_cast<int32_t>(std::min<int64_t>(n, available));
    unsigned char* memory = map_ + std::min(position_, mapLength_);
    // One byte of every page: a page the file lost faults now, not in the
    // caller's hands. Page sizes are powers of two: a mask finds the next
    // page without a division, which cost more than a small read's copy.
    if (take > 0) {
        static const auto page = static_cast<intptr_t>(::sysconf(_SC_PAGESIZE));
        const volatile unsigned char* touch = memory;
        unsigned char sink = touch[0];
        for (intptr_t at = page - (reinterpret_cast<intptr_t>(memory) & (page - 1)); at < take;
             at += page)
            sink = static_cast<unsigned char>(sink + touch[at]);
        (void)sink;
        if (Cut(mapSlot_)) return Fail(kReadFailed);
    }
    *out = memory;
    position_ += take;
    if (take < n) {
        Fail(kReadFailed);
    } else {
        Succeed();
    }
    return take;
}

int32_t File::GetLength() {
    int64_t length = GetLengthEx();
    if (length > std::numeric_limits<int32_t>::max()) {
        Fail(kSeekFailed);
        return -1;
    }
    return static_cast<int32_t>(length);
}

int64_t File::GetLengthEx() {
    if (fd_ < 0) {
        Fail(kNotOpen);
        return -1;
    }
    if (writeMap_.IsMapped()) {
        Succeed();
        return std::max(writeMap_.Length(), writeFill_ > 0 ? writeStart_ + writeFill_ : 0);
    }
    struct stat st{};
    if (::fstat(fd_, &st) != 0) {
        FailFromErrno(errno);
        return -1;
    }
    int64_t length = st.st_size;
    if (writeFill_ > 0) length = std::max(length, writeStart_ + writeFill_);
    Succeed();
    return length;
}

int File::SetLength(int32_t length) { return SetLengthEx(length); }

int File::SetLengthEx(int64_t length) {
    if (fd_ < 0) return Fail(kNotOpen);
    if (readOnly_) return Fail(kAccessDenied);
    if (length < 0) return Fail(kSeekFailed);
    if (FaultInjection::ShouldFail(FaultInjection::kWrite)) return FailFromErrno(ENOSPC);
    struct stat st{};
    if (::fstat(fd_, &st) != 0) return FailFromErrno(errno);
    if (length < MappedFiles::Longest(IdentityOf(st))) return Fail(kSharingViolation);
    if (!FlushWriteBuffer()) return 0;
    bool cut = writeMap_.IsMapped() ? writeMap_.SetLength(length) : ::ftruncate(fd_, length) == 0;
    if (!cut) return FailFromErrno(errno, kWriteFailed);
    // Bytes past the new end are gone, and bytes added read as zeros, which
    // the buffer never held.
    bufferFill_ = static_cast<int32_t>(std::clamp<int64_t>(length - bufferStart_, 0, bufferFill_));
    return Succeed();
}

void File::MapIfWorthIt() {
    struct stat st{};
    if (::fstat(fd_, &st) != 0 || st.st_size <= 0) return;
    void* map = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, fd_, 0);
    if (map == MAP_FAILED) return;  // reads then go through the buffer
    int slot = MappingGuard::Register(map, static_cast<size_t>(st.st_size));
    if (slot < 0) {
        // Unguarded, a cut of the file by another program would kill the
        // process: read through the buffer instead.
        ::munmap(map, static_cast<size_t>(st.st_size));
        return;
    }
    mapSlot_ = slot;
    map_ = static_cast<unsigned char*>(map);
    mapLength_ = st.st_size;
    mapDevice_ = IdentityOf(st).first;
    mapInode_ = IdentityOf(st).second;
    MappedFiles::Add({mapDevice_, mapInode_}, mapLength_);
}

void File::Unmap() {
    if (!map_) return;
    MappingGuard::Unregister(mapSlot_);
    mapSlot_ = -1;
    mapCut_ = false;
    ::munmap(map_, static_cast<size_t>(mapLength_));
    MappedFiles::Remove({mapDevice_, mapInode_}, mapLength_);
    map_ = nullptr;
    mapLength_ = 0;
}

bool File::MapWasCut() const {
    return Cut(mapSlot_);
}

bool File::Fail(Error error) {
    lastError_ = error;
    SetLastError(Win32ErrorOfKind(error));
    return false;
}

bool File::FailFromErrno(int err, Error otherwise) {
    lastError_ = KindOfErrno(err, otherwise);
    SetLastError(Win32ErrorForPath(err, nativePath_.c_str()));
    return false;
}

bool FileExists(const wchar_t* path) {
    struct stat st{};
    return path && ::stat(NativePath(path).c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

}  // namespace quillet
