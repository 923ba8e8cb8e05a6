// Shape record bytes to geometry and back: every record of every sample layer
// other programs wrote decodes and encodes to the same bytes, and counts
// that disagree with a record's size are refused with the reason.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "shape/ShapeGeometry.h"
#include "shape/ShpFile.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

TEST(ShapeGeometryTest, EverySampleRecordEncodesBackToItsBytes) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    int layers = 0;
    for (const auto& entry : std::filesystem::directory_iterator(test::PeerSamplesDir())) {
        if (entry.path().extension() != ".shp" ||
            entry.path().filename().string().starts_with("corrupt"))
            continue;
        ShpFile shp(String(test::WidePath(entry.path()).c_str()));
        if (!shp.Open(true, true, false)) continue;
        ++layers;
        for (int n = 0; n < shp.GetNumRecords(); ++n) {
            int length = 0;
            const unsigned char* bytes = shp.ReadRecord(n, length);
            if (!bytes) continue;
            std::span<const unsigned char> record(bytes, static_cast<size_t>(length));
            ShapeGeometry geometry;
            std::string problem;
            ASSERT_TRUE(geometry.Decode(record, problem)) << entry.path() << " " << n << problem;
            EXPECT_EQ(geometry.Encode(), std::vector<unsigned char>(record.begin(), record.end()))
                << entry.path() << " record " << n;
        }
    }
    EXPECT_GT(layers, 0);
}

TEST(ShapeGeometryTest, CountsThatDisagreeWithTheRecordSizeAreRefused) {
    ShapeGeometry polygon;
    polygon.type = 5;
    polygon.parts = {0, 2};
    polygon.points = {{0, 0}, {1, 0}, {1, 1}, {0, 0}};
    std::vector<unsigned char> bytes = polygon.Encode();
    std::string problem;
    ShapeGeometry decoded;
    ASSERT_TRUE(decoded.Decode(bytes, problem));
    EXPECT_EQ(decoded.parts, polygon.parts);

    auto refused = [&](std::vector<unsigned char> damaged) {
        problem.clear();
        return !decoded.Decode(damaged, problem) && !problem.empty();
    };
    auto withInt = [&](size_t at, uint32_t value) {
        auto damaged = bytes;
        std::memcpy(&damaged[at], &value, 4);
        return damaged;
    };
    EXPECT_TRUE(refused(withInt(36, 0x7FFFFFFF)));  // part count
    EXPECT_TRUE(refused(withInt(40, 0xFFFFFFFF)));  // point count
    EXPECT_TRUE(refused(withInt(48, 9)));           // a part beyond the points
    EXPECT_TRUE(refused(withInt(48, 0)));           // parts out of order
    EXPECT_TRUE(refused({bytes.begin(), bytes.end() - 1}));
    EXPECT_TRUE(refused({1, 0, 0}));
    EXPECT_TRUE(refused(withInt(0, 77)));  // no such shape type
}

}  // namespace
}  // namespace quillet
