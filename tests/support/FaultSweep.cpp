#include "support/FaultSweep.h"

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
    // Runs the operation with the nth call of `kind` failing (none for n 0)
    // and checks the files; returns how many calls of `kind` it made.
    auto run = [&](FaultInjection::Operation kind, int64_t n) {
        SCOPED_TRACE(::testing::Message() << "kind " << kind << " call " << n);
        for (size_t i = 0; i < names.size(); ++i) WriteBytes(files_ / names[i], original[i]);
        reset();
        FaultInjection::Reset();
        FaultInjection::FailNth(kind, n);
        bool ok = operation();
        int64_t calls = FaultInjection::Count(kind);
        FaultInjection::Reset();
        finish();
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
        int64_t calls = run(kind, 0);
        ASSERT_GT(calls, 0) << "kind " << kind;
        for (int64_t n = 1; n <= calls; ++n) run(kind, n);
    }
}

}  // namespace quillet::test
