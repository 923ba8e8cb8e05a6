#pragma once

// Tries a rewrite at every point where the platform layer can fail: first
// without a fault, to count the calls of each kind it makes, then once with
// each of those calls failing in turn. Tests of rewrites that must lose
// nothing (tables, record files) share it.

#include <cstdint>
#include <functional>
#include <initializer_list>

#include "foundation/FaultInjection.h"

namespace quillet::test {

struct FaultSweep {
    // Puts the files back as they were before the rewrite.
    std::function<void()> restore;
    // The rewrite, run with the fault armed; true when it succeeded.
    std::function<bool()> operation;
    // Runs once the fault is disarmed (closing what the operation opened).
    std::function<void()> finish;
    // Checks the files after a run with the nth call of `kind` failing (n 0:
    // the faultless run), given whether the operation succeeded.
    std::function<void(FaultInjection::Operation kind, int64_t n, bool ok)> check;

    void Run(std::initializer_list<FaultInjection::Operation> kinds) const;

private:
    bool RunOnce(FaultInjection::Operation kind, int64_t n, int64_t* calls) const;
};

}  // namespace quillet::test
