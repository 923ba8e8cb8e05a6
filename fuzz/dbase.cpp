// Opens a table made of the fuzz bytes and reads every field of every record
// as text, number, integer, date, logical and variant.

#include <algorithm>
#include <cstdint>
#include <string>

#include "FuzzFiles.h"
#include "dbase/DBase.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    quillet::fuzz::InputScope scope;
    quillet::fuzz::WriteFile(quillet::fuzz::Folder() / "f.dbf", data, size);
    quillet::DBase table(quillet::fuzz::Wide(quillet::fuzz::Folder() / "f.dbf"));
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
