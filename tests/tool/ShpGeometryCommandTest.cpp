// quillet shp records --format wkt|geojson: rings grouped into polygons as
// the shape encoding means them, and a record whose counts disagree with its
// size reported by number and reason instead of printed.

#include <gtest/gtest.h>

#include "ToolRunner.h"
#include "shape/ShapeGeometry.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

TEST(ShpGeometryCommandTest, PolygonRingsAndBadCountsAsOtherProgramsExpect) {
    ShapeGeometry polygon;
    polygon.type = ShpFile::qovaShapePolygon;
    polygon.box[2] = polygon.box[3] = 10;
    // Clockwise outer rings, a counterclockwise hole given after both: it
    // belongs to the outer ring that holds it, the first.
    polygon.parts = {0, 5, 10};
    polygon.points = {{0, 0}, {0, 4}, {4, 4}, {4, 0}, {0, 0}, {6, 6}, {6, 9}, {9, 9},
                      {9, 6}, {6, 6}, {1, 1}, {2, 1}, {2, 2}, {1, 2}, {1, 1}};
    std::vector<unsigned char> bad = polygon.Encode();
    bad[40] = 99;  // the point count
    TempDir dir;
    WriteLayer(dir / "p.shp", ShpFile::qovaShapePolygon, {0, 0, 10, 10},
               {polygon.Encode(), bad, {}});

    auto wkt = RunTool("shp records --format wkt " + Quote(dir / "p.shp"));
    EXPECT_EQ(wkt.exitCode, 1);
    EXPECT_EQ(wkt.out,
              "MULTIPOLYGON (((0 0, 0 4, 4 4, 4 0, 0 0), (1 1, 2 1, 2 2, 1 2, 1 1)), "
              "((6 6, 6 9, 9 9, 9 6, 6 6)))\nGEOMETRYCOLLECTION EMPTY\n");
    EXPECT_NE(wkt.err.find("record 2: a record of"), std::string::npos) << wkt.err;

    auto geojson = JsonLines(RunTool("shp records --format geojson " + Quote(dir / "p.shp")).out);
    ASSERT_EQ(geojson.size(), 2u);
    EXPECT_EQ(geojson[0]["type"], "MultiPolygon");
    EXPECT_EQ(geojson[0]["coordinates"][0].size(), 2u);  // the outer ring and its hole
    EXPECT_TRUE(geojson[1].is_null());
}

}  // namespace
}  // namespace quillet::test
