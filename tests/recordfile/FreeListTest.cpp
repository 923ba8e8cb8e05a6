// The free list's pages, categories and fit rule on disk, and what it does
// with a header it cannot trust.

#include "recordfile/FreeList.h"

#include <gtest/gtest.h>

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

struct FreeListTest : ::testing::Test {
    TempDir dir;
    std::wstring data = dir.Wide("d.dat");
    FreeList list{data.c_str(), 5};

    int64_t Take(int32_t size) {
        int64_t position = -1;
        EXPECT_EQ(list.GetBlock(size, position), S_OK);
        return position;
    }
};

TEST_F(FreeListTest, CategoriesFollowTheFibonacciRule) {
    EXPECT_EQ(FreeList::c_categorySizes[2], 24);
    EXPECT_EQ(FreeList::c_categorySizes[14], 7896);
    EXPECT_EQ(FreeList::c_categorySizes[40], 2143314368);
    EXPECT_EQ(FreeList::c_categorySizes[41], INT32_MAX);
    EXPECT_EQ(FreeList::FindCategory(7), -1);
    EXPECT_EQ(FreeList::FindCategory(8), 0);
    EXPECT_EQ(FreeList::FindCategory(103), 4);
    EXPECT_EQ(FreeList::FindCategory(104), 5);
    EXPECT_EQ(FreeList::FindCategory(INT32_MAX), 41);
}

TEST_F(FreeListTest, SlicesAreDroppedAndTailsGoBack) {
    EXPECT_EQ(list.AddBlock(7, 1000), S_OK);
    EXPECT_FALSE(list.IsOpen());  // nothing was recorded, so no file either
    ASSERT_EQ(list.AddBlock(150, 4000), S_OK);
    EXPECT_EQ(Take(200), 0);  // only smaller blocks, none above
    EXPECT_EQ(Take(100), 4000);
    EXPECT_EQ(list.GetCategory(FreeList::FindCategory(50)).blockCount, 1);
    EXPECT_EQ(Take(50), 4100);
    ASSERT_EQ(list.Close(), S_OK);
    // The tail's category took the page the first block's left unused, and
    // gave it back in turn.
    Bytes bytes = ReadBytes(dir / "d.freelist");
    ASSERT_EQ(bytes.size(), 4096u + FreeList::kHeaderLength);
    EXPECT_EQ(LE(bytes, 4096), 1);
    EXPECT_EQ(LE(bytes, 4096 + 4), 0);
}

TEST_F(FreeListTest, AFullPageStartsANewOneAtTheFrontAndEmptiedPagesAreReused) {
    for (int i = 0; i < 455; ++i) ASSERT_EQ(list.AddBlock(8, 100 + 8 * i), S_OK);
    EXPECT_EQ(list.GetCategory(0).firstPage, 1);
    EXPECT_EQ(list.GetCategory(0).blockCount, 455);
    ASSERT_EQ(list.Close(), S_OK);
    Bytes bytes = ReadBytes(dir / "d.freelist");
    ASSERT_EQ(bytes.size(), 2u * 4096 + FreeList::kHeaderLength);
    EXPECT_EQ(LE(bytes, 4096), 1);      // the new page holds the 455th block
    EXPECT_EQ(LE(bytes, 4096 + 4), 0);  // and leads to the full one
    EXPECT_EQ(LE(bytes, 8192 + 8), 1);  // the directory names it first
    ASSERT_EQ(list.Open(FreeList::OpenExisting), S_OK);
    EXPECT_EQ(Take(8), 100 + 8 * 454);
    EXPECT_EQ(list.GetFirstFreePage(), 1);
    ASSERT_EQ(list.AddBlock(9, 50), S_OK);  // category 0 is full again: takes the unused page
    EXPECT_EQ(list.GetFirstFreePage(), -1);
    EXPECT_EQ(list.GetCategory(0).firstPage, 1);
}

TEST_F(FreeListTest, TheSecondPageGivesACloserFit) {
    for (int i = 0; i < 454; ++i) ASSERT_EQ(list.AddBlock(1000, 100000 + 1000 * i), S_OK);
    ASSERT_EQ(list.AddBlock(1100, 50), S_OK);  // alone on the new first page
    // The first page's 1100 is too loose: a 1000 of the second page fits.
    int64_t position = Take(1000);
    EXPECT_GE(position, 100000);
    EXPECT_EQ(Take(1100), 50);
}

TEST_F(FreeListTest, AnUntrustworthyHeaderDeletesTheFileAndAVersionTwoIsRefused) {
    ASSERT_EQ(list.AddBlock(64, 640), S_OK);
    ASSERT_EQ(list.Close(), S_OK);
    Bytes bytes = ReadBytes(dir / "d.freelist");
    WriteBytes(dir / "d.freelist", Bytes(bytes.begin(), bytes.begin() + 4096));
    EXPECT_NE(list.Open(FreeList::OpenExisting), S_OK);
    EXPECT_FALSE(std::filesystem::exists(dir / "d.freelist"));
    EXPECT_EQ(list.GetCategory(4).firstPage, -1);

    Bytes header = bytes;
    EncodeFixed32LE(&header[4096 + 8 + 4 * 8], 7);  // a chain head beyond the file
    WriteBytes(dir / "d.freelist", header);
    EXPECT_EQ(list.Open(FreeList::OpenExisting), E_FAIL);
    EXPECT_FALSE(std::filesystem::exists(dir / "d.freelist"));

    EncodeFixed32LE(&bytes[4096], 2);
    WriteBytes(dir / "d.freelist", bytes);
    EXPECT_EQ(list.Open(FreeList::OpenExisting), E_FAIL);
    EXPECT_FALSE(list.IsOpen());
    EXPECT_EQ(ReadBytes(dir / "d.freelist"), bytes);
    EncodeFixed32LE(&bytes[0], 5000);  // a page whose count runs off its end
    EncodeFixed32LE(&bytes[4096], 1);
    WriteBytes(dir / "d.freelist", bytes);
    ASSERT_EQ(list.Open(FreeList::OpenExisting), S_OK);
    EXPECT_EQ(Take(64), 0);
}

TEST_F(FreeListTest, RenameFollowsTheDataFile) {
    ASSERT_EQ(list.AddBlock(64, 640), S_OK);
    ASSERT_EQ(list.Rename(dir.Wide("e.dat")), S_OK);
    EXPECT_TRUE(list.IsOpen());
    EXPECT_TRUE(std::filesystem::exists(dir / "e.freelist"));
    EXPECT_EQ(Take(64), 640);
}

}  // namespace
}  // namespace quillet
