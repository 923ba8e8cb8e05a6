// Reading an .atx file: descents from the root (the last node) and the scan
// along the leaves' brother links. Every node number and count read from the
// file is checked before it is followed, and a scan visits at most as many
// leaves as the file has nodes, so a damaged file ends a search instead of
// looping.

#include "attrindex/LegacyIndex.h"

#include <cmath>
#include <cstring>

#include "foundation/String.h"

namespace quillet {

namespace {

constexpr int kMaxDepth = 32;

int Sign(double a, double b) {
    bool aNan = std::isnan(a);
    bool bNan = std::isnan(b);
    if (aNan || bNan) return aNan == bNan ? 0 : (aNan ? 1 : -1);
    return a < b ? -1 : (a > b ? 1 : 0);
}

}  // namespace

int32_t LegacyIndex::Node::Word(int32_t i) const {
    int32_t value;
    std::memcpy(&value, image + 4 * i, 4);
    return value;
}

AtxKeyLayout LegacyIndex::LayoutOf(const int32_t key[4]) {
    if (!key || key[0] != 0) return AtxKeyLayout();
    int32_t width = key[1];
    switch (key[2]) {
        case 1: return AtxKeyLayout::Make(AtxKeyLayout::kDouble, 8, 8);
        case 2: return AtxKeyLayout::Make(AtxKeyLayout::kText, width, width);
        case 3:
            return width <= 4 ? AtxKeyLayout::Make(AtxKeyLayout::kShort, 2, 2)
                              : AtxKeyLayout::Make(AtxKeyLayout::kLong, 4, 4);
        case 4:
            return width <= 8 ? AtxKeyLayout::Make(AtxKeyLayout::kFloat, 4, 4)
                              : AtxKeyLayout::Make(AtxKeyLayout::kDouble, 8, 8);
        case 5:
            if (width == 2) return AtxKeyLayout::Make(AtxKeyLayout::kShort, 2, 2);
            return width == 4 ? AtxKeyLayout::Make(AtxKeyLayout::kLong, 4, 4) : AtxKeyLayout();
        case 6:
            if (width == 4) return AtxKeyLayout::Make(AtxKeyLayout::kFloat, 4, 4);
            return width == 8 ? AtxKeyLayout::Make(AtxKeyLayout::kDouble, 8, 8) : AtxKeyLayout();
        default: return AtxKeyLayout();
    }
}

LegacyIndex::LegacyIndex(const std::string& path) : path_(path) {}

bool LegacyIndex::Open(const AtxKeyLayout& layout, bool writable) {
    if (!layout.IsValid()) return false;
    layout_ = layout;
    writable_ = writable;
    file_ = std::make_unique<File>(String::FromUtf8(path_).c_str());
    // Others may read meanwhile but not write, so that a reader may map the file.
    if (!file_->Open(writable ? 0 : 1, 0, 1, 0, 0)) return false;
    int64_t size = file_->GetLengthEx();
    if (size < AtxKeyLayout::kNodeSize || size / AtxKeyLayout::kNodeSize > 0x7FFFFFFF) {
        return false;
    }
    nodes_ = static_cast<int32_t>(size / AtxKeyLayout::kNodeSize);
    position_ = 0;
    leaf_.number = 0;
    return true;
}

bool LegacyIndex::ReadNode(int32_t number, Node& node) {
    if (number < 1 || number > nodes_) return false;
    if (node.number == number) return true;
    node.number = 0;
    if (!file_->SeekEx(int64_t{number - 1} * AtxKeyLayout::kNodeSize, File::kBegin) ||
        file_->Read(node.image, AtxKeyLayout::kNodeSize) != AtxKeyLayout::kNodeSize ||
        !layout_.FromDisk(node.image)) {
        return false;
    }
    node.number = number;
    return true;
}

LegacyIndex::Key LegacyIndex::MakeKey(double number, const char* text) const {
    Key key;
    key.number = number;
    if (layout_.IsText()) {
        key.text.assign(static_cast<size_t>(layout_.width), ' ');
        layout_.StoreText(text, reinterpret_cast<unsigned char*>(key.text.data()));
    }
    return key;
}

int LegacyIndex::CompareKey(const unsigned char* stored, const Key& key) const {
    if (!layout_.IsText()) return Sign(layout_.NumberOf(stored), key.number);
    int c = std::memcmp(stored, key.text.data(), static_cast<size_t>(layout_.width));
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

bool LegacyIndex::Descend(const Key& key, bool inclusive) {
    Node node;
    int32_t number = nodes_;
    for (int depth = 0;; ++depth) {
        if (depth > kMaxDepth || !ReadNode(number, node)) return false;
        int32_t count = node.Count();
        int32_t i = 0;
        auto before = [&](int32_t k) {
            int c = CompareKey(layout_.KeyAt(node.image, k), key);
            return inclusive ? c < 0 : c <= 0;
        };
        while (i < count && before(i)) ++i;
        if (node.IsLeaf()) {
            leaf_ = node;
            position_ = i;
            return true;
        }
        number = node.Child(i);
    }
}

bool LegacyIndex::SkipEmptyLeaves() {
    while (leaf_.number != 0 && position_ >= leaf_.Count()) {
        int32_t brother = leaf_.Word(0);
        if (brother == 0 || ++hops_ > nodes_ || !ReadNode(brother, leaf_) || !leaf_.IsLeaf()) {
            damaged_ = brother != 0;
            leaf_.number = 0;
            return false;
        }
        position_ = 0;
    }
    return leaf_.number != 0;
}

bool LegacyIndex::Seek(const Key& key, bool inclusive) {
    hops_ = 0;
    damaged_ = false;
    if (!Descend(key, inclusive)) {
        damaged_ = true;
        leaf_.number = 0;
        return false;
    }
    return SkipEmptyLeaves();
}

bool LegacyIndex::Top() {
    hops_ = 0;
    damaged_ = false;
    Node node;
    int32_t number = nodes_;
    for (int depth = 0; depth <= kMaxDepth; ++depth) {
        if (!ReadNode(number, node)) break;
        if (node.IsLeaf()) {
            leaf_ = node;
            position_ = 0;
            return SkipEmptyLeaves();
        }
        number = node.Child(0);
    }
    damaged_ = true;
    leaf_.number = 0;
    return false;
}

int32_t LegacyIndex::CountLevels() {
    Node node;
    int32_t number = nodes_;
    for (int32_t levels = 1; levels <= kMaxDepth; ++levels) {
        if (!ReadNode(number, node)) return 0;
        if (node.IsLeaf()) return levels;
        number = node.Child(0);
    }
    return 0;
}

bool LegacyIndex::Next(int32_t& id, Key& key) {
    if (!SkipEmptyLeaves()) return false;
    id = leaf_.Word(3 + position_);
    const unsigned char* stored = layout_.KeyAt(leaf_.image, position_);
    if (layout_.IsText()) {
        key.text.assign(reinterpret_cast<const char*>(stored), static_cast<size_t>(layout_.width));
    } else {
        key.number = layout_.NumberOf(stored);
    }
    ++position_;
    return true;
}

}  // namespace quillet
