#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolRunner.h"
#include "foundation/ByteOrder.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

// Lines "key<TAB>id" of n entries: keys i * 7 mod 100, ids i.
std::string Pairs(int n) {
    std::string lines;
    for (int i = 1; i <= n; ++i)
        lines += std::to_string(i * 7 % 100) + "\t" + std::to_string(i) + "\n";
    return lines;
}

TEST(BtreeCommandTest, BuildInfoDumpAndValidateBothFormats) {
    TempDir dir;
    for (std::string format : {"ng", "old"}) {
        auto index = dir / (format + ".idx");
        auto build =
            RunTool("btree build " + Quote(index) + " --type long --format " + format, Pairs(1000));
        ASSERT_EQ(build.exitCode, 0) << build.err;
        EXPECT_NE(build.out.find("1000 entries, 2 levels"), std::string::npos) << build.out;
        std::string typeArgs = format == "old" ? " --type long" : "";

        auto info = RunTool("btree info " + Quote(index) + " --json" + typeArgs);
        ASSERT_EQ(info.exitCode, 0) << info.err;
        auto json = nlohmann::json::parse(info.out);
        EXPECT_EQ(json["format"], format);
        EXPECT_EQ(json["key_type"], "long");
        EXPECT_EQ(json["key_width"], 4);
        EXPECT_EQ(json["entries"], 1000);
        EXPECT_EQ(json["levels"], 2);
        EXPECT_EQ(json["free_nodes"], 0);

        auto dump = RunTool("btree dump " + Quote(index) + " --limit 3" + typeArgs);
        EXPECT_EQ(dump.out, "0\t100\n0\t200\n0\t300\n");
        auto jsonl = RunTool("btree dump " + Quote(index) + " --format jsonl --limit 1" + typeArgs);
        EXPECT_EQ(jsonl.out, "{\"key\":0,\"id\":100}\n");
        EXPECT_EQ(RunTool("btree validate " + Quote(index) + typeArgs).exitCode, 0);
    }
    auto probe = RunTool("info " + Quote(dir / "ng.idx"));
    EXPECT_NE(probe.out.find("B-tree attribute index"), std::string::npos) << probe.out;
}

TEST(BtreeCommandTest, TextKeysAndTheOlderFormatsKeyType) {
    TempDir dir;
    auto index = dir / "names.idx";
    auto build = RunTool("btree build " + Quote(index) + " --type string --width 4 --format old",
                         "caf\xc3\xa9,2\nabcdef,1\n");
    ASSERT_EQ(build.exitCode, 0) << build.err;
    auto noType = RunTool("btree dump " + Quote(index));
    EXPECT_EQ(noType.exitCode, 2);
    EXPECT_NE(noType.err.find("--type"), std::string::npos);
    auto dump = RunTool("btree dump " + Quote(index) + " --type string --width 4");
    EXPECT_EQ(dump.out, "abcd\t1\ncaf\xc3\xa9\t2\n");
}

TEST(BtreeCommandTest, ReplayRepeatsATrace) {
    TempDir dir;
    auto index = dir / "r.idx";
    ASSERT_EQ(RunTool("btree build " + Quote(index) + " --type double", "1.5\t1\n").exitCode, 0);
    WriteBytes(dir / "ops.trace",
               {'I', ',', '2', '.', '5', ',', '7', '\n', 'D', ',', '1', '.', '5', ',', '1', '\n'});
    auto replay = RunTool("btree replay " + Quote(index) + " " + Quote(dir / "ops.trace"));
    ASSERT_EQ(replay.exitCode, 0) << replay.err;
    EXPECT_EQ(RunTool("btree dump " + Quote(index)).out, "2.5\t7\n");
    // A record id beyond 32 bits is a bad line, not a wrapped id.
    std::string wide = "I,3.5,4294967303\n";
    WriteBytes(dir / "wide.trace", std::vector<unsigned char>(wide.begin(), wide.end()));
    EXPECT_EQ(RunTool("btree replay " + Quote(index) + " " + Quote(dir / "wide.trace")).exitCode, 1);
    EXPECT_EQ(RunTool("btree dump " + Quote(index)).out, "2.5\t7\n");
}

TEST(BtreeCommandTest, AnInconsistentTreeFailsValidationWithAReason) {
    TempDir dir;
    auto index = dir / "bad.idx";
    ASSERT_EQ(RunTool("btree build " + Quote(index) + " --type long", Pairs(1500)).exitCode, 0);
    auto bytes = ReadBytes(index);
    EncodeFixed32LE(&bytes[4096], 0);  // the first leaf no longer links to the next
    WriteBytes(index, bytes);
    auto result = ExpectOneLineFailure("btree validate " + Quote(index));
    EXPECT_NE(result.err.find("inconsistent: node 2 does not link"), std::string::npos)
        << result.err;
}

TEST(BtreeCommandTest, BadInputIsOneLineAndExitOne) {
    TempDir dir;
    WriteBytes(dir / "junk.idx", std::vector<unsigned char>(4096 + 22, 0xFF));
    for (std::string args : {"btree info " + Quote(dir / "missing.idx"),
                             "btree info " + Quote(dir / "junk.idx") + " --type long"}) {
        ExpectOneLineFailure(args);
    }
    auto badLine = RunTool("btree build " + Quote(dir / "b.idx") + " --type long", "12\tx\n");
    EXPECT_EQ(badLine.exitCode, 1);
    EXPECT_NE(badLine.err.find("line 1"), std::string::npos) << badLine.err;
    EXPECT_EQ(RunTool("btree build " + Quote(dir / "b.idx") + " --type nothing", "").exitCode, 2);
}

}  // namespace
}  // namespace quillet::test
