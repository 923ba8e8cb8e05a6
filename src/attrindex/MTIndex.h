#pragma once

// MTIndex: a B-tree of (key, record id) entries in a file of fixed-size nodes
// (node layout in attrindex/MTNodeGeometry.h), ordered by key and then by
// record id. Callers insert, delete, look up exact entries, scan ranges
// through an MTSearch cursor, and bulk-load entries sorted externally.
//
// This class reads and writes the older format: 2048-byte big-endian nodes,
// the root always the last node of the file, no free list and no entry count.
// The file does not record the key type, so the caller sets it (constructor
// or SetDataType) before Open. MTIndexNG derives the next-generation format
// by overriding the virtual hooks.
//
// Interior nodes hold, per key, the child right of it, plus a leftmost child;
// key i is the last key of the child left of it. Each level is linked left to
// right through the brother words; the leaves are scanned that way. In a node
// with a left brother the leftmost child repeats that brother's last child.
//
// Every operation descends through a cache of one node object per level (so
// a descent reads only the nodes not already held) and lends one scratch node
// for neighbours. Changes are written to the file as they are made (a failure
// in the middle of a split leaves the nodes written so far); the metadata of
// the next-generation format is written on Flush and Close.
//
// The index object owns its file handle, nodes, sorter and trace stream;
// Close (or the destructor) releases them. A cursor (MTSearch) filled by an
// index stays valid only until the tree is changed. One thread at a time.
//
// Results are HRESULT codes: S_OK, S_FALSE for "nothing" (not found, already
// there, exhausted), E_UNEXPECTED (no file, unknown type, bad metadata),
// E_FAIL (a corrupt node or tree, a file too large), E_OUTOFMEMORY,
// MT_E_SHORT_READ (a node read short: a pointer past the end of the file, a
// truncated last node) and HRESULT_FROM_WIN32 of a platform error.

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "attrindex/KeyTextCodec.h"
#include "attrindex/MTKey.h"
#include "attrindex/MTNode.h"
#include "attrindex/MTNodeGeometry.h"
#include "foundation/Export.h"
#include "foundation/HResult.h"
#include "foundation/Win32FileHandle.h"

namespace quillet {

class ExternalSort;
class IField;
class MTScratchLease;
class MTSearch;
struct MTEntryRun;

class QUILLET_EXPORT MTIndex {
public:
    static constexpr int32_t kMaxLevels = 20;
    static constexpr int32_t kMaxStringWidth = 160;

    // Key type MTNone: set it with SetDataType before Open.
    MTIndex();
    // Caps MTString at 160 and MTWString at 320 characters (setting the
    // keys-truncated flag when it caps), then SetDataType. codePage converts
    // MTString keys (0: the system's ANSI code page).
    MTIndex(MTDataType type, int32_t size, uint32_t codePage);
    virtual ~MTIndex();
    MTIndex(const MTIndex&) = delete;
    MTIndex& operator=(const MTIndex&) = delete;

    // Sets the key type and width (size: bytes of MTString, characters of
    // MTWString; numbers have their own width) and the node geometry. Text
    // wider than 160 bytes is capped, with the keys-truncated flag.
    HRESULT SetDataType(MTDataType type, int32_t size);
    HRESULT SetDataType(IField* field, MTTypeMap map);
    void SetCodePage(uint32_t codePage);

    // Opens (or creates, by disposition) the index file as CreateFileW does.
    // An empty file, CREATE_NEW and CREATE_ALWAYS get an empty root. Then the
    // metadata is read and the cache set up. E_UNEXPECTED when the key type
    // is still unknown.
    HRESULT Open(const wchar_t* path, uint32_t access, uint32_t share,
                 SECURITY_ATTRIBUTES* security, uint32_t disposition, uint32_t flags,
                 HANDLE templateFile);
    // Commits, writes the metadata and releases everything; the first failure.
    HRESULT Close();
    // Commits and writes the metadata, then flushes the file to disk.
    HRESULT Flush();
    bool IsOpen() const { return file_ != INVALID_HANDLE_VALUE; }
    // File size in bytes (0 when closed).
    int64_t Size() const;
    bool IsEmpty() const;

    // S_OK when inserted, S_FALSE when the entry is there already. In bulk
    // load the entry goes to BulkInsert.
    HRESULT Insert(const MTKey& key, int32_t id);
    // S_OK whether or not the entry was there; E_UNEXPECTED in bulk load.
    HRESULT Delete(const MTKey& key, int32_t id);
    // S_OK when the exact entry exists, S_FALSE when not.
    HRESULT SearchKeyValue(const MTKey& key, int32_t id);
    // Places the cursor at the first entry whose key is >= key (inclusive)
    // or > key; the cursor is invalid when there is none.
    HRESULT Search(const MTKey& key, bool inclusive, MTSearch& search);
    HRESULT SearchFirst(MTSearch& search);
    // The first and last key; S_FALSE on an empty tree.
    HRESULT GetMinKey(MTKey& key);
    HRESULT GetMaxKey(MTKey& key);

    // Bulk load: entries are collected in an external sorter (4 MiB of
    // memory, the rest spilled to a temporary file) and written as a new
    // tree by FinishBulkLoad, which replaces the old tree or, with merge,
    // takes its entries in too. Exact duplicates are written once.
    HRESULT StartBulkLoad(int32_t expectedEntries);
    HRESULT BulkInsert(const MTKey& key, int32_t id);
    HRESULT FinishBulkLoad(bool merge);
    bool IsBulkLoading() const { return sorter_ != nullptr; }

    // Trace: each Insert ("I", "B" in bulk load) and Delete ("D") as a line
    // "op,key,id" in the file named as the index followed by ".trace".
    HRESULT SetTrace(bool enable);
    HRESULT Trace(wchar_t op, const MTKey& key, int32_t id);
    // Repeats the operations of a trace file on this index.
    HRESULT ReplayTrace(const wchar_t* path);

    // The hooks of the file format, overridden by MTIndexNG.
    // Checks the whole tree; S_OK when consistent, else E_FAIL (or the
    // failure of a read) with what was wrong on the debug output.
    virtual HRESULT Validate();
    // Walks the tree as Validate does: its entries and its nodes (the file's
    // other nodes are free or unused).
    HRESULT CountTree(int64_t& entries, int32_t& nodes);
    virtual bool IsLE() const { return false; }
    virtual void CalculateMaxKeys();
    virtual HRESULT SetupCache();
    virtual HRESULT ReadMetadata() { return S_OK; }
    virtual HRESULT WriteMetadata() { return S_OK; }
    virtual void ResetEntryCount() {}
    virtual void IncrementEntryCount() {}
    virtual void DecrementEntryCount() {}
    virtual HRESULT AssignNewNodeIndex(int32_t& nodeIndex);
    virtual HRESULT AddToFreeList(MTNode& node);
    virtual HRESULT PrepareToGrowTree(int32_t& first, int32_t& second);
    virtual int32_t GetStartBlockForBulkLoad() { return 1; }
    virtual HRESULT PostBulkLoad();

    MTDataType GetDataType() const { return type_; }
    int32_t GetKeyWidth() const { return geometry_.keyWidth; }
    const MTNodeGeometry& GetGeometry() const { return geometry_; }
    const KeyTextCodec& GetTextCodec() const { return codec_; }
    uint32_t GetCodePage() const { return codePage_; }
    bool GetKeysTruncated() const { return keysTruncated_; }
    int32_t GetLevels() const { return levels_; }
    int32_t GetRootIndex() const { return rootIndex_; }
    const std::wstring& GetPath() const { return path_; }
    // Whole nodes in the file.
    int32_t GetNodeCount() const;

    // Node I/O: position at node n, move one whole node.
    HRESULT Seek(int32_t nodeIndex);
    HRESULT Read(void* block);
    HRESULT Write(const void* block);
    // The one scratch node; E_UNEXPECTED while it is lent.
    HRESULT GetScratchNode(MTNode** node);
    void ReleaseScratchNode();
    // Sets the cache up again from the file.
    HRESULT RefreshCache();

protected:
    // What a check of the tree found: the entries of its leaves and which
    // nodes it holds (by node number).
    struct TreeCensus {
        int64_t entries = 0;
        std::vector<bool> inTree;
    };

    explicit MTIndex(int32_t nodeSize);

    // Checks the tree from the root down, level by level; reports the first
    // fault on the debug output and returns E_FAIL (or the read's failure).
    HRESULT CheckTree(TreeCensus& census);

    HANDLE GetFileHandle() const { return file_; }
    void SetGeometry(const MTNodeGeometry& geometry) { geometry_ = geometry; }
    void SetRootIndex(int32_t nodeIndex) { rootIndex_ = nodeIndex; }
    void SetLevels(int32_t levels) { levels_ = levels; }
    void SetKeysTruncated(bool truncated) { keysTruncated_ = truncated; }
    MTNode& CacheAt(int32_t level) { return *cache_[static_cast<size_t>(level)]; }
    // Reads the root into level 0 and the first path down to the leaves;
    // with levels 0, counts the levels on the way.
    HRESULT LoadLeftmostPath() { return DescendEdge(false); }
    // Commits every node held.
    HRESULT CommitAll();
    // Moves the file pointer to byte `offset`.
    HRESULT SeekTo(int64_t offset);
    // Truncates or extends the file to `length` bytes.
    HRESULT SetFileLength(int64_t length);
    // Writes `n` bytes at byte `offset`; reads them.
    HRESULT WriteAt(int64_t offset, const void* data, uint32_t n);
    HRESULT ReadAt(int64_t offset, void* data, uint32_t n);
    // Whether a node number can name a node of the file other than the root.
    bool IsNodeOfFile(int32_t nodeIndex) const;
    // The thread's last platform error as a result (E_FAIL when there is none).
    static HRESULT LastPlatformError();
    // Reports a fault of the tree on the debug output.
    void Report(const wchar_t* format, ...) const;

private:
    friend class MTNode;
    friend class MTSearch;
    enum class Descent { kInclusive, kGreater, kExact };

    // MTIndex.cpp
    HRESULT CreateRoot();
    unsigned char* GetSwapBuffer();
    void NoteCommitted(const MTNode& node);
    void ForgetCache();
    HRESULT ReleaseAll();
    HRESULT CheckKey(const MTKey& key) const;
    // The key as a node holds it: its bytes, and the key they read back as
    // (a number in the index's type, text cut at the width through the code
    // page), so that the entry is placed where the tree will look for it.
    HRESULT StoredForm(const MTKey& key, unsigned char* bytes, MTKey& stored) const;
    // MTIndexSearch.cpp
    HRESULT DoSearchKey(const MTKey& key, int32_t id, Descent descent);
    HRESULT PlaceInLeaf(const MTKey& key, int32_t id, Descent descent);
    HRESULT StepRight(int32_t level);
    // Reads the first (or last) path from the root down into the cache.
    HRESULT DescendEdge(bool last);
    HRESULT LoadSearch(const MTNode& leaf, MTSearch& search);
    // MTIndexInsert.cpp
    HRESULT DoInsert(int32_t level, const unsigned char* key, int32_t slot, bool lastKeyRewritten);
    HRESULT InsertWithBrother(int32_t level, const unsigned char* key, int32_t slot);
    // `lease` holds the neighbour; it is given back before the level above
    // is changed.
    HRESULT SplitTwoIntoThree(int32_t level, MTScratchLease& lease, bool otherIsRight,
                              const unsigned char* key, int32_t slot);
    HRESULT GrowTree(const unsigned char* key, int32_t slot);
    // MTIndexDelete.cpp
    HRESULT DoDelete(int32_t level);
    HRESULT ShrinkTree();
    // MTIndexUpdate.cpp
    // Spreads the entries of `sources` (and the new entry `key`, when given,
    // at `position` among them) evenly over `targets`, and commits them.
    HRESULT Spread(MTNode* const* sources, int32_t sourceCount, MTNode* const* targets,
                   int32_t targetCount, const unsigned char* key, int32_t slot, int32_t position);
    // Rewrites the separator of the node at `level` with its last key, and so
    // on up while it is the last key of its node.
    HRESULT DoUpdate(int32_t level);
    // Makes the right brother's leftmost pointer repeat the node's last child.
    HRESULT UpdateBrother(const MTNode& node);
    HRESULT ReadChild(int32_t level, int32_t childIndex, MTNode& into);
    HRESULT ReadRightBrother(int32_t level, MTNode& into);
    // MTBulkLoad.cpp
    HRESULT WriteLeaves(int32_t first, int32_t& last);
    HRESULT WriteLevel(int32_t first, int32_t last, int32_t& levelLast);
    HRESULT MakeSortElement(const MTKey& key, int32_t id, unsigned char* element, int32_t& size);
    HRESULT AddElementTo(MTNode& leaf, const unsigned char* element, int32_t size);

    HANDLE file_ = INVALID_HANDLE_VALUE;
    std::wstring path_;
    MTDataType type_ = MTNone;
    int32_t size_ = 0;
    MTNodeGeometry geometry_;
    KeyTextCodec codec_;
    uint32_t codePage_ = 0;
    bool keysTruncated_ = false;
    int32_t rootIndex_ = 0;
    int32_t levels_ = 0;
    std::array<std::unique_ptr<MTNode>, kMaxLevels> cache_;
    std::unique_ptr<MTNode> scratch_;
    std::unique_ptr<MTNode> spare_;
    bool scratchLent_ = false;
    std::unique_ptr<unsigned char[]> swapBuffer_;
    std::unique_ptr<MTEntryRun> run_;
    std::unique_ptr<ExternalSort> sorter_;
    bool tracing_ = false;
    std::FILE* traceFile_ = nullptr;
};

}  // namespace quillet
