#pragma once

// The memory map behind a Win32-named handle that no other open can change
// (a writer that shares nothing holds the file's exclusive lock), so that
// reads and writes inside the file are copies, not system calls. Internal to
// the library.
//
// The handle is the only one that changes the file's length, so the length
// it keeps is the file's: no access through the map reaches past it (a page
// past the end would fault). The map reaches further than the file and grows
// in large steps. Bytes that extend the file are written through the
// descriptor, so that a full disk is an error returned rather than a fault in
// the map; for the same reason a file with holes is not mapped, and the gap
// that an extension leaves gets its blocks reserved.
//
// A program that takes no lock may still cut the file. The map is guarded
// (see MappingGuard), so that touching a lost page does not kill the process;
// the owner asks WasCut after each access, and stops using a cut map.

#include <cstddef>
#include <cstdint>

#include "foundation/MappingGuard.h"

namespace quillet {

class HandleMapping {
public:
    HandleMapping() = default;
    ~HandleMapping() { Unmap(); }
    HandleMapping(const HandleMapping&) = delete;
    HandleMapping& operator=(const HandleMapping&) = delete;

    // Maps the file open on fd for reading and writing. False (and nothing
    // mapped) when it cannot be mapped; the handle then uses the descriptor.
    bool Map(int fd);
    void Unmap();
    bool IsMapped() const { return base_ != nullptr; }
    // Whether an access met a page that another program cut from the file:
    // what it wrote went nowhere, and what it read was zeros.
    bool WasCut() const { return slot_ >= 0 && MappingGuard::FirstFault(slot_) >= 0; }
    int64_t Length() const { return length_; }

    // Copies up to n bytes at `at`, fewer at the end; the count. Read and
    // Write of a map they find cut unmap it and go on through the descriptor.
    size_t Read(unsigned char* out, size_t n, int64_t at);
    // False with errno set when the bytes could not be written.
    bool Write(const unsigned char* data, size_t n, int64_t at);
    // Maps the pages of [at, at + n) for writing now (those inside the file):
    // a page mapped first for a read and then for a write costs several
    // times one mapped for the write at once.
    void PrepareWrite(int64_t at, size_t n) const;
    // Truncates or extends the file to `length`.
    bool SetLength(int64_t length);
    // Writes the changed pages to the disk.
    bool Sync() const;

private:
    // Makes the map reach at least `length` bytes, or unmaps the file when
    // it cannot.
    void Reach(int64_t length);
    // Extends the file to `length` with its blocks reserved.
    bool Extend(int64_t length);
    // After a failed change, which may have moved the end part of the way:
    // takes the file's length again. False, errno kept.
    bool Resync();

    int fd_ = -1;
    unsigned char* base_ = nullptr;
    size_t capacity_ = 0;
    int64_t length_ = 0;
    int slot_ = -1;  // the map's MappingGuard slot
};

}  // namespace quillet
