// Damaged .atx files: short files, counts out of range, links that leave the
// file or loop. Searches fail or return what they can reach, never crash or
// hang, and the check names the damage.

#include <gtest/gtest.h>

#include <random>

#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndex.h"
#include "foundation/ByteOrder.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;

class MTreeIndexBadInput : public ::testing::Test {
protected:
    void SetUp() override {
        MTreeIndex index;
        ASSERT_EQ(index.Create(path_.c_str(), &field_, true), S_OK);
        for (int i = 0; i < 2000; ++i) ASSERT_EQ(index.InsertEntry(Variant::I4(i / 3), i), S_OK);
        ASSERT_EQ(index.Close(), S_OK);
        good_ = test::ReadBytes(dir_ / "i.atx");
        ASSERT_EQ(good_.size(), 9u * 2048);  // eight leaves and the root
    }

    // Runs every predicate on the file; S_OK or E_FAIL each time.
    void SearchEverything(const Bytes& file) {
        test::WriteBytes(dir_ / "i.atx", file);
        MTreeIndex index;
        if (index.Open(path_.c_str(), &field_, MTreeIndex::kModeRead) != S_OK) return;
        for (int p = 1; p <= 1024; p <<= 1) {
            std::vector<Variant> values = {Variant::I4(300), Variant::I4(200), Variant::I4(500)};
            std::vector<VARIANT*> pointers = {&values[0], &values[1], &values[2]};
            FIDSet result;
            HRESULT hr = index.Search(pointers, static_cast<qovaSQLPredicates>(p), &result);
            EXPECT_TRUE(hr == S_OK || hr == E_FAIL) << p;
        }
    }

    std::string CheckOf(const Bytes& file) {
        test::WriteBytes(dir_ / "i.atx", file);
        const int32_t key[4] = {0, 4, 5, -1};
        LegacyIndex index((dir_ / "i.atx").string());
        if (!index.Open(LegacyIndex::LayoutOf(key), false)) return "not opened";
        int64_t entries = 0;
        return index.Check(entries);
    }

    static void SetWord(Bytes& file, int32_t node, int32_t word, int32_t value) {
        EncodeFixed32BE(&file[static_cast<size_t>(node - 1) * 2048 + 4 * word],
                        static_cast<uint32_t>(value));
    }

    test::TempDir dir_;
    std::wstring path_ = dir_.Wide("i.atx");
    Field field_{L"n", qovaFieldTypeInteger, 4};
    Bytes good_;
};

TEST_F(MTreeIndexBadInput, DamageEndsSearchesAndTheCheckNamesIt) {
    EXPECT_EQ(CheckOf(good_), "");
    Bytes tooShort(good_.begin(), good_.begin() + 2000);
    EXPECT_EQ(CheckOf(tooShort), "not opened");
    struct Damage {
        const char* what;
        int32_t node, word, value;
    };
    const Damage damages[] = {
        {"count out of range", 3, 1, 9999},  {"negative count", 9, 1, -1},
        {"brother loop", 4, 0, 2},           {"brother past the end", 8, 0, 77},
        {"child past the end", 9, 2, 1000},  {"child zero", 9, 3, 0},
        {"root child is the root", 9, 4, 9}, {"a leaf turned interior", 5, 2, 1},
    };
    for (const Damage& d : damages) {
        Bytes file = good_;
        SetWord(file, d.node, d.word, d.value);
        SearchEverything(file);
        EXPECT_NE(CheckOf(file), "") << d.what;
    }
    Bytes cut(good_.begin(), good_.begin() + 5 * 2048 + 100);
    SearchEverything(cut);
    EXPECT_NE(CheckOf(cut), "");
}

TEST_F(MTreeIndexBadInput, RandomBytesNeverCrashOrHang) {
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        Bytes file = good_;
        for (int flips = 0; flips < 20; ++flips) {
            size_t at = random() % file.size();
            // Mostly the header words, where a flip is followed.
            if (random() % 2) at = (at / 2048) * 2048 + random() % 16;
            file[at] = static_cast<unsigned char>(random());
        }
        SearchEverything(file);
        CheckOf(file);
    }
}

}  // namespace
}  // namespace quillet
