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

void RewriteFaultTest::SweepRewrite(const std::vector<std::string>& names,
                                    const std::function<void()>& reset,
                                    const std::function<bool()>& operation,
                                    const std::function<void()>& finish,
                                    std::initializer_list<FaultInjection::Operation> kinds) {
    std::vector<Bytes> original, rewritten;
    for (const auto& name : names) original.push_back(ReadBytes(files_ / name));
    const std::vector<std::string> before = files_.Files();
    auto now = [&] {
        std::vector<Bytes> files;
        for (const auto& name : names) files.push_back(ReadBytes(files_ / name));
        return files;
    };
    FaultSweep sweep;
    sweep.restore = [&] {
        for (size_t i = 0; i < names.size(); ++i) WriteBytes(files_ / names[i], original[i]);
        reset();
    };
    sweep.operation = operation;
    sweep.finish = finish;
    sweep.check = [&](FaultInjection::Operation kind, int64_t n, bool ok) {
        SCOPED_TRACE(::testing::Message() << "kind " << kind << " call " << n);
        if (n == 0) {
            rewritten = now();
            EXPECT_NE(rewritten, original);
        } else {
            EXPECT_EQ(now(), ok ? rewritten : original) << (ok ? "succeeded" : "failed");
        }
        EXPECT_TRUE(temp_.Files().empty());
        EXPECT_EQ(files_.Files(), before);
    };
    sweep.Run(kinds);
}

}  // namespace quillet::test
