#pragma once

// DBase: reads and writes one dBASE table (.dbf, layout in DBaseFormat.h).
//
// A caller constructs it on a path, opens or creates the table, moves a
// one-record cursor, reads and writes field values as text, numbers, dates,
// logicals or variants, appends and deletes records, and commits. One record
// is buffered at a time; a change to it reaches the file when the cursor
// moves, a record is added, or on Flush, CommitChanges and Close. Records
// marked deleted are removed from the file (compaction through a temporary
// file) by CommitChanges and Close.
//
// The object owns its File, its record and scratch buffers and its CodePage,
// through which every text value passes. Failures are results: false (or an
// empty or zero value) plus GetLastStatus(). Not thread-safe: one object, one
// thread.

#include <cstdint>
#include <memory>
#include <vector>

#include "codepage/CodePage.h"
#include "dbase/DBaseFormat.h"
#include "foundation/Export.h"
#include "foundation/FileSystemPath.h"
#include "foundation/String.h"
#include "foundation/StringArray.h"
#include "foundation/Variant.h"

namespace quillet {

class File;

class QUILLET_EXPORT DBase {
public:
    using HeaderRecord = DBaseHeaderRecord;
    using FieldRecord = DBaseFieldRecord;
    using DateRec = DBaseDateRec;

    // The field type letter; the values are the letters themselves. Tables
    // read from disk may carry others (such as "M"), which are only read.
    enum qovaDataType : char {
        qovaCharacter = 'C',
        qovaDate = 'D',
        qovaFloat = 'F',
        qovaLogical = 'L',
        qovaNumeric = 'N',
        qovaMemo = 'M',
    };

    // The last status. 1, 3 and 4 are the file layer's own codes passed through.
    enum Status : int32_t {
        kStatusOk = 0,
        kStatusFileFailure = 2,       // any other failure of the file layer on open or create
        kStatusAccessDenied = 5,      // the file layer refused access
        kStatusBadField = 7,          // field number out of range
        kStatusPastLastRecord = 11,   // record number at or beyond the count
        kStatusNegativeRecord = 12,
        kStatusNoRecord = 14,         // no current record, record deleted, or field refuses the value
        kStatusWriteFailed = 15,
        kStatusBadWidth = 16,         // width or decimals out of range for the type
        kStatusMalformedText = 17,    // date, logical or numeric text not acceptable
        kStatusTruncated = 18,        // text cut to the field width; the value is stored
        kStatusDuplicateName = 19,    // a new column name clashes
        kStatusDiskFull = 20,
        kStatusTooManyFiles = 21,
        kStatusHeader = 22,           // header could not be read or written
    };

    DBase();
    explicit DBase(const String& path);
    ~DBase();
    DBase(const DBase&) = delete;
    DBase& operator=(const DBase&) = delete;

    // --- Life cycle ---------------------------------------------------------
    // Opens the table; the code page comes from the header, else the .cpg
    // file, else `defaultCodePage`. An empty table opens with status 11.
    bool Open(bool readOnly, bool share, CodePage::qovaCodePageEnum defaultCodePage);
    // Writes an empty table (and its .cpg when the code page has no language
    // driver id) and leaves the object closed.
    bool Create(CodePage::qovaCodePageEnum codePage);
    bool Close();
    bool IsOpen() const;
    bool Exists() const;
    // Closes the table and deletes it and its .cpg file; always true.
    bool DeleteFileW();
    bool SetFileMode(bool readOnly, bool share);
    bool Flush();
    bool CommitChanges();
    bool WriteHeader();
    bool ReadHeader();
    void UpdateHeaderTimeStamp();

    // The two conversion points of the 32-byte header between its file form
    // (little-endian) and memory.
    static HeaderRecord SwapHeaderLN(const unsigned char* disk);
    static void SwapHeaderNL(const HeaderRecord& header, unsigned char* disk);

    // --- Schema -------------------------------------------------------------
    int32_t GetNumRecords() const { return header_.numRecords; }
    int GetNumFields() const { return static_cast<int>(fields_.size()); }
    String GetFieldName(int field) const;
    char GetFieldType(int field) const;
    int GetFieldWidth(int field) const;
    int GetFieldDecimals(int field) const;
    // Case-insensitive; only the first 10 characters of `name` count. -1 when
    // no field matches.
    int GetFieldNumber(const String& name) const;
    const CodePage& GetCodePage() const { return codePage_; }
    bool SetCodePage(CodePage::qovaCodePageEnum kind);
    const String& GetFilePath() const { return path_; }
    const HeaderRecord& GetHeader() const { return header_; }
    int32_t GetLastStatus() const { return status_; }
    // The attribute index of a field ("<table>.<field>.atx" beside the table):
    // true when it and the table exist; `upToDate` when the table is not newer.
    bool IndexExists(int field, FileSystemPath& indexPath, bool& upToDate) const;

    // --- Cursor and records -------------------------------------------------
    bool MoveTo(int32_t record);
    int32_t GetCurrentRecord() const { return current_; }
    bool SeekToCurrent();
    bool FlushDirtyRecord();
    bool AddRecord();
    bool DeleteRecord(int32_t record);
    bool IsRecordDeleted(int32_t record);
    bool CopyRecordBuffer(int32_t from, int32_t to);

    // --- Fields of the current record ---------------------------------------
    // The raw bytes with a terminating zero, valid until the next call.
    const char* GetFieldPointer(int field);
    String GetFieldString(int field);
    // The text GetFieldString gives, as its bytes, when they are all ASCII in
    // a code page that keeps ASCII as it is: the length, with *text set and
    // valid until the next call. -1 when the text needs its code page (or the
    // field cannot be read).
    int GetFieldAscii(int field, const char** text);
    double GetFieldDouble(int field);
    int32_t GetFieldInteger(int field);
    bool GetFieldLogical(int field);
    DateRec GetFieldDate(int field);
    bool SetFieldNull(int field);
    bool SetFieldString(int field, const String& value);
    bool SetFieldInteger(int field, int32_t value);
    bool SetFieldDouble(int field, double value);
    bool SetFieldFloat(int field, float value);
    bool SetFieldLogical(int field, bool value);
    bool SetFieldDate(int field, const DateRec& value);
    bool GetValue(int32_t field, tagVARIANT& value);
    bool PutValue(int32_t field, tagVARIANT& value);

    // --- Schema change and compaction ---------------------------------------
    bool AddColumn(const String& name, qovaDataType type, int width, int decimals);
    bool AddColumns(const StringArray& names, qovaDataType* types, int* widths, int* decimals);
    bool AddColumnsToFile(int count, FieldRecord* records);
    // Removes the first field of that name (ignoring case) and leaves the
    // table closed: reopen it to see the new layout. Status 7 when no field
    // has the name.
    bool DropColumn(const String& name);
    bool CompactFile();
    int SetFieldRecord(const String& name, qovaDataType type, int width, int decimals,
                       FieldRecord& out);
    static int CheckLengthAndScale(qovaDataType type, int& width, int& decimals);

    // Cleaning of the names read from a table: unique, none reserved.
    static void RemoveUnnecessarySpaces(StringArray& names);
    static bool FixDuplicatedFieldNames(StringArray& names);
    static bool CheckDuplicateFieldName(int32_t index, StringArray& names);
    static bool CorrectDuplicateFieldName(int32_t index, StringArray& names);
    static void FindAddOnChar(const String& name, wchar_t* addOn);
    static void FindAddOnString(const String& name, String& addOn);

private:
    struct FieldEntry {
        int number;
        char type;
        int width;
        int decimals;
        int offset;  // inside the record; the first field is at 1
    };

    bool MapFileError(int32_t fileError);
    bool OpenFile(bool readOnly, bool share);
    bool ReadDescriptors(std::vector<FieldRecord>& records);
    bool ReadFieldDescriptors();
    void ReleaseTable();
    void AllocateBuffers();
    void AppendField(const String& name, const FieldRecord& record);
    String DecodeFieldName(const FieldRecord& record);
    void EncodeFieldName(const String& name, FieldRecord& record);
    FieldRecord MakeFieldRecord(int field);
    bool WriteHeaderTo(File& file);
    bool WriteCodePageFile();
    String SideFilePath(const wchar_t* extension) const;
    bool ReadCodePageFile(String& name) const;
    void ResetCursor();
    // Reads record current_ into the record buffer.
    bool ReadCurrentRecord();

    // Field access helpers: check the field number (and the record).
    // Inline for the common case of a valid field of a record already in
    // the buffer: a table scan makes one call per field.
    const FieldEntry* FieldForRead(int field) {
        if (cachedPosition_ >= 0 && static_cast<size_t>(field) < fields_.size()) {
            status_ = kStatusOk;
            return &fields_[static_cast<size_t>(field)];
        }
        return CheckFieldForRead(field);
    }
    const FieldEntry* CheckFieldForRead(int field);
    FieldEntry* FieldForWrite(int field);
    bool WriteText(const FieldEntry& entry, const char* text, int length);
    bool MarkChanged();
    bool SetNumberText(FieldEntry& entry, const char* text);
    bool SetDateText(FieldEntry& entry, const char* text);
    bool SetLogicalText(FieldEntry& entry, const char* text);
    bool SetCharacterText(FieldEntry& entry, const String& value);
    const char* ConvertToTable(const String& value, int size);

    // Schema change helpers.
    bool ChooseCodePageFromTable();
    bool ReadDescriptorNames(StringArray& names);
    bool PrepareNewColumns(const StringArray& names, qovaDataType* types, int* widths, int* decimals,
                           std::vector<FieldRecord>& records);
    bool GrowHeader(HeaderRecord& header, int count, const FieldRecord* records);
    bool AddColumnsToEmptyTable(int count, FieldRecord* records);
    std::vector<FieldRecord> CurrentDescriptors(int except);
    // Rewrites the table through a temporary file with `descriptors`; each
    // live record loses its bytes [dropOffset, dropOffset + dropWidth) and
    // gains `zeroBytes` zero bytes. `result` is the new header; its record
    // count and date are set here.
    bool RewriteTable(const std::vector<FieldRecord>& descriptors, int dropOffset, int dropWidth,
                      int zeroBytes, HeaderRecord& result);

    String path_;
    std::unique_ptr<File> file_;
    bool readOnly_ = true;
    bool share_ = false;
    HeaderRecord header_;
    StringArray names_;
    std::vector<FieldEntry> fields_;
    std::vector<char> record_;
    std::vector<char> narrow_;
    std::vector<wchar_t> wide_;
    bool headerChanged_ = false;
    bool recordChanged_ = false;
    bool recordAppended_ = false;
    bool hasDeletedRecords_ = false;
    int32_t current_ = -1;
    // The file position of the record in the buffer, or -1. Anything that
    // closes the file, moves the cursor or changes the header's lengths
    // sets it to -1 first: at 0 or above the table is open and the buffer
    // holds record current_.
    int64_t cachedPosition_ = -1;
    int32_t status_ = kStatusOk;
    CodePage codePage_;
    // Whether bytes below 0x80 read as the same code points, so that text
    // fields in plain ASCII need no trip through the code page.
    bool asciiIsIdentity_ = true;
};

}  // namespace quillet
