// quillet codepage: names accepted as the library accepts .cpg texts, text
// through decode and encode, and the reason info gives for a table's choice.

#include <gtest/gtest.h>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

TEST(CodePageCommandTest, DecodeAndEncodeTakeNumbersAndNames) {
    struct Case {
        const char* args;
        const char* input;
        const char* output;
    };
    for (const Case& c :
         {Case{"decode 'ANSI 1252'", "caf\xE9\n\x80", "caf\xC3\xA9\n\xE2\x82\xAC"},
          Case{"encode 850", "caf\xC3\xA9 \xE2\x82\xAC\n", "caf\x82 _\n"},  // no euro sign in 850
          Case{"encode utf8", "\xE2\x82\xAC", "\xE2\x82\xAC"}}) {
        auto result = RunTool(std::string("codepage ") + c.args, c.input);
        EXPECT_EQ(result.exitCode, 0) << c.args << ": " << result.err;
        EXPECT_EQ(result.out, c.output) << c.args;
    }
    // 99999 is in the range of numbers the library takes as code pages.
    for (const char* number : {"436", "99999"}) {
        auto unknown = RunTool(std::string("codepage decode ") + number, "x");
        EXPECT_EQ(unknown.exitCode, 2) << number;
        EXPECT_NE(unknown.err.find(number), std::string::npos) << unknown.err;
    }
}

TEST(CodePageCommandTest, ListNamesEachKind) {
    auto result = RunTool("codepage list --json");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    for (const char* expected :
         {"\"code_page_name\": \"OEM 437\"", "\"code_page_name\": \"ANSI 1252\"",
          "\"code_page_name\": \"UTF-8\"", "\"code_page_name\": \"ASMO 449\"",
          "\"code_page_name\": \"ISO 88592\""}) {
        EXPECT_NE(result.out.find(expected), std::string::npos) << expected;
    }
}

TEST(CodePageCommandTest, InfoSaysWhatChoseTheCodePage) {
    TempDir dir;
    auto table = [&](unsigned char ldid) {
        std::vector<unsigned char> header(33, 0);
        header[0] = 0x03;
        header[8] = 33;
        header[10] = 1;
        header[29] = ldid;
        header[32] = 0x0D;
        WriteBytes(dir / "t.dbf", header);
        return RunTool("codepage info --json " + Quote(dir / "t.dbf")).out;
    };
    auto byLdid = table(0x26);
    EXPECT_NE(byLdid.find("\"code_page\": 866"), std::string::npos) << byLdid;
    EXPECT_NE(byLdid.find("\"reason\": \"language driver byte\""), std::string::npos);
    WriteBytes(dir / "t.cpg", {'U', 'T', 'F', '-', '8'});
    auto byCpg = table(0);
    EXPECT_NE(byCpg.find("\"code_page\": 65001"), std::string::npos) << byCpg;
    EXPECT_NE(byCpg.find("\"reason\": \".cpg file\""), std::string::npos);

    WriteBytes(dir / "short.dbf", {0x03});
    EXPECT_NE(
        ExpectOneLineFailure("codepage info " + Quote(dir / "short.dbf")).err.find("short.dbf"),
        std::string::npos);
}

}  // namespace
}  // namespace quillet::test
