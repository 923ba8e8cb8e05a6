#pragma once

// MTreeIndex: the attribute index that a table keeps for one column, in a
// file of its own ("<table>.<field>.atx" beside the table). It answers SQL
// predicates on the column with the record ids that match, scanning the file
// through the legacy index interface (attrindex/LegacyIndex.h); a bulk
// creation goes through MTreeIndexBuilder and reaches the disk at Close.
//
// The scans keep the behaviour of the index that other programs share this
// file format with, where it differs from SQL: see Search.
//
// Results are HRESULT codes: S_OK, or E_FAIL for an index that is not open,
// an unsupported predicate or value, or a failed creation. One thread at a
// time; the object owns its handle and builder and releases them at Close.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "foundation/Export.h"
#include "foundation/FileSystemPath.h"
#include "foundation/HResult.h"
#include "foundation/IFIDSet.h"
#include "foundation/IField.h"
#include "foundation/Variant.h"

namespace quillet {

class MTreeIndexBuilder;

enum qovaSQLPredicates : int32_t {
    qovaSQLEqual = 1,
    qovaSQLNotEqual = 2,
    qovaSQLLessThan = 4,
    qovaSQLGreaterThan = 8,
    qovaSQLLessOrEqual = 16,
    qovaSQLGreaterOrEqual = 32,
    qovaSQLBetween = 64,
    qovaSQLNotBetween = 128,
    qovaSQLIn = 256,
    qovaSQLNotIn = 512,
    qovaSQLLike = 1024,
};

class QUILLET_EXPORT MTreeIndex {
public:
    // 2 allows updates; 3 is a bulk creation (Create only).
    enum Mode : int32_t { kModeRead = 1, kModeUpdate = 2, kModeBulk = 3 };
    // Key kinds of the descriptor.
    enum KeyKind : int32_t {
        kKindDate = 1,
        kKindText = 2,
        kKindIntegerDigits = 3,
        kKindDecimalDigits = 4,
        kKindInteger = 5,
        kKindFloat = 6,
    };

    MTreeIndex();
    ~MTreeIndex();
    MTreeIndex(const MTreeIndex&) = delete;
    MTreeIndex& operator=(const MTreeIndex&) = delete;

    static bool IndexExists(const FileSystemPath& path);
    static bool DeleteIndex(const FileSystemPath& path);

    // The key descriptor (0, width, kind, decimals) from the field's variant
    // type, length, precision and scale; E_FAIL for any other type.
    HRESULT SetupFieldProperties(IField* field);
    const int32_t* GetKeyDescriptor() const { return key_; }

    HRESULT Create(const FileSystemPath& path, IField* field, bool bulk);
    // Refuses mode 3.
    HRESULT Open(const FileSystemPath& path, IField* field, Mode mode);
    // In a bulk creation, writes the index.
    HRESULT Close();
    bool IsOpen() const { return handle_ > 0; }

    HRESULT InsertEntry(const VARIANT& value, int32_t id);
    HRESULT DeleteEntry(const VARIANT& value, int32_t id);

    // Adds the ids of the matching records to `result`. Values: one for the
    // comparisons and like, lower and upper for the two betweens, the set for
    // in and not in (sorted in place, converted to text on a text index; a
    // value that cannot be converted raises its HRESULT as an int32_t).
    //
    // Kept as the shared format's index behaves, unlike SQL: a null first
    // value matches nothing (and fails the betweens and not in); not in moves
    // past a value in one step, so of two entries equal to the next value the
    // first is added; like cuts its prefix at the first "_" even after a "%";
    // text compares over the key width, trailing spaces ignored; numbers
    // compare exactly as doubles.
    HRESULT Search(std::vector<VARIANT*>& values, qovaSQLPredicates predicate, IFIDSet* result);

    // A numeric index takes VT_I2, VT_I4, VT_R4, VT_R8 and VT_DATE as a
    // double; a text index takes VT_BSTR as multibyte text. E_FAIL otherwise.
    HRESULT ExtractKeyValue(const VARIANT& value, double& number, std::string& text) const;

private:
    struct ScanKey;
    class Scan;

    HRESULT CheckLayout(IField* field) const;
    HRESULT ScanKeyOf(const VARIANT* value, ScanKey& key) const;
    HRESULT SearchComparison(const VARIANT* value, qovaSQLPredicates predicate, IFIDSet* result);
    HRESULT SearchRange(const std::vector<VARIANT*>& values, bool inside, IFIDSet* result);
    HRESULT SearchSet(std::vector<VARIANT*>& values, bool inside, IFIDSet* result);
    HRESULT SearchLike(const VARIANT* value, IFIDSet* result);
    void SortValues(std::vector<VARIANT*>& values) const;

    int32_t key_[4] = {0, 0, 0, -1};
    int32_t handle_ = 0;
    Mode mode_ = kModeRead;
    std::unique_ptr<MTreeIndexBuilder> builder_;
};

}  // namespace quillet
