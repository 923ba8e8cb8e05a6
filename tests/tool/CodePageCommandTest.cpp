// quillet codepage: names accepted as the library accepts .cpg texts, text
// through decode and encode, and the reason info gives for a table's choice.

#include <gtest/gtest.h>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

TEST(CodePageCommandTest, DecodeAndEncodeTakeNumbersAndNames) {
    auto decoded = RunTool("codepage decode 'ANSI 1252'", "caf\xE9\n\x80");
    EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
    EXPECT_EQ(decoded.out, "caf\xC3\xA9\n\xE2\x82\xAC");
    auto encoded = RunTool("codepage encode 850", "caf\xC3\xA9 \xE2\x82\xAC\n");
    EXPECT_EQ(encoded.exitCode, 0) << encoded.err;
    EXPECT_EQ(encoded.out, "caf\x82 _\n");  // the euro sign has no byte in 850
    EXPECT_EQ(RunTool("codepage encode utf8", "\xE2\x82\xAC").out, "\xE2\x82\xAC");
}

TEST(CodePageCommandTest, UnknownCodePageIsAUsageError) {
    auto result = RunTool("codepage decode 436", "x");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("436"), std::string::npos) << result.err;
}

TEST(CodePageCommandTest, ListNamesEachKind) {
    auto result = RunTool("codepage list --json");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    for (const char* expected : {"\"name\": \"OEM 437\"", "\"name\": \"ANSI 1252\"", "\"name\": \"UTF-8\"",
                                 "\"name\": \"ASMO 449\"", "\"name\": \"ISO 88592\""}) {
        EXPECT_NE(result.out.find(expected), std::string::npos) << expected;
    }
}

std::vector<unsigned char> DbfHeader(unsigned char ldid) {
    std::vector<unsigned char> header(33, 0);
    header[0] = 0x03;
    header[8] = 33;
    header[10] = 1;
    header[29] = ldid;
    header[32] = 0x0D;
    return header;
}

TEST(CodePageCommandTest, InfoSaysWhatChoseTheCodePage) {
    TempDir dir;
    WriteBytes(dir / "t.dbf", DbfHeader(0x26));
    auto byLdid = RunTool("codepage info --json '" + (dir / "t.dbf").string() + "'");
    EXPECT_NE(byLdid.out.find("\"code_page\": 866"), std::string::npos) << byLdid.out;
    EXPECT_NE(byLdid.out.find("\"reason\": \"language driver byte\""), std::string::npos);

    WriteBytes(dir / "t.dbf", DbfHeader(0));
    WriteBytes(dir / "t.cpg", {'U', 'T', 'F', '-', '8'});
    auto byCpg = RunTool("codepage info --json '" + (dir / "t.dbf").string() + "'");
    EXPECT_NE(byCpg.out.find("\"code_page\": 65001"), std::string::npos) << byCpg.out;
    EXPECT_NE(byCpg.out.find("\"reason\": \".cpg file\""), std::string::npos);

    WriteBytes(dir / "short.dbf", {0x03});
    auto bad = RunTool("codepage info '" + (dir / "short.dbf").string() + "'");
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.err.find("short.dbf"), std::string::npos);
}

}  // namespace
}  // namespace quillet::test
