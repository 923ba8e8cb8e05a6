#include "shape/ShpFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/ByteOrder.h"
#include "foundation/Guid.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;
using test::ReadBytes;
using test::TempDir;

Bytes PointRecord(double x, double y) {
    Bytes bytes(20);
    EncodeFixed32LE(&bytes[0], ShpFile::qovaShapePoint);
    EncodeDoubleLE(&bytes[4], x);
    EncodeDoubleLE(&bytes[12], y);
    return bytes;
}

String UnknownCoordinateSystemText() {
    wchar_t* text = nullptr;
    EXPECT_EQ(StringFromCLSID(CLSID_UnknownCoordinateSystem, &text), S_OK);
    String result(text);
    CoTaskMemFree(text);
    return result;
}

TEST(ShpFile, CreateWritesVersion1000AnEmptyExtentAndLeavesTheCountUnknown) {
    TempDir dir;
    ShpFile shp(dir.Wide("a.shp").c_str());
    EXPECT_FALSE(shp.Open(true, false, false));
    ASSERT_TRUE(shp.Create(ShpFile::qovaShapePoint));
    EXPECT_EQ(shp.GetNumRecords(), -1);  // kept: Create does not set the count
    Bytes point = PointRecord(1, 2);
    ASSERT_TRUE(shp.InsertRecord(point.data(), 20));
    EXPECT_EQ(shp.GetNumRecords(), 1);
    ASSERT_TRUE(shp.Close());

    // The shape header in the record file's user header, little-endian.
    Bytes data = ReadBytes(dir / "a.shp");
    ASSERT_EQ(data.size(), 100u + 8 + 20);
    EXPECT_EQ(DecodeFixed32LE(&data[28]), 1000u);
    EXPECT_EQ(DecodeFixed32LE(&data[32]), 1u);
    const double extent[] = {0, 0, -1, -1, 0, 0, 0, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(DecodeDoubleLE(&data[36 + 8 * i]), extent[i]) << i;
}

TEST(ShpFile, NullShapesAreFourZeroBytesAndDeletedRecordsReadAsNothing) {
    TempDir dir;
    ShpFile shp(dir.Wide("n.shp").c_str());
    ASSERT_TRUE(shp.Create(ShpFile::qovaShapePoint));
    Bytes point = PointRecord(3, 4);
    ASSERT_TRUE(shp.InsertRecord(nullptr, 0));
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(shp.InsertRecord(point.data(), 20));
    ASSERT_TRUE(shp.WriteRecord(1, point.data(), 0));
    int32_t length = -1;
    const unsigned char* bytes = shp.ReadRecord(0, length);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(Bytes(bytes, bytes + length), Bytes(4, 0));
    Bytes buffer(4, 9);
    ASSERT_TRUE(shp.ReadRecord(1, buffer.data()));
    EXPECT_EQ(buffer, Bytes(4, 0));

    ASSERT_TRUE(shp.DeleteRecord(2));
    EXPECT_TRUE(shp.IsRecordDeleted(2));
    EXPECT_EQ(shp.GetNumRecords(), 4);
    EXPECT_EQ(shp.ReadRecord(2, length), nullptr);
    EXPECT_EQ(length, 0);
    unsigned char* memory = nullptr;
    EXPECT_FALSE(shp.GetRecordMemory(2, &memory));
    ASSERT_TRUE(shp.GetRecordMemory(3, &memory));
    EXPECT_EQ(Bytes(memory, memory + 20), point);
}

TEST(ShpFile, HeaderIsWrittenLazilyOrAtOnce) {
    TempDir dir;
    auto path = dir / "h.shp";
    ShpFile shp(dir.Wide("h.shp").c_str());
    ASSERT_TRUE(shp.Create(ShpFile::qovaShapePointZ));
    ASSERT_TRUE(shp.SetExtent({1, 2, 3, 4}, false));
    ASSERT_TRUE(shp.SetZExtent({5, 6}, false));
    ASSERT_TRUE(shp.CommitChanges());  // writes the projection, not the shape header
    ASSERT_TRUE(shp.Flush());
    EXPECT_EQ(DecodeDoubleLE(&ReadBytes(path)[36]), 0.0);
    ASSERT_TRUE(shp.SetMExtent({7, 8}, true));
    ASSERT_TRUE(shp.Flush());
    EXPECT_EQ(DecodeDoubleLE(&ReadBytes(path)[84]), 7.0);
    ASSERT_TRUE(shp.Close());

    ShpFile again(dir.Wide("h.shp").c_str());
    ASSERT_TRUE(again.Open(true, false, false));
    EXPECT_EQ(again.GetExtent().ymax, 4);
    EXPECT_EQ(again.GetZExtent().zmin, 5);
    EXPECT_EQ(again.GetMExtent().mmax, 8);
    EXPECT_EQ(again.GetShapeType(), ShpFile::qovaShapePointZ);
    // Read-only: nothing changes.
    Bytes point = PointRecord(0, 0);
    EXPECT_FALSE(again.SetExtent({0, 0, 1, 1}, false));
    EXPECT_FALSE(again.WriteHeader());
    EXPECT_FALSE(again.InsertRecord(point.data(), 20));
    EXPECT_FALSE(again.WriteRecord(0, point.data(), 20));
    EXPECT_FALSE(again.DeleteRecord(0));
}

TEST(ShpFile, ProjectionFileHoldsOneLineAndTheUnknownSystemRemovesIt) {
    TempDir dir;
    auto prj = dir / "p.prj";
    {
        ShpFile shp(dir.Wide("p.shp").c_str());
        ASSERT_TRUE(shp.Create(ShpFile::qovaShapePoint));
        ASSERT_TRUE(shp.SetProjectionString(L"GEOGCS[\"WGS 84\"]", false));
        EXPECT_FALSE(std::filesystem::exists(prj));
        ASSERT_TRUE(shp.Close());
    }
    const std::string wgs84 = "GEOGCS[\"WGS 84\"]";
    EXPECT_EQ(ReadBytes(prj), Bytes(wgs84.begin(), wgs84.end()));
    ShpFile shp(dir.Wide("p.shp").c_str());
    ASSERT_TRUE(shp.Open(false, false, false));
    EXPECT_EQ(shp.GetProjectionString(), L"GEOGCS[\"WGS 84\"]");
    EXPECT_FALSE(ShpFile::IsUnknownCoordinateSystem(L"GEOGCS[\"WGS 84\"]"));
    String unknown = UnknownCoordinateSystemText();
    EXPECT_TRUE(ShpFile::IsUnknownCoordinateSystem(unknown));
    String lower = unknown;
    lower.MakeLower();
    EXPECT_FALSE(ShpFile::IsUnknownCoordinateSystem(lower));
    ASSERT_TRUE(shp.SetProjectionString(unknown, false));
    EXPECT_TRUE(std::filesystem::exists(prj));
    ASSERT_TRUE(shp.CommitChanges());
    EXPECT_FALSE(std::filesystem::exists(prj));
    EXPECT_FALSE(shp.SetProjectionString(unknown, true));  // nothing left to delete
    ASSERT_TRUE(shp.SetProjectionString(L"", false));
    EXPECT_FALSE(shp.WriteProjectionString());

    std::ofstream(prj) << std::string(1500, 'a') << "\nsecond line";
    EXPECT_TRUE(shp.OpenProjectionFile());
    EXPECT_EQ(shp.GetProjectionString().GetLength(), 1023);
}

TEST(ShpFile, OpenWithTheSameFlagsDoesNotReopen) {
    TempDir dir;
    auto prj = dir / "o.prj";
    {
        ShpFile shp(dir.Wide("o.shp").c_str());
        ASSERT_TRUE(shp.Create(ShpFile::qovaShapePoint));
        ASSERT_TRUE(shp.SetProjectionString(L"PROJ", true));
    }
    ShpFile shp(dir.Wide("o.shp").c_str());
    ASSERT_TRUE(shp.Open(true, false, false));
    std::filesystem::remove(prj);
    ASSERT_TRUE(shp.Open(true, false, false));
    EXPECT_EQ(shp.GetProjectionString(), L"PROJ");
    ASSERT_TRUE(shp.Open(false, false, false));
    EXPECT_EQ(shp.GetProjectionString(), L"");
}

TEST(ShpFile, DeleteFileTakesTheSideFilesAlong) {
    TempDir dir;
    ShpFile shp(dir.Wide("x.shp").c_str());
    ASSERT_TRUE(shp.Create(ShpFile::qovaShapePoint));
    ASSERT_TRUE(shp.SetProjectionString(L"PROJ", true));
    for (const char* side : {"x.sbn", "x.sbx", "x.dbf"}) test::WriteBytes(dir / side, {1});
    ASSERT_TRUE(shp.DeleteFileW());
    EXPECT_EQ(dir.Files(), std::vector<std::string>{"x.dbf"});
    EXPECT_FALSE(shp.DeleteFileW());
}

}  // namespace
}  // namespace quillet
