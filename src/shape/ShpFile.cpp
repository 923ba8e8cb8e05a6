#include "shape/ShpFile.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "foundation/ByteOrder.h"
#include "foundation/FileSystemPath.h"
#include "foundation/Guid.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

// Serialises Open across every shape file of the process.
std::mutex s_openLock;

constexpr int kProjectionLineBytes = 1024;  // fgets keeps one byte for the terminator
constexpr int32_t kBufferGrain = 1024;
constexpr unsigned char kNullShape[4] = {0, 0, 0, 0};

void EncodeDoubles(unsigned char* out, std::initializer_list<double> values) {
    for (double value : values) {
        EncodeDoubleLE(out, value);
        out += 8;
    }
}

}  // namespace

void ShpFile::Header::EncodeTo(unsigned char out[kLength]) const {
    EncodeFixed32LE(out, static_cast<uint32_t>(version));
    EncodeFixed32LE(out + 4, static_cast<uint32_t>(shapeType));
    EncodeDoubles(out + 8, {extent.xmin, extent.ymin, extent.xmax, extent.ymax, zExtent.zmin,
                            zExtent.zmax, mExtent.mmin, mExtent.mmax});
}

void ShpFile::Header::DecodeFrom(const unsigned char in[kLength]) {
    version = static_cast<int32_t>(DecodeFixed32LE(in));
    shapeType = static_cast<int32_t>(DecodeFixed32LE(in + 4));
    double* fields[] = {&extent.xmin, &extent.ymin,  &extent.xmax,  &extent.ymax,
                        &zExtent.zmin, &zExtent.zmax, &mExtent.mmin, &mExtent.mmax};
    for (int i = 0; i < 8; ++i) *fields[i] = DecodeDoubleLE(in + 8 + 8 * i);
}

ShpFile::ShpFile(const String& path) : path_(path), file_(path.c_str()) {}

ShpFile::~ShpFile() { Close(); }

String ShpFile::ProjectionPath(const String& dataPath) {
    FileSystemPath path(dataPath);
    path.SetExtension(L".prj");
    return path.GetPath();
}

bool ShpFile::Create(qovaShapeTypeEnum type, const DOUBLERECT* extent) {
    Close();
    if (!file_.Create(0, VFile::kReadWrite, false, VFile::kIndexed, 0)) return false;
    readOnly_ = false;
    share_ = false;
    header_ = Header();
    header_.shapeType = type;
    header_.extent = extent ? *extent : kEmptyExtent;
    return WriteHeader();
}

bool ShpFile::Open(bool readOnly, bool share, bool third) {
    std::lock_guard<std::mutex> lock(s_openLock);
    if (IsOpen() && readOnly == readOnly_ && share == share_) return true;
    Close();
    readOnly_ = readOnly;
    share_ = share;
    if (!file_.Open(readOnly ? VFile::kReadOnly : VFile::kReadWrite, VFile::kIndexed, share, third)) {
        return false;
    }
    unsigned char bytes[Header::kLength];
    file_.ReadUserHeader(bytes, Header::kLength);
    header_.DecodeFrom(bytes);
    count_ = file_.GetNumRecs();
    OpenProjectionFile();
    return true;
}

bool ShpFile::Close() {
    if (!IsOpen()) return true;
    if (headerChanged_) WriteHeader();
    if (projectionChanged_) WriteProjectionString();
    file_.Close();
    return true;
}

bool ShpFile::SetSharing(bool share) {
    if (IsOpen() && share == share_) return true;
    share_ = share;
    return file_.SetSharing(share);
}

bool ShpFile::Flush() {
    if (!IsOpen() || readOnly_) return true;
    return file_.Flush();
}

bool ShpFile::CommitChanges() {
    if (!IsOpen()) return true;
    bool projection = !projectionChanged_ || WriteProjectionString();
    return file_.CommitChanges() && projection;
}

bool ShpFile::DeleteFileW() {
    Close();
    bool deleted = file_.DeleteFileW();
    for (const wchar_t* extension : {L".sbn", L".sbx", L".prj"}) {
        FileSystemPath side(path_);
        side.SetExtension(extension);
        quillet::DeleteFileW(side.c_str());
    }
    return deleted;
}

bool ShpFile::WriteHeader() {
    if (readOnly_) return false;
    unsigned char bytes[Header::kLength];
    header_.EncodeTo(bytes);
    if (!file_.WriteUserHeader(bytes, Header::kLength)) return false;
    headerChanged_ = false;
    return true;
}

bool ShpFile::StoreHeaderChange(bool writeNow) {
    if (writeNow) return WriteHeader();
    headerChanged_ = true;
    return true;
}

bool ShpFile::SetExtent(const DOUBLERECT& extent, bool writeNow) {
    if (readOnly_) return false;
    header_.extent = extent;
    return StoreHeaderChange(writeNow);
}

bool ShpFile::SetZExtent(const DOUBLEZLINE& extent, bool writeNow) {
    if (readOnly_) return false;
    header_.zExtent = extent;
    return StoreHeaderChange(writeNow);
}

bool ShpFile::SetMExtent(const DOUBLEMLINE& extent, bool writeNow) {
    if (readOnly_) return false;
    header_.mExtent = extent;
    return StoreHeaderChange(writeNow);
}

// ---- records ----

int32_t ShpFile::GetRecordLength(int32_t n) { return file_.GetRecordLength(n); }

const unsigned char* ShpFile::ReadRecord(int32_t n, int32_t& length) {
    length = 0;
    if (file_.IsMemoryMapped()) {
        // One look-up answers deletion, length and place at once.
        void* memory = nullptr;
        int32_t mapped = 0;
        if (!file_.GetMemory(n, &memory, &mapped)) return nullptr;
        length = mapped;
        return static_cast<const unsigned char*>(memory);
    }
    if (file_.IsRecordDeleted(n)) return nullptr;
    int32_t bytes = file_.GetRecordLength(n);
    if (bytes <= 0) return nullptr;
    // The record file checked the length against the file's size.
    if (buffer_.size() < static_cast<size_t>(bytes)) {
        buffer_.resize(static_cast<size_t>(bytes / kBufferGrain + 1) * kBufferGrain);
    }
    if (!file_.ReadRecord(n, buffer_.data(), bytes)) return nullptr;
    length = bytes;
    return buffer_.data();
}

bool ShpFile::ReadRecord(int32_t n, unsigned char* buffer) {
    if (!buffer || file_.IsRecordDeleted(n)) return false;
    int32_t length = file_.GetRecordLength(n);
    return length > 0 && file_.ReadRecord(n, buffer, length);
}

bool ShpFile::GetRecordMemory(int32_t n, unsigned char** pointer) {
    if (!pointer || file_.IsRecordDeleted(n)) return false;
    *pointer = file_.GetRecordBuffer(n);
    return *pointer != nullptr;
}

bool ShpFile::WriteRecord(int32_t n, const unsigned char* bytes, int32_t length) {
    if (readOnly_) return false;
    if (!bytes || length == 0) return file_.WriteRecord(n, kNullShape, sizeof kNullShape);
    return file_.WriteRecord(n, bytes, length);
}

bool ShpFile::InsertRecord(const unsigned char* bytes, int32_t length) {
    if (readOnly_) return false;
    int32_t n = (!bytes || length == 0) ? file_.WriteNextRecord(kNullShape, sizeof kNullShape)
                                        : file_.WriteNextRecord(bytes, length);
    if (n < 0) return false;
    count_ = file_.GetNumRecs();
    return true;
}

bool ShpFile::DeleteRecord(int32_t n) { return !readOnly_ && file_.DeleteRecord(n); }

bool ShpFile::IsRecordDeleted(int32_t n) { return file_.IsRecordDeleted(n); }

// ---- projection ----

bool ShpFile::OpenProjectionFile() {
    projection_.Empty();
    if (path_.IsEmpty()) return false;
    String prj = ProjectionPath(path_);
    if (!FileExists(prj.c_str())) return false;
    std::FILE* in = std::fopen(NativePath(prj.c_str()).c_str(), "rb");
    if (!in) return false;
    char line[kProjectionLineBytes] = {};
    if (!std::fgets(line, sizeof line, in)) line[0] = '\0';
    bool error = std::ferror(in) != 0;
    std::fclose(in);
    if (error) return false;
    projection_ = String(line);
    return true;
}

bool ShpFile::SetProjectionString(const String& text, bool writeNow) {
    projection_ = text;
    if (writeNow) return WriteProjectionString();
    projectionChanged_ = true;
    return true;
}

bool ShpFile::WriteProjectionString() {
    if (projection_.IsEmpty()) return false;
    String prj = ProjectionPath(path_);
    if (IsUnknownCoordinateSystem(projection_)) {
        if (!quillet::DeleteFileW(prj.c_str())) return false;
        projectionChanged_ = false;
        return true;
    }
    std::FILE* out = std::fopen(NativePath(prj.c_str()).c_str(), "wb");
    if (!out) return false;
    bool written = std::fputs(projection_.ToNarrow().c_str(), out) >= 0;
    written = std::fclose(out) == 0 && written;
    if (!written) return false;
    projectionChanged_ = false;
    return true;
}

bool ShpFile::IsUnknownCoordinateSystem(const String& text) {
    wchar_t* unknown = nullptr;
    if (FAILED(StringFromCLSID(CLSID_UnknownCoordinateSystem, &unknown)) || !unknown) return false;
    bool same = text == unknown;
    CoTaskMemFree(unknown);
    return same;
}

}  // namespace quillet
