// StringArray, RecNumSet and FIDSet.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <memory>
#include <set>

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

}  // namespace
}  // namespace quillet
