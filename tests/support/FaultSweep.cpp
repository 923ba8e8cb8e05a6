#include "support/FaultSweep.h"

#include <gtest/gtest.h>

namespace quillet::test {

bool FaultSweep::RunOnce(FaultInjection::Operation kind, int64_t n, int64_t* calls) const {
    restore();
    FaultInjection::Reset();
    FaultInjection::FailNth(kind, n);
    bool ok = operation();
    if (calls) *calls = FaultInjection::Count(kind);
    FaultInjection::Reset();
    if (finish) finish();
    return ok;
}

void FaultSweep::Run(std::initializer_list<FaultInjection::Operation> kinds) const {
    for (FaultInjection::Operation kind : kinds) {
        int64_t calls = 0;
        bool ok = RunOnce(kind, 0, &calls);
        ASSERT_TRUE(ok) << "kind " << kind << " without a fault";
        ASSERT_GT(calls, 0) << "kind " << kind;
        check(kind, 0, ok);
        for (int64_t n = 1; n <= calls; ++n) check(kind, n, RunOnce(kind, n, nullptr));
    }
}

}  // namespace quillet::test
