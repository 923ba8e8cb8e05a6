// Random sequences of writes, rewrites, deletions, compactions and reopens of
// a VFile against a vector of optional records.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <optional>
#include <tuple>
#include <vector>

#include "recordfile/VFile.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;
using Model = std::vector<std::optional<Bytes>>;

enum OpKind { kAppend, kRewrite, kDelete, kCompact, kReopen, kRead, kOpKinds };

struct Layout {
    VFile::FileType type;
    int32_t recordWords;  // 0: variable-length
    VFile::AccessMethod method;
};

// The bytes a record reads back as: padded to a whole word, or to the fixed
// length.
Bytes Stored(Bytes data, const Layout& layout) {
    size_t size = layout.recordWords > 0 ? static_cast<size_t>(layout.recordWords) * 2
                                         : (data.size() + 1) / 2 * 2;
    data.resize(size, 0);
    return data;
}

// Compaction renumbers the live records, and the file it leaves is big-endian
// whatever it was before.
void Compact(Model& model, Layout& layout) {
    std::erase_if(model, [](const std::optional<Bytes>& record) { return !record; });
    layout.type = VFile::kBigEndian;
}

void CheckAgainst(VFile& file, const Model& model) {
    RC_ASSERT(file.GetNumRecs() == static_cast<int32_t>(model.size()));
    for (size_t n = 0; n < model.size(); ++n) {
        auto number = static_cast<int32_t>(n);
        RC_ASSERT(file.IsRecordDeleted(number) == !model[n]);
        if (!model[n]) continue;
        auto length = static_cast<int32_t>(model[n]->size());
        RC_ASSERT(file.GetRecordLength(number) == length);
        Bytes bytes(model[n]->size());
        RC_ASSERT(file.ReadRecord(number, bytes.data(), length));
        RC_ASSERT(bytes == *model[n]);
    }
}

RC_GTEST_PROP(VFileProperty, BehavesLikeAVectorOfRecords, ()) {
    Layout layout;
    layout.type = *rc::gen::element(VFile::kBigEndian, VFile::kLittleEndian);
    layout.recordWords = *rc::gen::element(0, 0, 3, 16);
    layout.method = layout.recordWords == 0 ? VFile::kIndexed
                                            : *rc::gen::element(VFile::kIndexed, VFile::kNotIndexed);
    auto ops = *rc::gen::container<std::vector<std::tuple<int, int, int, int>>>(
        rc::gen::tuple(rc::gen::inRange(0, static_cast<int>(kOpKinds)), rc::gen::inRange(0, 1000),
                       rc::gen::inRange(1, 40), rc::gen::inRange(0, 256)));

    test::TempDir dir;
    auto path = dir.Wide("p.dat");
    VFile file(path.c_str());
    RC_ASSERT(file.Create(5, VFile::kReadWrite, false, layout.method, layout.recordWords, layout.type));
    Model model;
    bool deletions = false;  // since the last compaction: Close compacts
    const int maxLength = layout.recordWords > 0 ? layout.recordWords * 2 : 40;
    for (auto [kind, target, length, seed] : ops) {
        Bytes data(static_cast<size_t>(std::min(length, maxLength)));
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(seed + 7 * i);
        // The first bytes of a live fixed-length record must not spell the deletion marker.
        if (!data.empty()) data[0] &= 0x7F;
        int32_t n = model.empty() ? 0 : target % static_cast<int32_t>(model.size());
        auto size = static_cast<int32_t>(data.size());
        switch (kind) {
            case kAppend:
                RC_ASSERT(file.WriteNextRecord(data.data(), size) == static_cast<int32_t>(model.size()));
                model.push_back(Stored(data, layout));
                break;
            case kRewrite: {
                if (model.empty()) break;
                RC_ASSERT(file.WriteRecord(n, data.data(), size));
                // A new length moves the record to the end and deletes its old bytes.
                auto& record = model[static_cast<size_t>(n)];
                deletions |= !record || record->size() != Stored(data, layout).size();
                record = Stored(data, layout);
                break;
            }
            case kDelete:
                if (model.empty()) break;
                RC_ASSERT(file.DeleteRecord(n));
                model[static_cast<size_t>(n)].reset();
                deletions = true;
                break;
            case kCompact:
                RC_ASSERT(file.CompactFile());
                Compact(model, layout);
                deletions = false;
                break;
            case kReopen:
                RC_ASSERT(file.Close());
                if (deletions) Compact(model, layout);
                deletions = false;
                RC_ASSERT(file.Open(VFile::kReadWrite, layout.method, false, false));
                RC_ASSERT(file.GetFileType() == layout.type);
                break;
            case kRead:
                if (model.empty()) break;
                CheckAgainst(file, model);
                break;
        }
    }
    CheckAgainst(file, model);
    RC_ASSERT(file.Close());
    if (deletions) Compact(model, layout);
    RC_ASSERT(file.Open(VFile::kReadOnly, layout.method, false, false));
    RC_ASSERT(file.GetFileType() == layout.type);
    CheckAgainst(file, model);
    Bytes user(72);
    RC_ASSERT(file.ReadUserHeader(user.data(), 72));
    RC_ASSERT(file.GetUserType() == 5);
}

}  // namespace
}  // namespace quillet
