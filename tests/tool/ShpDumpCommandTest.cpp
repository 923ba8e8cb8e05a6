// quillet shp dump: --bbox and --where give the same features through the
// layer's indexes as by a scan, the features are exactly those the window
// and the condition leave, and a record whose counts disagree with its size
// is named and left out of a document that stays whole.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolRunner.h"
#include "shape/ShapeGeometry.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

constexpr int kSide = 12;  // points on a kSide x kSide grid, one a unit apart

class ShpDumpCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string csv = "NAME,N\n";
        for (int i = 0; i < kSide * kSide; ++i) {
            csv += (i % 3 == 0   ? "alpha"
                    : i % 3 == 1 ? "beta"
                                 : "gamma") +
                   std::to_string(i % 5) + "," + std::to_string(i) + "\n";
            records_.push_back(PointRecord(i % kSide, i / kSide));
        }
        WriteBytes(dir_ / "c.csv", Bytes(csv.begin(), csv.end()));
        auto made = RunTool("dbf import-csv " + Quote(dir_ / "c.csv") + " " +
                            Quote(dir_ / "p.dbf") + " --schema NAME:C:10,N:N:6");
        ASSERT_EQ(made.exitCode, 0) << made.err;
        WriteLayer(dir_ / "p.shp", ShpFile::qovaShapePoint, {0, 0, kSide - 1, kSide - 1}, records_);
    }

    // The N of each feature a dump prints.
    std::vector<int> Dump(const std::string& args) {
        auto result = RunTool("shp dump " + layer_ + " --format geojsonseq " + args);
        EXPECT_EQ(result.exitCode, 0) << args << ": " << result.err;
        std::vector<int> numbers;
        for (const auto& feature : JsonLines(result.out))
            numbers.push_back(feature["properties"]["N"].get<int>());
        return numbers;
    }

    TempDir dir_;
    std::vector<Bytes> records_;
    std::string layer_ = Quote(dir_ / "p.shp");
};

TEST_F(ShpDumpCommandTest, WhereGivesTheSameFeaturesThroughTheIndexAsByAScan) {
    const std::vector<std::string> conditions = {
        "NAME = beta1",    "NAME '<>' alpha0", "NAME like gam%", "NAME in alpha3 gamma4",
        "N between 17 90", "N not-in 5 6 7",   "N '<' 40",       "NAME not-between b c",
    };
    std::vector<std::vector<int>> scanned;
    for (const auto& condition : conditions) scanned.push_back(Dump("--where " + condition));
    for (const char* field : {"NAME", "N"})
        ASSERT_EQ(RunTool("atx build " + Quote(dir_ / "p.dbf") + " " + field).exitCode, 0);
    for (size_t i = 0; i < conditions.size(); ++i) {
        auto indexed = Dump("--where " + conditions[i]);
        EXPECT_EQ(indexed, scanned[i]) << conditions[i];
        EXPECT_FALSE(indexed.empty()) << conditions[i];
        EXPECT_LT(indexed.size(), static_cast<size_t>(kSide * kSide)) << conditions[i];
    }
    EXPECT_EQ(Dump("--where N between 17 90").size(), 74u);
}

TEST_F(ShpDumpCommandTest, BboxGivesTheFeaturesInTheWindowThroughTheBinIndexAsByAScan) {
    const std::string window = "--bbox 2.5,3,6,7.5 ";
    std::vector<int> expected;  // rows 3 to 7, columns 3 to 6, in record order
    for (int y = 3; y <= 7; ++y) {
        for (int x = 3; x <= 6; ++x) expected.push_back(y * kSide + x);
    }
    EXPECT_EQ(Dump(window), expected);
    ASSERT_EQ(RunTool("sbn build " + layer_).exitCode, 0);
    EXPECT_EQ(Dump(window), expected);
    // Both together: the features that pass both.
    std::vector<int> both;
    for (int n : expected) {
        if (n < 60) both.push_back(n);
    }
    EXPECT_EQ(Dump(window + "--where N '<' 60"), both);

    // A feature added since the index was built, which the index cannot name,
    // is found all the same.
    records_.push_back(PointRecord(4, 4));
    WriteLayer(dir_ / "p.shp", ShpFile::qovaShapePoint, {0, 0, kSide - 1, kSide - 1}, records_);
    auto grown = RunTool("shp dump --format geojsonseq " + window + layer_);
    EXPECT_EQ(JsonLines(grown.out).size(), expected.size() + 1) << grown.err;
}

TEST(ShpDumpBadRecordTest, ARecordWithBadCountsIsNamedAndLeftOutOfAWholeDocument) {
    ShapeGeometry line;
    line.type = ShpFile::qovaShapePolyline;
    line.box[2] = line.box[3] = 1;
    line.parts = {0};
    line.points = {{0, 0}, {1, 1}};
    Bytes bad = line.Encode();
    bad[40] = 200;  // the point count
    TempDir dir;
    WriteLayer(dir / "l.shp", ShpFile::qovaShapePolyline, {0, 0, 1, 1}, {line.Encode(), bad, {}});

    auto result = RunTool("shp dump " + Quote(dir / "l.shp"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("record 2 left out: a record of"), std::string::npos) << result.err;
    auto document = nlohmann::json::parse(result.out);
    ASSERT_EQ(document["features"].size(), 2u);
    EXPECT_EQ(document["features"][0]["geometry"]["type"], "LineString");
    EXPECT_TRUE(document["features"][1]["geometry"].is_null());
    EXPECT_TRUE(document["features"][1]["properties"].empty());  // the layer has no table

    auto csv = RunTool("shp dump --format csv " + Quote(dir / "l.shp"));
    EXPECT_EQ(csv.out, "WKT\n\"LINESTRING (0 0, 1 1)\"\n\n");
}

}  // namespace
}  // namespace quillet::test
