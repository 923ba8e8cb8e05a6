#include "foundation/MappingGuard.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace quillet {

namespace {

// Written once, before the handler is installed; only read afterwards.
uintptr_t g_pageSize = 0;
struct sigaction g_previous {};
// Slots [0, g_used) may be in use: the handler looks no further.
std::atomic<int> g_used{0};
std::atomic<bool> g_installed{false};

std::mutex& RegistryMutex() {
    static std::mutex mutex;
    return mutex;
}

// Lowers `target` to `value` unless it is already lower (or set and lower).
void LowerTo(std::atomic<int64_t>& target, int64_t value) {
    int64_t seen = target.load(std::memory_order_relaxed);
    while ((seen < 0 || value < seen) &&
           !target.compare_exchange_weak(seen, value, std::memory_order_release,
                                         std::memory_order_relaxed)) {
    }
}

// What would have happened without the guard.
void PassOn(int signal, siginfo_t* info, void* context) {
    const struct sigaction& previous = g_previous;
    // sa_handler and sa_sigaction share their storage: SIG_DFL and SIG_IGN
    // read the same through either.
    if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        if (previous.sa_flags & SA_SIGINFO) {
            previous.sa_sigaction(signal, info, context);
        } else {
            previous.sa_handler(signal);
        }
        return;
    }
    // An ignored SIGBUS that another process sent stays ignored; a fault
    // cannot be ignored (it would repeat for ever): the system ends the
    // process, as it does here.
    if (previous.sa_handler == SIG_IGN && info && info->si_code <= 0) return;
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    sigaction(signal, &fallback, nullptr);
    // A fault repeats when the handler returns and now ends the process; a
    // signal sent by another process is sent again, and delivered once this
    // handler has returned.
    if (!info || info->si_code <= 0) raise(signal);
}

}  // namespace

struct MappingGuardAccess {
    static bool Handle(uintptr_t address) {
        int used = g_used.load(std::memory_order_acquire);
        for (int i = 0; i < used; ++i) {
            MappingSlot& slot = MappingGuard::slots_[i];
            uintptr_t begin = slot.begin.load(std::memory_order_acquire);
            if (begin == 0 || address < begin) continue;
            uintptr_t end = slot.end.load(std::memory_order_acquire);
            if (address >= end || slot.begin.load(std::memory_order_acquire) != begin) continue;
            uintptr_t page = address & ~(g_pageSize - 1);
            // Writable too, so that a write into a lost page of a map for
            // writing goes on as well; its owner then reports it lost.
            void* zeros = mmap(reinterpret_cast<void*>(page), g_pageSize, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
            if (zeros == MAP_FAILED) return false;
            LowerTo(slot.firstFault, static_cast<int64_t>(page - begin));
            return true;
        }
        return false;
    }

    static void OnSigbus(int signal, siginfo_t* info, void* context) {
        int savedErrno = errno;
        // si_code above 0: raised by the system for a fault, not sent.
        bool handled =
            info && info->si_code > 0 && Handle(reinterpret_cast<uintptr_t>(info->si_addr));
        errno = savedErrno;
        if (!handled) PassOn(signal, info, context);
    }

    static void Install() {
        if (g_installed.load(std::memory_order_acquire)) return;
        g_pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        struct sigaction action {};
        action.sa_sigaction = OnSigbus;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
        sigemptyset(&action.sa_mask);
        if (sigaction(SIGBUS, &action, &g_previous) == 0) {
            g_installed.store(true, std::memory_order_release);
        }
    }
};

int MappingGuard::Register(const void* base, size_t length) {
    std::lock_guard<std::mutex> lock(RegistryMutex());
    MappingGuardAccess::Install();
    if (!g_installed.load(std::memory_order_acquire) || !base || length == 0) return -1;
    for (int i = 0; i < kSlots; ++i) {
        MappingSlot& slot = slots_[i];
        if (slot.begin.load(std::memory_order_relaxed) != 0) continue;
        slot.firstFault.store(-1, std::memory_order_relaxed);
        slot.end.store(reinterpret_cast<uintptr_t>(base) + length, std::memory_order_relaxed);
        slot.begin.store(reinterpret_cast<uintptr_t>(base), std::memory_order_release);
        if (i >= g_used.load(std::memory_order_relaxed)) {
            g_used.store(i + 1, std::memory_order_release);
        }
        return i;
    }
    return -1;
}

void MappingGuard::Unregister(int slot) {
    if (slot < 0 || slot >= kSlots) return;
    std::lock_guard<std::mutex> lock(RegistryMutex());
    slots_[slot].begin.store(0, std::memory_order_release);
    slots_[slot].end.store(0, std::memory_order_release);
}

}  // namespace quillet
