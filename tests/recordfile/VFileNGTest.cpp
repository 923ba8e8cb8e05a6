// The next-generation record file and its index on disk: layouts, placement
// of records, numbering, compaction, the upgrade of version-2 files, and bad
// input. Random sequences are in VFileNGPropertyTest.

#include "recordfile/VFileNG.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "foundation/ByteOrder.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;
using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

int32_t LE(const Bytes& b, size_t at) {
    return static_cast<int32_t>(DecodeFixed32LE(&b[at]));
}
int64_t LE64(const Bytes& b, size_t at) {
    return static_cast<int64_t>(DecodeFixed64LE(&b[at]));
}

Bytes Data(size_t length, unsigned char seed) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(seed + i);
    return bytes;
}

struct VFileNGTest : ::testing::Test {
    TempDir dir;
    std::wstring path = dir.Wide("r.dat");
    VFileNG file{path.c_str()};

    void SetUp() override { ASSERT_TRUE(file.Create(VFileNG::kReadWrite, false, 5, false)); }
    int32_t Insert(const Bytes& data) {
        int32_t n = -1;
        EXPECT_TRUE(file.InsertRecord(data.data(), static_cast<int32_t>(data.size()), &n));
        return n;
    }
    Bytes Read(int32_t n) {
        Bytes bytes(static_cast<size_t>(file.GetRecordLength(n)));
        int32_t length = -1;
        EXPECT_TRUE(file.ReadRecord(n, bytes.data(), static_cast<int32_t>(bytes.size()), &length));
        return bytes;
    }
    int64_t PositionOf(int32_t n) { return file.GetIndex().GetFilePosition(n); }
};

TEST_F(VFileNGTest, BlocksHeadersAndTheFreeCount) {
    EXPECT_EQ(Insert({'a', 'b', 'c'}), 1);
    EXPECT_EQ(file.GetHeader().endOfData, 47);
    file.Flush();
    Bytes bytes = ReadBytes(dir / "r.dat");
    EXPECT_EQ(LE(bytes, 0), 3);
    EXPECT_EQ(LE(bytes, 4), 1);
    EXPECT_EQ(LE(bytes, 12), 5);
    EXPECT_EQ(LE(bytes, 40), 3);
    EXPECT_EQ(bytes[44], 'a');
    ASSERT_TRUE(file.DeleteRecord(1));
    file.Flush();
    bytes = ReadBytes(dir / "r.dat");
    EXPECT_EQ(LE(bytes, 40), -3);
    EXPECT_EQ(LE64(bytes, 16), 7);
    EXPECT_EQ(file.GetFreeList(), nullptr);  // a 7-byte block is not worth a list
    EXPECT_TRUE(file.IsRecordDeleted(1));
    EXPECT_EQ(Insert({'d'}), 2);  // numbers are never recycled
}

TEST_F(VFileNGTest, UpdatesInPlaceShrinkFreeTheTailAndLongerOnesMove) {
    int32_t big = Insert(Data(100, 1));
    int32_t small = Insert(Data(10, 2));
    Insert(Data(10, 3));
    int64_t at = PositionOf(big);
    ASSERT_TRUE(file.UpdateRecord(big, Data(50, 4).data(), 50));
    EXPECT_EQ(PositionOf(big), at);
    VFileNG::RecordHeader tail;
    ASSERT_TRUE(file.ReadRecordHeader(at + 4 + 50, tail));
    EXPECT_EQ(tail.size, -46);
    EXPECT_EQ(file.GetHeader().freeBytes, 50);
    // Twelve bytes do not fit the ten-byte block: into the freed 50 bytes.
    ASSERT_TRUE(file.UpdateRecord(small, Data(12, 5).data(), 12));
    EXPECT_EQ(PositionOf(small), at + 54);
    EXPECT_EQ(Read(small), Data(12, 5));
    EXPECT_EQ(Read(big), Data(50, 4));
    EXPECT_EQ(file.GetHeader().freeBytes, 50 - 16 + 14);
}

TEST_F(VFileNGTest, AShortBufferTellsTheLength) {
    Insert(Data(20, 1));
    unsigned char buffer[5];
    int32_t length = 0;
    EXPECT_FALSE(file.ReadRecord(1, buffer, 5, &length));
    EXPECT_EQ(file.GetLastError(), 1);
    EXPECT_EQ(length, 20);
}

TEST_F(VFileNGTest, CompactionKeepsOrRenumbersAndNumbersStayAboveDeletedOnes) {
    for (int i = 1; i <= 10; ++i)
        Insert(Data(static_cast<size_t>(i), static_cast<unsigned char>(i)));
    ASSERT_TRUE(file.DeleteRecord(10));
    EXPECT_EQ(Insert(Data(3, 0)), 11);
    for (int n : {1, 3, 4, 6, 7, 8, 9, 11}) ASSERT_TRUE(file.DeleteRecord(n));
    Bytes user = Data(30, 9);
    ASSERT_TRUE(file.WriteUserHeader(user.data(), 30));
    ASSERT_TRUE(file.CompactFile(false));
    EXPECT_EQ(file.GetMaxRecordNumber(false), 5);
    EXPECT_TRUE(file.IsRecordDeleted(1));
    EXPECT_EQ(Read(5), Data(5, 5));
    ASSERT_TRUE(file.DeleteRecord(2));
    ASSERT_TRUE(file.CompactFile(true));
    EXPECT_EQ(file.GetMaxRecordNumber(false), 1);
    EXPECT_EQ(Read(1), Data(5, 5));
    EXPECT_EQ(file.GetHeader().freeBytes, 0);
    Bytes back(30);
    ASSERT_TRUE(file.ReadUserHeader(back.data(), 30));
    EXPECT_EQ(back, user);
    // The sibling files of the swap are gone.
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"r.dat", "r.dax"}));
}

TEST_F(VFileNGTest, TheIndexStoresOnlyChunksInUseAndMovesHigherOnes) {
    Insert(Data(1, 1));
    file.Flush();
    EXPECT_EQ(std::filesystem::file_size(dir / "r.dax"), 16u + 5120 + 16 + 4);
    ASSERT_TRUE(file.InsertRecordWithId(5000, Data(2, 2).data(), 2));
    int64_t at5000 = file.GetIndex().GetIndexPosition(5000);
    EXPECT_EQ(at5000, 16 + 5120 + 903 * 5);
    ASSERT_TRUE(file.InsertRecordWithId(2000, Data(3, 3).data(), 3));
    EXPECT_EQ(file.GetIndex().GetIndexPosition(2000), 16 + 5120 + 975 * 5);
    EXPECT_EQ(file.GetIndex().GetIndexPosition(5000), at5000 + 5120);
    EXPECT_EQ(file.GetIndex().GetIndexPosition(3000), -1);
    EXPECT_TRUE(file.IsRecordDeleted(3000));
    EXPECT_EQ(Read(5000), Data(2, 2));
    file.Close(false);
    ASSERT_TRUE(file.Open(VFileNG::kReadWrite, true, false));
    EXPECT_EQ(Read(2000), Data(3, 3));
    EXPECT_EQ(file.GetIndex().GetHeader().chunkCount, 3);
    EXPECT_EQ(file.GetMinRecordNumber(), 1);
}

TEST_F(VFileNGTest, TrimmingTheHighestNumberIsStoredOnlyWhenWritable) {
    for (int i = 0; i < 5; ++i) Insert(Data(4, 0));
    for (int n : {3, 4, 5}) ASSERT_TRUE(file.DeleteRecord(n));
    file.Close(false);
    ASSERT_TRUE(file.Open(VFileNG::kReadOnly, true, false));
    EXPECT_EQ(file.GetMaxRecordNumber(true), 2);
    EXPECT_EQ(LE(ReadBytes(dir / "r.dax"), 8), 5);
    file.Close(false);
    ASSERT_TRUE(file.Open(VFileNG::kReadWrite, true, false));
    EXPECT_EQ(file.GetMaxRecordNumber(true), 2);
    file.Close(false);
    EXPECT_EQ(LE(ReadBytes(dir / "r.dax"), 8), 2);
}

TEST_F(VFileNGTest, ReservedNumbersComeAboveTheHighestAndGoWhenReleased) {
    for (int i = 0; i < 10; ++i) Insert(Data(1, 0));
    EXPECT_EQ(file.AllocateReservedRecordNumber(), 11);
    EXPECT_EQ(file.AllocateReservedRecordNumber(), 12);
    EXPECT_EQ(file.GetRecordCount(), 12);
    EXPECT_EQ(Insert(Data(1, 0)), 13);
    ASSERT_TRUE(file.UpdateRecord(11, Data(2, 0).data(), 2));  // writes the promised record
    EXPECT_FALSE(file.IsReservedRecordNumber(11));
    ASSERT_TRUE(file.DeleteRecord(12));  // releases it
    EXPECT_EQ(file.GetRecordCount(), 12);
    EXPECT_EQ(file.AllocateReservedRecordNumber(), 14);
    EXPECT_FALSE(file.GetIndex().SetFilePosition(20, (int64_t{1} << 40) + 1));
    EXPECT_EQ(file.GetIndex().GetLastError(), 5);
    EXPECT_TRUE(file.GetIndex().SetFilePosition(20, int64_t{1} << 40));
}

TEST(VFileNGIndexTest, IndexNames) {
    EXPECT_EQ(VFileNGIndex::IndexPath(L"data.adf").str(), L"datx.adf");
    EXPECT_EQ(VFileNGIndex::IndexPath(L"data.bin").str(), L"data.bix");
    EXPECT_EQ(VFileNGIndex::IndexPath(L"a0000001.ADF").str(), L"a000000x.ADF");
}

TEST_F(VFileNGTest, AVersionTwoFileBecomesVersionThreeWithItsOldFreeList) {
    Insert(Data(60, 1));
    Insert(Data(10, 2));
    file.Close(false);
    Bytes bytes = ReadBytes(dir / "r.dat");
    EncodeFixed32LE(&bytes[0], 2);
    EncodeFixed32LE(&bytes[40], -60);  // record 1 deleted, as a version-2 writer leaves it
    EncodeFixed64LE(&bytes[16], 64);
    WriteBytes(dir / "r.dat", bytes);
    Bytes old(16, 0);
    EncodeFixed32LE(&old[0], 64);
    EncodeFixed64LE(&old[8], 40);
    WriteBytes(dir / "r.freelist", old);
    ASSERT_TRUE(file.Open(VFileNG::kReadWrite, true, false));
    EXPECT_EQ(file.GetHeader().version, 3);
    EXPECT_FALSE(std::filesystem::exists(dir / "r.oldfreelist"));
    EXPECT_EQ(Insert(Data(50, 3)), 3);
    EXPECT_EQ(file.GetIndex().GetFilePosition(3), 40);
}

// ---- bad input ----

struct VFileNGBadInputTest : VFileNGTest {
    // Writes two records and closes; the test then damages a file.
    void SetUp() override {
        VFileNGTest::SetUp();
        Insert(Data(30, 1));
        Insert(Data(40, 2));
        file.Close(false);
    }
    void Patch(const char* name, size_t at, int32_t value) {
        Bytes bytes = ReadBytes(dir / name);
        EncodeFixed32LE(&bytes[at], static_cast<uint32_t>(value));
        WriteBytes(dir / name, bytes);
    }
};

TEST_F(VFileNGBadInputTest, VersionsAndPointerLengthsOutOfRangeAreRefused) {
    Bytes good = ReadBytes(dir / "r.dat");
    for (int32_t version : {0, -1, 4, 9995}) {
        Patch("r.dat", 0, version);
        EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false)) << version;
        EXPECT_EQ(file.GetLastError(), 1);
    }
    WriteBytes(dir / "r.dat", good);
    for (int32_t length : {3, 8, -5}) {
        Patch("r.dat", 12, length);
        EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false)) << length;
        EXPECT_EQ(file.GetLastError(), 6);
    }
    WriteBytes(dir / "r.dat", good);
    Patch("r.dat", 24, 1 << 30);  // an end of data far past the file
    EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false));
    WriteBytes(dir / "r.dat", good);
    Patch("r.dax", 12, 8);
    EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false));
}

TEST_F(VFileNGBadInputTest, ChunkCountsAndBitSetsMustAgreeWithTheFile) {
    Bytes good = ReadBytes(dir / "r.dax");
    for (int32_t count : {2, 1000000, -1}) {
        Patch("r.dax", 4, count);
        EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false)) << count;
        EXPECT_EQ(file.GetLastError(), 6);
        WriteBytes(dir / "r.dax", good);
    }
    size_t block = 16 + 5120;
    Patch("r.dax", block + 4, 2);  // two chunks named, one stored
    Patch("r.dax", block + 16, 3);
    EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false));
    WriteBytes(dir / "r.dax", good);
    Patch("r.dax", block, 1 << 28);  // a word count far beyond the file
    EXPECT_FALSE(file.Open(VFileNG::kReadOnly, true, false));
}

TEST_F(VFileNGBadInputTest, RecordHeadersBeyondTheLongestRecordAreCorruption) {
    Patch("r.dat", 40, 1 << 30);
    ASSERT_TRUE(file.Open(VFileNG::kReadWrite, true, false));
    Bytes buffer(64);
    int32_t length = 0;
    EXPECT_FALSE(file.ReadRecord(1, buffer.data(), 64, &length));
    EXPECT_EQ(file.GetLastError(), 6);
    EXPECT_EQ(file.GetRecordLength(1), 0);
    EXPECT_FALSE(file.DeleteRecord(1));
    EXPECT_EQ(Read(2), Data(40, 2));
}

TEST_F(VFileNGBadInputTest, AFreeListThatPointsAtALiveBlockIsNotBelieved) {
    {
        FreeList list(path.c_str(), 5);
        ASSERT_EQ(list.AddBlock(34, 40), S_OK);  // record 1's block
        ASSERT_EQ(list.AddBlock(44, 60), S_OK);  // the middle of it
    }
    Patch("r.dat", 16, 34);  // the header claims free bytes, so the list is used
    ASSERT_TRUE(file.Open(VFileNG::kReadWrite, true, false));
    EXPECT_EQ(Insert(Data(30, 7)), 3);
    EXPECT_EQ(Insert(Data(40, 8)), 4);
    EXPECT_EQ(Read(1), Data(30, 1));
    EXPECT_EQ(Read(2), Data(40, 2));
    EXPECT_EQ(Read(3), Data(30, 7));
    EXPECT_EQ(Read(4), Data(40, 8));
}

}  // namespace
}  // namespace quillet
