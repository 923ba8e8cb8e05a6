// Record reads of a shape data file, through its mapping (GetMemory), when
// another program that takes no lock cuts the file under a reader: the
// reader gets failures for the lost records, not SIGBUS (issue 16).

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "foundation/ByteOrder.h"
#include "shape/ShpFile.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;
using test::TempDir;

constexpr int32_t kRecords = 4000;
constexpr int kContent = 100;          // bytes of a record's content
constexpr int kStride = 8 + kContent;  // with its record header
constexpr int32_t kKept = 1500;        // records the cut leaves whole
constexpr uintmax_t kCut = 100 + uintmax_t{kKept} * kStride;

// A layer whose record n holds n + 1 in every one of its 25 ints after the
// shape type, so that a record read as zeros is told from a real one.
void WriteLayer(const TempDir& dir) {
    ShpFile shp(dir.Wide("a.shp").c_str());
    ASSERT_TRUE(shp.Create(ShpFile::qovaShapePolygon));
    Bytes record(kContent);
    for (int32_t n = 0; n < kRecords; ++n) {
        EncodeFixed32LE(&record[0], ShpFile::qovaShapePolygon);
        for (int at = 4; at < kContent; at += 4)
            EncodeFixed32LE(&record[at], static_cast<uint32_t>(n + 1));
        ASSERT_TRUE(shp.InsertRecord(record.data(), kContent));
    }
    ASSERT_TRUE(shp.Close());
}

uintmax_t Page() {
    return static_cast<uintmax_t>(::sysconf(_SC_PAGESIZE));
}

bool Holds(const unsigned char* bytes, int32_t n) {
    return DecodeFixed32LE(bytes + kContent - 4) == static_cast<uint32_t>(n + 1);
}

TEST(ShpFileCut, RecordReadsOfALayerCutByAnotherProgramFailNotSIGBUS) {
    TempDir dir;
    WriteLayer(dir);
    ShpFile shp(dir.Wide("a.shp").c_str());
    ASSERT_TRUE(shp.Open(true, false, false));
    int32_t length = 0;
    const unsigned char* first = shp.ReadRecord(0, length);
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(length, kContent);
    ASSERT_TRUE(Holds(first, 0));

    std::filesystem::resize_file(dir / "a.shp", kCut);
    unsigned char* memory = nullptr;
    int32_t whole = 0, failed = 0;
    for (int32_t n = 0; n < kRecords; ++n) {
        const unsigned char* bytes = shp.ReadRecord(n, length);
        if (!bytes) {
            ++failed;
            continue;
        }
        ASSERT_EQ(length, kContent) << n;
        if (Holds(bytes, n)) {
            ++whole;
        } else {
            // Only the last page the file keeps shows bytes past its new end,
            // as zeros: the records there read before the cut is seen.
            ASSERT_GE(n, kKept) << n;
            ASSERT_LT(uintmax_t{100} + uintmax_t(n) * kStride, (kCut / Page() + 1) * Page()) << n;
        }
    }
    EXPECT_EQ(whole, kKept);
    EXPECT_GT(uintmax_t(failed), kRecords - kKept - Page() / kStride - 2);
    // The record file reads what is left through its descriptor: the records
    // the cut kept still read whole, and into the caller's buffer too.
    ASSERT_TRUE(shp.GetRecordMemory(kKept - 1, &memory));
    EXPECT_TRUE(Holds(memory, kKept - 1));
    Bytes buffer(kContent);
    EXPECT_FALSE(shp.ReadRecord(kRecords - 1, buffer.data()));
    EXPECT_TRUE(shp.Close());
}

}  // namespace
}  // namespace quillet
