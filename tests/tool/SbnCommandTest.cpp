#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <sstream>

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

// A folder of layers built in several threads: each layer's index is what
// a build of it alone makes, the output follows the layers' order, and a
// layer that fails is named while the others still get their index.
TEST(SbnCommandTest, BuildsAFolderOfLayersInParallel) {
    TempDir dir, alone;
    const int kLayers = 5;
    for (int n = 0; n < kLayers; ++n) {
        std::vector<std::pair<double, double>> points;
        for (int i = 0; i <= n * 7; ++i) points.push_back({i * 3.0 + n, 100.0 - i * 2});
        auto name = "layer" + std::to_string(n) + ".shp";
        WritePointLayer(dir / name, points);
        WritePointLayer(alone / name, points);
        ASSERT_EQ(RunTool("sbn build " + Quote(alone / name)).exitCode, 0);
    }
    std::ofstream(dir / "zz_broken.shp") << "not a shape file";  // done last

    auto build = RunTool("sbn build " + Quote(dir.path()) + " --jobs 3");
    EXPECT_EQ(build.exitCode, 1);
    EXPECT_NE(build.err.find("broken.shp"), std::string::npos) << build.err;
    EXPECT_NE(build.err.find("1 of 6 layers failed"), std::string::npos) << build.err;
    size_t at = 0;
    for (int n = 0; n < kLayers; ++n) {
        auto name = "layer" + std::to_string(n);
        size_t line = build.out.find(name + ".sbn: " + std::to_string(n * 7 + 1) + " features");
        EXPECT_NE(line, std::string::npos) << build.out;
        EXPECT_GE(line, at) << "out of order: " << build.out;
        at = line;
        for (const char* extension : {".sbn", ".sbx"}) {
            EXPECT_EQ(ReadBytes(dir / (name + extension)), ReadBytes(alone / (name + extension)))
                << name << extension;
        }
    }
    // One bar counts the layers, and a failure's line does not run into it.
    std::string terminal = RunToolOnTerminal("sbn build " + Quote(dir.path()) + " --jobs 2");
    EXPECT_NE(terminal.find("Indexing 6 layers"), std::string::npos) << terminal;
    size_t failure = terminal.find("quillet: " + (dir / "zz_broken.shp").string());
    ASSERT_NE(failure, std::string::npos) << terminal;
    std::string before = terminal.substr(0, failure);
    EXPECT_TRUE(before.empty() || before.ends_with("\n") || before.ends_with("\r\033[K"))
        << terminal;
    EXPECT_EQ(RunTool("sbn build " + Quote(dir / "layer1.shp") + " " + Quote(dir / "layer2.shp") +
                      " --jobs 0")
                  .exitCode,
              2);
}

// Every sample layer with an index file: what the index holds is checked
// against the layer's records as `shp records` lists them.
TEST(SbnCommandTest, IndexesEverySampleLayer) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    int layers = 0;
    for (const auto& entry : std::filesystem::directory_iterator(PeerSamplesDir())) {
        auto source = entry.path();
        if (source.extension() != ".shp") continue;
        auto shx = std::filesystem::path(source).replace_extension(".shx");
        auto records = RunTool("shp records " + Quote(source) + " --format jsonl");
        if (!std::filesystem::exists(shx) || records.exitCode != 0) continue;
        SCOPED_TRACE(source.filename().string());
        TempDir dir;
        auto shp = dir / source.filename();
        std::filesystem::copy_file(source, shp);
        std::filesystem::copy_file(shx, dir / shx.filename());
        std::vector<nlohmann::json> live;
        std::istringstream lines(records.out);
        for (std::string line; std::getline(lines, line);)
            live.push_back(nlohmann::json::parse(line));

        auto build = RunTool("sbn build " + Quote(shp));
        ASSERT_EQ(build.exitCode, 0) << build.err;
        EXPECT_NE(build.out.find(std::to_string(live.size()) + " features"), std::string::npos)
            << build.out;
        // Null shapes are in no bin, but a window that holds the whole extent
        // answers every feature without looking at the bins.
        auto info = nlohmann::json::parse(RunTool("sbn info " + Quote(shp) + " --json").out);
        int64_t binned = 0;
        for (auto& n : info["levels"]) binned += n.get<int64_t>();
        EXPECT_EQ(binned, std::count_if(live.begin(), live.end(),
                                        [](auto& r) { return !r["bbox"].is_null(); }));
        auto all = RunTool("sbn query " + Quote(shp) + " --bbox -1e300,-1e300,1e300,1e300 --count");
        EXPECT_EQ(all.out, std::to_string(live.size()) + "\n");
        // A window on one record's box finds that record.
        for (const auto& record : live) {
            if (record["bbox"].is_null() || record["record"].get<size_t>() < live.size() / 2)
                continue;
            auto box = record["bbox"];
            std::ostringstream window;
            window.precision(17);
            window << box[0].get<double>() << ',' << box[1].get<double>() << ','
                   << box[2].get<double>() << ',' << box[3].get<double>();
            auto found = RunTool("sbn query " + Quote(shp) + " --bbox " + window.str());
            EXPECT_NE(("\n" + found.out).find("\n" + record["record"].dump() + "\n"),
                      std::string::npos)
                << window.str() << ": " << found.out;
            break;
        }
        ++layers;
    }
    EXPECT_GT(layers, 0);
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
