// An index whose header claims 0x7FFFFFFF features: a search that covers the
// extent adds them as one range, and reading the result costs memory in
// proportion to its ranges (issue 16: `sbn query` asked for 8 GiB).

#include <gtest/gtest.h>

#include "IndexTestSupport.h"
#include "foundation/ByteOrder.h"
#include "foundation/IEnvelope.h"
#include "foundation/RecNumSet.h"
#include "spatialindex/BinIndex.h"

namespace quillet::test {
namespace {

// The feature count: the first word of the user header (offset 28 of the
// record file), in the file's byte order.
void SetFeatureCount(const std::filesystem::path& sbn, int32_t count) {
    auto bytes = ReadBytes(sbn);
    if (bytes[0] == 0) {  // the file code starts with a zero byte only big-endian
        EncodeFixed32BE(&bytes[28], static_cast<uint32_t>(count));
    } else {
        EncodeFixed32LE(&bytes[28], static_cast<uint32_t>(count));
    }
    WriteBytes(sbn, bytes);
}

TEST(BinIndexHugeCountTest, SbnSearchOfHugeFeatureCountAskedForGigabytes) {
    Layer layer{WKSEnvelope{0, 0, 10, 10}, {WKSEnvelope{1, 1, 2, 2}, WKSEnvelope{8, 8, 9, 9}}};
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "h.sbn", layer));
    SetFeatureCount(dir / "h.sbn", 0x7FFFFFFF);
    BinIndex index(dir.Wide("h.sbn").c_str());
    ASSERT_EQ(index.GetFeatureCount(), 0x7FFFFFFF);

    Envelope covering(-1, -1, 11, 11);
    RecNumSet found;
    EXPECT_EQ(index.Search(&covering, &found), 0x7FFFFFFF);
    EXPECT_EQ(found.Count(), 0x7FFFFFFF);
    ASSERT_EQ(found.Ranges().size(), 1u);
    EXPECT_EQ(found.Ranges()[0], std::make_pair(1, 0x7FFFFFFF));
    // Asked for as numbers with a bound, the set refuses rather than
    // allocating 8 GiB.
    std::vector<int32_t> numbers;
    EXPECT_FALSE(found.ToVector(numbers, int64_t{1} << 20));
    EXPECT_TRUE(numbers.empty());
    EXPECT_EQ(numbers.capacity(), 0u);
    std::vector<int32_t> stale{42};
    EXPECT_FALSE(found.ToVector(stale, int64_t{1} << 20));
    EXPECT_TRUE(stale.empty());

    // A search inside the extent reads the bins: the same results as before.
    Envelope inside(0.5, 0.5, 2.5, 2.5);
    RecNumSet near;
    EXPECT_EQ(index.Search(&inside, &near), 1);
    ASSERT_TRUE(near.ToVector(numbers, 10));
    EXPECT_EQ(numbers, std::vector<int32_t>{1});
}

}  // namespace
}  // namespace quillet::test
