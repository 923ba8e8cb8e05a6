// A write, seek or create that fails at any point of a whole-table rewrite
// leaves the table byte for byte as it was and no temporary file behind.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <functional>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "foundation/FaultInjection.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

class DBaseFaults : public ::testing::Test {
protected:
    void SetUp() override {
        const char* old = getenv("TMPDIR");
        oldTmp_ = old ? old : "";
        hadTmp_ = old != nullptr;
        setenv("TMPDIR", temp_.path().c_str(), 1);
        path_ = tables_.Wide("f.dbf");
        test::CreateTable(path_, {{L"NAME", DBase::qovaCharacter, 20, 0}, {L"VALUE", DBase::qovaNumeric, 10, 2}});
        DBase table(path_);
        ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
        // Enough records that the copies take several 2048-byte chunks.
        for (int i = 0; i < 300; ++i) {
            ASSERT_TRUE(table.AddRecord());
            ASSERT_TRUE(table.SetFieldString(0, String::Formatted(L"record %d", i)));
            ASSERT_TRUE(table.SetFieldDouble(1, i * 1.25));
        }
        ASSERT_TRUE(table.Close());
        original_ = ReadBytes(tables_ / "f.dbf");
        // Records marked deleted on disk, as a commit of deletions leaves them.
        for (int record : {1, 7, 299}) original_[static_cast<size_t>(97 + record * 31)] = '*';
    }

    void TearDown() override {
        FaultInjection::Reset();
        if (hadTmp_) {
            setenv("TMPDIR", oldTmp_.c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }

    // Runs `operation` on a fresh copy of the table with the nth call of
    // `kind` failing (n 0: none); returns whether it succeeded.
    bool RunWithFault(const std::function<bool(DBase&)>& operation, FaultInjection::Operation kind, int64_t n,
                      int64_t* calls = nullptr) {
        WriteBytes(tables_ / "f.dbf", original_);
        DBase table(path_);
        FaultInjection::Reset();
        FaultInjection::FailNth(kind, n);
        bool ok = operation(table);
        if (calls) *calls = FaultInjection::Count(kind);
        FaultInjection::Reset();
        table.Close();
        return ok;
    }

    void ExpectEveryFailurePointIsHarmless(const std::function<bool(DBase&)>& operation) {
        for (auto kind : {FaultInjection::kWrite, FaultInjection::kSeek, FaultInjection::kCreate}) {
            int64_t calls = 0;
            ASSERT_TRUE(RunWithFault(operation, kind, 0, &calls));
            auto expected = ReadBytes(tables_ / "f.dbf");
            ASSERT_NE(expected, original_);
            ASSERT_GT(calls, 0);
            for (int64_t n = 1; n <= calls; ++n) {
                bool ok = RunWithFault(operation, kind, n);
                auto now = ReadBytes(tables_ / "f.dbf");
                if (ok) {
                    EXPECT_EQ(now, expected) << "kind " << kind << " call " << n;
                } else {
                    EXPECT_EQ(now, original_) << "kind " << kind << " call " << n << " of " << calls;
                }
                EXPECT_TRUE(temp_.Files().empty()) << "kind " << kind << " call " << n;
                EXPECT_EQ(tables_.Files(), std::vector<std::string>{"f.dbf"});
            }
        }
    }

    TempDir tables_;
    TempDir temp_;
    std::wstring path_;
    std::vector<unsigned char> original_;
    std::string oldTmp_;
    bool hadTmp_ = false;
};

TEST_F(DBaseFaults, CompactFile) {
    ExpectEveryFailurePointIsHarmless([](DBase& table) {
        return table.Open(false, false, CodePage::qovaCodePageDefault) && table.CompactFile();
    });
}

TEST_F(DBaseFaults, AddColumnsToFile) {
    ExpectEveryFailurePointIsHarmless(
        [](DBase& table) { return table.AddColumn(L"EXTRA", DBase::qovaCharacter, 12, 0); });
}

TEST_F(DBaseFaults, DropColumn) {
    ExpectEveryFailurePointIsHarmless([](DBase& table) { return table.DropColumn(L"NAME"); });
}

}  // namespace
}  // namespace quillet
