#pragma once

// Test seam of the platform layer: makes the Nth operation of a kind fail, so
// tests can prove that a failed rewrite leaves the original intact and removes
// its temporary files. Counting covers every File and Win32-named call of that
// kind in the process, from the first Reset or FailNth on; before that (in
// production) it costs one relaxed atomic load per call.

#include <atomic>
#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT FaultInjection {
public:
    enum Operation : int {
        kWrite = 0,   // File::Write, File::SetLength, WriteFile, SetEndOfFile
        kSeek = 1,    // File::Seek, File::SeekEx, SetFilePointer
        kRename = 2,  // MoveFileW, CopyFileW
        kCreate = 3,  // File::Create, File::Open, GetTempFileNameW, CreateFileW
        kRead = 4,    // File::Read, ReadFile
        kFlush = 5,   // the write of a File's buffered data to the system, FlushFileBuffers
        kCount = 6,
    };

    // The nth call (1-based) of `op` from now on fails with an error like the
    // system's: disk full for writes and flushes, access denied for creates
    // and renames, a failed read or seek; later calls succeed. n 0 disarms it.
    static void FailNth(Operation op, int64_t n);
    // The nth call of `op` from now on and every later one fail: a disk that
    // stays full.
    static void FailFrom(Operation op, int64_t n);
    // Disarms every operation and clears the counters.
    static void Reset();
    // How many calls of `op` were counted since the last Reset.
    static int64_t Count(Operation op);
    // Called by the platform layer before doing `op`: true when this call
    // must fail. Inline, so that the production case is one load.
    static bool ShouldFail(Operation op) {
        return active_.load(std::memory_order_relaxed) && CountCall(op);
    }

private:
    static bool CountCall(Operation op);
    static std::atomic<bool> active_;
};

// Disarms the seam when it leaves scope.
class FaultInjectionScope {
public:
    FaultInjectionScope() { FaultInjection::Reset(); }
    ~FaultInjectionScope() { FaultInjection::Reset(); }
};

}  // namespace quillet
