#include "foundation/BitSet.h"

#include <algorithm>
#include <bit>

#include "foundation/ByteOrder.h"

namespace quillet {

namespace {

constexpr uint32_t kAllBits = 0xFFFFFFFFu;

// The bits of a word below bit `n` (n in 0..32).
uint32_t MaskBelow(int32_t n) {
    return n >= 32 ? kAllBits : (1u << n) - 1u;
}

}  // namespace

void BitSet::ExportHeader::EncodeTo(unsigned char out[kEncodedSize]) const {
    EncodeFixed32LE(out, static_cast<uint32_t>(wordCount));
    EncodeFixed32LE(out + 4, static_cast<uint32_t>(size));
    EncodeFixed32LE(out + 8, static_cast<uint32_t>(setCount));
    EncodeFixed32LE(out + 12, static_cast<uint32_t>(highestSet));
}

BitSet::ExportHeader BitSet::ExportHeader::DecodeFrom(const unsigned char in[kEncodedSize]) {
    ExportHeader header;
    header.wordCount = static_cast<int32_t>(DecodeFixed32LE(in));
    header.size = static_cast<int32_t>(DecodeFixed32LE(in + 4));
    header.setCount = static_cast<int32_t>(DecodeFixed32LE(in + 8));
    header.highestSet = static_cast<int32_t>(DecodeFixed32LE(in + 12));
    return header;
}

bool BitSet::ExportHeader::IsPlausible(int64_t bytesAvailable) const {
    return wordCount >= 0 && int64_t{wordCount} * 4 <= bytesAvailable && size >= 0 &&
           int64_t{size} <= int64_t{wordCount} * 32 && setCount >= 0 && setCount <= size &&
           highestSet >= -1 && highestSet < size && (setCount == 0) == (highestSet == -1);
}

BitSet::BitSet(const uint32_t* words, int32_t wordCount, int32_t size, int32_t /*setCount*/,
               int32_t /*highestSet*/) {
    if (!words || wordCount < 0) wordCount = 0;
    words_.assign(words, words + wordCount);
    size_ = static_cast<int32_t>(std::clamp<int64_t>(size, 0, int64_t{wordCount} * 32));
    words_.resize(static_cast<size_t>(WordsFor(size_)));
    ClearBitsBeyondSize();
    Recount();
}

void BitSet::SetSize(int32_t size) {
    size = std::max(size, 0);
    bool shrinking = size < size_;
    size_ = size;
    words_.resize(static_cast<size_t>(WordsFor(size_)), 0u);
    if (shrinking) {
        ClearBitsBeyondSize();
        Recount();
    }
}

void BitSet::Extend(int32_t count, bool value) {
    if (count <= 0) return;
    int32_t first = size_;
    SetSize(static_cast<int32_t>(std::min<int64_t>(int64_t{size_} + count, INT32_MAX)));
    if (!value) return;
    int32_t bit = first;
    for (; bit < size_ && bit % 32 != 0; ++bit) Set(bit);
    // The rest starts on a word boundary and ends at the (fresh) last word.
    std::fill(words_.begin() + WordsFor(bit), words_.end(), kAllBits);
    ClearBitsBeyondSize();
    setCount_ += size_ - bit;
}

bool BitSet::Set(int32_t bit, bool value) {
    if (bit < 0 || bit >= size_) return false;
    uint32_t& word = words_[static_cast<size_t>(bit / 32)];
    uint32_t mask = 1u << (bit % 32);
    if (((word & mask) != 0) == value) return true;
    word ^= mask;
    setCount_ += value ? 1 : -1;
    return true;
}

bool BitSet::IsSet(int32_t bit) const {
    if (bit < 0 || bit >= size_) return false;
    return (words_[static_cast<size_t>(bit / 32)] >> (bit % 32)) & 1u;
}

int32_t BitSet::Count(int32_t bit) const {
    if (bit < 0) return 0;
    if (bit >= size_ - 1) return setCount_;
    int32_t lastWord = bit / 32;
    int32_t count = 0;
    for (int32_t w = 0; w < lastWord; ++w) count += std::popcount(words_[static_cast<size_t>(w)]);
    return count + std::popcount(words_[static_cast<size_t>(lastWord)] & MaskBelow(bit % 32 + 1));
}

int32_t BitSet::GetNextSet(int32_t bit) const {
    int64_t from = std::max<int64_t>(int64_t{bit} + 1, 0);
    if (from >= size_) return -1;
    size_t w = static_cast<size_t>(from / 32);
    uint32_t word = words_[w] & ~MaskBelow(static_cast<int32_t>(from % 32));
    while (word == 0) {
        if (++w == words_.size()) return -1;
        word = words_[w];
    }
    return static_cast<int32_t>(w * 32 + static_cast<size_t>(std::countr_zero(word)));
}

int32_t BitSet::GetPrevSet(int32_t bit) const {
    int32_t before = std::min(bit, size_);
    if (before <= 0) return -1;
    int32_t last = before - 1;
    int32_t w = last / 32;
    uint32_t word = words_[static_cast<size_t>(w)] & MaskBelow(last % 32 + 1);
    while (word == 0) {
        if (--w < 0) return -1;
        word = words_[static_cast<size_t>(w)];
    }
    return w * 32 + 31 - std::countl_zero(word);
}

BitSet::ExportHeader BitSet::Export(std::vector<uint32_t>* words) const {
    *words = words_;
    ExportHeader header;
    header.wordCount = static_cast<int32_t>(words_.size());
    header.size = size_;
    header.setCount = setCount_;
    header.highestSet = GetPrevSet(size_);
    return header;
}

void BitSet::ClearBitsBeyondSize() {
    if (size_ % 32 != 0) words_.back() &= MaskBelow(size_ % 32);
}

void BitSet::Recount() {
    setCount_ = 0;
    for (uint32_t word : words_) setCount_ += std::popcount(word);
}

}  // namespace quillet
