// StringArray, RecNumSet, FIDSet and BitSet.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <vector>

#include "foundation/BitSet.h"
#include "foundation/DebugOutput.h"
#include "foundation/IFIDSet.h"
#include "foundation/RecNumSet.h"
#include "foundation/StringArray.h"

namespace quillet {
namespace {

TEST(StringArray, InsertSetAndRemoveWithinAndBeyondTheEnds) {
    StringArray a;
    a.Add(L"b");
    a.Insert(L"a", 0);
    a.Insert(L"d", 99);  // past the end appends
    a.Insert(L"c", 2);
    ASSERT_EQ(a.GetSize(), 4);
    EXPECT_EQ(a[0], String(L"a"));
    EXPECT_EQ(a[2], String(L"c"));
    EXPECT_EQ(a[3], String(L"d"));
    EXPECT_TRUE(a.Set(1, L"B"));
    EXPECT_FALSE(a.Set(4, L"x"));
    EXPECT_FALSE(a.Set(-1, L"x"));
    EXPECT_EQ(a[1], String(L"B"));
    a.RemoveAt(0);
    a.RemoveAt(17);
    EXPECT_EQ(a.GetSize(), 3);
    a.RemoveAll();
    EXPECT_EQ(a.GetSize(), 0);
}

RC_GTEST_PROP(RecNumSetProperty, ActsAsASetOfNumbers, ()) {
    RecNumSet set;
    std::set<int32_t> model;
    int steps = *rc::gen::inRange(0, 40);
    for (int i = 0; i < steps; ++i) {
        int32_t first = *rc::gen::inRange(-5, 200);
        if (*rc::gen::arbitrary<bool>()) {
            set.Add(first);
            model.insert(first);
        } else {
            int32_t last = first + *rc::gen::inRange(-3, 30);
            set.AddRange(first, last);
            for (int32_t n = first; n <= last; ++n) model.insert(n);
        }
        if (*rc::gen::inRange(0, 4) == 0)
            RC_ASSERT(set.Count() == static_cast<int64_t>(model.size()));
    }
    RC_ASSERT(set.ToVector() == std::vector<int32_t>(model.begin(), model.end()));
    for (int32_t n = -10; n < 240; ++n) RC_ASSERT(set.Contains(n) == (model.count(n) == 1));
}

TEST(RecNumSet, AddRangeOfAllFeaturesAndTheExtremes) {
    RecNumSet set;
    set.AddRange(1, 0);  // an empty index: nothing
    EXPECT_EQ(set.Count(), 0);
    set.AddRange(1, 5);
    set.Add(3);
    EXPECT_EQ(set.Count(), 5);
    set.AddRange(INT32_MAX - 1, INT32_MAX);
    set.Add(INT32_MIN);
    EXPECT_EQ(set.Count(), 8);
    EXPECT_TRUE(set.Contains(INT32_MAX));
    EXPECT_TRUE(set.Contains(INT32_MIN));
    set.Clear();
    EXPECT_FALSE(set.Contains(1));
}

TEST(FIDSet, AddsFindsDeletesAndEnumeratesInOrder) {
    std::unique_ptr<IFIDSet> set;
    ASSERT_EQ(CoCreateFIDSet(CLSID_FIDSet, &set), S_OK);
    for (int32_t id : {5, 3, 9, 3, 1}) EXPECT_EQ(set->Add(id), S_OK);
    int32_t count = 0;
    ASSERT_EQ(set->get_Count(&count), S_OK);
    EXPECT_EQ(count, 4);
    bool found = false;
    set->Find(9, &found);
    EXPECT_TRUE(found);
    set->Find(4, &found);
    EXPECT_FALSE(found);
    EXPECT_EQ(set->Delete(9), S_OK);
    EXPECT_EQ(set->Delete(9), S_FALSE);

    std::vector<int32_t> seen;
    int32_t id;
    set->Reset();
    while (set->Next(&id) == S_OK) seen.push_back(id);
    EXPECT_EQ(id, -1);
    EXPECT_EQ(seen, (std::vector<int32_t>{1, 3, 5}));
    set->SetEmpty();
    set->get_Count(&count);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(set->Find(1, nullptr), E_POINTER);
}

TEST(FIDSet, ManyIdsOfEverySignEnumerateSortedOnce) {
    std::unique_ptr<IFIDSet> set;
    ASSERT_EQ(CoCreateFIDSet(CLSID_FIDSet, &set), S_OK);
    std::mt19937 random(7);
    std::set<int32_t> expected;
    for (int i = 0; i < 20000; ++i) {
        int32_t id = static_cast<int32_t>(random()) >> (i % 20);
        expected.insert(id);
        set->Add(id);
    }
    std::vector<int32_t> seen;
    int32_t id;
    set->Reset();
    while (set->Next(&id) == S_OK) seen.push_back(id);
    EXPECT_EQ(seen, std::vector<int32_t>(expected.begin(), expected.end()));
}

class CapturedDebugOutput {
public:
    CapturedDebugOutput() : old_(SetDebugOutputSink([this](const wchar_t* m) { text_ += m; })) {}
    ~CapturedDebugOutput() { SetDebugOutputSink(old_); }
    const std::wstring& Text() const { return text_; }

private:
    std::wstring text_;
    DebugSink old_;
};

TEST(FIDSet, FailedCreationIsReportedOnTheDebugOutput) {
    std::unique_ptr<IFIDSet> set;
    {
        CapturedDebugOutput output;
        FailFIDSetCreation(E_OUTOFMEMORY);
        EXPECT_EQ(CoCreateFIDSet(CLSID_FIDSet, &set), E_OUTOFMEMORY);
        FailFIDSetCreation(S_OK);
        EXPECT_EQ(set, nullptr);
        EXPECT_EQ(output.Text(), L"CreateInstance of QovaSystem.FIDSet failed: 8007000E\n");
    }
    {
        CapturedDebugOutput output;
        EXPECT_EQ(CoCreateFIDSet(CLSID_UnknownCoordinateSystem, &set), REGDB_E_CLASSNOTREG);
        wchar_t id[40];
        StringFromGUID2(CLSID_UnknownCoordinateSystem, id, 40);
        EXPECT_EQ(output.Text(), L"CreateInstance of " + std::wstring(id) + L" failed: 80040154\n");
    }
    EXPECT_EQ(CoCreateFIDSet(CLSID_FIDSet, &set), S_OK);
}

// The plain model a BitSet is checked against.
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
            default: set = RoundTrip(set); break;
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
    EXPECT_EQ(words, (std::vector<uint32_t>{0x8u, 0u, 0x20u}));
    unsigned char block[16];
    header.EncodeTo(block);
    // Words, size, bits set, highest set.
    EXPECT_EQ(std::vector<unsigned char>(block, block + 16),
              (std::vector<unsigned char>{3, 0, 0, 0, 70, 0, 0, 0, 2, 0, 0, 0, 69, 0, 0, 0}));
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
    const struct {
        BitSet::ExportHeader header;  // words, size, bits set, highest set
        int64_t bytesAvailable;
        bool plausible;
    } cases[] = {
        {{2, 64, 1, 5}, 8, true},
        {{2, 64, 1, 5}, 7, false},  // the words do not fit
        {{2, 65, 1, 5}, 8, false},
        {{-1, 64, 1, 5}, 1 << 20, false},
        {{2, 64, 1, -1}, 8, false},                // bits set but no highest
        {{0x7FFFFFFF, 0, 0, -1}, 1 << 20, false},  // would overflow 32-bit arithmetic
    };
    for (const auto& c : cases) {
        const auto& h = c.header;
        EXPECT_EQ(h.IsPlausible(c.bytesAvailable), c.plausible)
            << h.wordCount << " " << h.size << " " << h.setCount << " " << h.highestSet;
    }
}

}  // namespace
}  // namespace quillet
