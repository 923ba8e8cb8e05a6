#pragma once

// Whole-table rewrites (compaction, adding columns to a table with records,
// dropping a column) are written into a temporary file, which is then copied
// back over the table in 2048-byte chunks: the table file keeps its name and
// identity, its bytes are replaced in place.
//
// The copy back is the one step that touches the table. Before it starts, the
// table's bytes are copied aside into a second temporary file; if the copy
// back fails part way, they are put back, so that a failed rewrite leaves the
// table as it was. Temporary files are removed whatever happens.

#include <cstdint>
#include <vector>

#include "dbase/DBaseFormat.h"
#include "foundation/TemporaryFile.h"

namespace quillet {

class File;

// The new contents of a table being rewritten.
class TableRewrite {
public:
    // Creates the temporary file and writes the header (a placeholder until
    // Finish), the descriptors and the terminator.
    bool Begin(const DBaseHeaderRecord& header, const std::vector<DBaseFieldRecord>& fields);

    // Copies the live records of `table`, every `recordLength` bytes from
    // `firstRecord` up to the first short read, leaving out the bytes
    // [dropOffset, dropOffset + dropWidth) of each and appending `zeroBytes`
    // zero bytes. The header's record count is not trusted: a crash between
    // writing records and writing the header leaves more records than it
    // counts, and those must survive. Returns the number of records written,
    // -1 when a write fails or the count would overflow.
    int32_t CopyLiveRecords(File& table, int64_t firstRecord, int recordLength, int dropOffset,
                            int dropWidth, int zeroBytes);

    // Writes the end-of-file byte and the final header, then copies the new
    // contents over `table`. On failure the table holds its old bytes.
    bool Finish(const DBaseHeaderRecord& header, File& table);

private:
    TemporaryFile temp_;
};

}  // namespace quillet
