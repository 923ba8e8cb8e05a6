#include "attrindex/MTIndex.h"

#include <algorithm>
#include <cstdarg>
#include <cwchar>
#include <new>

#include "attrindex/MTEntryRun.h"
#include "foundation/DebugOutput.h"
#include "foundation/ExternalSort.h"
#include "foundation/IField.h"
#include "foundation/Win32Error.h"

namespace quillet {

namespace {

constexpr int32_t kMaxStringChars = 320;
constexpr int64_t kMaxNodes = 0x7FFFFFFF;

int32_t WidthOf(MTDataType type, int32_t size) {
    switch (type) {
        case MTString: return std::min(size, kMaxStringChars);
        case MTWString: return 2 * std::min(size, kMaxStringChars);
        case MTShort: return 2;
        case MTLong:
        case MTFloat: return 4;
        case MTInt64:
        case MTDouble:
        case MTDate:
        case MTDateMap1:
        case MTDateMap2: return 8;
        case MTNone: break;
    }
    return 0;
}

}  // namespace

HRESULT MTIndex::LastPlatformError() {
    uint32_t error = GetLastError();
    return error == 0 ? E_FAIL : HRESULT_FROM_WIN32(error);
}

MTIndex::MTIndex() : MTIndex(MTNodeGeometry::kOlderNodeSize) {}

MTIndex::MTIndex(int32_t nodeSize) {
    geometry_.nodeSize = nodeSize;
    for (auto& node : cache_) node = std::make_unique<MTNode>(this);
    scratch_ = std::make_unique<MTNode>(this);
    spare_ = std::make_unique<MTNode>(this);
}

MTIndex::MTIndex(MTDataType type, int32_t size, uint32_t codePage) : MTIndex() {
    codePage_ = codePage;
    int32_t cap = type == MTString ? kMaxStringWidth : (type == MTWString ? kMaxStringChars : size);
    if (size > cap) {
        size = cap;
        keysTruncated_ = true;
    }
    SetDataType(type, size);
}

MTIndex::~MTIndex() {
    Close();
}

HRESULT MTIndex::SetDataType(MTDataType type, int32_t size) {
    if (type < MTNone || type > MTDateMap1) return E_INVALIDARG;
    type_ = type;
    size_ = size;
    int32_t width = std::max(WidthOf(type, size), 0);
    if (IsStringType(type) && width > kMaxStringWidth) {
        width = kMaxStringWidth;
        keysTruncated_ = true;
    }
    geometry_.keyWidth = width;
    codec_.Setup(type, width, codePage_);
    CalculateMaxKeys();
    return S_OK;
}

HRESULT MTIndex::SetDataType(IField* field, MTTypeMap map) {
    if (!field) return E_POINTER;
    qovaFieldType fieldType = qovaFieldTypeSmallInteger;
    int32_t length = 0;
    if (FAILED(field->get_Type(&fieldType)) || FAILED(field->get_Length(&length))) return E_FAIL;
    switch (fieldType) {
        case qovaFieldTypeSmallInteger: return SetDataType(MTShort, 2);
        case qovaFieldTypeInteger: return SetDataType(MTLong, 4);
        case qovaFieldTypeSingle: return SetDataType(MTFloat, 4);
        case qovaFieldTypeDouble: return SetDataType(MTDouble, 8);
        case qovaFieldTypeString:
            if (map == MTTypeMap1) length = std::min(length, kMaxStringWidth);
            if (map == MTTypeMap2 && length > 80) {
                length = 80;
                keysTruncated_ = true;
            }
            return SetDataType(MTString, length);
        case qovaFieldTypeDate:
            return SetDataType(
                map == MTTypeMap1 ? MTDateMap1 : (map == MTTypeMap2 ? MTDateMap2 : MTDate), 8);
        case qovaFieldTypeGUID:
        case qovaFieldTypeGlobalID: return SetDataType(MTString, length);
        default: return SetDataType(MTNone, 0);
    }
}

void MTIndex::SetCodePage(uint32_t codePage) {
    codePage_ = codePage;
    codec_.Setup(type_, geometry_.keyWidth, codePage_);
}

void MTIndex::CalculateMaxKeys() {
    geometry_ = MTNodeGeometry::Older(geometry_.keyWidth);
}

HRESULT MTIndex::Open(const wchar_t* path, uint32_t access, uint32_t share,
                      SECURITY_ATTRIBUTES* security, uint32_t disposition, uint32_t flags,
                      HANDLE templateFile) {
    Close();
    levels_ = 0;
    rootIndex_ = 0;
    file_ = CreateFileW(path, access, share, security, disposition, flags, templateFile);
    if (file_ == INVALID_HANDLE_VALUE) return LastPlatformError();
    path_ = path;
    int64_t size = Size();
    HRESULT hr = size / geometry_.nodeSize > kMaxNodes ? E_FAIL : S_OK;
    bool newRoot = size == 0 || disposition == CREATE_NEW || disposition == CREATE_ALWAYS;
    if (SUCCEEDED(hr) && newRoot) hr = CreateRoot();
    if (SUCCEEDED(hr)) hr = ReadMetadata();
    if (SUCCEEDED(hr) && (type_ == MTNone || geometry_.keyWidth == 0)) hr = E_UNEXPECTED;
    if (SUCCEEDED(hr)) hr = SetupCache();
    if (FAILED(hr)) ReleaseAll();
    return hr;
}

HRESULT MTIndex::CreateRoot() {
    if (type_ == MTNone || geometry_.keyWidth == 0) return E_UNEXPECTED;
    HRESULT hr = SetFileLength(0);
    MTNode& root = CacheAt(0);
    if (SUCCEEDED(hr)) hr = root.CreateNode(1);
    if (SUCCEEDED(hr)) hr = root.Commit();
    rootIndex_ = 1;
    levels_ = 1;
    ResetEntryCount();
    return SUCCEEDED(hr) ? WriteMetadata() : hr;
}

HRESULT MTIndex::Close() {
    HRESULT hr = S_OK;
    if (IsOpen()) {
        hr = CommitAll();
        HRESULT metadata = WriteMetadata();
        if (SUCCEEDED(hr)) hr = metadata;
    }
    HRESULT closed = ReleaseAll();
    return SUCCEEDED(hr) ? closed : hr;
}

HRESULT MTIndex::ReleaseAll() {
    HRESULT hr = S_OK;
    if (IsOpen() && !CloseHandle(file_)) hr = LastPlatformError();
    file_ = INVALID_HANDLE_VALUE;
    ForgetCache();
    scratchLent_ = false;
    sorter_.reset();
    if (traceFile_ && std::fclose(traceFile_) != 0 && SUCCEEDED(hr)) hr = E_FAIL;
    traceFile_ = nullptr;
    return hr;
}

HRESULT MTIndex::Flush() {
    if (!IsOpen()) return E_UNEXPECTED;
    HRESULT hr = CommitAll();
    if (SUCCEEDED(hr)) hr = WriteMetadata();
    if (SUCCEEDED(hr) && !FlushFileBuffers(file_)) hr = LastPlatformError();
    return hr;
}

HRESULT MTIndex::CommitAll() {
    HRESULT hr = S_OK;
    for (auto& node : cache_) {
        HRESULT one = node->Commit();
        if (SUCCEEDED(hr)) hr = one;
    }
    for (MTNode* node : {scratch_.get(), spare_.get()}) {
        HRESULT one = node->Commit();
        if (SUCCEEDED(hr)) hr = one;
    }
    return hr;
}

void MTIndex::ForgetCache() {
    for (auto& node : cache_) node->Forget();
    scratch_->Forget();
    spare_->Forget();
}

void MTIndex::NoteCommitted(const MTNode& node) {
    // Another object holding the same node now holds an old copy of it.
    for (auto& other : cache_) {
        if (other.get() != &node && other->GetNodeIndex() == node.GetNodeIndex()) other->Forget();
    }
    for (MTNode* other : {scratch_.get(), spare_.get()}) {
        if (other != &node && other->GetNodeIndex() == node.GetNodeIndex()) other->Forget();
    }
}

int64_t MTIndex::Size() const {
    if (!IsOpen()) return 0;
    uint32_t high = 0;
    uint32_t low = GetFileSize(file_, &high);
    if (low == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) return 0;
    return static_cast<int64_t>((static_cast<uint64_t>(high) << 32) | low);
}

int32_t MTIndex::GetNodeCount() const {
    return static_cast<int32_t>(std::min(Size() / geometry_.nodeSize, kMaxNodes));
}

bool MTIndex::IsNodeOfFile(int32_t nodeIndex) const {
    return nodeIndex >= 1 && nodeIndex != rootIndex_ && nodeIndex <= GetNodeCount();
}

bool MTIndex::IsEmpty() const {
    const MTNode& root = *cache_[0];
    return !IsOpen() || !root.IsLoaded() || root.GetCount() < 1;
}

HRESULT MTIndex::SetupCache() {
    // The root is the last node; a last node cut short makes its read fail.
    int64_t size = Size();
    rootIndex_ = static_cast<int32_t>(
        std::clamp<int64_t>((size + geometry_.nodeSize - 1) / geometry_.nodeSize, 1, kMaxNodes));
    levels_ = 0;
    return LoadLeftmostPath();
}

HRESULT MTIndex::RefreshCache() {
    if (!IsOpen()) return S_OK;
    HRESULT hr = CommitAll();
    ForgetCache();
    return SUCCEEDED(hr) ? SetupCache() : hr;
}

HRESULT MTIndex::Seek(int32_t nodeIndex) {
    if (!IsOpen()) return E_UNEXPECTED;
    if (nodeIndex < 1) return E_FAIL;
    return SeekTo(static_cast<int64_t>(nodeIndex - 1) * geometry_.nodeSize);
}

HRESULT MTIndex::SeekTo(int64_t offset) {
    auto high = static_cast<int32_t>(offset >> 32);
    if (SetFilePointer(file_, static_cast<int32_t>(offset), &high, FILE_BEGIN) ==
            INVALID_SET_FILE_POINTER &&
        GetLastError() != ERROR_SUCCESS) {
        return LastPlatformError();
    }
    return S_OK;
}

HRESULT MTIndex::Read(void* block) {
    uint32_t read = 0;
    if (!ReadFile(file_, block, static_cast<uint32_t>(geometry_.nodeSize), &read, nullptr)) {
        return LastPlatformError();
    }
    return read == static_cast<uint32_t>(geometry_.nodeSize) ? S_OK : MT_E_SHORT_READ;
}

HRESULT MTIndex::Write(const void* block) {
    uint32_t written = 0;
    if (!WriteFile(file_, block, static_cast<uint32_t>(geometry_.nodeSize), &written, nullptr)) {
        return LastPlatformError();
    }
    return written == static_cast<uint32_t>(geometry_.nodeSize) ? S_OK : E_FAIL;
}

HRESULT MTIndex::WriteAt(int64_t offset, const void* data, uint32_t n) {
    HRESULT hr = SeekTo(offset);
    uint32_t written = 0;
    if (SUCCEEDED(hr) && !WriteFile(file_, data, n, &written, nullptr)) hr = LastPlatformError();
    return SUCCEEDED(hr) && written != n ? E_FAIL : hr;
}

HRESULT MTIndex::ReadAt(int64_t offset, void* data, uint32_t n) {
    HRESULT hr = SeekTo(offset);
    uint32_t read = 0;
    if (SUCCEEDED(hr) && !ReadFile(file_, data, n, &read, nullptr)) hr = LastPlatformError();
    return SUCCEEDED(hr) && read != n ? MT_E_SHORT_READ : hr;
}

HRESULT MTIndex::SetFileLength(int64_t length) {
    HRESULT hr = SeekTo(length);
    return SUCCEEDED(hr) && !SetEndOfFile(file_) ? LastPlatformError() : hr;
}

unsigned char* MTIndex::GetSwapBuffer() {
    if (!swapBuffer_) {
        swapBuffer_.reset(
            new (std::nothrow) unsigned char[static_cast<size_t>(geometry_.nodeSize)]);
    }
    return swapBuffer_.get();
}

HRESULT MTIndex::GetScratchNode(MTNode** node) {
    if (!node) return E_POINTER;
    if (scratchLent_) return E_UNEXPECTED;
    scratchLent_ = true;
    *node = scratch_.get();
    return S_OK;
}

void MTIndex::ReleaseScratchNode() {
    scratch_->Forget();
    scratchLent_ = false;
}

HRESULT MTIndex::AssignNewNodeIndex(int32_t& nodeIndex) {
    // The new node takes the root's place; the root moves one node on.
    MTNode& root = CacheAt(0);
    HRESULT hr = root.ReadNode(rootIndex_);
    if (FAILED(hr)) return hr;
    if (rootIndex_ >= kMaxNodes) return E_FAIL;
    nodeIndex = rootIndex_++;
    root.SetNodeIndex(rootIndex_);
    return root.Commit();
}

HRESULT MTIndex::AddToFreeList(MTNode&) {
    return S_OK;
}

HRESULT MTIndex::PrepareToGrowTree(int32_t& first, int32_t& second) {
    HRESULT hr = AssignNewNodeIndex(first);
    return SUCCEEDED(hr) ? AssignNewNodeIndex(second) : hr;
}

HRESULT MTIndex::CheckKey(const MTKey& key) const {
    if (!IsOpen()) return E_UNEXPECTED;
    if (key.GetType() == MTNone || IsStringType(type_) != (key.GetType() == MTString)) {
        return E_INVALIDARG;
    }
    return S_OK;
}

HRESULT MTIndex::StoredForm(const MTKey& key, unsigned char* bytes, MTKey& stored) const {
    HRESULT hr = CheckKey(key);
    if (SUCCEEDED(hr)) hr = cache_[0]->EncodeKey(key, bytes);
    if (FAILED(hr)) return hr;
    // Converting cannot change a number of the index's own type.
    bool sameType = key.GetType() == type_ || (IsDateType(type_) && key.GetType() == MTDate);
    if (sameType && !IsStringType(type_)) {
        stored = key;
    } else {
        cache_[0]->DecodeKey(bytes, stored);
    }
    return S_OK;
}

void MTIndex::Report(const wchar_t* format, ...) const {
    wchar_t text[512];
    va_list args;
    va_start(args, format);
    std::vswprintf(text, std::size(text), format, args);
    va_end(args);
    std::wstring message = L"MTIndex: " + path_ + L": " + text + L"\n";
    OutputDebugStringW(message.c_str());
}

}  // namespace quillet
