#pragma once

// ShpFile: a shape data file (.shp with its index file .shx) and its
// projection side file (.prj). The shapes are the records of a VFile, opaque
// bytes that callers write and read whole; this class adds the 72-byte shape
// header carried in the record file's user header, and the projection text.
//
// The header and the projection are written lazily: at Close (and at
// destruction), or at once when a setter is told to. Deleting the data file
// also deletes the spatial bin index (.sbn, .sbx) and the .prj beside it.
//
// A ShpFile owns its VFile; the caller owns the ShpFile. Only Open is
// serialised (by one lock shared by all objects); an object is used by one
// thread at a time. Nothing here throws: failures return false (or null).

#include <cstdint>
#include <vector>

#include "foundation/Export.h"
#include "foundation/String.h"
#include "recordfile/VFile.h"

namespace quillet {

class QUILLET_EXPORT ShpFile {
public:
    enum qovaShapeTypeEnum : int32_t {
        qovaShapeNull = 0,
        qovaShapePoint = 1,
        qovaShapePolyline = 3,
        qovaShapePolygon = 5,
        qovaShapeMultipoint = 8,
        qovaShapePointZ = 11,
        qovaShapePolylineZ = 13,
        qovaShapePolygonZ = 15,
        qovaShapeMultipointZ = 18,
        qovaShapePointM = 21,
        qovaShapePolylineM = 23,
        qovaShapePolygonM = 25,
        qovaShapeMultipointM = 28,
        qovaShapeMultiPatch = 31,
    };

    struct DOUBLERECT {
        double xmin = 0, ymin = 0, xmax = 0, ymax = 0;
    };
    struct DOUBLEZLINE {
        double zmin = 0, zmax = 0;
    };
    struct DOUBLEMLINE {
        double mmin = 0, mmax = 0;
    };

    // The shape header, the 72-byte user header of the record file, in host
    // (little-endian) byte order:
    //
    //   offset size  field
    //        0    4  version (1000)
    //        4    4  shape type (qovaShapeTypeEnum)
    //        8   32  x/y extent: xmin, ymin, xmax, ymax (doubles)
    //       40   16  z range: zmin, zmax
    //       56   16  m range: mmin, mmax
    struct QUILLET_EXPORT Header {
        static constexpr int32_t kLength = 72;
        static constexpr int32_t kVersion = 1000;

        int32_t version = kVersion;
        int32_t shapeType = qovaShapeNull;
        DOUBLERECT extent;
        DOUBLEZLINE zExtent;
        DOUBLEMLINE mExtent;

        void EncodeTo(unsigned char out[kLength]) const;
        void DecodeFrom(const unsigned char in[kLength]);
    };

    // The extent of a new file given none: an empty rectangle.
    static constexpr DOUBLERECT kEmptyExtent = {0, 0, -1, -1};

    explicit ShpFile(const String& path);
    // Closes, writing back what changed.
    ~ShpFile();
    ShpFile(const ShpFile&) = delete;
    ShpFile& operator=(const ShpFile&) = delete;

    // Creates (replacing) the data and index file, writable and not shared.
    bool Create(qovaShapeTypeEnum type, const DOUBLERECT* extent = nullptr);
    // Opens an existing file; `share` and `third` are the record file's
    // sharing flags. Opening again with the same flags does nothing.
    bool Open(bool readOnly, bool share, bool third);
    bool Close();
    bool IsOpen() const { return file_.IsOpen(); }
    bool SetSharing(bool share);
    bool Flush();
    // Writes the projection (when changed) and commits the record file.
    bool CommitChanges();
    // Closes and deletes the data, index, .sbn, .sbx and .prj files.
    bool DeleteFileW();
    bool WriteHeader();

    int32_t GetVersion() const { return header_.version; }
    qovaShapeTypeEnum GetShapeType() const { return static_cast<qovaShapeTypeEnum>(header_.shapeType); }
    // The record count as of Open or the last InsertRecord; -1 before either.
    int32_t GetNumRecords() const { return count_; }
    const DOUBLERECT& GetExtent() const { return header_.extent; }
    const DOUBLEZLINE& GetZExtent() const { return header_.zExtent; }
    const DOUBLEMLINE& GetMExtent() const { return header_.mExtent; }
    bool SetExtent(const DOUBLERECT& extent, bool writeNow);
    bool SetZExtent(const DOUBLEZLINE& extent, bool writeNow);
    bool SetMExtent(const DOUBLEMLINE& extent, bool writeNow);
    // Byte order of the underlying record file.
    VFile::FileType GetByteOrder() const { return file_.GetFileType(); }

    // Record n's length in bytes: 0 when deleted, -1 on failure.
    int32_t GetRecordLength(int32_t n);
    // Record n's bytes, valid until the next read; null (and length 0) for a
    // deleted record or a failure.
    const unsigned char* ReadRecord(int32_t n, int32_t& length);
    // Reads all of record n into the caller's buffer (GetRecordLength bytes).
    bool ReadRecord(int32_t n, unsigned char* buffer);
    // Points *pointer at record n's bytes in memory, valid until the next read.
    bool GetRecordMemory(int32_t n, unsigned char** pointer);
    // Writes record n; no data or a zero length writes the null shape (four
    // zero bytes).
    bool WriteRecord(int32_t n, const unsigned char* bytes, int32_t length);
    bool InsertRecord(const unsigned char* bytes, int32_t length);
    bool DeleteRecord(int32_t n);
    bool IsRecordDeleted(int32_t n);

    // Reads the first line of the .prj file (at most 1023 bytes).
    bool OpenProjectionFile();
    const String& GetProjectionString() const { return projection_; }
    bool SetProjectionString(const String& text, bool writeNow);
    // Writes the .prj file, or deletes it when the text names the unknown
    // coordinate system. False for an empty text.
    bool WriteProjectionString();
    // Whether the text is the braced id of the unknown coordinate system.
    static bool IsUnknownCoordinateSystem(const String& text);

    // The projection side file of a data file.
    static String ProjectionPath(const String& dataPath);

private:
    bool StoreHeaderChange(bool writeNow);

    String path_;
    VFile file_;
    Header header_;
    bool readOnly_ = true;
    bool share_ = false;
    int32_t count_ = -1;
    bool headerChanged_ = false;
    bool projectionChanged_ = false;
    String projection_;
    std::vector<unsigned char> buffer_;
};

}  // namespace quillet
