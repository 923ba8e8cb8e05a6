// The tool's rewrites in place: what a killed one left is rolled back by the
// next command that reads the file (or `recover`), a file another program
// holds is refused, and `shp pack` keeps the table in step with the shapes.

#include <gtest/gtest.h>

#include "ToolRunner.h"
#include "foundation/File.h"
#include "foundation/RollbackJournal.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

// A table of IDs 1..count beside `count` points at x = 1..count.
void WriteLayerOfIds(const TempDir& dir, int count) {
    std::string csv = "ID\n";
    std::vector<std::vector<unsigned char>> points;
    for (int id = 1; id <= count; ++id) {
        csv += std::to_string(id) + "\n";
        points.push_back(PointRecord(id, id));
    }
    WriteBytes(dir / "ids.csv", Bytes(csv.begin(), csv.end()));
    auto made = RunTool("dbf import-csv " + Quote(dir / "ids.csv") + " " + Quote(dir / "t.dbf") +
                        " --schema ID:N:4");
    ASSERT_EQ(made.exitCode, 0) << made.err;
    WriteLayer(dir / "t.shp", ShpFile::qovaShapePoint, {1, 1, double(count), double(count)},
               points);
}

TEST(RewriteCommandTest, DumpAfterAKilledRewriteReportedDamageInsteadOfRollingBack) {
    TempDir dir;
    WriteLayerOfIds(dir, 5);
    Bytes before = ReadBytes(dir / "t.dbf");
    {
        // What a kill during the copy back leaves: a whole journal, a cut table.
        File table(WidePath(dir / "t.dbf").c_str());
        ASSERT_TRUE(table.Open(0, 1, 0, 0, 0));
        RollbackJournal journal(RollbackJournal::PathOf(WidePath(dir / "t.dbf")));
        File* files[] = {&table};
        ASSERT_TRUE(journal.Save(files));
        ASSERT_TRUE(table.SetLength(40));
    }
    auto check = RunTool("recover --check " + Quote(dir / "t.shp"));
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_NE(check.out.find("t.dbf-journal"), std::string::npos) << check.out;
    EXPECT_NE(RunTool("info " + Quote(dir / "t.dbf-journal")).out.find("whole"), std::string::npos);

    auto dump = RunTool("dbf dump " + Quote(dir / "t.dbf"));
    EXPECT_EQ(dump.exitCode, 0) << dump.err;
    EXPECT_NE(dump.err.find("rolled back"), std::string::npos) << dump.err;
    EXPECT_EQ(ReadBytes(dir / "t.dbf"), before);
    EXPECT_FALSE(std::filesystem::exists(dir / "t.dbf-journal"));
}

// A disk that stays full from the Nth write on: the old bytes stay in the
// journal, the message names the cause and the way back, and recover puts
// the table back once the disk has room.
TEST(RewriteCommandTest, DeleteOnADiskThatStaysFullNamedTheWrongCause) {
    TempDir dir;
    WriteLayerOfIds(dir, 50);
    Bytes before = ReadBytes(dir / "t.dbf");
    for (int from : {1, 2, 3}) {
        SCOPED_TRACE("writes fail from the " + std::to_string(from) + "th on");
        ToolResult run, dump;
        {
            ScopedEnv preload("LD_PRELOAD", QUILLET_FAIL_WRITES);
            ScopedEnv asan("ASAN_OPTIONS", "verify_asan_link_order=0");
            ScopedEnv to("QUILLET_FAIL_WRITES_TO", "t.dbf");
            ScopedEnv at("QUILLET_FAIL_WRITES_FROM", std::to_string(from).c_str());
            run = RunTool("dbf delete " + Quote(dir / "t.dbf") + " 1 30 --table-only");
            // A reader that cannot put the old bytes back refuses to read.
            ScopedEnv first("QUILLET_FAIL_WRITES_FROM", "1");
            dump = RunTool("dbf dump " + Quote(dir / "t.dbf"));
        }
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_NE(run.err.find("no space left on the device"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("quillet recover"), std::string::npos) << run.err;
        EXPECT_EQ(dump.exitCode, 1);
        EXPECT_NE(dump.err.find("the journal stays"), std::string::npos) << dump.err;
        EXPECT_EQ(RunTool("recover " + Quote(dir / "t.dbf")).exitCode, 0);
        EXPECT_EQ(ReadBytes(dir / "t.dbf"), before);
    }
}

TEST(RewriteCommandTest, DropFieldRewroteATableAnotherProgramWasReading) {
    TempDir dir;
    WriteLayerOfIds(dir, 3);
    Bytes before = ReadBytes(dir / "t.dbf");
    File reader(WidePath(dir / "t.dbf").c_str());
    ASSERT_TRUE(reader.Open(1, 1, 1, 0, 0));
    for (const char* command : {"dbf drop-field {} ID", "dbf pack {}", "shp pack {}"}) {
        std::string args = command;
        bool table = args.find("dbf") == 0;
        args.replace(args.find("{}"), 2, Quote(dir / (table ? "t.dbf" : "t.shp")));
        auto result = ExpectOneLineFailure(args);
        EXPECT_NE(result.err.find("in use"), std::string::npos) << result.err;
    }
    EXPECT_EQ(ReadBytes(dir / "t.dbf"), before);
}

TEST(RewriteCommandTest, ShpPackLeftTheTableOutOfStepWithTheShapes) {
    TempDir dir;
    WriteLayerOfIds(dir, 4);
    WriteBytes(dir / "t.sbn", {0});
    Bytes table = ReadBytes(dir / "t.dbf");
    table[(table[8] | table[9] << 8) + 5] = '*';  // record 2 of 5-byte records
    WriteBytes(dir / "t.dbf", table);
    auto packed = RunTool("shp pack " + Quote(dir / "t.shp"));
    ASSERT_EQ(packed.exitCode, 0) << packed.err;
    auto ids = JsonLines(RunTool("dbf dump --format jsonl " + Quote(dir / "t.dbf")).out);
    auto shapes = JsonLines(RunTool("shp records --format jsonl " + Quote(dir / "t.shp")).out);
    ASSERT_EQ(ids.size(), 3u);
    ASSERT_EQ(shapes.size(), 3u);
    for (size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(ids[i]["ID"], shapes[i]["bbox"][0]);
    EXPECT_FALSE(std::filesystem::exists(dir / "t.sbn"));
}

}  // namespace
}  // namespace quillet::test
