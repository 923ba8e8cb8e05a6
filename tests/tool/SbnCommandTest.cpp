#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

// A point layer over 0..100 x 0..100: feature n + 1 is points[n]; a negative
// x is a null shape.
void WritePointLayer(const std::filesystem::path& path,
                     const std::vector<std::pair<double, double>>& points) {
    std::vector<std::vector<unsigned char>> records;
    for (auto [x, y] : points)
        records.push_back(x >= 0 ? PointRecord(x, y) : std::vector<unsigned char>());
    WriteLayer(path, ShpFile::qovaShapePoint, {0, 0, 100, 100}, records);
}

TEST(SbnCommandTest, BuildQueryAndInfo) {
    TempDir dir;
    auto shp = dir / "points.shp";
    WritePointLayer(shp, {{10, 10}, {-1, 0}, {90, 90}, {12, 11}, {50, 50}});

    auto build = RunTool("sbn build " + Quote(shp));
    ASSERT_EQ(build.exitCode, 0) << build.err;
    EXPECT_NE(build.out.find("5 features, 2 levels"), std::string::npos) << build.out;
    EXPECT_TRUE(std::filesystem::exists(dir / "points.sbn"));
    EXPECT_TRUE(std::filesystem::exists(dir / "points.sbx"));

    auto query = RunTool("sbn query " + Quote(shp) + " --bbox 0,0,20,20");
    EXPECT_EQ(query.exitCode, 0) << query.err;
    EXPECT_EQ(query.out, "1\n4\n");
    EXPECT_EQ(RunTool("sbn query " + Quote(shp) + " --bbox -5,-5,105,105 --count").out, "5\n");
    EXPECT_EQ(RunTool("sbn query " + Quote(shp) + " --bbox 60,60,70,70").out, "");

    auto info = RunTool("sbn info " + Quote(shp) + " --json");
    ASSERT_EQ(info.exitCode, 0) << info.err;
    auto json = nlohmann::json::parse(info.out);
    EXPECT_EQ(json["features"], 5);
    EXPECT_EQ(json["extent"], nlohmann::json({0.0, 0.0, 100.0, 100.0}));
    int64_t perLevel = 0;
    for (auto& n : json["levels"]) perLevel += n.get<int64_t>();
    EXPECT_EQ(perLevel, 4);  // the null shape is in no bin
    EXPECT_GE(json["bins"].get<int>(), 1);
    EXPECT_GE(json["records"].get<int>(), 2);

    auto probe = RunTool("info " + Quote(dir / "points.sbn"));
    EXPECT_NE(probe.out.find("kind: spatial bin index"), std::string::npos) << probe.out;
    EXPECT_NE(probe.out.find("features: 5"), std::string::npos) << probe.out;
}

TEST(SbnCommandTest, IndexesASampleLayer) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    TempDir dir;
    for (std::string ext : {".shp", ".shx"}) {
        std::filesystem::copy_file(PeerSamplesDir() / ("pline" + ext), dir / ("pline" + ext));
    }
    auto build = RunTool("sbn build " + Quote(dir / "pline.shp"));
    ASSERT_EQ(build.exitCode, 0) << build.err;
    EXPECT_NE(build.out.find("460 features, 6 levels"), std::string::npos) << build.out;
    auto all =
        RunTool("sbn query " + Quote(dir / "pline.shp") + " --bbox -1e9,-1e9,1e9,1e9 --count");
    EXPECT_EQ(all.out, "460\n");
    auto some = RunTool("sbn query " + Quote(dir / "pline.shp") +
                        " --bbox 1297000,229000,1298000,230000 --count");
    EXPECT_GT(std::stoi(some.out), 0);
    EXPECT_LT(std::stoi(some.out), 100);
}

TEST(SbnCommandTest, BadInputIsOneLineAndExitOne) {
    TempDir dir;
    WriteBytes(dir / "junk.shp", std::vector<unsigned char>(200, 7));
    WritePointLayer(dir / "plain.shp", {{1, 1}});
    for (std::string args :
         {"sbn build " + Quote(dir / "junk.shp"), "sbn build " + Quote(dir / "missing.shp"),
          "sbn info " + Quote(dir / "plain.shp"),
          "sbn query " + Quote(dir / "plain.shp") + " --bbox 0,0,1,1"}) {
        ExpectOneLineFailure(args);
    }
    for (std::string bbox : {"1,2,3", "1,2,3,4,5", "a,b,c,d", "1;2;3;4"}) {
        auto result = RunTool("sbn query " + Quote(dir / "plain.shp") + " --bbox '" + bbox + "'");
        EXPECT_EQ(result.exitCode, 2) << bbox;
    }
    EXPECT_EQ(RunTool("sbn").exitCode, 2);
}

}  // namespace
}  // namespace quillet::test
