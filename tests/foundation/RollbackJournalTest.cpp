// Rollback journals: what a rewrite killed or failed part way leaves is put
// back whole by the next open, a torn journal (the rewrite had changed
// nothing yet) is dropped, and a journal whose rewrite still runs is left
// alone.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "foundation/File.h"
#include "foundation/RewriteRecovery.h"
#include "foundation/RewriteTransaction.h"
#include "foundation/RollbackJournal.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

class RollbackJournalTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::WriteBytes(dir_ / "a.dbf", table_);
        test::WriteBytes(dir_ / "a.shp", shapes_);
    }

    // Journals both files as a rewrite of the table would, then changes them
    // as a killed rewrite leaves them: one cut, one overwritten.
    void JournalAndTear() {
        File table(dir_.Wide("a.dbf").c_str()), shapes(dir_.Wide("a.shp").c_str());
        ASSERT_TRUE(table.Open(0, 1, 0, 0, 0));
        ASSERT_TRUE(shapes.Open(0, 1, 0, 0, 0));
        RollbackJournal journal(RollbackJournal::PathOf(dir_.Wide("a.dbf")));
        File* files[] = {&table, &shapes};
        ASSERT_TRUE(journal.Save(files));
        ASSERT_TRUE(table.SetLength(100));
        ASSERT_EQ(shapes.Write("garbage", 7), 7);
    }

    bool FilesAreAsBefore() const {
        return test::ReadBytes(dir_ / "a.dbf") == table_ &&
               test::ReadBytes(dir_ / "a.shp") == shapes_;
    }

    test::TempDir dir_;
    test::Bytes table_ = test::Bytes(300000, 'T');
    test::Bytes shapes_ = test::Bytes(70001, 'S');
};

TEST_F(RollbackJournalTest, WholeJournalPutsBackEveryFileItCovers) {
    JournalAndTear();
    // Opening the shapes finds the journal their table's rewrite made.
    RecoveryReport report = RecoverInterruptedRewrite(dir_.Wide("a.shp"));
    EXPECT_EQ(report.outcome, RecoveryOutcome::kRolledBack);
    EXPECT_EQ(report.restored.size(), 2u);
    EXPECT_TRUE(FilesAreAsBefore());
    EXPECT_EQ(dir_.Files(), (std::vector<std::string>{"a.dbf", "a.shp"}));
}

TEST_F(RollbackJournalTest, TornJournalIsDroppedAndTheFilesLeftAlone) {
    for (int damage : {0, 1}) {
        SCOPED_TRACE(damage == 0 ? "cut short" : "a byte changed");
        JournalAndTear();
        test::Bytes changed = test::ReadBytes(dir_ / "a.dbf");
        test::Bytes journal = test::ReadBytes(dir_ / "a.dbf-journal");
        if (damage == 0) journal.pop_back();
        if (damage == 1) journal[journal.size() / 2] ^= 1;
        test::WriteBytes(dir_ / "a.dbf-journal", journal);
        EXPECT_EQ(RecoverInterruptedRewrite(dir_.Wide("a.dbf")).outcome,
                  RecoveryOutcome::kDiscardedTorn);
        EXPECT_EQ(test::ReadBytes(dir_ / "a.dbf"), changed);
        EXPECT_EQ(dir_.Files(), (std::vector<std::string>{"a.dbf", "a.shp"}));
        SetUp();
    }
}

TEST_F(RollbackJournalTest, JournalOfARewriteStillRunningIsLeftAlone) {
    JournalAndTear();
    File rewriter(dir_.Wide("a.dbf").c_str());
    ASSERT_TRUE(rewriter.Open(0, 1, 1, 0, 0));  // even a shared hold keeps it
    EXPECT_EQ(RecoverInterruptedRewrite(dir_.Wide("a.shp")).outcome, RecoveryOutcome::kInUse);
    EXPECT_TRUE(FileExists(dir_.Wide("a.dbf-journal").c_str()));
    rewriter.Close();
    EXPECT_EQ(RecoverInterruptedRewrite(dir_.Wide("a.dbf")).outcome, RecoveryOutcome::kRolledBack);
}

TEST_F(RollbackJournalTest, TransactionHoldsItsFilesAndRollsBackUnlessCommitted) {
    auto otherProcessOpens = [this] {
        pid_t child = ::fork();
        if (child == 0) {
            // A lock of its own, as another program's open takes: the fork
            // shares this process's memory of what it holds.
            int fd = ::open((dir_ / "a.shp").c_str(), O_RDONLY);
            struct flock lock {};
            lock.l_type = F_RDLCK;
            ::_exit(fd >= 0 && ::fcntl(fd, F_OFD_SETLK, &lock) == 0 ? 0 : 1);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    };
    auto change = [this] {
        File shapes(dir_.Wide("a.shp").c_str());  // this process's opens pass
        ASSERT_TRUE(shapes.Open(0, 1, 0, 0, 0));
        ASSERT_TRUE(shapes.SetLength(10));
    };
    {
        RewriteTransaction transaction;
        ASSERT_TRUE(transaction.Begin({dir_.Wide("a.dbf"), dir_.Wide("a.shp")}));
        EXPECT_FALSE(otherProcessOpens());
        change();
    }
    EXPECT_TRUE(FilesAreAsBefore());
    EXPECT_TRUE(otherProcessOpens());

    RewriteTransaction transaction;
    ASSERT_TRUE(transaction.Begin({dir_.Wide("a.dbf"), dir_.Wide("a.shp")}));
    change();
    transaction.RemoveAtCommit(dir_.Wide("a.dbf"));
    ASSERT_TRUE(transaction.Commit());
    EXPECT_EQ(dir_.Files(), (std::vector<std::string>{"a.shp"}));
    EXPECT_EQ(test::ReadBytes(dir_ / "a.shp").size(), 10u);
}

}  // namespace
}  // namespace quillet
