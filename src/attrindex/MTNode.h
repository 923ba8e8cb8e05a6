#pragma once

// MTNode: one node of an index in memory (layout in attrindex/MTNodeGeometry.h),
// with a cursor on one of its keys. It encodes, decodes and compares the key
// at the cursor in the index's key type, inserts and removes entries, and
// moves the block between memory and the index file.
//
// A node belongs to one index (its owner), which must outlive it; it owns its
// buffer of one node size, allocated at first use. The node is clean after a
// read or a commit and dirty after any change; reading another node number
// into a dirty node commits it first. In memory every value is native; the
// older format's big-endian order is converted as a block is read and
// written.
//
// Comparisons return the sign of (node key - search key). Compare(key) is the
// search comparison: text over the key width with the shorter side padded
// with spaces; floats and doubles equal within FLOATING_PT_EQ of their
// type's epsilon; a NaN on either side equal. Compare(key, id) is the exact
// order of entries: keys without tolerance, then record ids.

#include <cstdint>
#include <cstring>
#include <memory>

#include "attrindex/MTKey.h"
#include "attrindex/MTNodeGeometry.h"
#include "foundation/Export.h"
#include "foundation/HResult.h"
#include "foundation/String.h"

namespace quillet {

class MTIndex;

// A read that returned fewer bytes than a node.
inline constexpr HRESULT MT_E_SHORT_READ = static_cast<HRESULT>(0x80040211u);

// True when |a - b| <= eps + eps * (|a| + |b|) / 2.
QUILLET_EXPORT bool FLOATING_PT_EQ(long double a, long double b, long double eps);

class QUILLET_EXPORT MTNode {
public:
    // Where a search places a cursor among a node's keys.
    enum Bound {
        kFirstNotLess,      // first key >= search key (search comparison)
        kFirstGreater,      // first key > search key (search comparison)
        kFirstNotLessExact  // first key >= search key, exactly (no tolerance)
    };

    explicit MTNode(MTIndex* owner = nullptr);
    ~MTNode();
    MTNode(const MTNode&) = delete;
    MTNode& operator=(const MTNode&) = delete;

    void SetOwner(MTIndex* owner);
    MTIndex* GetOwner() const { return owner_; }

    // Makes the node an empty, zeroed, dirty node numbered nodeIndex.
    HRESULT CreateNode(int32_t nodeIndex);
    // Reads node nodeIndex, unless the node already holds it. S_FALSE for
    // node 0; E_FAIL for a negative number or a count out of range.
    HRESULT ReadNode(int32_t nodeIndex);
    // Writes the node when it is dirty.
    HRESULT Commit();
    // Forgets the node held, without writing it.
    void Forget();
    // Copies another node's block, number and cursor; the copy is clean when
    // the source is.
    HRESULT CopyFrom(const MTNode& other);
    // Zeroes the unused slots and keys, so that no stale byte reaches the file.
    void Trim();
    // Zeroes the whole block (the number stays).
    void Zero();

    bool IsClean() const { return clean_; }
    bool IsLoaded() const { return nodeIndex_ > 0 && buffer_ != nullptr; }
    void MarkDirty() { clean_ = false; }
    int32_t GetNodeIndex() const { return nodeIndex_; }
    void SetNodeIndex(int32_t nodeIndex);

    int32_t GetBrother() const { return Word(0); }
    void SetBrother(int32_t node) { SetWord(0, node); }
    int32_t GetCount() const { return Word(1); }
    void SetCount(int32_t count) { SetWord(1, count); }
    int32_t GetLeftmost() const { return Word(2); }
    void SetLeftmost(int32_t node) { SetWord(2, node); }
    bool IsLeaf() const { return GetLeftmost() == 0; }
    // The record id (leaf) or the child right of key i (interior).
    int32_t GetId(int32_t i) const { return Word(3 + i); }
    void SetId(int32_t i, int32_t value) { SetWord(3 + i, value); }
    // Child c of an interior node: 0 the leftmost, c the one right of key c - 1.
    int32_t GetChild(int32_t c) const { return c == 0 ? GetLeftmost() : GetId(c - 1); }
    // The last child (leftmost when the node has no key).
    int32_t GetLastChild() const { return GetChild(GetCount()); }

    int32_t GetCursor() const { return cursor_; }
    void SetCursor(int32_t i) { cursor_ = i; }

    unsigned char* GetKeyPtr(int32_t i) const {
        return buffer_.get() + geometry_->keysOffset +
               static_cast<ptrdiff_t>(i) * geometry_->keyWidth;
    }

    // The key at the cursor.
    String GetKeyAsString(bool stripPadding = true) const;
    int16_t GetKeyAsShort() const;
    int32_t GetKeyAsLong() const;
    int64_t GetKeyAsInt64() const;
    float GetKeyAsFloat() const;
    double GetKeyAsDouble() const;
    double GetKeyAsDate() const { return GetKeyAsDouble(); }
    HRESULT SetKeyAsString(const wchar_t* text);
    void SetKeyAsShort(int16_t value);
    void SetKeyAsLong(int32_t value);
    void SetKeyAsInt64(int64_t value);
    void SetKeyAsFloat(float value);
    void SetKeyAsDouble(double value);
    void SetKeyAsDate(double value) { SetKeyAsDouble(value); }
    // The key into `key` (strings are copied into its buffer).
    void GetKey(MTKey& key) const;
    // The key from `key`, converted to the index's type. E_INVALIDARG when a
    // text key meets a numeric index or the other way round.
    HRESULT SetKey(const MTKey& key);
    int Compare(const MTKey& key) const { return CompareAt(cursor_, key, true); }
    int Compare(const MTKey& key, int32_t id) const { return CompareEntry(cursor_, key, id); }

    // Comparisons of key i.
    int CompareAt(int32_t i, const MTKey& key, bool tolerance) const;
    int CompareEntry(int32_t i, const MTKey& key, int32_t id) const;
    // The first key position that satisfies `bound` (0 ... count).
    int32_t FindBound(const MTKey& key, Bound bound) const;
    // The first entry (key, id) >= (key, id) in the exact order.
    int32_t FindEntry(const MTKey& key, int32_t id) const;

    // Inserts an entry (key and id or child) at position i, moving the later
    // ones right. The node must have room.
    HRESULT InsertEntry(int32_t i, const MTKey& key, int32_t id);
    void InsertEntry(int32_t i, const unsigned char* keyBytes, int32_t id);
    // Removes the entry at the cursor.
    void Delete();
    void DeleteEntry(int32_t i);

private:
    friend class MTIndex;
    friend class MTIndexNG;

    // Replaces the entries with n entries (keys back to back, one slot each).
    void SetEntries(const unsigned char* keys, const int32_t* slots, int32_t n);
    // Exact comparison of key i with key bytes of the same index.
    int CompareBytes(int32_t i, const unsigned char* key) const;

    int32_t Word(int32_t i) const {
        int32_t value;
        std::memcpy(&value, buffer_.get() + 4 * i, 4);
        return value;
    }
    void SetWord(int32_t i, int32_t value) {
        std::memcpy(buffer_.get() + 4 * i, &value, 4);
        clean_ = false;
    }
    bool EnsureBuffer();
    // The key bytes of `key` in the index's encoding into out[width].
    HRESULT EncodeKey(const MTKey& key, unsigned char* out) const;
    // Key bytes of the index's encoding into `key`.
    void DecodeKey(const unsigned char* bytes, MTKey& key) const;
    void DecodeText(int32_t i, wchar_t* out) const;
    // Key i of an integer index.
    int64_t IntegerAt(int32_t i) const;
    long double Widened(int32_t i) const;
    template <typename T>
    void StoreAtCursor(T value);
    // The width of a key that the older format swaps: a number's, else 0.
    int32_t NumberWidth() const;
    void SwapToDisk(unsigned char* block) const;
    HRESULT SwapFromDisk();

    MTIndex* owner_;
    // The owner's geometry, held here so that key access is inline.
    const MTNodeGeometry* geometry_;
    std::unique_ptr<unsigned char[]> buffer_;
    int32_t nodeIndex_ = 0;
    int32_t cursor_ = 0;
    bool clean_ = true;
};

}  // namespace quillet
