// The node that MTreeIndexBuilder fills: a host-order image appended to the
// end of the file in the file's big-endian order.

#include <cmath>
#include <cstdio>
#include <cstring>

#include "attrindex/MTreeIndexBuilder.h"
#include "foundation/File.h"

namespace quillet {

namespace {

// Dates under the text mappings: year, month and day each space padded, or
// the day number right-aligned, both cut to the key's eight bytes.
void DateText(double date, MTreeIndexBuilder::TypeMapping map, unsigned char* key) {
    char text[64];
    if (map == MTreeIndexBuilder::kTypeMap1) {
        SYSTEMTIME time{};
        VariantTimeToSystemTime(date, &time);
        std::snprintf(text, sizeof text, "%4d%2d%2d", time.wYear, time.wMonth, time.wDay);
    } else {
        double day = std::trunc(date);
        std::snprintf(text, sizeof text, "%8d",
                      std::fabs(day) < 2147483647.0 ? static_cast<int>(day) : 0);
    }
    std::memcpy(key, text, 8);
}

}  // namespace

MTreeIndexBuilder::MTreeNode::MTreeNode(File* file, IField* field, TypeMapping map, bool leaf)
    : file_(file), layout_(LayoutOf(field, map)), map_(map), leaf_(leaf) {
    field->get_Type(&type_);
    Clear();
}

void MTreeIndexBuilder::MTreeNode::Clear() {
    std::memset(image_, 0, sizeof image_);
    count_ = 0;
}

void MTreeIndexBuilder::MTreeNode::SetWord(int32_t i, int32_t value) {
    std::memcpy(image_ + 4 * i, &value, 4);
}

int32_t MTreeIndexBuilder::MTreeNode::GetWord(int32_t i) const {
    int32_t value;
    std::memcpy(&value, image_ + 4 * i, 4);
    return value;
}

void MTreeIndexBuilder::MTreeNode::AddKey(const unsigned char* element) {
    int32_t id;
    std::memcpy(&id, element, 4);
    const unsigned char* key = element + 4;
    if (type_ != qovaFieldTypeDate || map_ == kTypeMap0) {
        AddRecord(id, key);
        return;
    }
    if (map_ != kTypeMap1 && map_ != kTypeMap2) return;
    double date;
    std::memcpy(&date, key, 8);
    unsigned char text[8];
    DateText(date, map_, text);
    AddRecord(id, text);
}

void MTreeIndexBuilder::MTreeNode::AddRecord(int32_t id, const unsigned char* key) {
    SetWord(leaf_ ? 3 + count_ : 2 + count_, id);
    std::memcpy(layout_.KeyAt(image_, count_), key, static_cast<size_t>(layout_.width));
    SetWord(1, ++count_);
}

void MTreeIndexBuilder::MTreeNode::AddId(int32_t id) {
    SetWord(2 + count_, id);
}

const unsigned char* MTreeIndexBuilder::MTreeNode::GetLastRecord() const {
    return layout_.KeyAt(image_, count_ > 0 ? count_ - 1 : 0);
}

void MTreeIndexBuilder::MTreeNode::RemoveLastRecord() {
    if (count_ == 0) return;
    --count_;
    std::memset(layout_.KeyAt(image_, count_), 0, static_cast<size_t>(layout_.stride));
    SetWord(1, count_);
}

bool MTreeIndexBuilder::MTreeNode::Read(int32_t node) {
    if (node < 1 || !file_->SeekEx(int64_t{node - 1} * AtxKeyLayout::kNodeSize, File::kBegin) ||
        file_->Read(image_, AtxKeyLayout::kNodeSize) != AtxKeyLayout::kNodeSize ||
        !layout_.FromDisk(image_)) {
        return false;
    }
    count_ = GetWord(1);
    leaf_ = GetWord(2) == 0;
    return true;
}

bool MTreeIndexBuilder::MTreeNode::Append() {
    alignas(8) unsigned char disk[AtxKeyLayout::kNodeSize];
    layout_.ToDisk(image_, disk);
    bool written = file_->SeekEx(0, File::kEnd) &&
                   file_->Write(disk, AtxKeyLayout::kNodeSize) == AtxKeyLayout::kNodeSize;
    Clear();
    return written;
}

}  // namespace quillet
