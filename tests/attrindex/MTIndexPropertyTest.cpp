// Random sequences of inserts, deletes, searches, range scans, bulk loads,
// traces and reopens of an index of every key type in both formats, checked
// against an ordered set of (key, record id) entries. After every step the
// tree must validate and every byte a node does not use must be zero.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "IndexTestSupport.h"
#include "attrindex/MTSearch.h"
#include "foundation/IFIDSet.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::IndexKind;

// A key as the index orders it: a number, or text cut at the width with
// trailing spaces dropped.
using ModelKey = std::pair<long double, std::wstring>;
using Entry = std::pair<ModelKey, int32_t>;
using Model = std::set<Entry>;

enum OpKind {
    kInsert,
    kDelete,
    kDeleteRun,
    kFind,
    kScan,
    kBulk,
    kTrace,
    kReopen,
    kEdges,
    kOpKinds
};

struct Op {
    int kind;
    int count;
    int seed;
    int a;
    int b;
};

void showValue(const Op& op, std::ostream& os) {
    os << "{kind " << op.kind << ", count " << op.count << ", seed " << op.seed << ", a " << op.a
       << ", b " << op.b << "}";
}

class Harness {
public:
    Harness(IndexKind kind, int keyRange, int idRange)
        : kind_(kind), keyRange_(keyRange), idRange_(idRange), path_(dir_.Wide("tree.idx")) {
        index_ = test::MakeIndex(kind_);
        RC_ASSERT(test::OpenIndex(*index_, path_, CREATE_ALWAYS) == S_OK);
    }

    void Run(const Op& op) {
        switch (op.kind) {
            case kInsert: Insert(op); break;
            case kDelete: Delete(op); break;
            case kDeleteRun: DeleteRun(op); break;
            case kFind: Find(op); break;
            case kScan: Scan(op); break;
            case kBulk: Bulk(op); break;
            case kTrace: TraceAndReplay(op); break;
            case kReopen: Reopen(); break;
            default: Edges(op); break;
        }
        Check(*index_, path_);
        maxLevels_ = std::max(maxLevels_, index_->GetLevels());
    }

    int Levels() const { return maxLevels_; }

private:
    MTKey Key(int k, std::wstring& text) const { return test::KeyOf(kind_.type, k, text); }

    ModelKey ModelOf(int k) const {
        std::wstring text;
        MTKey key = Key(k, text);
        if (!IsStringType(kind_.type)) return {key.GetWidened(), L""};
        size_t chars = static_cast<size_t>(kind_.type == MTWString ? index_->GetKeyWidth() / 2
                                                                   : index_->GetKeyWidth());
        text.resize(std::min(text.size(), chars));
        while (!text.empty() && text.back() == L' ') text.pop_back();
        return {0, text};
    }

    int KeyNumber(int seed, int i) const { return (seed * 7919 + i * 104729) % keyRange_; }
    int32_t IdNumber(int seed, int i) const { return (seed * 31 + i * 7) % idRange_ - 3; }

    // Adds an entry to the model; whether it is new.
    bool Remember(int k, int32_t id) {
        ModelKey key = ModelOf(k);
        numbers_.emplace(key, k);
        return model_.emplace(key, id).second;
    }

    void Insert(const Op& op) {
        for (int i = 0; i < op.count; ++i) {
            int k = KeyNumber(op.seed, i);
            int32_t id = IdNumber(op.seed, i);
            std::wstring text;
            bool fresh = Remember(k, id);
            RC_ASSERT(index_->Insert(Key(k, text), id) == (fresh ? S_OK : S_FALSE));
        }
    }

    void Delete(const Op& op) {
        for (int i = 0; i < op.count && !model_.empty(); ++i) {
            // Half of them present, half made up (and mostly absent).
            if (i % 2 == 0) {
                DeleteEntry(*std::next(model_.begin(),
                                       (op.seed + i * 13) % static_cast<int>(model_.size())));
                continue;
            }
            int k = KeyNumber(op.seed + 1, i);
            int32_t id = IdNumber(op.seed + 5, i);
            model_.erase({ModelOf(k), id});
            std::wstring text;
            RC_ASSERT(index_->Delete(Key(k, text), id) == S_OK);
        }
    }

    // Consecutive entries, from the end or from a place, as whole nodes go.
    void DeleteRun(const Op& op) {
        for (int i = 0; i < op.count && !model_.empty(); ++i) {
            auto size = static_cast<int>(model_.size());
            int at = op.a % 2 == 0 ? size - 1 : std::min(op.b % size, size - 1);
            DeleteEntry(*std::next(model_.begin(), at));
        }
    }

    void DeleteEntry(Entry entry) {
        std::wstring text;
        MTKey key = Key(numbers_.at(entry.first), text);
        model_.erase(entry);
        RC_ASSERT(index_->Delete(key, entry.second) == S_OK);
        RC_ASSERT(index_->SearchKeyValue(key, entry.second) == S_FALSE);
    }

    void Find(const Op& op) {
        int k = KeyNumber(op.seed, op.a);
        int32_t id = IdNumber(op.seed, op.b);
        std::wstring text;
        bool there = model_.count({ModelOf(k), id}) > 0;
        RC_ASSERT(index_->SearchKeyValue(Key(k, text), id) == (there ? S_OK : S_FALSE));
    }

    // Entries from the first key >= lo (> lo) up to hi (inclusive or not),
    // through Next and through ReadTo; then SkipTo from the first entry.
    void Scan(const Op& op) {
        int lo = KeyNumber(op.seed, op.a);
        int hi = KeyNumber(op.seed + 3, op.b);
        bool loInclusive = op.count % 2 == 0;
        bool hiInclusive = op.count / 2 % 2 == 0;
        ModelKey low = ModelOf(lo);
        ModelKey high = ModelOf(hi);
        std::vector<Entry> expected;
        for (const Entry& e : model_) {
            bool afterLow = loInclusive ? e.first >= low : e.first > low;
            bool beforeHigh = hiInclusive ? e.first <= high : e.first < high;
            if (afterLow && beforeHigh) expected.push_back(e);
            if (!beforeHigh && afterLow) break;
        }
        std::wstring lowText;
        std::wstring highText;
        MTKey lowKey = Key(lo, lowText);
        MTKey highKey = Key(hi, highText);
        MTSearch search;
        index_->Search(lowKey, loInclusive, search);
        FIDSet ids;
        RC_ASSERT(search.ReadTo(highKey, hiInclusive, &ids) == S_OK);
        std::set<int32_t> expectedIds;
        for (const Entry& e : expected) expectedIds.insert(e.second);
        int32_t found = 0;
        ids.get_Count(&found);
        RC_ASSERT(static_cast<size_t>(found) == expectedIds.size());
        for (int32_t id : expectedIds) {
            bool in = false;
            ids.Find(id, &in);
            RC_ASSERT(in);
        }
        CheckNextFrom(lowKey, loInclusive, expected);
        CheckSkipTo(lowKey, !loInclusive);
    }

    void CheckNextFrom(const MTKey& low, bool inclusive, const std::vector<Entry>& expected) {
        MTSearch search;
        index_->Search(low, inclusive, search);
        for (const Entry& e : expected) {
            MTKey key;
            int32_t id = 0;
            RC_ASSERT(search.Next(key, id) == S_OK);
            RC_ASSERT(id == e.second);
            RC_ASSERT(ModelOfKey(key) == e.first);
        }
    }

    ModelKey ModelOfKey(const MTKey& key) const {
        if (key.GetType() == MTString) return {0, key.GetString()};
        return {key.GetWidened(), L""};
    }

    void CheckSkipTo(const MTKey& key, bool after) {
        ModelKey wanted = ModelOfKey(MTKey(key));
        if (IsStringType(kind_.type)) {
            std::wstring text = key.GetString();
            text.resize(std::min<size_t>(
                text.size(), static_cast<size_t>(index_->GetTextCodec().GetCompareChars())));
            while (!text.empty() && text.back() == L' ') text.pop_back();
            wanted = {0, text};
        }
        auto it = std::find_if(model_.begin(), model_.end(), [&](const Entry& e) {
            return after ? e.first > wanted : e.first >= wanted;
        });
        MTSearch search;
        index_->SearchFirst(search);
        HRESULT hr = search.SkipTo(key, after);
        MTKey found;
        int32_t id = 0;
        if (it == model_.end()) {
            RC_ASSERT(hr != S_OK || search.Next(found, id) == S_FALSE);
            return;
        }
        RC_ASSERT(hr == S_OK);
        RC_ASSERT(search.Next(found, id) == S_OK);
        RC_ASSERT(id == it->second);
    }

    void Bulk(const Op& op) {
        bool merge = op.a % 2 == 0;
        if (!merge) model_.clear();
        RC_ASSERT(index_->StartBulkLoad(op.count) == S_OK);
        for (int i = 0; i < op.count; ++i) {
            int k = KeyNumber(op.seed, i);
            int32_t id = IdNumber(op.seed, i);
            std::wstring text;
            Remember(k, id);
            RC_ASSERT(index_->Insert(Key(k, text), id) == S_OK);
        }
        std::wstring text;
        RC_ASSERT(index_->Delete(Key(0, text), 0) == E_UNEXPECTED);
        RC_ASSERT(index_->FinishBulkLoad(merge) == S_OK);
        RC_ASSERT(!index_->IsBulkLoading());
    }

    // The operations of a batch, traced, replayed on a copy of the index as
    // it was before, must give the same index.
    void TraceAndReplay(const Op& op) {
        RC_ASSERT(index_->Flush() == S_OK);
        std::wstring copy = dir_.Wide("copy.idx");
        std::filesystem::path trace = std::filesystem::path(path_).concat(".trace");
        std::filesystem::remove(trace);
        std::filesystem::copy_file(std::filesystem::path(path_), std::filesystem::path(copy),
                                   std::filesystem::copy_options::overwrite_existing);
        RC_ASSERT(index_->SetTrace(true) == S_OK);
        Insert({kInsert, std::max(op.count, 1), op.seed, 0, 0});
        Delete({kDelete, op.count / 2, op.seed + 11, 0, 0});
        RC_ASSERT(index_->SetTrace(false) == S_OK);
        auto replica = test::MakeIndex(kind_);
        RC_ASSERT(test::OpenIndex(*replica, copy, OPEN_EXISTING) == S_OK);
        RC_ASSERT(replica->ReplayTrace(trace.wstring().c_str()) == S_OK);
        Check(*replica, copy);
        RC_ASSERT(replica->Close() == S_OK);
    }

    void Reopen() {
        RC_ASSERT(index_->Close() == S_OK);
        index_ = test::MakeIndex(kind_);
        RC_ASSERT(test::OpenIndex(*index_, path_, OPEN_EXISTING) == S_OK);
    }

    // The first and last keys, and an exclusive search on the greatest key.
    void Edges(const Op&) {
        MTKey key;
        if (model_.empty()) {
            RC_ASSERT(index_->IsEmpty());
            RC_ASSERT(index_->GetMinKey(key) == S_FALSE);
            RC_ASSERT(index_->GetMaxKey(key) == S_FALSE);
            return;
        }
        RC_ASSERT(index_->GetMinKey(key) == S_OK);
        RC_ASSERT(ModelOfKey(key) == model_.begin()->first);
        RC_ASSERT(index_->GetMaxKey(key) == S_OK);
        RC_ASSERT(ModelOfKey(key) == model_.rbegin()->first);
        MTSearch search;
        index_->Search(key, false, search);
        RC_ASSERT(!search.IsValid());
    }

    // Every entry, in order, and a sound file.
    void Check(MTIndex& index, const std::wstring& path) {
        RC_ASSERT(index.Validate() == S_OK);
        std::string fault = test::UnusedBytesFault(path, index);
        RC_ASSERT(fault == "");
        MTSearch search;
        index.SearchFirst(search);
        for (const Entry& e : model_) {
            MTKey key;
            int32_t id = 0;
            RC_ASSERT(search.Next(key, id) == S_OK);
            RC_ASSERT(ModelOfKey(key) == e.first);
            RC_ASSERT(id == e.second);
        }
        MTKey key;
        int32_t id = 0;
        RC_ASSERT(search.Next(key, id) == S_FALSE);
        if (kind_.ng) {
            RC_ASSERT(static_cast<size_t>(static_cast<MTIndexNG&>(index).GetEntryCount()) ==
                      model_.size());
        }
    }

    IndexKind kind_;
    int keyRange_;
    int idRange_;
    test::TempDir dir_;
    std::wstring path_;
    std::unique_ptr<MTIndex> index_;
    Model model_;
    std::map<ModelKey, int> numbers_;  // a key number of each model key
    int maxLevels_ = 0;
};

rc::Gen<Op> GenOp() {
    return rc::gen::build<Op>(
        rc::gen::set(&Op::kind, rc::gen::inRange(0, static_cast<int>(kOpKinds))),
        rc::gen::set(&Op::count, rc::gen::inRange(0, 400)),
        rc::gen::set(&Op::seed, rc::gen::inRange(0, 100000)),
        rc::gen::set(&Op::a, rc::gen::inRange(0, 1000)),
        rc::gen::set(&Op::b, rc::gen::inRange(0, 1000)));
}

RC_GTEST_PROP(MTIndexProperty, BehavesLikeAnOrderedSetOfEntries, ()) {
    IndexKind kind{
        *rc::gen::element(MTString, MTWString, MTShort, MTLong, MTInt64, MTFloat, MTDouble, MTDate),
        0, *rc::gen::arbitrary<bool>()};
    // The widest text keys give the smallest nodes (11 and 24 keys), so
    // that trees grow deep.
    if (kind.type == MTString)
        kind.size = *rc::gen::weightedElement<int>({{1, 3}, {1, 20}, {4, 160}});
    if (kind.type == MTWString)
        kind.size = *rc::gen::weightedElement<int>({{1, 2}, {1, 10}, {4, 80}});
    // Narrow ranges give many equal keys and repeated (key, id) pairs.
    int keyRange = *rc::gen::element(7, 300, 5000);
    int idRange = *rc::gen::element(50, 100000);
    auto ops = *rc::gen::container<std::vector<Op>>(GenOp());
    Harness harness(kind, keyRange, idRange);
    for (const Op& op : ops) harness.Run(op);
    RC_TAG(harness.Levels());
}

}  // namespace
}  // namespace quillet
