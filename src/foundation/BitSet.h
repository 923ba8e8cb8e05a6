#pragma once

// BitSet: a growable set of bits numbered from 0, as the record index keeps
// one bit per stored chunk of entries. The set keeps its number of set bits,
// so Count() and the "every bit set" test cost nothing.
//
// Exported form. Export() hands out the bits as 32-bit words with a 16-byte
// block of counters, and the constructor from exported words takes them back.
// The record index stores the block and then the words, all little-endian:
//
//   offset  size  field
//   0       4     word count W (signed 32-bit)
//   4       4     size: number of bits in the set, 0 <= size <= 32 * W
//   8       4     number of set bits
//   12      4     highest set bit, or -1 when no bit is set
//   16      4*W   the words; bit i is bit (i mod 32) of word i / 32, and the
//                 bits at and beyond `size` are 0
//
// The words are the truth: the constructor recounts them and drops bits
// beyond the size, so a block that disagrees with its words still gives a
// consistent set (ExportHeader::IsPlausible tells a reader whether the block
// may be trusted to size its buffers at all).

#include <cstdint>
#include <vector>

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT BitSet {
public:
    // The 16-byte block that precedes the exported words.
    struct QUILLET_EXPORT ExportHeader {
        static constexpr int kEncodedSize = 16;

        int32_t wordCount = 0;
        int32_t size = 0;
        int32_t setCount = 0;
        int32_t highestSet = -1;

        void EncodeTo(unsigned char out[kEncodedSize]) const;
        static ExportHeader DecodeFrom(const unsigned char in[kEncodedSize]);
        // Whether the counters agree with each other and the W words fit in
        // `bytesAvailable` bytes; a reader checks this before it allocates.
        bool IsPlausible(int64_t bytesAvailable) const;
    };

    BitSet() = default;
    explicit BitSet(int32_t size) { SetSize(size); }
    // Takes back what Export gave: `wordCount` words at `words`, then the
    // counters of the block (setCount and highestSet are recomputed from the
    // words). A negative word count counts as 0; a size outside 0..32*W is
    // clamped to that range.
    BitSet(const uint32_t* words, int32_t wordCount, int32_t size, int32_t setCount,
           int32_t highestSet);
    BitSet(const ExportHeader& header, const uint32_t* words)
        : BitSet(words, header.wordCount, header.size, header.setCount, header.highestSet) {}

    int32_t GetSize() const { return size_; }
    // Grows (new bits clear) or shrinks (bits beyond are dropped) the set.
    void SetSize(int32_t size);
    // Appends `count` bits, all set or all clear.
    void Extend(int32_t count, bool value);

    // Bits outside 0..size-1 are never set: Set and Clear return false and
    // change nothing, IsSet answers false.
    bool Set(int32_t bit, bool value = true);
    bool Clear(int32_t bit) { return Set(bit, false); }
    bool IsSet(int32_t bit) const;

    // Number of set bits.
    int32_t Count() const { return setCount_; }
    // Number of set bits among 0..bit, `bit` included; 0 for a negative bit.
    int32_t Count(int32_t bit) const;
    bool AllSet() const { return setCount_ == size_; }
    // The first set bit after `bit` (so GetNextSet(-1) is the lowest), or -1.
    int32_t GetNextSet(int32_t bit) const;
    // The last set bit before `bit` (so GetPrevSet(GetSize()) is the highest),
    // or -1.
    int32_t GetPrevSet(int32_t bit) const;

    // Copies the words into *words and returns the block that describes them.
    ExportHeader Export(std::vector<uint32_t>* words) const;

    friend bool operator==(const BitSet& a, const BitSet& b) {
        return a.size_ == b.size_ && a.words_ == b.words_;
    }

private:
    static int32_t WordsFor(int32_t bits) {
        return static_cast<int32_t>((int64_t{bits} + 31) / 32);
    }
    void ClearBitsBeyondSize();
    void Recount();

    std::vector<uint32_t> words_;
    int32_t size_ = 0;
    int32_t setCount_ = 0;
};

}  // namespace quillet
