// quillet dbf: what import-csv, add-field and delete guarantee, and how the
// commands that read tables speak of files that are not tables or are
// damaged.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

#include "ToolRunner.h"
#include "foundation/ByteOrder.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

using Json = nlohmann::json;

void WriteText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

void Import(const std::filesystem::path& csv, const std::filesystem::path& table,
            const std::string& options) {
    auto result = RunTool("dbf import-csv " + Quote(csv) + " " + Quote(table) + " " + options);
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

// A table of IDs 1..count, made through the tool.
void WriteIdTable(const TempDir& dir, const std::string& name, int count) {
    std::string csv = "ID\n";
    for (int id = 1; id <= count; ++id) csv += std::to_string(id) + "\n";
    WriteText(dir / "ids.csv", csv);
    Import(dir / "ids.csv", dir / name, "--schema ID:N:4");
}

std::vector<int> Ids(const std::filesystem::path& table) {
    std::vector<int> ids;
    for (const auto& row : JsonLines(RunTool("dbf dump --format jsonl " + Quote(table)).out))
        ids.push_back(row["ID"]);
    return ids;
}

// The x of each point of a layer, in record order.
std::vector<double> PointXs(const std::filesystem::path& shp) {
    std::vector<double> xs;
    for (const auto& record : JsonLines(RunTool("shp records --format jsonl " + Quote(shp)).out)) {
        xs.push_back(record["bbox"][0]);
    }
    return xs;
}

// The bytes of the last field of each record, read from the file itself.
std::vector<std::string> LastFieldBytes(const std::filesystem::path& table, int width) {
    auto bytes = ReadBytes(table);
    int32_t count = static_cast<int32_t>(DecodeFixed32LE(&bytes[4]));
    int headerLength = DecodeFixed16LE(&bytes[8]), recordLength = DecodeFixed16LE(&bytes[10]);
    std::vector<std::string> fields;
    for (int32_t n = 0; n < count; ++n) {
        auto end = bytes.begin() + headerLength + (n + 1) * recordLength;
        fields.emplace_back(end - width, end);
    }
    return fields;
}

TEST(DbfImportCsvTest, RefusesAValueTheTableCannotKeepAndLeavesWhatWasThere) {
    TempDir dir;
    WriteText(dir / "old.csv", "NAME,N,D\nkept,1,2024-01-31\n");
    Import(dir / "old.csv", dir / "t.dbf", "--schema NAME:C:8,N:N:4,D:D:8");
    auto before = ReadBytes(dir / "t.dbf");
    WriteText(dir / "new.csv", "");
    auto files = dir.Files();
    struct Case {
        const char* csv;
        const char* codePage;
        std::vector<std::string> said;
    };
    for (const Case& c : {
             Case{"NAME,N,D\nZ\xC3\xBCrich,1,\n\xE5\x8C\x97\xE4\xBA\xAC,2,\n",
                  "1252",
                  {"line 3, column NAME", "\xE5\x8C\x97\xE4\xBA\xAC", "ANSI 1252"}},
             Case{"NAME,N,D\n\xE5\x8C\x97,2,\n", "437", {"line 2, column NAME", "OEM 437"}},
             Case{"NAME,N,D\na,12345,\n", "UTF-8", {"column N", "does not fit"}},
             Case{"NAME,N,D\na,0x1A,\n", "UTF-8", {"column N", "not a number"}},
             Case{"NAME,N,D\na,1,2024-13-01\n", "UTF-8", {"column D", "not a date"}},
             Case{"NAME,N,D\na,1,\nb,2\n", "UTF-8", {"line 3", "2 columns"}},
             Case{"NAME,N,D\n\"a,1,\n", "UTF-8", {"line 2", "never closed"}},
             Case{"NAME,N,D\n\xFF,1,\n", "UTF-8", {"line 2, column NAME", "not valid UTF-8"}},
         }) {
        WriteText(dir / "new.csv", c.csv);
        auto result = ExpectOneLineFailure(
            "dbf import-csv " + Quote(dir / "new.csv") + " " + Quote(dir / "t.dbf") +
            " --schema NAME:C:8,N:N:4,D:D:8 --codepage " + c.codePage);
        for (const auto& text : c.said)
            EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
        EXPECT_EQ(ReadBytes(dir / "t.dbf"), before) << c.csv;
        EXPECT_EQ(dir.Files(), files) << c.csv;
    }
}

TEST(DbfImportCsvTest, ReadsQuotedRowsCountsCutValuesAndDropsAStaleCpg) {
    TempDir dir;
    WriteText(dir / "a.csv",
              "NAME,NOTE,N\r\n\"Smith, J.\",\"said \"\"hi\"\"\nthen "
              "left\",7\r\n\r\nplain,short,8.25\r\n");
    Import(dir / "a.csv", dir / "t.dbf", "--schema N:N:4:1,NAME:C:10,NOTE:C:8 --codepage UTF-8");
    EXPECT_TRUE(std::filesystem::exists(dir / "t.cpg"));

    auto result = RunTool("dbf import-csv " + Quote(dir / "a.csv") + " " + Quote(dir / "t.dbf") +
                          " --schema N:N:4:1,NAME:C:10,NOTE:C:8 --codepage 1252");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("wrote 2 records"), std::string::npos) << result.out;
    // The note cut to its width, and 8.25 to one decimal.
    EXPECT_NE(result.err.find("warning: " + (dir / "t.dbf").string() + ": 2 values were cut"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "t.cpg"));  // the header names 1252 now
    auto rows = JsonLines(RunTool("dbf dump --format jsonl " + Quote(dir / "t.dbf")).out);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], Json::parse(R"({"N": 7, "NAME": "Smith, J.", "NOTE": "said \"hi"})"));
    EXPECT_EQ(rows[1], Json::parse(R"({"N": 8.2, "NAME": "plain", "NOTE": "short"})"));
}

TEST(DbfAddFieldTest, FillsEveryRecordWithBlanksOrTheValue) {
    TempDir dir;
    WriteIdTable(dir, "t.dbf", 3);
    auto blank = RunTool("dbf add-field " + Quote(dir / "t.dbf") + " SCORE:N:5:1");
    ASSERT_EQ(blank.exitCode, 0) << blank.err;
    EXPECT_EQ(LastFieldBytes(dir / "t.dbf", 5), std::vector<std::string>(3, "     "));
    auto value = RunTool("dbf add-field " + Quote(dir / "t.dbf") + " TAG:C:4 --value abcdef");
    ASSERT_EQ(value.exitCode, 0) << value.err;
    EXPECT_NE(value.err.find("cut"), std::string::npos) << value.err;
    EXPECT_EQ(LastFieldBytes(dir / "t.dbf", 4), std::vector<std::string>(3, "abcd"));

    auto before = ReadBytes(dir / "t.dbf");
    auto files = dir.Files();
    auto bad =
        ExpectOneLineFailure("dbf add-field " + Quote(dir / "t.dbf") + " BAD:N:2 --value 123");
    EXPECT_NE(bad.err.find("--value"), std::string::npos) << bad.err;
    EXPECT_EQ(ReadBytes(dir / "t.dbf"), before);
    EXPECT_EQ(dir.Files(), files);
    EXPECT_EQ(RunTool("dbf add-field " + Quote(dir / "t.dbf") + " LONGERTHAN10:C:4").exitCode, 2);
}

TEST(DbfDeleteTest, DeletesTheRecordsNamedFromOneWithTheirShapes) {
    TempDir dir;
    std::vector<std::vector<unsigned char>> points;
    for (int n = 1; n <= 6; ++n) points.push_back(PointRecord(n, n));
    WriteLayer(dir / "t.shp", ShpFile::qovaShapePoint, {1, 1, 6, 6}, points);
    WriteIdTable(dir, "t.dbf", 6);
    WriteBytes(dir / "t.sbn", {0});
    WriteBytes(dir / "t.sbx", {0});
    WriteText(dir / "list", "6\n4 2\n");

    // 2 is named twice; the batch deletes each record once, by its old number.
    auto batch = RunTool("dbf delete " + Quote(dir / "t.dbf") + " 2 --from " + Quote(dir / "list"));
    ASSERT_EQ(batch.exitCode, 0) << batch.err;
    EXPECT_EQ(Ids(dir / "t.dbf"), (std::vector<int>{1, 3, 5}));
    EXPECT_EQ(PointXs(dir / "t.shp"), (std::vector<double>{1, 3, 5}));
    EXPECT_FALSE(std::filesystem::exists(dir / "t.sbn"));  // it numbered the old shapes
    EXPECT_FALSE(std::filesystem::exists(dir / "t.sbx"));

    auto table = ReadBytes(dir / "t.dbf"), shapes = ReadBytes(dir / "t.shp");
    auto files = dir.Files();
    ExpectOneLineFailure("dbf delete " + Quote(dir / "t.dbf") + " 1 4");
    EXPECT_EQ(RunTool("dbf delete " + Quote(dir / "t.dbf") + " 0").exitCode, 2);
    EXPECT_EQ(RunTool("dbf delete " + Quote(dir / "t.dbf")).exitCode, 2);
    EXPECT_EQ(ReadBytes(dir / "t.dbf"), table);
    EXPECT_EQ(ReadBytes(dir / "t.shp"), shapes);
    EXPECT_EQ(dir.Files(), files);

    ASSERT_EQ(RunTool("dbf delete " + Quote(dir / "t.dbf") + " --from -", "3").exitCode, 0);
    EXPECT_EQ(Ids(dir / "t.dbf"), (std::vector<int>{1, 3}));
    EXPECT_EQ(PointXs(dir / "t.shp"), (std::vector<double>{1, 3}));
    // A record marked deleted before goes with the compaction: its shape goes too.
    WriteIdTable(dir, "t.dbf", 3);
    WriteLayer(dir / "t.shp", ShpFile::qovaShapePoint, {1, 1, 3, 3},
               {PointRecord(1, 1), PointRecord(2, 2), PointRecord(3, 3)});
    auto marked = ReadBytes(dir / "t.dbf");
    marked[marked[8] | marked[9] << 8] = '*';
    WriteBytes(dir / "t.dbf", marked);
    ASSERT_EQ(RunTool("dbf delete " + Quote(dir / "t.dbf") + " 3").exitCode, 0);
    EXPECT_EQ(Ids(dir / "t.dbf"), (std::vector<int>{2}));
    EXPECT_EQ(PointXs(dir / "t.shp"), (std::vector<double>{2}));
    ASSERT_EQ(RunTool("dbf delete --table-only " + Quote(dir / "t.dbf") + " 1").exitCode, 0);
    EXPECT_TRUE(Ids(dir / "t.dbf").empty());
    EXPECT_EQ(PointXs(dir / "t.shp"), (std::vector<double>{2}));
}

TEST(DbfCommandTest, SaysWhenAFileIsNoTableOrADamagedOne) {
    TempDir dir;
    WriteIdTable(dir, "t.dbf", 3);
    auto bytes = ReadBytes(dir / "t.dbf");
    bytes.resize(bytes.size() - 4);  // the end-of-file byte and part of the last record
    WriteBytes(dir / "cut.dbf", bytes);
    auto dump = RunTool("dbf dump " + Quote(dir / "cut.dbf"));
    EXPECT_EQ(dump.exitCode, 1);
    EXPECT_EQ(dump.out, "ID\n1\n2\n");
    EXPECT_NE(dump.err.find("damaged"), std::string::npos) << dump.err;
    auto info = RunTool("dbf info " + Quote(dir / "cut.dbf"));
    EXPECT_EQ(info.exitCode, 1);
    EXPECT_NE(info.out.find("records: 3"), std::string::npos) << info.out;

    WriteLayer(dir / "a.shp", ShpFile::qovaShapePoint, {0, 0, 1, 1}, {PointRecord(0, 0)});
    WriteText(dir / "a.prj", "GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\"]]");
    for (const auto& args : {"dbf info " + Quote(dir / "a.shp"), "dbf dump " + Quote(dir / "a.prj"),
                             "codepage info " + Quote(dir / "a.shp")}) {
        EXPECT_NE(ExpectOneLineFailure(args).err.find("not a dBASE table"), std::string::npos)
            << args;
    }
}

TEST(DbfCommandTest, DumpTakesFieldNamesAsStoredAndRefusesANegativeLimit) {
    TempDir dir;
    WriteText(dir / "t.csv", "ID,NAME\n7,seven\n");
    Import(dir / "t.csv", dir / "t.dbf", "--schema ID:N:4,NAME:C:8");
    // The library reads a field stored as FID as FID_1: FID is reserved.
    auto bytes = ReadBytes(dir / "t.dbf");
    std::copy_n("FID", 3, bytes.begin() + 32);
    WriteBytes(dir / "t.dbf", bytes);
    for (const char* fields : {"FID,name", "fid_1,NAME"}) {
        auto result =
            RunTool("dbf dump --fields " + std::string(fields) + " " + Quote(dir / "t.dbf"));
        EXPECT_EQ(result.out, "FID_1,NAME\n7,seven\n") << fields << ": " << result.err;
    }
    ExpectOneLineFailure("dbf dump --fields NOPE " + Quote(dir / "t.dbf"));
    auto negative = RunTool("dbf dump --limit -1 " + Quote(dir / "t.dbf"));
    EXPECT_EQ(negative.exitCode, 2);
    EXPECT_NE(negative.err.find("--limit"), std::string::npos) << negative.err;
}

}  // namespace
}  // namespace quillet::test
