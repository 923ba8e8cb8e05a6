// A write, seek or create that fails at any point of a whole-table rewrite
// leaves the table byte for byte as it was and no temporary file behind.

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "foundation/FaultInjection.h"
#include "support/FaultSweep.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::FaultSweep;
using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

class DBaseFaults : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = tables_.Wide("f.dbf");
        test::CreateTable(
            path_, {{L"NAME", DBase::qovaCharacter, 20, 0}, {L"VALUE", DBase::qovaNumeric, 10, 2}});
        // Enough records that the copies take several 2048-byte chunks.
        std::vector<std::vector<std::wstring>> rows;
        for (int i = 0; i < 300; ++i) {
            rows.push_back(
                {L"record " + std::to_wstring(i), String::Formatted(L"%.2f", i * 1.25).str()});
        }
        test::AppendRows(path_, rows);
        original_ = ReadBytes(tables_ / "f.dbf");
        // Records marked deleted on disk, as a commit of deletions leaves them.
        for (int record : {1, 7, 299}) original_[static_cast<size_t>(97 + record * 31)] = '*';
    }

    // Runs `operation` on a fresh copy of the table at every failure point.
    void ExpectEveryFailurePointIsHarmless(const std::function<bool(DBase&)>& operation) {
        std::optional<DBase> table;
        std::vector<unsigned char> expected;
        FaultSweep sweep;
        sweep.restore = [&] {
            WriteBytes(tables_ / "f.dbf", original_);
            table.emplace(path_);
        };
        sweep.operation = [&] { return operation(*table); };
        sweep.finish = [&] { table->Close(); };
        sweep.check = [&](FaultInjection::Operation kind, int64_t n, bool ok) {
            auto now = ReadBytes(tables_ / "f.dbf");
            if (n == 0) {
                expected = now;
                EXPECT_NE(expected, original_);
            } else if (ok) {
                EXPECT_EQ(now, expected) << "kind " << kind << " call " << n;
            } else {
                EXPECT_EQ(now, original_) << "kind " << kind << " call " << n;
            }
            EXPECT_TRUE(temp_.Files().empty()) << "kind " << kind << " call " << n;
            EXPECT_EQ(tables_.Files(), std::vector<std::string>{"f.dbf"});
        };
        sweep.Run({FaultInjection::kWrite, FaultInjection::kSeek, FaultInjection::kCreate});
    }

    FaultInjectionScope disarmAtEnd_;
    TempDir tables_;
    TempDir temp_;
    test::ScopedEnv tmpdir_{"TMPDIR", temp_.path().c_str()};
    std::wstring path_;
    std::vector<unsigned char> original_;
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
