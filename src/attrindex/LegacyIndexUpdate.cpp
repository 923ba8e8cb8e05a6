// Updates of an .atx file. A single insert or delete rewrites the file
// through the bulk builder from the entries in order, so that the file stays
// exactly the tree a bulk build of the same entries writes (full leaves, the
// root last). The new file is written beside the old one and renamed over
// it, so a failure leaves the old index whole.

#include <cstdio>

#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "foundation/IField.h"

namespace quillet {

namespace {

Field FieldOfLayout(const AtxKeyLayout& layout) {
    switch (layout.keyClass) {
        case AtxKeyLayout::kShort: return Field(L"key", qovaFieldTypeSmallInteger, 2);
        case AtxKeyLayout::kLong: return Field(L"key", qovaFieldTypeInteger, 4);
        case AtxKeyLayout::kFloat: return Field(L"key", qovaFieldTypeSingle, 4);
        case AtxKeyLayout::kDouble: return Field(L"key", qovaFieldTypeDouble, 8);
        case AtxKeyLayout::kText: break;
    }
    qovaFieldType type = layout.stride == layout.width ? qovaFieldTypeString : qovaFieldTypeGUID;
    return Field(L"key", type, layout.width);
}

}  // namespace

bool LegacyIndex::CreateEmpty(const std::string& path, const AtxKeyLayout& layout) {
    Field field = FieldOfLayout(layout);
    MTreeIndexBuilder builder;
    return layout.IsValid() &&
           builder.Init(String::FromUtf8(path), &field, MTreeIndexBuilder::kTypeMap0) &&
           builder.Write();
}

bool LegacyIndex::ToKeyBytes(const Key& key, unsigned char* out) const {
    if (!layout_.IsText()) return layout_.StoreNumber(key.number, out);
    key.text.copy(reinterpret_cast<char*>(out), static_cast<size_t>(layout_.width));
    return true;
}

bool LegacyIndex::Add(const Key& key, int32_t id) {
    return writable_ && Rewrite(&key, nullptr, id);
}

bool LegacyIndex::Delete(const Key& key, int32_t id) {
    return writable_ && Rewrite(nullptr, &key, id);
}

bool LegacyIndex::Rewrite(const Key* added, const Key* removed, int32_t id) {
    unsigned char bytes[AtxKeyLayout::kNodeSize];
    unsigned char addedBytes[AtxKeyLayout::kNodeSize];
    if (added && !ToKeyBytes(*added, addedBytes)) return false;
    std::string temporary = path_ + ".tmp";
    Field field = FieldOfLayout(layout_);
    MTreeIndexBuilder builder;
    if (!builder.Init(String::FromUtf8(temporary), &field, MTreeIndexBuilder::kTypeMap0)) {
        return false;
    }
    bool found = false;
    int32_t entryId = 0;
    Key entry;
    Top();
    while (Next(entryId, entry)) {
        if (!ToKeyBytes(entry, bytes)) return false;
        if (entryId == id && !found &&
            (added ? layout_.Compare(bytes, addedBytes) : CompareKey(bytes, *removed)) == 0) {
            found = true;
            if (removed) continue;
        }
        if (!builder.InsertKey(entryId, bytes)) return false;
    }
    if (IsDamaged()) return false;
    if (added ? found || !builder.InsertKey(id, addedBytes) : !found) return false;
    if (!builder.Write()) {
        std::remove(temporary.c_str());
        return false;
    }
    file_.reset();
    bool renamed = std::rename(temporary.c_str(), path_.c_str()) == 0;
    if (!renamed) std::remove(temporary.c_str());
    bool reopened = Open(layout_, writable_);
    return renamed && reopened;
}

}  // namespace quillet
