#pragma once

// Tries a rewrite at every point where the platform layer can fail: first
// without a fault, to count the calls of each kind it makes, then once with
// each of those calls failing in turn. Tests of rewrites that must lose
// nothing (tables, record files) share it.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "foundation/FaultInjection.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

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

// Rewrites of the files in `files_`, whose temporary files go to `temp_`.
class RewriteFaultTest : public ::testing::Test {
protected:
    // A FaultSweep of `operation` in which, before each run, the files
    // `names` are put back as they are now and `reset` runs; after it they
    // hold what they held (the rewrite failed) or what the faultless run,
    // which must change them, left (it succeeded), and no file is left in
    // `temp_` nor added to `files_`.
    void SweepRewrite(const std::vector<std::string>& names, const std::function<void()>& reset,
                      const std::function<bool()>& operation, const std::function<void()>& finish,
                      std::initializer_list<FaultInjection::Operation> kinds);

    FaultInjectionScope disarmAtEnd_;
    TempDir files_;
    TempDir temp_;
    ScopedEnv tmpdir_{"TMPDIR", temp_.path().c_str()};
};

}  // namespace quillet::test
