// Writes and reads shape data files through ShpFile for the interop scripts.
//
//   shpio write OUT.shp SPEC   SPEC: int32 shape type, 8 doubles (xmin ymin
//                              xmax ymax zmin zmax mmin mmax), int32 count,
//                              then per record int32 length and the bytes
//                              (length 0: a null shape); little-endian.
//   shpio dump SHP             "header TYPE COUNT XMIN YMIN XMAX YMAX ZMIN ZMAX
//                              MMIN MMAX VERSION", then "record N HEX" for each
//                              live record (N 1-based).

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "foundation/ByteOrder.h"
#include "shape/ShpFile.h"

using namespace quillet;

namespace {

int Fail(const std::string& message) {
    std::fprintf(stderr, "shpio: %s\n", message.c_str());
    return 1;
}

std::wstring Wide(const char* path) { return String::FromUtf8(path).str(); }

class Reader {
public:
    explicit Reader(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}
    bool Has(size_t n) const { return at_ + n <= bytes_.size(); }
    int32_t Int() { return static_cast<int32_t>(DecodeFixed32LE(Take(4))); }
    double Double() { return DecodeDoubleLE(Take(8)); }
    const unsigned char* Take(size_t n) {
        const unsigned char* p = &bytes_[at_];
        at_ += n;
        return p;
    }

private:
    std::vector<unsigned char> bytes_;
    size_t at_ = 0;
};

int Write(const char* out, const char* specPath) {
    std::ifstream in(specPath, std::ios::binary);
    Reader spec(std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {}));
    if (!spec.Has(4 + 64 + 4)) return Fail("spec too short");
    auto type = static_cast<ShpFile::qovaShapeTypeEnum>(spec.Int());
    ShpFile::DOUBLERECT box{spec.Double(), spec.Double(), spec.Double(), spec.Double()};
    ShpFile::DOUBLEZLINE z{spec.Double(), spec.Double()};
    ShpFile::DOUBLEMLINE m{spec.Double(), spec.Double()};
    int32_t count = spec.Int();
    ShpFile shp(Wide(out).c_str());
    if (!shp.Create(type, &box) || !shp.SetZExtent(z, false) || !shp.SetMExtent(m, false)) {
        return Fail("cannot create the file");
    }
    for (int32_t i = 0; i < count; ++i) {
        if (!spec.Has(4)) return Fail("spec truncated");
        int32_t length = spec.Int();
        if (length < 0 || !spec.Has(static_cast<size_t>(length))) return Fail("spec truncated");
        const unsigned char* bytes = length > 0 ? spec.Take(static_cast<size_t>(length)) : nullptr;
        if (!shp.InsertRecord(bytes, length)) return Fail("cannot write a record");
    }
    if (!shp.WriteHeader() || !shp.Flush()) return Fail("cannot write the header");
    return shp.Close() ? 0 : Fail("cannot close");
}

int Dump(const char* path) {
    ShpFile shp(Wide(path).c_str());
    if (!shp.Open(true, false, false)) return Fail("cannot open " + std::string(path));
    const auto& e = shp.GetExtent();
    std::printf("header %d %d %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %d\n", shp.GetShapeType(),
                shp.GetNumRecords(), e.xmin, e.ymin, e.xmax, e.ymax, shp.GetZExtent().zmin,
                shp.GetZExtent().zmax, shp.GetMExtent().mmin, shp.GetMExtent().mmax, shp.GetVersion());
    for (int32_t n = 0; n < shp.GetNumRecords(); ++n) {
        int32_t length = 0;
        const unsigned char* bytes = shp.ReadRecord(n, length);
        if (!bytes) {
            std::printf("record %d %s\n", n + 1, shp.IsRecordDeleted(n) ? "deleted" : "unreadable");
            continue;
        }
        std::printf("record %d ", n + 1);
        for (int32_t i = 0; i < length; ++i) std::printf("%02x", bytes[i]);
        std::printf("\n");
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "write") == 0) return Write(argv[2], argv[3]);
    if (argc == 3 && std::strcmp(argv[1], "dump") == 0) return Dump(argv[2]);
    return Fail("usage: shpio write OUT.shp SPEC | shpio dump SHP");
}
