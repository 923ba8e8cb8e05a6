#include "foundation/BitSet.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <vector>

namespace quillet {
namespace {

// The plain model the set is checked against.
struct Model {
    std::vector<bool> bits;

    int32_t Count(int32_t upTo) const {
        int32_t n = 0;
        for (int32_t i = 0; i <= upTo && i < static_cast<int32_t>(bits.size()); ++i) n += bits[i];
        return n;
    }
    int32_t NextSet(int32_t after) const {
        for (int32_t i = std::max(after + 1, 0); i < static_cast<int32_t>(bits.size()); ++i)
            if (bits[i]) return i;
        return -1;
    }
    int32_t PrevSet(int32_t before) const {
        for (int32_t i = std::min(before, static_cast<int32_t>(bits.size())) - 1; i >= 0; --i)
            if (bits[i]) return i;
        return -1;
    }
};

void RequireSame(const BitSet& set, const Model& model) {
    int32_t size = static_cast<int32_t>(model.bits.size());
    RC_ASSERT(set.GetSize() == size);
    RC_ASSERT(set.Count() == model.Count(size));
    RC_ASSERT(set.AllSet() == (model.Count(size) == size));
    for (int32_t i = -1; i <= size; ++i) {
        RC_ASSERT(set.IsSet(i) == (i >= 0 && i < size && model.bits[i]));
        RC_ASSERT(set.Count(i) == model.Count(i));
        RC_ASSERT(set.GetNextSet(i) == model.NextSet(i));
        RC_ASSERT(set.GetPrevSet(i) == model.PrevSet(i));
    }
}

BitSet RoundTrip(const BitSet& set) {
    std::vector<uint32_t> words;
    BitSet::ExportHeader header = set.Export(&words);
    unsigned char block[BitSet::ExportHeader::kEncodedSize];
    header.EncodeTo(block);
    BitSet::ExportHeader decoded = BitSet::ExportHeader::DecodeFrom(block);
    RC_ASSERT(decoded.IsPlausible(static_cast<int64_t>(words.size()) * 4));
    return BitSet(decoded, words.data());
}

RC_GTEST_PROP(BitSetProperty, BehavesLikeVectorOfBoolAndSurvivesExport, ()) {
    BitSet set;
    Model model;
    int steps = *rc::gen::inRange(1, 60);
    for (int step = 0; step < steps; ++step) {
        int32_t size = static_cast<int32_t>(model.bits.size());
        switch (*rc::gen::inRange(0, 5)) {
            case 0: {
                int32_t newSize = *rc::gen::inRange(0, 300);
                set.SetSize(newSize);
                model.bits.resize(static_cast<size_t>(newSize), false);
                break;
            }
            case 1: {
                int32_t count = *rc::gen::inRange(0, 70);
                bool value = *rc::gen::arbitrary<bool>();
                set.Extend(count, value);
                model.bits.insert(model.bits.end(), static_cast<size_t>(count), value);
                break;
            }
            case 2:
            case 3: {
                int32_t bit = *rc::gen::inRange(-2, size + 2);
                bool value = *rc::gen::arbitrary<bool>();
                RC_ASSERT(set.Set(bit, value) == (bit >= 0 && bit < size));
                if (bit >= 0 && bit < size) model.bits[static_cast<size_t>(bit)] = value;
                break;
            }
            default:
                set = RoundTrip(set);
                break;
        }
    }
    RequireSame(set, model);
    RequireSame(RoundTrip(set), model);
}

TEST(BitSet, ExportBlockDescribesTheWords) {
    BitSet set(70);
    set.Set(3);
    set.Set(69);
    std::vector<uint32_t> words;
    BitSet::ExportHeader header = set.Export(&words);
    EXPECT_EQ(header.wordCount, 3);
    EXPECT_EQ(header.size, 70);
    EXPECT_EQ(header.setCount, 2);
    EXPECT_EQ(header.highestSet, 69);
    EXPECT_EQ(words, (std::vector<uint32_t>{0x8u, 0u, 0x20u}));

    unsigned char block[16];
    header.EncodeTo(block);
    const unsigned char expected[16] = {3, 0, 0, 0, 70, 0, 0, 0, 2, 0, 0, 0, 69, 0, 0, 0};
    EXPECT_EQ(std::vector<unsigned char>(block, block + 16),
              std::vector<unsigned char>(expected, expected + 16));
}

TEST(BitSet, ImportTrustsTheWordsNotTheCounters) {
    const uint32_t words[] = {0xFFFFFFFFu, 0xFFFFFFFFu};
    // Size 40: the bits 40..63 of the stored words are dropped.
    BitSet set(words, 2, 40, 7, 3);
    EXPECT_EQ(set.GetSize(), 40);
    EXPECT_EQ(set.Count(), 40);
    EXPECT_TRUE(set.AllSet());
    EXPECT_EQ(set.GetPrevSet(1000), 39);

    // A size beyond the words is clamped; a negative word count reads nothing.
    EXPECT_EQ(BitSet(words, 1, 500, 0, -1).GetSize(), 32);
    EXPECT_EQ(BitSet(words, -4, 10, 0, -1).GetSize(), 0);
}

TEST(BitSet, ImplausibleBlocksAreRecognised) {
    BitSet::ExportHeader header;
    header.wordCount = 2;
    header.size = 64;
    header.setCount = 1;
    header.highestSet = 5;
    EXPECT_TRUE(header.IsPlausible(8));
    EXPECT_FALSE(header.IsPlausible(7));  // the words do not fit
    header.size = 65;
    EXPECT_FALSE(header.IsPlausible(8));
    header.size = 64;
    header.wordCount = -1;
    EXPECT_FALSE(header.IsPlausible(1 << 20));
    header.wordCount = 2;
    header.highestSet = -1;  // bits set but no highest
    EXPECT_FALSE(header.IsPlausible(8));
    header.wordCount = 0x7FFFFFFF;  // would overflow 32-bit arithmetic
    header.size = 0;
    header.setCount = 0;
    EXPECT_FALSE(header.IsPlausible(1 << 20));
}

}  // namespace
}  // namespace quillet
