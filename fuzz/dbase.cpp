// Opens a table made of the fuzz bytes and reads every field of every record
// as text, number, integer, date, logical and variant.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "dbase/DBase.h"

namespace {

const std::string& TablePath() {
    static const std::string path = "/tmp/quillet-fuzz-dbase-" + std::to_string(getpid()) + ".dbf";
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::FILE* out = std::fopen(TablePath().c_str(), "wb");
    if (!out) return 0;
    bool written = std::fwrite(data, 1, size, out) == size;
    if (std::fclose(out) != 0 || !written) return 0;

    std::wstring path(TablePath().begin(), TablePath().end());
    quillet::DBase table(path);
    if (!table.Open(true, true, quillet::CodePage::qovaCodePageDefault)) return 0;
    // Records beyond the end of the file all read alike (they fail); a huge
    // count in the header must not make the target run on.
    const auto& header = table.GetHeader();
    int64_t fit = (static_cast<int64_t>(size) - header.headerLength) / std::max<int>(header.recordLength, 1) + 2;
    int64_t records = std::min<int64_t>(table.GetNumRecords(), std::max<int64_t>(fit, 0));
    for (int32_t r = 0; r < records; ++r) {
        table.IsRecordDeleted(r);
        for (int f = 0; f < table.GetNumFields(); ++f) {
            table.GetFieldPointer(f);
            table.GetFieldString(f);
            table.GetFieldDouble(f);
            table.GetFieldInteger(f);
            table.GetFieldLogical(f);
            table.GetFieldDate(f);
            quillet::Variant value;
            table.GetValue(f, value);
        }
    }
    return 0;
}
