#include "attrindex/MTNode.h"

#include <cstring>
#include <new>

#include "attrindex/MTIndex.h"
#include "foundation/ByteOrder.h"

namespace quillet {

namespace {

template <typename T>
T ByteSwapped(T value) {
    if constexpr (sizeof(T) == 2) return __builtin_bswap16(value);
    if constexpr (sizeof(T) == 4) return __builtin_bswap32(value);
    if constexpr (sizeof(T) == 8) return __builtin_bswap64(value);
}

template <typename T>
void SwapEach(unsigned char* values, int32_t n) {
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
        T value;
        std::memcpy(&value, values + i * sizeof(T), sizeof(T));
        value = ByteSwapped(value);
        std::memcpy(values + i * sizeof(T), &value, sizeof(T));
    }
}

// Reverses the bytes of n values of `width` bytes in place (other widths
// stay as they are): plain loops, which the compiler turns into vector code.
// The baseline instruction set has no byte shuffle, so a second copy for
// processors that have one is chosen at load time; it swaps a node several
// times faster.
__attribute__((target_clones("avx2", "default"))) void SwapValues(unsigned char* values, int32_t n,
                                                                  int32_t width) {
    switch (width) {
        case 2: SwapEach<uint16_t>(values, n); break;
        case 4: SwapEach<uint32_t>(values, n); break;
        case 8: SwapEach<uint64_t>(values, n); break;
        default: break;
    }
}

}  // namespace

MTNode::MTNode(MTIndex* owner)
    : owner_(owner), geometry_(owner ? &owner->GetGeometry() : nullptr) {}

MTNode::~MTNode() = default;

void MTNode::SetOwner(MTIndex* owner) {
    if (owner == owner_) return;
    owner_ = owner;
    geometry_ = owner ? &owner->GetGeometry() : nullptr;
    buffer_.reset();
    nodeIndex_ = 0;
    clean_ = true;
}

void MTNode::SetNodeIndex(int32_t nodeIndex) {
    nodeIndex_ = nodeIndex;
    clean_ = false;
}

bool MTNode::EnsureBuffer() {
    if (!buffer_) {
        buffer_.reset(new (std::nothrow) unsigned char[owner_->GetGeometry().nodeSize]);
    }
    return buffer_ != nullptr;
}

HRESULT MTNode::CreateNode(int32_t nodeIndex) {
    HRESULT hr = Commit();
    if (FAILED(hr)) return hr;
    if (!EnsureBuffer()) return E_OUTOFMEMORY;
    std::memset(buffer_.get(), 0, static_cast<size_t>(owner_->GetGeometry().nodeSize));
    nodeIndex_ = nodeIndex;
    cursor_ = 0;
    clean_ = false;
    return S_OK;
}

HRESULT MTNode::ReadNode(int32_t nodeIndex) {
    if (nodeIndex == 0) return S_FALSE;
    if (nodeIndex < 0) return E_FAIL;
    if (nodeIndex == nodeIndex_ && buffer_) return S_OK;
    HRESULT hr = Commit();
    if (FAILED(hr)) return hr;
    if (!EnsureBuffer()) return E_OUTOFMEMORY;
    nodeIndex_ = 0;
    cursor_ = 0;
    hr = owner_->Seek(nodeIndex);
    if (SUCCEEDED(hr)) hr = owner_->Read(buffer_.get());
    if (SUCCEEDED(hr)) hr = owner_->IsLE() ? S_OK : SwapFromDisk();
    if (FAILED(hr)) return hr;
    int32_t count = GetCount();
    if (count < 0 || count > owner_->GetGeometry().maxKeys) return E_FAIL;
    nodeIndex_ = nodeIndex;
    clean_ = true;
    return S_OK;
}

HRESULT MTNode::Commit() {
    if (clean_) return S_OK;
    if (nodeIndex_ <= 0 || !buffer_) return E_UNEXPECTED;
    const unsigned char* block = buffer_.get();
    if (!owner_->IsLE()) {
        unsigned char* swapped = owner_->GetSwapBuffer();
        if (!swapped) return E_OUTOFMEMORY;
        SwapToDisk(swapped);
        block = swapped;
    }
    HRESULT hr = owner_->Seek(nodeIndex_);
    if (SUCCEEDED(hr)) hr = owner_->Write(block);
    if (FAILED(hr)) return hr;
    clean_ = true;
    owner_->NoteCommitted(*this);
    return S_OK;
}

void MTNode::Forget() {
    nodeIndex_ = 0;
    cursor_ = 0;
    clean_ = true;
}

HRESULT MTNode::CopyFrom(const MTNode& other) {
    if (!other.buffer_) return E_UNEXPECTED;
    HRESULT hr = Commit();
    if (FAILED(hr)) return hr;
    SetOwner(other.owner_);
    if (!EnsureBuffer()) return E_OUTOFMEMORY;
    std::memcpy(buffer_.get(), other.buffer_.get(),
                static_cast<size_t>(owner_->GetGeometry().nodeSize));
    nodeIndex_ = other.nodeIndex_;
    cursor_ = other.cursor_;
    clean_ = other.clean_;
    return S_OK;
}

void MTNode::Zero() {
    std::memset(buffer_.get(), 0, static_cast<size_t>(owner_->GetGeometry().nodeSize));
    clean_ = false;
}

void MTNode::Trim() {
    const MTNodeGeometry& g = owner_->GetGeometry();
    int32_t count = GetCount();
    unsigned char* slots = buffer_.get() + MTNodeGeometry::kSlotsOffset;
    std::memset(slots + 4 * count, 0, static_cast<size_t>(4 * (g.idSlots - count)));
    size_t keysEnd = static_cast<size_t>(g.keysOffset) + static_cast<size_t>(count) * g.keyWidth;
    std::memset(buffer_.get() + keysEnd, 0, static_cast<size_t>(g.nodeSize) - keysEnd);
    clean_ = false;
}

int32_t MTNode::NumberWidth() const {
    // Text is stored as it is.
    return IsStringType(owner_->GetDataType()) ? 0 : geometry_->keyWidth;
}

void MTNode::SwapToDisk(unsigned char* block) const {
    const MTNodeGeometry& g = owner_->GetGeometry();
    std::memset(block, 0, static_cast<size_t>(g.nodeSize));
    int32_t count = GetCount();
    int32_t words = count + MTNodeGeometry::kHeaderWords;
    std::memcpy(block, buffer_.get(), 4 * static_cast<size_t>(words));
    SwapValues(block, words, 4);
    size_t keyBytes = static_cast<size_t>(count) * g.keyWidth;
    std::memcpy(block + g.keysOffset, buffer_.get() + g.keysOffset, keyBytes);
    SwapValues(block + g.keysOffset, count, NumberWidth());
}

HRESULT MTNode::SwapFromDisk() {
    const MTNodeGeometry& g = owner_->GetGeometry();
    unsigned char* block = buffer_.get();
    auto count = static_cast<int32_t>(DecodeFixed32BE(block + MTNodeGeometry::kCountOffset));
    if (count < 0 || count > g.maxKeys) return E_FAIL;
    SwapValues(block, count + MTNodeGeometry::kHeaderWords, 4);
    SwapValues(block + g.keysOffset, count, NumberWidth());
    return S_OK;
}

void MTNode::InsertEntry(int32_t i, const unsigned char* keyBytes, int32_t id) {
    int32_t width = owner_->GetGeometry().keyWidth;
    int32_t count = GetCount();
    unsigned char* slot = buffer_.get() + MTNodeGeometry::kSlotsOffset + 4 * i;
    std::memmove(slot + 4, slot, static_cast<size_t>(4 * (count - i)));
    unsigned char* key = GetKeyPtr(i);
    std::memmove(key + width, key, static_cast<size_t>(width) * static_cast<size_t>(count - i));
    std::memcpy(key, keyBytes, static_cast<size_t>(width));
    SetId(i, id);
    SetCount(count + 1);
}

HRESULT MTNode::InsertEntry(int32_t i, const MTKey& key, int32_t id) {
    unsigned char bytes[MTKey::kMaxChars * 2];
    HRESULT hr = EncodeKey(key, bytes);
    if (SUCCEEDED(hr)) InsertEntry(i, bytes, id);
    return hr;
}

void MTNode::SetEntries(const unsigned char* keys, const int32_t* slots, int32_t n) {
    int32_t width = owner_->GetGeometry().keyWidth;
    std::memcpy(buffer_.get() + MTNodeGeometry::kSlotsOffset, slots, static_cast<size_t>(4 * n));
    std::memcpy(GetKeyPtr(0), keys, static_cast<size_t>(width) * static_cast<size_t>(n));
    SetCount(n);
    Trim();
}

void MTNode::Delete() {
    DeleteEntry(cursor_);
}

void MTNode::DeleteEntry(int32_t i) {
    int32_t width = owner_->GetGeometry().keyWidth;
    int32_t count = GetCount();
    unsigned char* slot = buffer_.get() + MTNodeGeometry::kSlotsOffset + 4 * i;
    std::memmove(slot, slot + 4, static_cast<size_t>(4 * (count - i - 1)));
    unsigned char* key = GetKeyPtr(i);
    std::memmove(key, key + width, static_cast<size_t>(width) * static_cast<size_t>(count - i - 1));
    SetCount(count - 1);
    SetId(count - 1, 0);
    std::memset(GetKeyPtr(count - 1), 0, static_cast<size_t>(width));
}

}  // namespace quillet
