#pragma once

// MTIndexNG: the next-generation format of the B-tree of MTIndex: 4096-byte
// little-endian nodes, the root always node 1, freed nodes kept on a free
// list for reuse, and a metadata trailer that records the key type, the
// number of levels, the entry count and the head of the free list.
//
// The trailer follows the last whole node and ends the file (so the file
// size is 22 more than a multiple of 4096), little-endian:
//
//   offset size  field
//        0    2  type word: bits 15-13 key class, bits 12-0 key width in bytes
//        2    4  format mark, 1 (above 1: E_UNEXPECTED)
//        6    4  levels of the tree (from the low byte of the count; above
//                20: E_UNEXPECTED)
//       10    4  entry count
//       14    4  head of the free list (node number, 0 for none)
//       18    4  second mark, 1 (above 1: E_FAIL)
//
// Key classes: 0 byte string (MTString; also the date types 9 and 10 are
// written so), 1 16-bit string (MTWString), 2 integer of width 2, 4 or 8
// (MTShort, MTLong, MTInt64), 3 float of width 4 or 8 (MTFloat, MTDouble; also
// MTDate is written so). Dates thus read back as MTDouble or MTString; files
// written that way must read the same. A new node written at the end covers
// the trailer, which is written again on Flush and Close (and after a split).
//
// A free node holds zeros but for its brother word, the next free node.

#include <cstdint>

#include "attrindex/MTIndex.h"

namespace quillet {

class QUILLET_EXPORT MTIndexNG : public MTIndex {
public:
    struct Trailer {
        static constexpr int32_t kLength = 22;

        uint16_t typeWord = 0;
        int32_t formatMark = 1;
        int32_t levels = 0;
        int32_t entryCount = 0;
        int32_t freeHead = 0;
        int32_t secondMark = 1;

        void EncodeTo(unsigned char* out) const;
        // E_UNEXPECTED or E_FAIL for the marks and levels out of range.
        HRESULT DecodeFrom(const unsigned char* in);
        // The type word of a key type and width; E_UNEXPECTED for MTNone.
        static HRESULT TypeWordOf(MTDataType type, int32_t width, uint16_t& word);
        // The key type and width of a type word; E_UNEXPECTED for a class or
        // width that names none.
        static HRESULT TypeOf(uint16_t word, MTDataType& type, int32_t& width);
    };

    MTIndexNG();
    MTIndexNG(MTDataType type, int32_t size, uint32_t codePage);
    // Closes, writing the trailer (the base class's destructor no longer can).
    ~MTIndexNG() override;

    // Opens or creates an index for the field (read and write, shared,
    // OPEN_ALWAYS). Field types: 16-bit integer MTShort, integer MTLong,
    // single MTFloat, double and date MTDouble, string MTWString (2 bytes a
    // character, capped at 160 bytes), GUIDs MTString.
    HRESULT Create(const wchar_t* path, IField* field);

    int32_t GetEntryCount() const { return entryCount_; }
    int32_t GetFreeListHead() const { return freeHead_; }

    HRESULT Validate() override;
    bool IsLE() const override { return true; }
    void CalculateMaxKeys() override;
    HRESULT SetupCache() override;
    HRESULT ReadMetadata() override;
    HRESULT WriteMetadata() override;
    void ResetEntryCount() override { entryCount_ = 0; }
    void IncrementEntryCount() override { ++entryCount_; }
    void DecrementEntryCount() override { --entryCount_; }
    HRESULT AssignNewNodeIndex(int32_t& nodeIndex) override;
    HRESULT AddToFreeList(MTNode& node) override;
    HRESULT PrepareToGrowTree(int32_t& first, int32_t& second) override;
    int32_t GetStartBlockForBulkLoad() override { return 2; }
    HRESULT PostBulkLoad() override;

private:
    // Takes the head of the free list when it is a free node.
    bool TakeFreeNode(int32_t& nodeIndex);
    HRESULT CheckFreeList(const TreeCensus& census);

    int32_t entryCount_ = 0;
    int32_t freeHead_ = 0;
    MTNode probe_{this};
};

}  // namespace quillet
