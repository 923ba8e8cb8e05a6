#pragma once

// The legacy index interface: eight C calls over .atx attribute index files,
// the format that MTreeIndexBuilder writes (attrindex/AtxKeyLayout.h).
// MTreeIndex creates, opens, updates and scans its files through them.
//
// A key descriptor is four integers: 0, the key width in bytes, the key kind
// and the decimals (-1 for none). Kinds: 1 date (an OLE date, stored as a
// double), 2 text of the width, 3 an integer of `width` digits (16 bits up to
// four digits, else 32), 4 a decimal number of `width` digits (a float up to
// eight, else a double), 5 a binary integer (2 or 4 bytes) and 6 a binary
// float (4 or 8 bytes). The file records none of this, so it is passed to
// open as to create.
//
// Keys travel as a double (every kind but 2) or as multibyte text. Text keys
// compare as bytes over the width, shorter text padded with spaces; numbers
// compare as doubles, exactly. Entries with equal keys lie in record id order.
//
// Paths are UTF-8. Handles are above 0; calls on a handle that is not open
// fail. Every call returns 1 for done (an entry found, read, added or
// deleted) and 0 otherwise. A search that meets a damaged node stops there.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "attrindex/AtxKeyLayout.h"
#include "foundation/Export.h"
#include "foundation/File.h"

// Room that atx_next needs for a text key and its terminator.
#define ATX_TEXT_BUFFER 512

extern "C" {
// Writes an empty index (replacing any file there) and opens it for updates.
QUILLET_EXPORT int32_t atx_create(const int32_t key[4], const char* path);
// mode 2 allows updates; any other mode opens for reading.
QUILLET_EXPORT int32_t atx_open(const int32_t key[4], const char* path, int32_t mode);
QUILLET_EXPORT int32_t atx_add(int32_t handle, double number, const char* text, int32_t id);
QUILLET_EXPORT int32_t atx_delete(int32_t handle, double number, const char* text, int32_t id);
// mode 1: to the first entry not smaller than the key; 0: the first greater.
QUILLET_EXPORT int32_t atx_seek(int32_t handle, double number, const char* text, int32_t mode);
QUILLET_EXPORT int32_t atx_top(int32_t handle);
// The entry at the position (text: the full width, space padded), then on.
QUILLET_EXPORT int32_t atx_next(int32_t handle, int32_t* id, char* text, double* number);
QUILLET_EXPORT int32_t atx_close(int32_t handle);
}

namespace quillet {

// The index behind one handle.
class QUILLET_EXPORT LegacyIndex {
public:
    // A search or entry key: the number, or the text padded to the width.
    struct Key {
        double number = 0;
        std::string text;
    };

    // The layout a descriptor gives; invalid for an unknown kind or width.
    static AtxKeyLayout LayoutOf(const int32_t key[4]);

    explicit LegacyIndex(const std::string& path);
    bool Open(const AtxKeyLayout& layout, bool writable);
    // Writes an empty index.
    static bool CreateEmpty(const std::string& path, const AtxKeyLayout& layout);

    Key MakeKey(double number, const char* text) const;
    bool Seek(const Key& key, bool inclusive);
    bool Top();
    bool Next(int32_t& id, Key& key);
    bool Add(const Key& key, int32_t id);
    bool Delete(const Key& key, int32_t id);
    bool IsWritable() const { return writable_; }
    // Whether the last seek or scan stopped at a damaged node.
    bool IsDamaged() const { return damaged_; }
    const AtxKeyLayout& GetLayout() const { return layout_; }
    int32_t GetNodeCount() const { return nodes_; }
    // Levels from the root down the first children (0 when unreadable).
    int32_t CountLevels();

    // Walks the whole tree: counts the entries and checks every node, the
    // order of the keys, the levels and the brother links. An empty message
    // when the tree is sound.
    std::string Check(int64_t& entries);

private:
    struct Node {
        int32_t number = 0;
        alignas(8) unsigned char image[AtxKeyLayout::kNodeSize];
        int32_t Word(int32_t i) const;
        int32_t Count() const { return Word(1); }
        bool IsLeaf() const { return Word(2) == 0; }
        int32_t Child(int32_t i) const { return Word(2 + i); }
    };

    bool ReadNode(int32_t number, Node& node);
    int CompareKey(const unsigned char* stored, const Key& key) const;
    // The first position at or after the key (or after it), from the root.
    bool Descend(const Key& key, bool inclusive);
    bool SkipEmptyLeaves();
    // Rewrites the file with every entry, one added or one left out.
    bool Rewrite(const Key* added, const Key* removed, int32_t id);
    bool ToKeyBytes(const Key& key, unsigned char* out) const;
    // Places the cursor on the first entry not before (key, id); false when
    // there is none. `exact` when that entry is (key, id).
    bool Locate(const unsigned char* key, int32_t id, bool& exact);
    // Writes the cursor's leaf with `count` entries.
    bool WriteLeaf(int32_t count);
    struct Member {
        int32_t number;
        bool leaf;
        std::string lastKey;
    };
    std::string CheckLevel(int32_t first, int depth, int64_t& entries, std::vector<bool>& seen,
                           std::vector<Member>& level);
    std::string CheckLeaf(const Node& node, std::string& previous, int64_t& entries);

    std::string path_;
    std::unique_ptr<File> file_;
    AtxKeyLayout layout_;
    bool writable_ = false;
    int32_t nodes_ = 0;
    Node leaf_;
    int32_t position_ = 0;
    int32_t hops_ = 0;
    bool damaged_ = false;
};

}  // namespace quillet
