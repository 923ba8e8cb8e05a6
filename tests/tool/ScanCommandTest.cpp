// quillet scan: the stores of a folder with their side files, and what is
// wrong between a layer's files, without rolling back what it finds.

#include <gtest/gtest.h>

#include "ToolRunner.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

TEST(ScanCommandTest, ListsStoresAndTheirProblemsWithoutTouchingThem) {
    TempDir dir;
    WriteLayer(dir / "a.shp", ShpFile::qovaShapePoint, {0, 0, 2, 2},
               {PointRecord(1, 1), PointRecord(2, 2)});
    WriteBytes(dir / "ids.csv", {'I', 'D', '\n', '1', '\n'});
    auto made = RunTool("dbf import-csv " + Quote(dir / "ids.csv") + " " + Quote(dir / "a.dbf") +
                        " --schema ID:N:4");
    ASSERT_EQ(made.exitCode, 0) << made.err;
    std::filesystem::copy_file(dir / "a.dbf", dir / "t.dbf");
    WriteBytes(dir / "t.dbf-journal", {'x'});  // what a killed rewrite could leave

    auto scan = RunTool("scan --json " + Quote(dir.path()));
    EXPECT_EQ(scan.exitCode, 1);
    auto stores = nlohmann::json::parse(scan.out);
    ASSERT_EQ(stores.size(), 2u);
    EXPECT_EQ(stores[0]["kind"], "shape layer");
    EXPECT_EQ(stores[0]["records"], 2);
    EXPECT_EQ(stores[0]["table"]["records"], 1);
    EXPECT_EQ(stores[0]["side_files"], nlohmann::json({"a.dbf", "a.shx"}));
    EXPECT_NE(stores[0]["problems"][0].get<std::string>().find("table has 1"), std::string::npos);
    EXPECT_EQ(stores[1]["kind"], "dBASE table");
    EXPECT_NE(stores[1]["problems"][0].get<std::string>().find("interrupted rewrite"),
              std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(dir / "t.dbf-journal"));
}

}  // namespace
}  // namespace quillet::test
