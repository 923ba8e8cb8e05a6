#include "attrindex/MTIndexNG.h"

#include <algorithm>
#include <cstring>

#include "foundation/ByteOrder.h"
#include "foundation/IField.h"

namespace quillet {

namespace {

constexpr int32_t kNodeSize = MTNodeGeometry::kNextGenerationNodeSize;
constexpr int32_t kMaxNodes = 0x7FFFFFFF;

enum KeyClass : uint16_t { kByteString = 0, kWideString = 1, kInteger = 2, kFloat = 3 };

}  // namespace

void MTIndexNG::Trailer::EncodeTo(unsigned char* out) const {
    EncodeFixed16LE(out, typeWord);
    EncodeFixed32LE(out + 2, static_cast<uint32_t>(formatMark));
    EncodeFixed32LE(out + 6, static_cast<uint32_t>(levels & 0xFF));
    EncodeFixed32LE(out + 10, static_cast<uint32_t>(entryCount));
    EncodeFixed32LE(out + 14, static_cast<uint32_t>(freeHead));
    EncodeFixed32LE(out + 18, static_cast<uint32_t>(secondMark));
}

HRESULT MTIndexNG::Trailer::DecodeFrom(const unsigned char* in) {
    typeWord = DecodeFixed16LE(in);
    formatMark = static_cast<int32_t>(DecodeFixed32LE(in + 2));
    levels = static_cast<int32_t>(DecodeFixed32LE(in + 6));
    entryCount = static_cast<int32_t>(DecodeFixed32LE(in + 10));
    freeHead = static_cast<int32_t>(DecodeFixed32LE(in + 14));
    secondMark = static_cast<int32_t>(DecodeFixed32LE(in + 18));
    if (formatMark > 1 || levels > kMaxLevels) return E_UNEXPECTED;
    return secondMark > 1 ? E_FAIL : S_OK;
}

HRESULT MTIndexNG::Trailer::TypeWordOf(MTDataType type, int32_t width, uint16_t& word) {
    uint16_t keyClass;
    switch (type) {
        case MTString:
        case MTDateMap2:
        case MTDateMap1: keyClass = kByteString; break;
        case MTWString: keyClass = kWideString; break;
        case MTShort:
        case MTLong:
        case MTInt64: keyClass = kInteger; break;
        case MTFloat:
        case MTDouble:
        case MTDate: keyClass = kFloat; break;
        default: return E_UNEXPECTED;
    }
    word = static_cast<uint16_t>(keyClass << 13 | (width & 0x1FFF));
    return S_OK;
}

HRESULT MTIndexNG::Trailer::TypeOf(uint16_t word, MTDataType& type, int32_t& width) {
    width = word & 0x1FFF;
    switch (word >> 13) {
        case kByteString: type = MTString; break;
        case kWideString: type = width % 2 == 0 ? MTWString : MTNone; break;
        case kInteger:
            type = width == 2 ? MTShort : width == 4 ? MTLong : width == 8 ? MTInt64 : MTNone;
            break;
        case kFloat: type = width == 4 ? MTFloat : width == 8 ? MTDouble : MTNone; break;
        default: type = MTNone; break;
    }
    bool textWidthOk = width >= 1 && width <= kMaxStringWidth;
    return type == MTNone || (IsStringType(type) && !textWidthOk) ? E_UNEXPECTED : S_OK;
}

MTIndexNG::MTIndexNG() : MTIndex(kNodeSize) {
    CalculateMaxKeys();
}

MTIndexNG::MTIndexNG(MTDataType type, int32_t size, uint32_t codePage) : MTIndexNG() {
    SetCodePage(codePage);
    SetDataType(type, size);
}

MTIndexNG::~MTIndexNG() {
    Close();
}

HRESULT MTIndexNG::Create(const wchar_t* path, IField* field) {
    if (!field) return E_POINTER;
    qovaFieldType fieldType = qovaFieldTypeSmallInteger;
    int32_t length = 0;
    if (FAILED(field->get_Type(&fieldType)) || FAILED(field->get_Length(&length))) return E_FAIL;
    HRESULT hr;
    switch (fieldType) {
        case qovaFieldTypeSmallInteger: hr = SetDataType(MTShort, 2); break;
        case qovaFieldTypeInteger: hr = SetDataType(MTLong, 4); break;
        case qovaFieldTypeSingle: hr = SetDataType(MTFloat, 4); break;
        case qovaFieldTypeDouble:
        case qovaFieldTypeDate: hr = SetDataType(MTDouble, 8); break;
        case qovaFieldTypeString: hr = SetDataType(MTWString, length); break;
        case qovaFieldTypeGUID:
        case qovaFieldTypeGlobalID: hr = SetDataType(MTString, length); break;
        default: hr = SetDataType(MTNone, 0); break;
    }
    if (FAILED(hr)) return hr;
    return Open(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void MTIndexNG::CalculateMaxKeys() {
    SetGeometry(MTNodeGeometry::NextGeneration(GetGeometry().keyWidth));
}

HRESULT MTIndexNG::SetupCache() {
    SetRootIndex(1);
    return LoadLeftmostPath();
}

HRESULT MTIndexNG::ReadMetadata() {
    int64_t size = Size();
    if (size % kNodeSize != Trailer::kLength) return E_UNEXPECTED;
    unsigned char bytes[Trailer::kLength];
    HRESULT hr = ReadAt(size - Trailer::kLength, bytes, Trailer::kLength);
    Trailer trailer;
    if (SUCCEEDED(hr)) hr = trailer.DecodeFrom(bytes);
    MTDataType type = MTNone;
    int32_t width = 0;
    if (SUCCEEDED(hr)) hr = Trailer::TypeOf(trailer.typeWord, type, width);
    if (FAILED(hr)) return hr;
    SetDataType(type, type == MTWString ? width / 2 : width);
    if (IsStringType(type) && width >= kMaxStringWidth) SetKeysTruncated(true);
    if (trailer.levels > GetLevels()) SetLevels(trailer.levels);
    entryCount_ = trailer.entryCount;
    freeHead_ = trailer.freeHead;
    return S_OK;
}

HRESULT MTIndexNG::WriteMetadata() {
    if (!IsOpen()) return S_OK;
    Trailer trailer;
    HRESULT hr = Trailer::TypeWordOf(GetDataType(), GetKeyWidth(), trailer.typeWord);
    if (FAILED(hr)) return hr;
    trailer.levels = GetLevels();
    trailer.entryCount = entryCount_;
    trailer.freeHead = freeHead_;
    unsigned char bytes[Trailer::kLength];
    trailer.EncodeTo(bytes);
    return WriteAt(static_cast<int64_t>(GetNodeCount()) * kNodeSize, bytes, Trailer::kLength);
}

bool MTIndexNG::TakeFreeNode(int32_t& nodeIndex) {
    int32_t head = freeHead_;
    freeHead_ = 0;
    if (!IsNodeOfFile(head)) return false;
    // A node on the list that holds keys means the list is not to be trusted.
    HRESULT hr = probe_.ReadNode(head);
    int32_t count = probe_.GetCount();
    int32_t next = probe_.GetBrother();
    probe_.Forget();
    if (hr != S_OK || count >= 1) return false;
    freeHead_ = next == head ? 0 : next;
    nodeIndex = head;
    return true;
}

HRESULT MTIndexNG::AssignNewNodeIndex(int32_t& nodeIndex) {
    if (freeHead_ != 0 && TakeFreeNode(nodeIndex)) return S_OK;
    int32_t nodes = GetNodeCount();
    if (nodes >= kMaxNodes) return E_FAIL;
    nodeIndex = nodes + 1;
    return S_OK;
}

HRESULT MTIndexNG::AddToFreeList(MTNode& node) {
    node.SetBrother(freeHead_);
    freeHead_ = node.GetNodeIndex();
    return S_OK;
}

HRESULT MTIndexNG::PrepareToGrowTree(int32_t& first, int32_t& second) {
    HRESULT hr = AssignNewNodeIndex(first);
    if (SUCCEEDED(hr)) hr = AssignNewNodeIndex(second);
    // Without a free node both name the node after the file's end.
    if (SUCCEEDED(hr) && second == first) second = std::max(first, GetNodeCount()) + 1;
    return hr;
}

HRESULT MTIndexNG::PostBulkLoad() {
    if (!FlushFileBuffers(GetFileHandle())) return LastPlatformError();
    // The root was written last; it moves to node 1, which the load kept free.
    int32_t last = GetNodeCount();
    MTNode& root = CacheAt(0);
    HRESULT hr = root.ReadNode(last);
    if (hr != S_OK) return FAILED(hr) ? hr : E_FAIL;
    root.SetNodeIndex(1);
    hr = root.Commit();
    if (SUCCEEDED(hr) && last > 1) hr = SetFileLength(static_cast<int64_t>(last - 1) * kNodeSize);
    SetRootIndex(1);
    freeHead_ = 0;
    return SUCCEEDED(hr) ? WriteMetadata() : hr;
}

HRESULT MTIndexNG::Validate() {
    TreeCensus census;
    HRESULT hr = CheckTree(census);
    if (FAILED(hr)) return hr;
    if (census.entries != entryCount_) {
        Report(L"the entry count %d differs from the %lld entries of the leaves", entryCount_,
               static_cast<long long>(census.entries));
        return E_FAIL;
    }
    return CheckFreeList(census);
}

HRESULT MTIndexNG::CheckFreeList(const TreeCensus& census) {
    std::vector<bool> used = census.inTree;
    int32_t nodes = GetNodeCount();
    for (int32_t free = freeHead_; free != 0; free = probe_.GetBrother()) {
        if (free < 1 || free > nodes || used[static_cast<size_t>(free)]) {
            Report(L"the free list reaches node %d, which is in use or outside the file", free);
            return E_FAIL;
        }
        used[static_cast<size_t>(free)] = true;
        HRESULT hr = probe_.ReadNode(free);
        if (FAILED(hr)) return hr;
        const unsigned char* block = probe_.buffer_.get();
        if (std::any_of(block + 4, block + kNodeSize, [](unsigned char b) { return b != 0; })) {
            probe_.Forget();
            Report(L"free node %d is not zero", free);
            return E_FAIL;
        }
    }
    probe_.Forget();
    for (int32_t n = 1; n <= nodes; ++n) {
        if (!used[static_cast<size_t>(n)]) {
            Report(L"node %d is neither in the tree nor free", n);
            return E_FAIL;
        }
    }
    return S_OK;
}

}  // namespace quillet
