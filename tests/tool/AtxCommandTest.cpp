// The atx commands through the built tool: build, query with every
// operator, info, check (also of a damaged and of a stale index), and the
// index notes of dbf info and of the commands that change a table.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

class AtxCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        WriteBytes(dir_ / "c.csv",
                   Text("NAME,POP,DAY,SHARE\nBerlin,3600000,2024-01-05,1.25\n"
                        "Bern,130000,2023-02-01,0.5\nBonn,300000,,1.1\n"
                        "Basel,170000,2024-01-05,0.5\nAachen,250000,2022-12-31,1.1\n"));
        auto made = RunTool("dbf import-csv " + Quote(dir_ / "c.csv") + " " + table_ +
                            " --schema NAME:C:10,POP:N:9,DAY:D:8,SHARE:N:6:2");
        ASSERT_EQ(made.exitCode, 0) << made.err;
        for (const char* field : {"NAME", "POP", "DAY", "SHARE"}) {
            auto built = RunTool("atx build " + table_ + " " + field);
            ASSERT_EQ(built.exitCode, 0) << built.err;
        }
    }
    static Bytes Text(const std::string& text) { return Bytes(text.begin(), text.end()); }
    std::string Query(const std::string& args) {
        auto result = RunTool("atx query " + table_ + " " + args);
        EXPECT_EQ(result.exitCode, 0) << args << ": " << result.err;
        return result.out;
    }

    TempDir dir_;
    std::string table_ = Quote(dir_ / "t.dbf");
};

TEST_F(AtxCommandTest, QueriesAnswerEveryOperatorInRecordOrder) {
    EXPECT_EQ(Query("NAME = Bern"), "2\n");
    EXPECT_EQ(Query("NAME '<>' Bern"), "1\n3\n4\n5\n");
    EXPECT_EQ(Query("POP '<' 250000"), "2\n4\n");
    EXPECT_EQ(Query("POP '>' 250000"), "1\n3\n");
    EXPECT_EQ(Query("POP '<=' 250000"), "2\n4\n5\n");
    EXPECT_EQ(Query("POP '>=' 250000 --count"), "3\n");
    EXPECT_EQ(Query("DAY between 2023-01-01 2024-12-31"), "1\n2\n4\n");
    EXPECT_EQ(Query("DAY not-between 2023-01-01 2024-12-31"), "5\n");  // no blank date
    EXPECT_EQ(Query("SHARE in 1.1 1.25"), "1\n3\n5\n");
    EXPECT_EQ(Query("SHARE not-in 0.5"), "1\n3\n5\n");
    EXPECT_EQ(Query("NAME like 'B_n%'"), "3\n");
    EXPECT_EQ(Query("NAME in Bonn Basel --dump"),
              "NAME,POP,DAY,SHARE\nBonn,300000,,1.10\nBasel,170000,2024-01-05,0.50\n");
    auto jsonl = JsonLines(Query("POP = 130000 --dump --format jsonl"));
    ASSERT_EQ(jsonl.size(), 1u);
    EXPECT_EQ(jsonl[0]["NAME"], "Bern");

    EXPECT_EQ(RunTool("atx query " + table_ + " NAME like %n").exitCode, 1);
    EXPECT_EQ(RunTool("atx query " + table_ + " NAME between a").exitCode, 2);
    EXPECT_EQ(RunTool("atx query " + table_ + " NAME '~' a").exitCode, 2);
    EXPECT_EQ(RunTool("atx query " + table_ + " POP = many").exitCode, 2);
    ExpectOneLineFailure("atx query " + table_ + " NOSUCH = 1");
}

TEST_F(AtxCommandTest, InfoAndCheckReportTheIndexAndItsState) {
    auto info = RunTool("atx info " + table_ + " DAY --json");
    ASSERT_EQ(info.exitCode, 0) << info.err;
    auto json = nlohmann::json::parse(info.out);
    EXPECT_EQ(json["key_type"], "double");
    EXPECT_EQ(json["entries"], 4);  // the blank date is not indexed
    EXPECT_EQ(json["levels"], 1);
    EXPECT_EQ(json["up_to_date"], true);
    auto check = RunTool("atx check " + table_ + " NAME");
    EXPECT_EQ(check.exitCode, 0) << check.err;
    EXPECT_EQ(check.out, "t.NAME.atx: consistent with the table (5 entries)\n");

    // A table changed behind the index's back.
    auto deleted = RunTool("dbf delete " + table_ + " 2");
    ASSERT_EQ(deleted.exitCode, 0) << deleted.err;
    EXPECT_NE(deleted.err.find("t.NAME.atx is now out of date"), std::string::npos) << deleted.err;
    auto stale = ExpectOneLineFailure("atx check " + table_ + " NAME");
    EXPECT_NE(stale.err.find("does not match the table"), stale.err.npos) << stale.err;
    auto listed = nlohmann::json::parse(RunTool("dbf info " + table_ + " --json").out);
    EXPECT_EQ(listed["indexes"][0]["field"], "DAY");
    EXPECT_EQ(listed["indexes"][0]["up_to_date"], false);

    auto reindexed = RunTool("dbf pack " + table_ + " --reindex");
    ASSERT_EQ(reindexed.exitCode, 0) << reindexed.err;
    EXPECT_NE(reindexed.out.find("rebuilt t.NAME.atx (4 entries)"), std::string::npos);
    EXPECT_EQ(RunTool("atx check " + table_ + " NAME").exitCode, 0);
    EXPECT_EQ(Query("NAME = Bonn"), "2\n");

    Bytes index = ReadBytes(dir_ / "t.POP.atx");
    index[4] = 0x7F;  // the key count
    WriteBytes(dir_ / "t.POP.atx", index);
    ExpectOneLineFailure("atx check " + table_ + " POP");
}

TEST_F(AtxCommandTest, DroppedFieldsLeaveAnIndexThatIsNamedAsSuch) {
    auto dropped = RunTool("dbf drop-field " + table_ + " SHARE");
    ASSERT_EQ(dropped.exitCode, 0) << dropped.err;
    EXPECT_NE(dropped.err.find("t.SHARE.atx names no field"), std::string::npos) << dropped.err;
    auto info = RunTool("dbf info " + table_);
    EXPECT_NE(info.out.find("  SHARE t.SHARE.atx names no field\n"), std::string::npos) << info.out;
    ExpectOneLineFailure("atx query " + table_ + " SHARE = 1");
    ExpectOneLineFailure("atx info " + Quote(dir_ / "c.csv") + " NAME");
}

TEST_F(AtxCommandTest, BuildShowsAProgressBarOnATerminal) {
    std::string screen = RunToolOnTerminal("atx build " + table_ + " NAME");
    EXPECT_NE(screen.find("writing t.NAME.atx"), std::string::npos) << screen;
}

}  // namespace
}  // namespace quillet::test
