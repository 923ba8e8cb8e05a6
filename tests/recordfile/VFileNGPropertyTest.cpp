// Random sequences of inserts, updates, deletes, reservations, user header
// writes, compactions and reopens of a next-generation record file against a
// map of records. After every step every live record reads back, the free
// bytes of the header equal the deleted blocks walked in the data file, and
// every block of the free list is a deleted block, never a live one.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "recordfile/VFileNG.h"
#include "recordfile/VFileNGCheck.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;

enum OpKind {
    kInsert,
    kInsertWithId,
    kUpdate,
    kDelete,
    kReserve,
    kRelease,
    kReleaseAll,
    kUserHeader,
    kCompact,
    kReopen,
    kOpKinds
};

struct Model {
    std::map<int32_t, Bytes> records;
    std::set<int32_t> reserved;
    int32_t maxWritten = 0;
    int32_t maxReserved = 0;
    Bytes userHeader;

    int32_t Next() const { return std::max(maxWritten, maxReserved) + 1; }
    void Unreserve(int32_t n) {
        reserved.erase(n);
        if (reserved.empty()) maxReserved = 0;
    }
    void Compact(bool renumber) {
        if (renumber) {
            std::map<int32_t, Bytes> renumbered;
            for (auto& [n, bytes] : records) {
                renumbered.emplace(static_cast<int32_t>(renumbered.size()) + 1, bytes);
            }
            records.swap(renumbered);
            reserved.clear();
            maxReserved = 0;
        }
        maxWritten = records.empty() ? 0 : records.rbegin()->first;
    }
};

Bytes Data(int length, int seed) {
    Bytes data(static_cast<size_t>(length));
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(seed + 13 * i);
    return data;
}

void CheckAgainst(VFileNG& file, const Model& model) {
    for (const auto& [n, bytes] : model.records) {
        Bytes read(bytes.size() + 1);
        int32_t length = -1;
        RC_ASSERT(file.ReadRecord(n, read.data(), static_cast<int32_t>(read.size()), &length));
        read.resize(static_cast<size_t>(length));
        RC_ASSERT(read == bytes);
    }
    RC_ASSERT(file.GetRecordCount() ==
              static_cast<int32_t>(model.records.size() + model.reserved.size()));
    RC_ASSERT(file.GetUserHeaderLength() == static_cast<int32_t>(model.userHeader.size()));
    if (!model.userHeader.empty()) {
        Bytes user(model.userHeader.size());
        RC_ASSERT(file.ReadUserHeader(user.data(), static_cast<int32_t>(user.size())));
        RC_ASSERT(user == model.userHeader);
    }
    auto report = VFileNGCheck::Run(file, file.GetFreeList());
    RC_ASSERT(report.problems == std::vector<std::string>{});
}

// The number an operation aims at: a live, reserved or deleted one, or one
// beyond everything, sometimes in a chunk of its own.
int32_t PickNumber(const Model& model, int target) {
    std::vector<int32_t> known;
    for (const auto& [n, bytes] : model.records) known.push_back(n);
    known.insert(known.end(), model.reserved.begin(), model.reserved.end());
    if (target % 4 == 0 || known.empty()) return 1 + target % (model.Next() + 3000);
    return known[static_cast<size_t>(target) % known.size()];
}

RC_GTEST_PROP(VFileNGProperty, BehavesLikeAMapOfRecords, ()) {
    auto ops = *rc::gen::container<std::vector<std::tuple<int, int, int, int>>>(
        rc::gen::tuple(rc::gen::inRange(0, static_cast<int>(kOpKinds)), rc::gen::inRange(0, 10000),
                       rc::gen::oneOf(rc::gen::inRange(0, 200), rc::gen::inRange(0, 3000)),
                       rc::gen::inRange(0, 256)));
    test::TempDir dir;
    auto path = dir.Wide("m.dat");
    VFileNG file(path.c_str());
    RC_ASSERT(file.Create(VFileNG::kReadWrite, false, 5, false));
    Model model;
    for (auto [kind, target, length, seed] : ops) {
        Bytes data = Data(length, seed);
        auto size = static_cast<int32_t>(data.size());
        int32_t n = PickNumber(model, target);
        bool live = model.records.count(n) > 0;
        switch (kind) {
            case kInsert: {
                int32_t number = -1;
                RC_ASSERT(file.InsertRecord(data.data(), size, &number));
                RC_ASSERT(number == model.Next());
                model.records[number] = data;
                model.maxWritten = number;
                break;
            }
            case kInsertWithId:
                RC_ASSERT(file.InsertRecordWithId(n, data.data(), size) == !live);
                if (live) break;
                model.Unreserve(n);
                model.records[n] = data;
                model.maxWritten = std::max(model.maxWritten, n);
                break;
            case kUpdate: {
                bool reserved = model.reserved.count(n) > 0;
                // Shorter, equal or longer than the record it replaces.
                int old = live ? static_cast<int>(model.records[n].size()) : 0;
                if (live)
                    data =
                        Data(std::max(0, old + target % 9 - 4) + (target % 3 ? 0 : length), seed);
                RC_ASSERT(file.UpdateRecord(n, data.data(), static_cast<int32_t>(data.size())) ==
                          (live || reserved));
                if (!live && !reserved) break;
                model.Unreserve(n);
                model.records[n] = data;
                model.maxWritten = std::max(model.maxWritten, n);
                break;
            }
            case kDelete:
                if (!live && !model.reserved.count(n)) break;
                RC_ASSERT(file.DeleteRecord(n));
                model.records.erase(n);
                model.Unreserve(n);
                break;
            case kReserve:
                RC_ASSERT(file.AllocateReservedRecordNumber() == model.Next());
                model.maxReserved = model.Next();
                model.reserved.insert(model.maxReserved);
                break;
            case kRelease:
                if (!model.reserved.count(n)) break;
                RC_ASSERT(file.ReleaseReservedRecordNumber(n));
                model.Unreserve(n);
                break;
            case kReleaseAll:
                RC_ASSERT(file.ReleaseAllReservedRecordNumbers());
                model.reserved.clear();
                model.maxReserved = 0;
                break;
            case kUserHeader: {
                auto old = static_cast<int32_t>(model.userHeader.size());
                RC_ASSERT(file.WriteUserHeader(data.data(), size));
                // A tail too short for a block of its own stays, as zeros.
                if (size < old && size + file.GetRecordHeaderLength() > old) data.resize(old, 0);
                model.userHeader = data;
                break;
            }
            case kCompact:
            case kReopen: {
                bool renumber = target % 2 == 0;
                bool rewrites = file.HasFreeSpace() || file.GetHeader().freeBytes > 0;
                if (kind == kCompact) {
                    RC_ASSERT(file.CompactFile(renumber));
                } else {
                    file.Close(renumber);
                    RC_ASSERT(file.Open(VFileNG::kReadWrite, true, false));
                }
                if (rewrites && (kind == kCompact || renumber)) model.Compact(renumber);
                break;
            }
        }
        CheckAgainst(file, model);
    }
    file.Close(false);
    RC_ASSERT(file.Open(VFileNG::kReadOnly, true, false));
    CheckAgainst(file, model);
}

}  // namespace
}  // namespace quillet
