#pragma once

// MTreeIndexBuilder: writes a complete .atx attribute index of one column in
// one pass. Entries are collected in an external sorter (64 MiB of memory,
// the rest spilled to temporary files); Write then fills the leaves in key
// order and builds each interior level from the last key of every node of
// the level below, until a level is one node: the root, the last node of the
// file. Nodes are 2048 bytes, big-endian (layout in attrindex/AtxKeyLayout.h).
//
// The builder holds the field it was initialised with (the caller keeps it
// alive) and owns its sorter and files. Failures are false results; a failed
// Write leaves the part of the file written so far.

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "attrindex/AtxKeyLayout.h"
#include "foundation/Export.h"
#include "foundation/FileSystemPath.h"
#include "foundation/IField.h"
#include "foundation/String.h"
#include "foundation/Variant.h"

namespace quillet {

class DataEnumerator;
class ExternalSort;
class File;

class QUILLET_EXPORT MTreeIndexBuilder {
public:
    // How date keys are stored: 0 as OLE dates, 1 as the text "%4d%2d%2d"
    // (year, month, day, space padded), 2 as the text "%8d" of the whole day
    // number. Init refuses 1.
    enum TypeMapping : int32_t { kTypeMap0 = 0, kTypeMap1 = 1, kTypeMap2 = 2 };

    // One node being written or read back, as a host-order image.
    class QUILLET_EXPORT MTreeNode {
    public:
        MTreeNode(File* file, IField* field, TypeMapping map, bool leaf);

        bool IsFull() const { return count_ >= layout_.maxKeys; }
        int32_t GetCount() const { return count_; }
        bool IsLeaf() const { return leaf_; }
        void SetBrother(int32_t node) { SetWord(0, node); }
        // A leaf entry from a sort element (record id, then the key).
        void AddKey(const unsigned char* element);
        // An id (leaf) or child (interior) with its key.
        void AddRecord(int32_t id, const unsigned char* key);
        // A child without key: the extra last pointer of an interior node.
        void AddId(int32_t id);
        // The last key (key 0 of an empty node).
        const unsigned char* GetLastRecord() const;
        // Drops the last key; in an interior node its child stays as the
        // extra last pointer.
        void RemoveLastRecord();
        bool Read(int32_t node);
        // Writes the node at the end of the file and clears the image.
        bool Append();
        const AtxKeyLayout& GetLayout() const { return layout_; }

    private:
        void SetWord(int32_t i, int32_t value);
        int32_t GetWord(int32_t i) const;
        void Clear();

        File* file_;
        qovaFieldType type_;
        AtxKeyLayout layout_;
        TypeMapping map_;
        bool leaf_;
        int32_t count_ = 0;
        alignas(8) unsigned char image_[AtxKeyLayout::kNodeSize];
    };

    // Reports (entries written, entries in all) while Write fills the leaves.
    using Progress = std::function<void(int64_t done, int64_t total)>;

    MTreeIndexBuilder();
    ~MTreeIndexBuilder();
    MTreeIndexBuilder(const MTreeIndexBuilder&) = delete;
    MTreeIndexBuilder& operator=(const MTreeIndexBuilder&) = delete;

    bool Init(const FileSystemPath& path, IField* field, TypeMapping map);
    bool InsertEntry(int32_t id, const VARIANT& value);
    // An entry whose key is already in the sort form: a host-order number of
    // the key's class, or the text bytes of the key's width.
    bool InsertKey(int32_t id, const unsigned char* key);
    bool Write();
    bool Create(const FileSystemPath& path, IField* field, DataEnumerator* data, TypeMapping map);
    void SetProgress(Progress progress) { progress_ = std::move(progress); }

    // The layout of the keys a field gets; invalid (IsValid false) for a
    // type without keys or a text too wide for a node.
    static AtxKeyLayout LayoutOf(IField* field, TypeMapping map);

private:
    // An entry of ASCII text (n bytes), taken as it is where the code page
    // of the keys writes ASCII as is.
    bool InsertAscii(int32_t id, const char* text, int32_t n);
    bool WriteLeaves(File& file, int32_t& nodes);
    bool WriteLevel(File& file, int32_t first, int32_t last, int32_t& nodes);

    String path_;
    IField* field_ = nullptr;
    TypeMapping map_ = kTypeMap0;
    qovaFieldType type_ = qovaFieldTypeSmallInteger;
    AtxKeyLayout layout_;
    // The code page of text keys, looked up once per build rather than per key.
    uint32_t codePage_ = 0;
    bool asciiAsIs_ = false;
    std::unique_ptr<ExternalSort> sorter_;
    std::vector<unsigned char> element_;
    Progress progress_;
};

}  // namespace quillet
