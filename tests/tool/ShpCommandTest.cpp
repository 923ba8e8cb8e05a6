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

// One row per shape: a name with a non-ASCII letter and a number.
void WriteTable(const std::wstring& path) {
    DBase table(path.c_str());
    ASSERT_TRUE(table.Create(CodePage::qovaCodePageUTF8));
    ASSERT_TRUE(table.AddColumn(L"NAME", DBase::qovaCharacter, 12, 0));
    ASSERT_TRUE(table.AddColumn(L"COUNT", DBase::qovaNumeric, 6, 0));
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageUTF8));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(table.AddRecord());
        ASSERT_TRUE(table.SetFieldString(0, String::Formatted(L"näme %d", i)));
        ASSERT_TRUE(table.SetFieldInteger(1, 10 * i));
    }
    ASSERT_TRUE(table.Close());
}

TEST(ShpCommandTest, InfoReportsTheHeader) {
    TempDir dir;
    WriteLayer(dir);
    auto result = RunTool("shp info --json " + Quote(dir / "a.shp"));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out), Json::parse(R"({
        "shape_type": 1, "shape_type_name": "Point", "records": 5, "extent": [1, 2, 5, 6],
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
    std::istringstream lines(result.out);
    std::vector<Json> records;
    for (std::string line; std::getline(lines, line);) records.push_back(Json::parse(line));
    ASSERT_EQ(records.size(), 5u);
    EXPECT_EQ(records[1],
              Json::parse(R"({"record":2,"length":20,"shape_type":1,"bbox":[3.0,4.0,3.0,4.0]})"));
    EXPECT_EQ(records[3], Json::parse(R"({"record":4,"length":4,"shape_type":0,"bbox":null})"));
    EXPECT_TRUE(records[4]["bbox"].is_null());  // too short for its box
    EXPECT_EQ(RunTool("shp records --limit 2 " + Quote(dir / "a.shp")).out.find("record 3"),
              std::string::npos);
    EXPECT_EQ(RunTool("shp records --format xml " + Quote(dir / "a.shp")).exitCode, 2);
}

TEST(ShpCommandTest, CopyAndPack) {
    TempDir dir;
    WriteLayer(dir);
    WriteTable(dir.Wide("a.dbf"));
    auto copy = RunTool("shp copy " + Quote(dir / "a.shp") + " " + Quote(dir / "b.shp"));
    ASSERT_EQ(copy.exitCode, 0) << copy.err;
    EXPECT_NE(copy.out.find("through DBase"), std::string::npos) << copy.out;
    for (const char* extension : {".shp", ".shx", ".prj"}) {
        EXPECT_EQ(ReadBytes(dir / ("a" + std::string(extension))),
                  ReadBytes(dir / ("b" + std::string(extension))))
            << extension;
    }
    DBase table(dir.Wide("b.dbf").c_str());
    ASSERT_TRUE(table.Open(true, true, CodePage::qovaCodePageDefault));
    ASSERT_EQ(table.GetNumRecords(), 5);
    ASSERT_TRUE(table.MoveTo(4));
    EXPECT_EQ(table.GetFieldString(0), L"näme 4");
    EXPECT_EQ(table.GetFieldInteger(1), 40);
    // Records 1 and 3 deleted but not compacted away, as another writer may
    // leave a file.
    auto index = ReadBytes(dir / "b.shx");
    for (size_t entry : {0, 2})
        EncodeFixed32BE(&index[100 + 8 * entry + 4], static_cast<uint32_t>(VFile::kDeletedMarker));
    WriteBytes(dir / "b.shx", index);
    auto pack = RunTool("shp pack " + Quote(dir / "b.shp"));
    ASSERT_EQ(pack.exitCode, 0) << pack.err;
    EXPECT_NE(pack.out.find("3 records kept, 2 removed"), std::string::npos) << pack.out;
    EXPECT_EQ(Json::parse(RunTool("shp info --json " + Quote(dir / "b.shp")).out)["records"], 3);
}

TEST(ShpCommandTest, BadInputGivesOneLineAndExitOne) {
    TempDir dir;
    WriteLayer(dir);
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
}

}  // namespace
}  // namespace quillet::test
