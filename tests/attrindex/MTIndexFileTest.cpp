// The two file formats as bytes, the trailer's checks, and files that are
// not what they claim: each fails with its code, never a crash or a hang.

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "IndexTestSupport.h"
#include "attrindex/MTSearch.h"
#include "foundation/ByteOrder.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;

class MTIndexFileTest : public ::testing::Test {
protected:
    // An index of n entries (key i, id i) made one by one, closed.
    std::wstring Build(const test::IndexKind& kind, int n, const std::string& name = "t.idx") {
        std::wstring path = dir_.Wide(name);
        auto index = test::MakeIndex(kind);
        EXPECT_EQ(test::OpenIndex(*index, path, CREATE_ALWAYS), S_OK);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(index->Insert(MTKey(static_cast<int32_t>(i)), i), S_OK);
        EXPECT_EQ(index->Close(), S_OK);
        return path;
    }
    HRESULT Reopen(const test::IndexKind& kind, const std::wstring& path) {
        index_ = test::MakeIndex(kind);
        return test::OpenIndex(*index_, path, OPEN_EXISTING);
    }
    Bytes Read(const std::wstring& path) { return test::ReadBytes(std::filesystem::path(path)); }
    void Write(const std::wstring& path, const Bytes& bytes) {
        test::WriteBytes(std::filesystem::path(path), bytes);
    }

    test::TempDir dir_;
    std::unique_ptr<MTIndex> index_;
};

const test::IndexKind kOlderLong{MTLong, 4, false};
const test::IndexKind kNextLong{MTLong, 4, true};

TEST_F(MTIndexFileTest, OlderFormatIsBigEndianWithTheRootLast) {
    std::wstring path = dir_.Wide("old.idx");
    MTIndex index(MTLong, 4, 0);
    ASSERT_EQ(test::OpenIndex(index, path, CREATE_ALWAYS), S_OK);
    ASSERT_EQ(index.Insert(MTKey(static_cast<int32_t>(0x01020304)), 5), S_OK);
    index.Close();
    Bytes bytes = Read(path);
    ASSERT_EQ(bytes.size(), 2048u);
    EXPECT_EQ(DecodeFixed32BE(&bytes[4]), 1u);
    EXPECT_EQ(DecodeFixed32BE(&bytes[12]), 5u);
    EXPECT_EQ(DecodeFixed32BE(&bytes[16 + 4 * 253]), 0x01020304u);

    path = Build(kOlderLong, 254);  // one more than a node holds
    ASSERT_EQ(Reopen(kOlderLong, path), S_OK);
    EXPECT_EQ(index_->GetLevels(), 2);
    EXPECT_EQ(Read(path).size(), 3u * 2048);
    EXPECT_EQ(index_->GetRootIndex(), 3);
}

TEST_F(MTIndexFileTest, NextGenerationTrailer) {
    std::wstring path = Build(kNextLong, 3);
    Bytes bytes = Read(path);
    ASSERT_EQ(bytes.size(), 4096u + 22);
    const unsigned char* trailer = &bytes[4096];
    EXPECT_EQ(DecodeFixed16LE(trailer), 2 << 13 | 4);
    EXPECT_EQ(DecodeFixed32LE(trailer + 2), 1u);
    EXPECT_EQ(DecodeFixed32LE(trailer + 6), 1u);
    EXPECT_EQ(DecodeFixed32LE(trailer + 10), 3u);
    EXPECT_EQ(DecodeFixed32LE(trailer + 14), 0u);
    EXPECT_EQ(DecodeFixed32LE(trailer + 18), 1u);

    struct Case {
        size_t offset;
        uint32_t value;
        HRESULT expected;
    } cases[] = {
        {2, 2, E_UNEXPECTED},            // format mark
        {6, 21, E_UNEXPECTED},           // levels
        {18, 2, E_FAIL},                 // second mark
        {0, 5 << 13 | 4, E_UNEXPECTED},  // key class
        {0, 2 << 13 | 3, E_UNEXPECTED},  // integer width
        {0, 0 << 13 | 0, E_UNEXPECTED},  // text of no width
    };
    for (const Case& c : cases) {
        Bytes changed = bytes;
        if (c.offset == 0) {
            EncodeFixed16LE(&changed[4096], static_cast<uint16_t>(c.value));
        } else {
            EncodeFixed32LE(&changed[4096 + c.offset], c.value);
        }
        Write(path, changed);
        EXPECT_EQ(Reopen(kNextLong, path), c.expected) << c.offset << " " << c.value;
    }
    bytes.pop_back();  // no whole trailer
    Write(path, bytes);
    EXPECT_EQ(Reopen(kNextLong, path), E_UNEXPECTED);
}

TEST_F(MTIndexFileTest, NextGenerationDatesReopenAsDoublesOrText) {
    for (auto [type, reopened] : {std::pair{MTDate, MTDouble}, std::pair{MTDateMap1, MTString}}) {
        std::wstring path = dir_.Wide("dates.idx");
        {
            MTIndexNG index(type, 8, 0);
            ASSERT_EQ(test::OpenIndex(index, path, CREATE_ALWAYS), S_OK);
        }
        MTIndexNG index;
        ASSERT_EQ(test::OpenIndex(index, path, OPEN_EXISTING), S_OK);
        EXPECT_EQ(index.GetDataType(), reopened);
    }
}

TEST_F(MTIndexFileTest, BulkLoadLaysOutLeavesThenLevels) {
    for (bool ng : {false, true}) {
        auto index = test::MakeIndex({MTLong, 4, ng});
        std::wstring path = dir_.Wide(ng ? "bulk-ng.idx" : "bulk-old.idx");
        ASSERT_EQ(test::OpenIndex(*index, path, CREATE_ALWAYS), S_OK);
        ASSERT_EQ(index->StartBulkLoad(0), S_OK);
        int32_t leafKeys = index->GetGeometry().maxKeys;
        for (int32_t i = 3 * leafKeys; i > 0; --i) index->BulkInsert(MTKey(i), i);
        ASSERT_EQ(index->FinishBulkLoad(false), S_OK);
        EXPECT_EQ(index->GetLevels(), 2);
        // Three full leaves (from node 2 in the next generation, whose root
        // is node 1) and the root.
        EXPECT_EQ(index->GetRootIndex(), ng ? 1 : 4);
        EXPECT_EQ(index->Size(), ng ? 4 * 4096 + 22 : 4 * 2048);
        MTKey key;
        EXPECT_EQ(index->GetMinKey(key), S_OK);
        EXPECT_EQ(key.GetLong(), 1);
        EXPECT_EQ(index->Validate(), S_OK);
    }
}

TEST_F(MTIndexFileTest, ARootThatFillsGrowsAndEmptiedShrinks) {
    std::wstring path = Build(kNextLong, 0);
    ASSERT_EQ(Reopen(kNextLong, path), S_OK);
    MTKey same(static_cast<int32_t>(7));
    for (int32_t id = 600; id > 0; --id) ASSERT_EQ(index_->Insert(same, id), S_OK);
    EXPECT_EQ(index_->GetLevels(), 2);
    EXPECT_EQ(index_->Insert(same, 300), S_FALSE);
    EXPECT_EQ(index_->Delete(same, 300), S_OK);
    EXPECT_EQ(index_->SearchKeyValue(same, 300), S_FALSE);
    EXPECT_EQ(index_->SearchKeyValue(same, 301), S_OK);
    MTSearch search;
    ASSERT_EQ(index_->Search(same, true, search), S_OK);
    MTKey key;
    int32_t id = 0;
    for (int32_t expected = 1; expected <= 600; expected += expected == 299 ? 2 : 1) {
        ASSERT_EQ(search.Next(key, id), S_OK);
        ASSERT_EQ(id, expected);
    }
    for (int32_t id = 1; id <= 600; ++id) ASSERT_EQ(index_->Delete(same, id), S_OK);
    EXPECT_EQ(index_->GetLevels(), 1);
    EXPECT_TRUE(index_->IsEmpty());
    EXPECT_EQ(index_->Validate(), S_OK);
}

TEST_F(MTIndexFileTest, AFileOfNoBytesNeedsAKeyType) {
    std::wstring path = dir_.Wide("empty.idx");
    Write(path, {});
    MTIndexNG ng;
    EXPECT_EQ(test::OpenIndex(ng, path, OPEN_EXISTING), E_UNEXPECTED);
    MTIndex older;
    EXPECT_EQ(test::OpenIndex(older, path, OPEN_EXISTING), E_UNEXPECTED);
    EXPECT_EQ(Read(path).size(), 0u);
    MTIndex typed(MTLong, 4, 0);
    EXPECT_EQ(
        typed.Open(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr),
        HRESULT_FROM_WIN32(5));  // a read-only open cannot give it a root
}

TEST_F(MTIndexFileTest, CorruptNodesFailWithTheirCodes) {
    for (bool ng : {false, true}) {
        test::IndexKind kind{MTLong, 4, ng};
        std::wstring path = Build(kind, 2000, ng ? "c-ng.idx" : "c-old.idx");
        Bytes good = Read(path);
        size_t nodeSize = ng ? 4096 : 2048;
        size_t rootAt = ng ? 0 : (good.size() / nodeSize - 1) * nodeSize;
        auto put = [&](Bytes& b, size_t at, uint32_t v) {
            ng ? EncodeFixed32LE(&b[at], v) : EncodeFixed32BE(&b[at], v);
        };

        Bytes bytes = good;
        put(bytes, rootAt + 4, 9999);  // a count beyond the maximum
        Write(path, bytes);
        EXPECT_EQ(Reopen(kind, path), E_FAIL);

        bytes = good;
        put(bytes, rootAt + 8, 99999);  // a child past the end
        Write(path, bytes);
        EXPECT_EQ(Reopen(kind, path), MT_E_SHORT_READ);

        // A leaf that links back to the first: scans end, validation fails.
        bytes = good;
        uint32_t firstLeaf = ng ? DecodeFixed32LE(&bytes[8]) : DecodeFixed32BE(&bytes[rootAt + 8]);
        size_t leafAt = (firstLeaf - 1) * nodeSize;
        uint32_t second = ng ? DecodeFixed32LE(&bytes[leafAt]) : DecodeFixed32BE(&bytes[leafAt]);
        put(bytes, (second - 1) * nodeSize, firstLeaf);
        Write(path, bytes);
        ASSERT_EQ(Reopen(kind, path), S_OK);
        EXPECT_EQ(index_->Validate(), E_FAIL);
        MTSearch search;
        ASSERT_EQ(index_->SearchFirst(search), S_OK);
        MTKey key;
        int32_t id = 0;
        HRESULT hr = S_OK;
        int entries = 0;
        while ((hr = search.Next(key, id)) == S_OK) ASSERT_LT(++entries, 100000);
        EXPECT_EQ(hr, E_FAIL);

        if (!ng) {
            good.resize(good.size() - 100);  // the last node cut short
            Write(path, good);
            EXPECT_EQ(Reopen(kind, path), MT_E_SHORT_READ);
        }
    }
}

// Regression: a key that the stored form changes (text the code page cannot
// hold, a fraction on an integer index) was placed by its own value, out of
// the order of the stored keys.
TEST(MTIndexRegressionTest, KeysAreFiledByTheFormTheNodeStores) {
    test::TempDir dir;
    MTIndexNG text(MTString, 4, 1252);
    ASSERT_EQ(test::OpenIndex(text, dir.Wide("t.idx"), CREATE_ALWAYS), S_OK);
    for (const wchar_t* key : {L"a", L"\u65e5", L"z", L"@"})
        ASSERT_EQ(text.Insert(MTKey(key, false), 1), S_OK);
    EXPECT_EQ(text.Insert(MTKey(L"?", false), 1), S_FALSE);  // what the character became
    EXPECT_EQ(text.Validate(), S_OK);
    EXPECT_EQ(text.SearchKeyValue(MTKey(L"\u65e5", false), 1), S_OK);

    MTIndex numbers(MTLong, 4, 0);
    ASSERT_EQ(test::OpenIndex(numbers, dir.Wide("n.idx"), CREATE_ALWAYS), S_OK);
    ASSERT_EQ(numbers.Insert(MTKey(static_cast<int32_t>(1)), 2), S_OK);
    ASSERT_EQ(numbers.Insert(MTKey(1.75), 1), S_OK);
    EXPECT_EQ(numbers.Validate(), S_OK);
    EXPECT_EQ(numbers.SearchKeyValue(MTKey(static_cast<int32_t>(1)), 1), S_OK);
}

// Regression: destroying an open next-generation index without Close left
// its trailer as it was when the file was opened.
TEST(MTIndexRegressionTest, DestroyingAnOpenNextGenerationIndexWritesItsTrailer) {
    test::TempDir dir;
    std::wstring path = dir.Wide("d.idx");
    {
        MTIndexNG index(MTLong, 4, 0);
        ASSERT_EQ(test::OpenIndex(index, path, CREATE_ALWAYS), S_OK);
        for (int32_t i = 0; i < 600; ++i) index.Insert(MTKey(i), i);
    }
    MTIndexNG index;
    ASSERT_EQ(test::OpenIndex(index, path, OPEN_EXISTING), S_OK);
    EXPECT_EQ(index.GetEntryCount(), 600);
    EXPECT_EQ(index.GetLevels(), 2);
    EXPECT_EQ(index.Validate(), S_OK);
}

}  // namespace
}  // namespace quillet
