#pragma once

// AtxKeyLayout: how the keys of one .atx attribute index sit in its 2048-byte
// big-endian nodes, and how a node image moves between file and host order.
//
// The file records nothing of its key, so the writer and every reader must
// derive the same layout from the column: a 16- or 32-bit integer, a float,
// a double (numbers and OLE dates), or text of a fixed width in the code
// page's bytes, space padded. The stride is the distance between keys; it
// exceeds the width only for identifier columns, whose text keys are spaced
// on whole words.
//
// Node image (host order in memory):
//   word 0      brother: next node of the level, 0 for the last
//   word 1      key count
//   word 2      leaf: 0; interior: child 0
//   word 3 ...  leaf: record id of key i at word 3 + i; interior: child i at word 2 + i
//   16 + 4 x max keys   the keys, one stride apart

#include <cstddef>
#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

struct QUILLET_EXPORT AtxKeyLayout {
    enum KeyClass { kShort, kLong, kFloat, kDouble, kText };

    static constexpr int32_t kNodeSize = 2048;
    static constexpr int32_t kNodeWords = kNodeSize / 4;

    KeyClass keyClass = kLong;
    int32_t width = 0;
    int32_t stride = 0;
    int32_t maxKeys = 0;
    int32_t keysOffset = 0;

    // maxKeys counts the width in whole words and is always odd. The layout
    // is usable only when at least three keys fit (IsValid).
    static AtxKeyLayout Make(KeyClass keyClass, int32_t width, int32_t stride);
    bool IsValid() const { return maxKeys >= 3; }
    bool IsText() const { return keyClass == kText; }

    unsigned char* KeyAt(unsigned char* node, int32_t i) const {
        return node + keysOffset + i * stride;
    }
    const unsigned char* KeyAt(const unsigned char* node, int32_t i) const {
        return node + keysOffset + i * stride;
    }
    // A numeric key (host order) widened to double.
    double NumberOf(const unsigned char* key) const;
    // Stores a number as the key class, cut toward zero for the integer
    // classes; false when it does not fit them (or is not a number).
    bool StoreNumber(double value, unsigned char* key) const;
    // Text into width bytes: cut at the width, padded with spaces.
    void StoreText(const char* text, unsigned char* key) const;
    void StoreText(const char* text, size_t length, unsigned char* key) const;
    // Sign of (a - b): text bytes over the width, numbers as doubles (exactly;
    // a NaN sorts after every number).
    int Compare(const unsigned char* a, const unsigned char* b) const;

    // Converts a node image between host order and the file's big-endian
    // order. FromDisk checks the count first: false when it is out of range.
    void ToDisk(const unsigned char* host, unsigned char* disk) const;
    bool FromDisk(unsigned char* node) const;

private:
    void SwapNode(unsigned char* node, int32_t count) const;
};

}  // namespace quillet
