// A write, seek or create that fails at any point of a whole-table rewrite
// leaves the table byte for byte as it was and no temporary file behind.

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "support/FaultSweep.h"

namespace quillet {
namespace {

class DBaseFaults : public test::RewriteFaultTest {
protected:
    void SetUp() override {
        test::CreateTable(
            path_, {{L"NAME", DBase::qovaCharacter, 20, 0}, {L"VALUE", DBase::qovaNumeric, 10, 2}});
        // Enough records that the copies take several 2048-byte chunks.
        std::vector<std::vector<std::wstring>> rows;
        for (int i = 0; i < 300; ++i) {
            rows.push_back(
                {L"record " + std::to_wstring(i), String::Formatted(L"%.2f", i * 1.25).str()});
        }
        test::AppendRows(path_, rows);
        // Records marked deleted on disk, as a commit of deletions leaves them.
        auto bytes = test::ReadBytes(files_ / "f.dbf");
        for (int record : {1, 7, 299}) bytes[static_cast<size_t>(97 + record * 31)] = '*';
        test::WriteBytes(files_ / "f.dbf", bytes);
    }

    // Runs `operation` on a fresh copy of the table at every failure point.
    void ExpectEveryFailurePointIsHarmless(const std::function<bool(DBase&)>& operation) {
        std::optional<DBase> table;
        SweepRewrite(
            {"f.dbf"}, [&] { table.emplace(path_); }, [&] { return operation(*table); },
            [&] { table->Close(); },
            {FaultInjection::kWrite, FaultInjection::kSeek, FaultInjection::kCreate,
             FaultInjection::kFlush});
    }

    std::wstring path_ = files_.Wide("f.dbf");
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
