#include "foundation/ExternalSort.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using Bytes = std::string;

int CompareBytes(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    int c = std::memcmp(a->data, b->data, static_cast<size_t>(std::min(a->size, b->size)));
    if (c != 0) return c;
    return a->size < b->size ? -1 : (a->size > b->size ? 1 : 0);
}

// Elements of 12 bytes compared by their first 4 bytes only, as a key.
int CompareKey(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    int32_t x, y;
    std::memcpy(&x, a->data, 4);
    std::memcpy(&y, b->data, 4);
    return x < y ? -1 : (x > y ? 1 : 0);
}

std::vector<Bytes> Drain(ExternalSort& sort) {
    std::vector<Bytes> out;
    int32_t size;
    const unsigned char* data;
    int result;
    while ((result = sort.Next(&size, &data)) == 0) {
        out.emplace_back(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
    }
    EXPECT_EQ(result, 1);
    return out;
}

// A coarse prefix: the first byte, so that most elements tie.
uint64_t FirstByte(const ExternalSort::SortElement* e) { return e->size > 0 ? e->data[0] : 0; }

std::vector<Bytes> SortExternally(const std::vector<Bytes>& input, int32_t budget, int* runs,
                                  bool prefixed = false) {
    ExternalSort sort;
    EXPECT_TRUE(sort.Init(CompareBytes, budget, 16));
    if (prefixed) {
        EXPECT_TRUE(sort.SetPrefix(FirstByte));
    }
    for (const Bytes& b : input) EXPECT_TRUE(sort.Add(static_cast<int32_t>(b.size()), b.data()));
    EXPECT_EQ(sort.GetCount(), static_cast<int64_t>(input.size()));
    EXPECT_TRUE(sort.Sort());
    *runs = sort.GetRunCount();
    return Drain(sort);
}

size_t OpenDescriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                             std::filesystem::directory_iterator()));
}

Bytes Element(int32_t key, int32_t payload) {
    Bytes b(12, '\0');
    std::memcpy(b.data(), &key, 4);
    std::memcpy(b.data() + 4, &payload, 4);
    std::memcpy(b.data() + 8, &payload, 4);
    return b;
}

RC_GTEST_PROP(ExternalSortProperty, GivesTheSortedInputWhateverTheBudget,
              (const std::vector<Bytes>& input)) {
    int32_t budget = *rc::gen::inRange(1, 4096);
    bool prefixed = *rc::gen::arbitrary<bool>();
    int runs = 0;
    std::vector<Bytes> expected = input;
    std::sort(expected.begin(), expected.end());
    RC_ASSERT(SortExternally(input, budget, &runs, prefixed) == expected);
}

// Beyond what the property reaches: runs longer than a merge's read buffer,
// and elements larger than the whole budget.
TEST(ExternalSort, MergesManyRunsInSeveralPasses) {
    // A 4 KiB budget holds ~140 elements and merges two runs at a time, so
    // 20000 elements make over a hundred runs and seven or more merge passes.
    std::mt19937 random(7);
    std::vector<Bytes> input;
    for (int i = 0; i < 20000; ++i) {
        input.push_back(Element(static_cast<int32_t>(random()), i));
    }
    for (int i = 0; i < 3000; ++i) {
        input.emplace_back(random() % 300, static_cast<char>('a' + random() % 26));
    }
    input.emplace_back(50000, 'q');
    input.emplace_back(50000, 'b');
    int runs = 0;
    std::vector<Bytes> out = SortExternally(input, 4096, &runs);
    std::sort(input.begin(), input.end());
    EXPECT_EQ(out, input);
    EXPECT_GT(runs, 100);
}

// With room to spare in the budget, the last run is merged from memory
// without being spilled: 17000 elements of 12 bytes fill a 256 KiB budget
// once (28 bytes each) or three times (52 with a prefix), and the rest
// leaves room enough to read those runs back.
TEST(ExternalSort, MergesTheLastRunFromMemory) {
    std::mt19937 random(11);
    std::vector<Bytes> input;
    for (int i = 0; i < 17000; ++i) input.push_back(Element(static_cast<int32_t>(random()), i));
    std::vector<Bytes> expected = input;
    std::sort(expected.begin(), expected.end());
    for (bool prefixed : {false, true}) {
        int runs = 0;
        EXPECT_EQ(SortExternally(input, 256 << 10, &runs, prefixed), expected);
        EXPECT_EQ(runs, prefixed ? 3 : 1);
    }
}

TEST(ExternalSort, KeepsEveryElementOfEqualKeys) {
    ExternalSort sort;
    ASSERT_TRUE(sort.Init(CompareKey, 2048, 0));
    std::vector<Bytes> input;
    for (int i = 0; i < 5000; ++i) input.push_back(Element(i % 3, i));
    for (const Bytes& b : input) ASSERT_TRUE(sort.Add(12, b.data()));
    ASSERT_TRUE(sort.Sort());
    EXPECT_GT(sort.GetRunCount(), 10);
    std::vector<Bytes> out = Drain(sort);
    ASSERT_EQ(out.size(), input.size());
    for (size_t i = 1; i < out.size(); ++i) {
        ASSERT_LE(out[i - 1][0], out[i][0]) << i;  // keys ascend
    }
    std::sort(out.begin(), out.end());
    std::sort(input.begin(), input.end());
    EXPECT_EQ(out, input);  // and every payload is there once
}

TEST(ExternalSort, LeavesNoTemporaryFileNorDescriptorBehind) {
    test::TempDir folder;
    test::ScopedEnv redirect("TMPDIR", folder.path().c_str());
    size_t descriptors = OpenDescriptors();
    {
        ExternalSort sort;
        ASSERT_TRUE(sort.Init(CompareKey, 1024, 0));
        for (int i = 0; i < 2000; ++i) ASSERT_TRUE(sort.Add(12, Element(2000 - i, i).data()));
        EXPECT_GT(sort.GetRunCount(), 0);
        EXPECT_TRUE(folder.Files().empty());  // spilled runs have no name on disk
        ASSERT_TRUE(sort.Sort());
        int32_t size;
        const unsigned char* data;
        for (int i = 0; i < 100; ++i) ASSERT_EQ(sort.Next(&size, &data), 0);
        // Destroyed halfway through the merge.
    }
    EXPECT_TRUE(folder.Files().empty());
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(ExternalSort, FailsCleanlyWhenRunsCannotBeSpilled) {
    test::TempDir folder;
    test::ScopedEnv redirect("TMPDIR", (folder.path() / "missing").c_str());
    ExternalSort sort;
    ASSERT_TRUE(sort.Init(CompareKey, 256, 0));
    bool failed = false;
    for (int i = 0; i < 100 && !failed; ++i) failed = !sort.Add(12, Element(i, i).data());
    EXPECT_TRUE(failed);
    EXPECT_FALSE(sort.Add(12, Element(0, 0).data()));
    EXPECT_FALSE(sort.Sort());
    int32_t size;
    const unsigned char* data;
    EXPECT_EQ(sort.Next(&size, &data), -1);
}

TEST(ExternalSort, RefusesBadArgumentsAndCallsOutOfOrder) {
    ExternalSort sort;
    int32_t size;
    const unsigned char* data;
    EXPECT_FALSE(sort.Add(4, "abcd"));  // before Init
    EXPECT_EQ(sort.Next(&size, &data), -1);
    EXPECT_FALSE(sort.Init(nullptr, 1024, 0));
    EXPECT_FALSE(sort.Init(CompareBytes, 0, 0));
    ASSERT_TRUE(sort.Init(CompareBytes, 4194304, 1024));
    EXPECT_FALSE(sort.Add(-1, "x"));
    EXPECT_FALSE(sort.Add(3, nullptr));
    EXPECT_EQ(sort.Next(&size, &data), -1);  // before Sort
    ASSERT_TRUE(sort.Add(1, "z"));
    ASSERT_TRUE(sort.Sort());
    EXPECT_FALSE(sort.Add(1, "a"));  // after Sort
    EXPECT_FALSE(sort.Sort());
    ASSERT_EQ(sort.Next(&size, &data), 0);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(sort.Next(&size, &data), 1);
    EXPECT_EQ(sort.Next(&size, &data), 1);
}

}  // namespace
}  // namespace quillet
