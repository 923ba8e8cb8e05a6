#pragma once

// Rewrites that must lose nothing (tables, record files) are tried at every
// point where the platform layer can fail: first without a fault, to count
// the calls of each kind they make, then with each of those calls failing in
// turn: once alone, and once with every later call of its kind failing too.

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "foundation/FaultInjection.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet::test {

// Rewrites of the files in `files_`, whose temporary files go to `temp_`.
class RewriteFaultTest : public ::testing::Test {
protected:
    // Runs `operation` (true when it succeeded) without a fault and then with
    // each call of each of `kinds` failing in turn. Before each run the files
    // `names` are put back as they are now and `reset` runs; `finish` runs
    // once the fault is disarmed (closing what the operation opened). After
    // it the files hold what they held (the rewrite failed) or what the
    // faultless run, which must change them, left (it succeeded), and no file
    // is left in `temp_` nor added to `files_`. After a lasting failure the
    // files may be restored only by the next open, which the check does.
    void SweepRewrite(const std::vector<std::string>& names, const std::function<void()>& reset,
                      const std::function<bool()>& operation, const std::function<void()>& finish,
                      std::initializer_list<FaultInjection::Operation> kinds);

    FaultInjectionScope disarmAtEnd_;
    TempDir files_;
    TempDir temp_;
    ScopedEnv tmpdir_{"TMPDIR", temp_.path().c_str()};
};

}  // namespace quillet::test
