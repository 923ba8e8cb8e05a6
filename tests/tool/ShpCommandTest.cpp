#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

#include "ToolRunner.h"
#include "codepage/CodePage.h"
#include "dbase/DBase.h"
#include "foundation/ByteOrder.h"
#include "shape/ShpFile.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

using Json = nlohmann::json;

// Three points, one null shape, then a short record that claims a polyline.
void WriteLayer(const TempDir& dir) {
    test::WriteLayer(
        dir / "a.shp", ShpFile::qovaShapePoint, {1, 2, 5, 6},
        {PointRecord(1, 2), PointRecord(3, 4), PointRecord(5, 6), {}, {3, 0, 0, 0, 0, 0, 0, 0}});
    WriteBytes(dir / "a.prj", {'P', 'R', 'O', 'J', 'C', 'S', '[', '"', 'x', '"', ']'});
}

// One row per shape: a name with a non-ASCII letter, a number and a date.
// The first row's date is eight zeros, as another writer leaves a blank
// date and as the library's date setter would refuse it.
void WriteTable(const TempDir& dir) {
    DBase table(dir.Wide("a.dbf").c_str());
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageUTF8));
    ASSERT_TRUE(table.AddColumn(L"NAME", DBase::qovaCharacter, 12, 0));
    ASSERT_TRUE(table.AddColumn(L"COUNT", DBase::qovaNumeric, 6, 0));
    ASSERT_TRUE(table.AddColumn(L"SEEN", DBase::qovaDate, 8, 0));
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageUTF8));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(table.AddRecord());
        ASSERT_TRUE(table.SetFieldString(0, String::Formatted(L"n\u00E4me %d", i)));
        ASSERT_TRUE(table.SetFieldInteger(1, 10 * i));
        ASSERT_TRUE(table.SetFieldString(2, L"2024-01-02"));
    }
    ASSERT_TRUE(table.Close());
    auto bytes = ReadBytes(dir / "a.dbf");
    std::fill_n(bytes.end() - 1 - 5 * 27 + 19, 8, '0');
    WriteBytes(dir / "a.dbf", bytes);
}

TEST(ShpCommandTest, InfoReportsTheHeader) {
    TempDir dir;
    WriteLayer(dir);
    auto result = RunTool("shp info --json " + Quote(dir / "a.shp"));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out), Json::parse(R"({
        "shape_type": 1, "shape_type_name": "Point", "records": 5, "records_in_file": 5,
        "extent": [1, 2, 5, 6],
        "z_range": [0, 0], "m_range": [0, 0], "version": 1000, "byte_order": "big",
        "projection": "PROJCS[\"x\"]"})"));
    // The generic probe tells the data file from its index.
    Json data = Json::parse(RunTool("info --json " + Quote(dir / "a.shp")).out);
    Json index = Json::parse(RunTool("info --json " + Quote(dir / "a.shx")).out);
    EXPECT_EQ(data["kind"], "shape data file");
    EXPECT_EQ(data["shape_type_name"], "Point");
    EXPECT_EQ(index["kind"], "shape index file");
    EXPECT_EQ(index["records"], 5);
    std::filesystem::remove(dir / "a.prj");
    EXPECT_TRUE(Json::parse(RunTool("shp info --json " + Quote(dir / "a.shp")).out)["projection"]
                    .is_null());
}

TEST(ShpCommandTest, RecordsListsLiveRecordsWithTheirBoxes) {
    TempDir dir;
    WriteLayer(dir);
    auto result = RunTool("shp records --format jsonl " + Quote(dir / "a.shp"));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    auto records = JsonLines(result.out);
    ASSERT_EQ(records.size(), 5u);
    EXPECT_EQ(records[1],
              Json::parse(R"({"record":2,"length":20,"shape_type":1,"bbox":[3.0,4.0,3.0,4.0]})"));
    EXPECT_EQ(records[3], Json::parse(R"({"record":4,"length":4,"shape_type":0,"bbox":null})"));
    EXPECT_TRUE(records[4]["bbox"].is_null());  // too short for its box
    EXPECT_EQ(RunTool("shp records --limit 2 " + Quote(dir / "a.shp")).out.find("record 3"),
              std::string::npos);
    EXPECT_EQ(RunTool("shp records --limit -2 " + Quote(dir / "a.shp")).exitCode, 2);
    EXPECT_EQ(RunTool("shp records --format xml " + Quote(dir / "a.shp")).exitCode, 2);
}

// Marks record n (from 0) deleted in a layer's index file, as another
// writer may leave it.
void DeleteInIndex(const std::filesystem::path& shx, size_t n) {
    auto index = ReadBytes(shx);
    EncodeFixed32BE(&index[100 + 8 * n + 4], static_cast<uint32_t>(VFile::kDeletedMarker));
    WriteBytes(shx, index);
}

TEST(ShpCommandTest, CopyKeepsEveryValueAndShapesInStepWithRows) {
    TempDir dir;
    WriteLayer(dir);
    WriteTable(dir);
    auto copy = RunTool("shp copy " + Quote(dir / "a.shp") + " " + Quote(dir / "b.shp"));
    ASSERT_EQ(copy.exitCode, 0) << copy.err;
    for (const char* extension : {".shp", ".shx", ".prj", ".dbf", ".cpg"}) {
        EXPECT_EQ(ReadBytes(dir / ("a" + std::string(extension))),
                  ReadBytes(dir / ("b" + std::string(extension))))
            << extension;
    }

    // Row 2 deleted in the table and shape 4 in the shapes: both go from both.
    auto table = ReadBytes(dir / "a.dbf");
    table[table.size() - 1 - 4 * 27] = '*';
    WriteBytes(dir / "a.dbf", table);
    DeleteInIndex(dir / "a.shx", 3);
    copy = RunTool("shp copy " + Quote(dir / "a.shp") + " " + Quote(dir / "b.shp"));
    ASSERT_EQ(copy.exitCode, 0) << copy.err;
    EXPECT_NE(copy.out.find("left out 2 features"), std::string::npos) << copy.out;
    std::vector<std::string> names;
    for (const auto& row :
         JsonLines(RunTool("dbf dump --format jsonl " + Quote(dir / "b.dbf")).out)) {
        names.push_back(row["NAME"]);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"n\u00E4me 0", "n\u00E4me 2", "n\u00E4me 4"}));
    std::vector<int> shapes;
    for (const auto& record :
         JsonLines(RunTool("shp records --format jsonl " + Quote(dir / "b.shp")).out)) {
        shapes.push_back(record["length"]);
    }
    EXPECT_EQ(shapes, (std::vector<int>{20, 20, 8}));
}

TEST(ShpCommandTest, ADamagedSourceIsReportedAndTheTargetKept) {
    TempDir dir;
    WriteLayer(dir);
    WriteTable(dir);
    ASSERT_EQ(RunTool("shp copy " + Quote(dir / "a.shp") + " " + Quote(dir / "b.shp")).exitCode, 0);
    auto bytes = ReadBytes(dir / "a.shp");
    bytes.resize(bytes.size() - 10);  // into the last record
    WriteBytes(dir / "a.shp", bytes);

    auto records = RunTool("shp records " + Quote(dir / "a.shp"));
    EXPECT_EQ(records.exitCode, 1);
    EXPECT_NE(records.out.find("record 4:"), std::string::npos) << records.out;
    EXPECT_EQ(records.out.find("record 5:"), std::string::npos) << records.out;
    EXPECT_NE(records.err.find("damaged"), std::string::npos) << records.err;
    auto info = RunTool("shp info " + Quote(dir / "a.shp"));
    EXPECT_EQ(info.exitCode, 1);
    EXPECT_NE(info.out.find("records: 5"), std::string::npos) << info.out;
    EXPECT_NE(info.err.find("damaged"), std::string::npos) << info.err;

    auto files = dir.Files();
    auto target = ReadBytes(dir / "b.shp");
    EXPECT_NE(ExpectOneLineFailure("shp copy " + Quote(dir / "a.shp") + " " + Quote(dir / "b.shp"))
                  .err.find("damaged"),
              std::string::npos);
    EXPECT_EQ(dir.Files(), files);
    EXPECT_EQ(ReadBytes(dir / "b.shp"), target);
}

TEST(ShpCommandTest, CopyTakesEverySampleLayerWhole) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    TempDir dir;
    for (const auto& entry : std::filesystem::directory_iterator(PeerSamplesDir())) {
        auto source = entry.path();
        if (source.extension() != ".shp") continue;
        auto target = dir / source.filename().string();
        auto copy = RunTool("shp copy " + Quote(source) + " " + Quote(target));
        if (!std::filesystem::exists(std::filesystem::path(source).replace_extension(".shx"))) {
            EXPECT_EQ(copy.exitCode, 1) << source;
            EXPECT_FALSE(std::filesystem::exists(target)) << source;
            continue;
        }
        ASSERT_EQ(copy.exitCode, 0) << source << ": " << copy.err;
        EXPECT_EQ(RunTool("shp records --format jsonl " + Quote(target)).out,
                  RunTool("shp records --format jsonl " + Quote(source)).out)
            << source;
        auto table = std::filesystem::path(source).replace_extension(".dbf");
        if (!std::filesystem::exists(table)) continue;
        auto dump = RunTool("dbf dump --format jsonl " + Quote(table));
        EXPECT_EQ(RunTool("dbf dump --format jsonl " +
                          Quote(std::filesystem::path(target).replace_extension(".dbf")))
                      .out,
                  dump.out)
            << table;
    }
}

TEST(ShpCommandTest, PackRemovesDeletedRecords) {
    TempDir dir;
    WriteLayer(dir);
    for (size_t n : {0, 2}) DeleteInIndex(dir / "a.shx", n);
    auto pack = RunTool("shp pack " + Quote(dir / "a.shp"));
    ASSERT_EQ(pack.exitCode, 0) << pack.err;
    EXPECT_NE(pack.out.find("3 records kept, 2 removed"), std::string::npos) << pack.out;
    EXPECT_EQ(Json::parse(RunTool("shp info --json " + Quote(dir / "a.shp")).out)["records"], 3);
}

TEST(ShpCommandTest, BadInputGivesOneLineAndExitOne) {
    TempDir dir;
    WriteLayer(dir);
    WriteTable(dir);
    std::filesystem::remove(dir / "a.shx");
    WriteBytes(dir / "short.shp", {0, 0, 0x27, 0x0a});
    WriteBytes(dir / "short.shx", {0, 0, 0x27, 0x0a});
    for (const auto& args : {"shp records " + Quote(dir / "short.shp"),
                             "shp pack " + Quote(dir / "missing.shp"),
                             "shp copy " + Quote(dir / "short.shp") + " " + Quote(dir / "c.shp")}) {
        ExpectOneLineFailure(args);
    }
    auto noIndex = ExpectOneLineFailure("shp info " + Quote(dir / "a.shp"));
    EXPECT_NE(noIndex.err.find("index file"), std::string::npos) << noIndex.err;
    auto table = ExpectOneLineFailure("shp info " + Quote(dir / "a.dbf"));
    EXPECT_NE(table.err.find("not a shape data file"), std::string::npos) << table.err;
}

}  // namespace
}  // namespace quillet::test
