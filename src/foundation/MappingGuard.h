#pragma once

// MappingGuard: keeps this process alive when a file it maps is cut by
// another program. Internal to the library.
//
// Reading a page of a shared file mapping that lies wholly past the file's
// end raises SIGBUS, which kills a process that does not handle it. A File
// registers each mapping it makes here. The first registration
// installs a SIGBUS handler for the whole process; for a fault inside a
// registered mapping it maps an anonymous page of zeros over the faulting
// page, so that the read goes on and reads zeros, and notes in the mapping's
// slot the lowest page that faulted. The File looks at that note after it
// copies from its mapping and before it hands out memory, and from then on
// reads through the descriptor, which reports the file's real end as a short
// read. Faults outside the registered mappings, and SIGBUS sent by another
// process, go to the handler that was installed before (the default one
// ends the process, as it would have without this guard).
//
// What the guard cannot see: bytes between a cut file's new end and the end
// of that page are not past the end of a page of the file, so the system
// reads them as zeros without any fault. A reader learns of the cut at its
// next page, or, when it stops before, by comparing the file's length.
//
// The handler reads the slots through lock-free atomics only and calls no
// function that is not async-signal-safe; registering and unregistering take
// a mutex. A mapping must be unregistered before it is unmapped.

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace quillet {

// A registered mapping, as the handler reads it.
struct MappingSlot {
    std::atomic<uintptr_t> begin{0};  // 0 while free
    std::atomic<uintptr_t> end{0};
    std::atomic<int64_t> firstFault{-1};
};
static_assert(std::atomic<uintptr_t>::is_always_lock_free);
static_assert(std::atomic<int64_t>::is_always_lock_free);

class MappingGuard {
public:
    // Registers the mapping [base, base + length) (base page-aligned, as mmap
    // gives it), installing the handler at the first call. The slot to give to
    // the other calls, or -1 when every slot is taken (the caller then reads
    // without mapping).
    static int Register(const void* base, size_t length);
    static void Unregister(int slot);

    // The offset in the mapping of the lowest page that faulted, or -1 while
    // none has.
    static int64_t FirstFault(int slot) {
        return slots_[slot].firstFault.load(std::memory_order_acquire);
    }

    // How many mappings can be registered at once.
    static constexpr int kSlots = 4096;

private:
    friend struct MappingGuardAccess;
    inline static MappingSlot slots_[kSlots];
};

}  // namespace quillet
