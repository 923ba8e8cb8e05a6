// Updates of an .atx file. An entry that goes into (or leaves) a leaf with
// room, and is not the leaf's last, changes that leaf alone: no separator
// above it moves. Any other update rewrites the file through the bulk
// builder from the entries in order, so that the tree stays one a bulk build
// writes (full leaves, the root last); the new file is written beside the
// old one and renamed over it, so a failure leaves the old index whole.

#include <cstdio>
#include <cstring>

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
    unsigned char bytes[AtxKeyLayout::kNodeSize];
    bool exact = false;
    if (!writable_ || !ToKeyBytes(key, bytes)) return false;
    if (!Locate(bytes, id, exact) || leaf_.Count() >= layout_.maxKeys) {
        return !exact && Rewrite(&key, nullptr, id);
    }
    if (exact) return false;
    int32_t count = leaf_.Count();
    unsigned char* at = layout_.KeyAt(leaf_.image, position_);
    std::memmove(at + layout_.stride, at,
                 static_cast<size_t>((count - position_) * layout_.stride));
    std::memcpy(at, bytes, static_cast<size_t>(layout_.width));
    unsigned char* ids = leaf_.image + 4 * (3 + position_);
    std::memmove(ids + 4, ids, static_cast<size_t>(4 * (count - position_)));
    std::memcpy(ids, &id, 4);
    return WriteLeaf(count + 1);
}

bool LegacyIndex::Delete(const Key& key, int32_t id) {
    unsigned char bytes[AtxKeyLayout::kNodeSize];
    bool exact = false;
    // A number the key class does not hold exactly is in no entry.
    if (!writable_ || !ToKeyBytes(key, bytes) || CompareKey(bytes, key) != 0 ||
        !Locate(bytes, id, exact) || !exact) {
        return false;
    }
    int32_t count = leaf_.Count();
    if (position_ + 1 >= count) return Rewrite(nullptr, &key, id);
    unsigned char* at = layout_.KeyAt(leaf_.image, position_);
    std::memmove(at, at + layout_.stride,
                 static_cast<size_t>((count - position_ - 1) * layout_.stride));
    std::memset(layout_.KeyAt(leaf_.image, count - 1), 0, static_cast<size_t>(layout_.stride));
    unsigned char* ids = leaf_.image + 4 * (3 + position_);
    std::memmove(ids, ids + 4, static_cast<size_t>(4 * (count - position_ - 1)));
    std::memset(leaf_.image + 4 * (3 + count - 1), 0, 4);
    return WriteLeaf(count - 1);
}

bool LegacyIndex::Locate(const unsigned char* key, int32_t id, bool& exact) {
    exact = false;
    Key start;
    start.number = layout_.NumberOf(key);
    start.text.assign(reinterpret_cast<const char*>(key), static_cast<size_t>(layout_.width));
    if (!Seek(start, true)) return false;
    while (SkipEmptyLeaves()) {
        int c = layout_.Compare(layout_.KeyAt(leaf_.image, position_), key);
        int32_t storedId = leaf_.Word(3 + position_);
        if (c > 0 || (c == 0 && storedId >= id)) {
            exact = c == 0 && storedId == id;
            return true;
        }
        ++position_;
    }
    return false;
}

bool LegacyIndex::WriteLeaf(int32_t count) {
    std::memcpy(leaf_.image + 4, &count, 4);
    alignas(8) unsigned char disk[AtxKeyLayout::kNodeSize];
    layout_.ToDisk(leaf_.image, disk);
    return file_->SeekEx(int64_t{leaf_.number - 1} * AtxKeyLayout::kNodeSize, File::kBegin) &&
           file_->Write(disk, AtxKeyLayout::kNodeSize) == AtxKeyLayout::kNodeSize && file_->Flush();
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
