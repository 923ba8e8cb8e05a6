#include "foundation/FaultInjection.h"

#include <array>
#include <atomic>

namespace quillet {

namespace {

struct Counters {
    std::array<std::atomic<int64_t>, FaultInjection::kCount> calls{};
    std::array<std::atomic<int64_t>, FaultInjection::kCount> failAt{};
    std::array<std::atomic<bool>, FaultInjection::kCount> lasting{};
};

Counters& State() {
    static Counters counters;
    return counters;
}

}  // namespace

std::atomic<bool> FaultInjection::active_{false};

void FaultInjection::FailNth(Operation op, int64_t n) {
    Counters& s = State();
    active_.store(true);
    s.failAt[op].store(n > 0 ? s.calls[op].load() + n : 0);
    s.lasting[op].store(false);
}

void FaultInjection::FailFrom(Operation op, int64_t n) {
    FailNth(op, n);
    State().lasting[op].store(n > 0);
}

void FaultInjection::Reset() {
    Counters& s = State();
    for (int op = 0; op < kCount; ++op) {
        s.failAt[op].store(0);
        s.calls[op].store(0);
        s.lasting[op].store(false);
    }
    active_.store(true);
}

int64_t FaultInjection::Count(Operation op) { return State().calls[op].load(); }

bool FaultInjection::CountCall(Operation op) {
    Counters& s = State();
    int64_t call = s.calls[op].fetch_add(1) + 1;
    int64_t failAt = s.failAt[op].load();
    return call == failAt || (s.lasting[op].load() && failAt > 0 && call > failAt);
}

}  // namespace quillet
