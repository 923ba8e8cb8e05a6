#pragma once

// The node of an attribute index: one fixed-size block of the index file.
// Node n (numbered from 1) lies at byte (n - 1) x node size. Every field is a
// 32-bit integer except the keys:
//
//   offset       size              field
//        0          4              brother: the next node on the same level, 0 for none
//                                  (in a free node of the next-generation format: the
//                                  next free node)
//        4          4              key count, 0 ... max keys
//        8          4              leftmost pointer: in an interior node the child left
//                                  of the first key; 0 in a leaf
//       12          4 x id slots   per key: the record id (leaf) or the child right of
//                                  the key (interior)
//   keys offset   width x max keys the keys, back to back
//
// The rest of the block is zero. The two formats differ only in size, byte
// order and how many keys fit:
//
//                   older format                         next generation
//   node size       2048                                 4096
//   byte order      big-endian (header, ids, numbers)    little-endian
//   max keys        w = 512, k = ceil(width / 4),        (4096 - 12) / (width + 4)
//                   m = (w - 4) / (k + 1) - 1, made odd
//   id slots        max keys + 1                         max keys
//   keys offset     16 + 4 x max keys                    12 + 4 x max keys
//
// The older format counts the key width in whole words and keeps the maximum
// odd; both are part of its format. Minimum fill is max keys / 2.

#include <cstdint>

namespace quillet {

struct MTNodeGeometry {
    static constexpr int32_t kOlderNodeSize = 2048;
    static constexpr int32_t kNextGenerationNodeSize = 4096;
    static constexpr int32_t kBrotherOffset = 0;
    static constexpr int32_t kCountOffset = 4;
    static constexpr int32_t kLeftmostOffset = 8;
    static constexpr int32_t kSlotsOffset = 12;
    static constexpr int32_t kHeaderWords = 3;

    int32_t nodeSize = 0;
    int32_t keyWidth = 0;
    int32_t maxKeys = 0;
    int32_t minKeys = 0;
    int32_t idSlots = 0;
    int32_t keysOffset = 0;

    // keyWidth in bytes, 1 or more.
    static MTNodeGeometry Older(int32_t keyWidth);
    static MTNodeGeometry NextGeneration(int32_t keyWidth);
};

}  // namespace quillet
