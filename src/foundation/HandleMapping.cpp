#include "foundation/HandleMapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "foundation/Descriptor.h"
#include "foundation/HeldFiles.h"

namespace quillet {

namespace {

// Address space, not memory: growing the map is a system call, so it grows
// seldom.
constexpr size_t kFirstReach = size_t{64} << 20;

// Asked once: PrepareWrite runs for every record a record file rewrites.
int64_t PageSize() {
    static const auto page = static_cast<int64_t>(::sysconf(_SC_PAGESIZE));
    return page;
}

size_t PageRound(int64_t length) {
    auto page = static_cast<size_t>(PageSize());
    return (static_cast<size_t>(length) + page - 1) / page * page;
}

}  // namespace

bool HandleMapping::Map(int fd) {
    // A file held across several opens of this process may change under
    // another of them, which the map would not see.
    if (HeldFiles::ContainsDescriptor(fd)) return false;
    struct stat st {};
    // Writing into a hole through the map on a full disk would fault.
    if (::fstat(fd, &st) != 0 || st.st_blocks * 512 < st.st_size) return false;
    size_t capacity = std::max(kFirstReach, PageRound(st.st_size));
    void* map = ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) return false;
    slot_ = MappingGuard::Register(map, capacity);
    if (slot_ < 0) {
        // Unguarded, a cut of the file would kill the process.
        ::munmap(map, capacity);
        return false;
    }
    fd_ = fd;
    base_ = static_cast<unsigned char*>(map);
    capacity_ = capacity;
    length_ = st.st_size;
    return true;
}

void HandleMapping::Unmap() {
    MappingGuard::Unregister(slot_);
    slot_ = -1;
    if (base_) ::munmap(base_, capacity_);
    base_ = nullptr;
    capacity_ = 0;
}

size_t HandleMapping::Read(unsigned char* out, size_t n, int64_t at) {
    if (n == 0 || at >= length_) return 0;
    size_t count = std::min(n, static_cast<size_t>(length_ - at));
    std::memcpy(out, base_ + at, count);
    if (WasCut()) {
        // Zeros were read where the file lost pages: the descriptor tells
        // what it holds now, here and from now on.
        Unmap();
        int64_t got = ReadAt(fd_, out, n, at);
        return got < 0 ? 0 : static_cast<size_t>(got);
    }
    return count;
}

bool HandleMapping::Write(const unsigned char* data, size_t n, int64_t at) {
    // Writing nothing moves no end, as the descriptor's write does.
    if (n == 0) return true;
    if (at > std::numeric_limits<int64_t>::max() - static_cast<int64_t>(n)) {
        errno = EFBIG;
        return false;
    }
    int64_t end = at + static_cast<int64_t>(n);
    if (end <= length_) {
        std::memcpy(base_ + at, data, n);
        if (!WasCut()) return true;
        Unmap();
        errno = EIO;
        return false;
    }
    if (at > length_ && !Extend(at)) return false;
    if (!WriteAt(fd_, data, n, at)) return Resync();
    length_ = end;
    Reach(length_);
    return true;
}

void HandleMapping::PrepareWrite(int64_t at, size_t n) const {
    if (!base_ || at < 0 || at >= length_) return;
    int64_t page = PageSize();
    int64_t end = std::min(length_, at + static_cast<int64_t>(n));
    // Adding nothing is a write to the processor, so the page faults in
    // writable at once; the bytes stay as they are.
    for (int64_t touch = at; touch < end; touch = (touch / page + 1) * page) {
        __atomic_fetch_add(static_cast<volatile unsigned char*>(base_ + touch), 0, __ATOMIC_RELAXED);
    }
}

bool HandleMapping::SetLength(int64_t length) {
    if (length > length_) return Extend(length);
    if (::ftruncate(fd_, length) != 0) return false;
    // The pages past the new end stay mapped but are never touched again.
    length_ = length;
    return true;
}

bool HandleMapping::Extend(int64_t length) {
    int err = ::posix_fallocate(fd_, length_, length - length_);
    if (err != 0) {
        errno = err;
        return Resync();
    }
    length_ = length;
    Reach(length_);
    return true;
}

bool HandleMapping::Resync() {
    int err = errno;
    struct stat st {};
    if (::fstat(fd_, &st) == 0) length_ = st.st_size;
    Reach(length_);
    errno = err;
    return false;
}

void HandleMapping::Reach(int64_t length) {
    if (static_cast<size_t>(length) <= capacity_) return;
    // A cut map is done with; its owner has been told at the access.
    if (WasCut()) {
        Unmap();
        return;
    }
    MappingGuard::Unregister(slot_);
    slot_ = -1;
    size_t capacity = std::max(2 * capacity_, PageRound(length));
    void* map = ::mremap(base_, capacity_, capacity, MREMAP_MAYMOVE);
    if (map == MAP_FAILED) {
        // Out of address space: the handle goes on through its descriptor.
        Unmap();
        return;
    }
    base_ = static_cast<unsigned char*>(map);
    capacity_ = capacity;
    slot_ = MappingGuard::Register(base_, capacity_);
    if (slot_ < 0) Unmap();
}

bool HandleMapping::Sync() const {
    return length_ == 0 || ::msync(base_, PageRound(length_), MS_SYNC) == 0;
}

}  // namespace quillet
