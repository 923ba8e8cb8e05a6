// The program's usage errors, what all commands share (JSON keys, the
// progress bar), and `quillet info` on files no other command group claims.

#include <gtest/gtest.h>

#include <fstream>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

TEST(ToolTest, ExitCodes) {
    EXPECT_NE(RunTool("--version").out.find("quillet "), std::string::npos);
    for (const auto& [args, exitCode] : {std::pair{"--version", 0},
                                         {"--help", 0},
                                         {"info --help", 0},
                                         {"", 2},
                                         {"no-such-group", 2},
                                         {"info", 2},
                                         {"codepage decode 932 --locale xx", 2},
                                         {"help --man --bash-completion", 2}}) {
        EXPECT_EQ(RunTool(args).exitCode, exitCode) << args;
    }
    auto unknown = RunTool("dbf frobnicate x.dbf");
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_NE(unknown.err.find("'frobnicate'"), std::string::npos) << unknown.err;
}

TEST(ToolTest, TheSameJsonKeysInEveryCommand) {
    TempDir dir;
    std::ofstream(dir / "t.csv") << "A\n1\n";
    ASSERT_EQ(RunTool("dbf import-csv " + Quote(dir / "t.csv") + " " + Quote(dir / "t.dbf") +
                      " --schema A:N:2 --codepage 437")
                  .exitCode,
              0);
    auto table = nlohmann::json::parse(RunTool("dbf info --json " + Quote(dir / "t.dbf")).out);
    ASSERT_TRUE(table["ldid"].is_number()) << table;
    EXPECT_EQ(table["code_page"], 437);
    for (const auto& args :
         {"codepage info --json " + Quote(dir / "t.dbf"), "info --json " + Quote(dir / "t.dbf")}) {
        auto out = nlohmann::json::parse(RunTool(args).out);
        for (const char* key : {"ldid", "code_page", "code_page_kind", "code_page_name"})
            EXPECT_EQ(out[key], table[key]) << args << ": " << key;
    }
}

TEST(ToolTest, ProgressBarReachesTheEndAndClearsItsLine) {
    TempDir dir;
    {
        std::ofstream csv(dir / "t.csv");
        csv << "A\n";
        for (int i = 0; i < 5000; ++i) csv << i << "\n";
    }
    auto seen = RunToolOnTerminal("dbf import-csv " + Quote(dir / "t.csv") + " " +
                                  Quote(dir / "t.dbf") + " --schema A:N:5");
    EXPECT_NE(seen.find("100%"), std::string::npos) << seen;
    ASSERT_GE(seen.size(), 4u);
    EXPECT_EQ(seen.substr(seen.size() - 4), "\r\033[K") << seen;
}

TEST(InfoCommandTest, BadInputNamesThePath) {
    TempDir dir;
    WriteBytes(dir / "empty", {});
    for (std::string path :
         {(dir / "empty").string(), dir.path().string(), (dir / "missing.dbf").string()}) {
        EXPECT_NE(ExpectOneLineFailure("info " + Quote(path)).err.find(path), std::string::npos)
            << path;
    }
}

// Several files: each as one file alone shows it, under its path; a bad one
// is named on stderr and the others are still shown.
TEST(InfoCommandTest, SeveralFilesEachUnderItsPath) {
    TempDir dir;
    WriteBytes(dir / "noise", {'h', 'i'});
    WriteBytes(dir / "empty", {});
    auto noise = Quote(dir / "noise"), empty = Quote(dir / "empty");
    auto alone = nlohmann::json::parse(RunTool("info --json " + noise).out);

    auto json = RunTool("info --json " + noise + " " + empty + " " + noise);
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_NE(json.err.find((dir / "empty").string()), std::string::npos) << json.err;
    auto all = nlohmann::json::parse(json.out);
    ASSERT_EQ(all.size(), 1u) << json.out;  // a file named twice is shown once
    EXPECT_EQ(all[0]["path"], (dir / "noise").string());
    all[0].erase("path");
    EXPECT_EQ(all[0], alone);

    auto text = RunTool("info " + noise + " " + Quote(dir / "missing"));
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_EQ(text.out, "path: " + (dir / "noise").string() + "\nkind: unknown\n");
}

TEST(InfoCommandTest, RecognisesFilesByTheirFirstBytes) {
    TempDir dir;
    WriteBytes(dir / "noise", {'h', 'e', 'l', 'l', 'o'});
    std::vector<unsigned char> older(100, 0);
    older[0] = 0x08;  // little-endian file code 9992: variable-length records, not indexed
    older[1] = 0x27;
    WriteBytes(dir / "records.dat", older);
    std::vector<unsigned char> next(40, 0);
    next[0] = 3;    // version
    next[12] = 5;   // pointer length
    next[24] = 40;  // end of data
    WriteBytes(dir / "records.ng", next);
    struct Case {
        const char* file;
        const char* options;
        std::vector<std::string> expected;
    };
    for (const Case& c :
         {Case{"noise", "--json", {"\"kind\": \"unknown\""}},
          Case{"records.dat", "--json",
               {"\"file_code\": 9992", "\"byte_order\": \"little\"",
                "\"record_length_kind\": \"variable\""}},
          Case{"records.ng", "", {"kind: next-generation record file", "pointer_length: 5"}}}) {
        auto result = RunTool(std::string("info ") + c.options + " " + Quote(dir / c.file));
        EXPECT_EQ(result.exitCode, 0) << c.file;
        for (const auto& text : c.expected)
            EXPECT_NE(result.out.find(text), std::string::npos) << result.out;
    }
}

}  // namespace
}  // namespace quillet::test
