// A sort element is the record id followed by the key in its sort form: the
// number as the field's type holds it (an OLE date as a double, whatever the
// mapping), or the width's bytes of multibyte text, space padded. Equal keys
// are ordered by record id, so that a rebuilt index is the same file.

#include "attrindex/MTreeIndexBuilder.h"

#include <cstring>
#include <string>

#include "attrindex/DataEnumerator.h"
#include "attrindex/MultiByteText.h"
#include "attrindex/SortElementCompare.h"
#include "foundation/DebugOutput.h"
#include "foundation/ExternalSort.h"
#include "foundation/File.h"
#include "foundation/Guid.h"
#include "foundation/Locale.h"

namespace quillet {

namespace {

constexpr int32_t kSortMemory = 0x4000000;
constexpr int32_t kSortSizing = 1024;

int CompareShort(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    return CompareSortNumbers<int16_t>(a, b);
}
int CompareLong(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    return CompareSortNumbers<int32_t>(a, b);
}
int CompareSingle(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    return CompareSortNumbers<float>(a, b);
}
int CompareDouble(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    return CompareSortNumbers<double>(a, b);
}
int CompareStringW(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    int c = std::memcmp(a->data + 4, b->data + 4, static_cast<size_t>(a->size - 4));
    return c != 0 ? (c < 0 ? -1 : 1) : CompareSortIds(a, b);
}

ExternalSort::CompareFunction CompareFor(qovaFieldType type) {
    switch (type) {
        case qovaFieldTypeSmallInteger: return CompareShort;
        case qovaFieldTypeInteger: return CompareLong;
        case qovaFieldTypeSingle: return CompareSingle;
        case qovaFieldTypeDouble:
        case qovaFieldTypeDate: return CompareDouble;
        case qovaFieldTypeString:
        case qovaFieldTypeGUID:
        case qovaFieldTypeGlobalID: return CompareStringW;
        default: return nullptr;
    }
}

ExternalSort::PrefixFunction PrefixFor(qovaFieldType type) {
    switch (type) {
        case qovaFieldTypeSmallInteger: return SortNumberPrefix<int16_t>;
        case qovaFieldTypeInteger: return SortNumberPrefix<int32_t>;
        case qovaFieldTypeSingle: return SortNumberPrefix<float>;
        case qovaFieldTypeDouble:
        case qovaFieldTypeDate: return SortNumberPrefix<double>;
        default: return SortBytesPrefix;
    }
}

// Bytes of the key in a sort element.
int32_t SortKeySize(qovaFieldType type, const AtxKeyLayout& layout) {
    if (type == qovaFieldTypeDate) return 8;
    return layout.width;
}

VARTYPE KeyVarType(qovaFieldType type) {
    switch (type) {
        case qovaFieldTypeSmallInteger: return VT_I2;
        case qovaFieldTypeInteger: return VT_I4;
        case qovaFieldTypeSingle: return VT_R4;
        case qovaFieldTypeDouble: return VT_R8;
        case qovaFieldTypeDate: return VT_DATE;
        default: return VT_BSTR;
    }
}

void ReportMissingField() {
    wchar_t iid[64];
    StringFromGUID2(IID_IField, iid, 64);
    OutputDebugStringW(
        String::Formatted(L"QueryInterface on %ls failed: %X\n", iid, 0x80004003u).c_str());
}

}  // namespace

MTreeIndexBuilder::MTreeIndexBuilder() = default;
MTreeIndexBuilder::~MTreeIndexBuilder() = default;

AtxKeyLayout MTreeIndexBuilder::LayoutOf(IField* field, TypeMapping map) {
    qovaFieldType type = qovaFieldTypeBlob;
    int32_t length = 0;
    if (!field || FAILED(field->get_Type(&type)) || FAILED(field->get_Length(&length))) {
        return AtxKeyLayout();
    }
    switch (type) {
        case qovaFieldTypeSmallInteger: return AtxKeyLayout::Make(AtxKeyLayout::kShort, 2, 2);
        case qovaFieldTypeInteger: return AtxKeyLayout::Make(AtxKeyLayout::kLong, 4, 4);
        case qovaFieldTypeSingle: return AtxKeyLayout::Make(AtxKeyLayout::kFloat, 4, 4);
        case qovaFieldTypeDouble: return AtxKeyLayout::Make(AtxKeyLayout::kDouble, 8, 8);
        case qovaFieldTypeDate:
            return map == kTypeMap0 ? AtxKeyLayout::Make(AtxKeyLayout::kDouble, 8, 8)
                                    : AtxKeyLayout::Make(AtxKeyLayout::kText, 8, 8);
        case qovaFieldTypeString: return AtxKeyLayout::Make(AtxKeyLayout::kText, length, length);
        case qovaFieldTypeGUID:
        case qovaFieldTypeGlobalID:
            return AtxKeyLayout::Make(AtxKeyLayout::kText, length, (length + 3) / 4 * 4);
        default: return AtxKeyLayout();
    }
}

bool MTreeIndexBuilder::Init(const FileSystemPath& path, IField* field, TypeMapping map) {
    if (!field) ReportMissingField();
    if (path.GetPath().IsEmpty() || !field || map == kTypeMap1) return false;
    field->get_Type(&type_);
    ExternalSort::CompareFunction compare = CompareFor(type_);
    layout_ = LayoutOf(field, map);
    if (!compare || !layout_.IsValid()) return false;
    path_ = path.GetPath();
    field_ = field;
    map_ = map;
    codePage_ = GetACP();
    asciiAsIs_ = KeyVarType(type_) == VT_BSTR && WritesAsciiAsIs(codePage_);
    element_.assign(static_cast<size_t>(4 + SortKeySize(type_, layout_) + 4), 0);
    sorter_ = std::make_unique<ExternalSort>();
    return sorter_->Init(compare, kSortMemory, kSortSizing) && sorter_->SetPrefix(PrefixFor(type_));
}

bool MTreeIndexBuilder::InsertKey(int32_t id, const unsigned char* key) {
    if (!sorter_) return false;
    int32_t size = 4 + SortKeySize(type_, layout_);
    std::memcpy(element_.data(), &id, 4);
    std::memcpy(element_.data() + 4, key, static_cast<size_t>(size - 4));
    return sorter_->Add(size, element_.data());
}

bool MTreeIndexBuilder::InsertEntry(int32_t id, const VARIANT& value) {
    if (!sorter_) return false;
    // A value of the key's own type is taken as it is, without a copy.
    Variant converted;
    const VARIANT* keyValue = &value;
    if (value.vt != KeyVarType(type_)) {
        if (FAILED(VariantChangeType(&converted, &value, 0, KeyVarType(type_)))) return false;
        keyValue = &converted;
    }
    const VARIANT& key = *keyValue;
    unsigned char bytes[AtxKeyLayout::kNodeSize];
    switch (key.vt) {
        case VT_I2: std::memcpy(bytes, &key.iVal, 2); break;
        case VT_I4: std::memcpy(bytes, &key.lVal, 4); break;
        case VT_R4: std::memcpy(bytes, &key.fltVal, 4); break;
        case VT_R8: std::memcpy(bytes, &key.dblVal, 8); break;
        case VT_DATE: std::memcpy(bytes, &key.date, 8); break;
        default: layout_.StoreText(ToMultiByte(key.bstrVal, codePage_).c_str(), bytes); break;
    }
    return InsertKey(id, bytes);
}

bool MTreeIndexBuilder::InsertAscii(int32_t id, const char* text, int32_t n) {
    if (!asciiAsIs_) return InsertEntry(id, Variant::Bstr(std::wstring(text, text + n).c_str()));
    unsigned char bytes[AtxKeyLayout::kNodeSize];
    layout_.StoreText(text, static_cast<size_t>(n), bytes);
    return InsertKey(id, bytes);
}

bool MTreeIndexBuilder::Create(const FileSystemPath& path, IField* field, DataEnumerator* data,
                               TypeMapping map) {
    if (!data || !Init(path, field, map)) return false;
    int32_t id = 0;
    VARIANT value;
    VariantInit(&value);
    const char* ascii = nullptr;
    int32_t n = 0;
    while (data->NextAscii(id, value, &ascii, n)) {
        bool inserted = ascii ? InsertAscii(id, ascii, n) : InsertEntry(id, value);
        HRESULT hr = VariantClear(&value);
        if (FAILED(hr)) throw static_cast<int32_t>(hr);
        if (!inserted) return false;
    }
    return Write();
}

bool MTreeIndexBuilder::Write() {
    if (!sorter_) return false;
    File file(path_.c_str());
    if (!file.Create(0, 0) || !sorter_->Sort()) return false;
    int32_t nodes = 0;
    if (!WriteLeaves(file, nodes)) return false;
    int32_t first = 1;
    int32_t last = nodes;
    while (last > first) {
        if (!WriteLevel(file, first, last, nodes)) return false;
        first = last + 1;
        last = nodes;
    }
    sorter_.reset();
    return file.Close() != 0;
}

bool MTreeIndexBuilder::WriteLeaves(File& file, int32_t& nodes) {
    MTreeNode leaf(&file, field_, map_, true);
    int64_t total = sorter_->GetCount();
    int64_t done = 0;
    int32_t size = 0;
    const unsigned char* element = nullptr;
    while (sorter_->Next(&size, &element) == 0) {
        if (leaf.IsFull()) {
            leaf.SetBrother(nodes + 2);
            if (!leaf.Append()) return false;
            ++nodes;
        }
        leaf.AddKey(element);
        if (progress_ && ++done % 65536 == 0) progress_(done, total);
    }
    if (progress_) progress_(total, total);
    ++nodes;
    return leaf.Append();
}

bool MTreeIndexBuilder::WriteLevel(File& file, int32_t first, int32_t last, int32_t& nodes) {
    MTreeNode node(&file, field_, map_, false);
    MTreeNode child(&file, field_, map_, true);
    for (int32_t c = first; c <= last; ++c) {
        if (node.IsFull()) {
            node.AddId(c);
            node.SetBrother(nodes + 2);
            if (!node.Append()) return false;
            ++nodes;
        }
        if (!child.Read(c)) return false;
        node.AddRecord(c, child.GetLastRecord());
    }
    node.RemoveLastRecord();
    ++nodes;
    return node.Append();
}

}  // namespace quillet
