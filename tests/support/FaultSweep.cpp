#include "support/FaultSweep.h"

#include "foundation/RewriteRecovery.h"

namespace quillet::test {

void RewriteFaultTest::SweepRewrite(const std::vector<std::string>& names,
                                    const std::function<void()>& reset,
                                    const std::function<bool()>& operation,
                                    const std::function<void()>& finish,
                                    std::initializer_list<FaultInjection::Operation> kinds) {
    auto read = [&] {
        std::vector<Bytes> files;
        for (const auto& name : names) files.push_back(ReadBytes(files_ / name));
        return files;
    };
    const std::vector<Bytes> original = read();
    const std::vector<std::string> before = files_.Files();
    std::vector<Bytes> rewritten;
    // Runs the operation with the nth call of `kind` failing (none for n 0),
    // or with every call from the nth on failing (a disk that stays full),
    // and checks the files; returns how many calls of `kind` it made.
    auto run = [&](FaultInjection::Operation kind, int64_t n, bool lasting) {
        SCOPED_TRACE(::testing::Message()
                     << "kind " << kind << (lasting ? " from call " : " call ") << n);
        for (size_t i = 0; i < names.size(); ++i) WriteBytes(files_ / names[i], original[i]);
        reset();
        FaultInjection::Reset();
        if (lasting) {
            FaultInjection::FailFrom(kind, n);
        } else {
            FaultInjection::FailNth(kind, n);
        }
        bool ok = operation();
        int64_t calls = FaultInjection::Count(kind);
        FaultInjection::Reset();
        finish();
        // What a lasting failure could not put back, the next open does.
        EXPECT_TRUE(MayOpenAfter(RecoverInterruptedRewrite(files_.Wide(names[0])).outcome));
        if (n == 0) {
            EXPECT_TRUE(ok) << "without a fault";
            rewritten = read();
            EXPECT_NE(rewritten, original);
        } else {
            EXPECT_EQ(read(), ok ? rewritten : original) << (ok ? "succeeded" : "failed");
        }
        EXPECT_TRUE(temp_.Files().empty());
        EXPECT_EQ(files_.Files(), before);
        return calls;
    };
    for (FaultInjection::Operation kind : kinds) {
        int64_t calls = run(kind, 0, false);
        ASSERT_GT(calls, 0) << "kind " << kind;
        for (int64_t n = 1; n <= calls; ++n) {
            run(kind, n, false);
            run(kind, n, true);
        }
    }
}

}  // namespace quillet::test
