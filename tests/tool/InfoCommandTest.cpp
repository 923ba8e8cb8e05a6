#include <gtest/gtest.h>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

int LineCount(const std::string& text) {
    int lines = 0;
    for (char c : text) lines += c == '\n';
    return lines;
}

TEST(ToolTest, VersionAndHelpSucceed) {
    auto version = RunTool("--version");
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_NE(version.out.find("quillet "), std::string::npos);
    EXPECT_EQ(RunTool("--help").exitCode, 0);
    EXPECT_EQ(RunTool("info --help").exitCode, 0);
}

TEST(ToolTest, UsageErrorsExitTwo) {
    EXPECT_EQ(RunTool("").exitCode, 2);
    EXPECT_EQ(RunTool("no-such-group").exitCode, 2);
    EXPECT_EQ(RunTool("info").exitCode, 2);
}

TEST(InfoCommandTest, BadInputGivesOneLineAndExitOne) {
    TempDir dir;
    WriteBytes(dir / "empty", {});
    for (std::string path : {(dir / "empty").string(), dir.path().string(),
                             (dir / "missing.dbf").string()}) {
        auto result = RunTool("info '" + path + "'");
        EXPECT_EQ(result.exitCode, 1) << path;
        EXPECT_EQ(LineCount(result.err), 1) << result.err;
        EXPECT_NE(result.err.find(path), std::string::npos) << result.err;
        EXPECT_TRUE(result.out.empty());
    }
}

TEST(InfoCommandTest, UnknownBytesAreNamedUnknown) {
    TempDir dir;
    WriteBytes(dir / "noise", {'h', 'e', 'l', 'l', 'o'});
    auto result = RunTool("info --json '" + (dir / "noise").string() + "'");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("\"kind\": \"unknown\""), std::string::npos) << result.out;
}

TEST(InfoCommandTest, RecognisesOlderRecordFileHeaders) {
    TempDir dir;
    std::vector<unsigned char> header(100, 0);
    // Little-endian file code 9992: variable-length records, not indexed.
    header[0] = 0x08;
    header[1] = 0x27;
    WriteBytes(dir / "records.dat", header);
    auto result = RunTool("info --json '" + (dir / "records.dat").string() + "'");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("\"file_code\": 9992"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"byte_order\": \"little\""), std::string::npos);
    EXPECT_NE(result.out.find("\"record_length_kind\": \"variable\""), std::string::npos);
}

TEST(InfoCommandTest, RecognisesNextGenerationRecordFileHeaders) {
    TempDir dir;
    std::vector<unsigned char> header(40, 0);
    header[0] = 3;   // version
    header[12] = 5;  // pointer length
    header[24] = 40; // end of data
    WriteBytes(dir / "records.ng", header);
    auto result = RunTool("info '" + (dir / "records.ng").string() + "'");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("kind: next-generation record file"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("pointer_length: 5"), std::string::npos);
}

}  // namespace
}  // namespace quillet::test
