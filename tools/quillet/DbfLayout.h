#pragma once

// A dBASE table's layout as its own bytes give it. The tool reads it before
// the library opens a table, so that a file that cannot be a table is called
// that, and a table whose file ends before its last record is called
// damaged, rather than read as far as it goes; and so that records can be
// copied as they are.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillet::tool {

struct DbfLayout {
    struct Field {
        std::string name;  // the bytes of the descriptor's name, up to its first zero
        char type;
        int width;
        int decimals;
    };

    std::vector<unsigned char> header;  // every byte before the first record
    int32_t records = 0;                // as the header gives it, deleted ones included
    int32_t completeRecords = 0;        // as many as the file holds whole
    int32_t recordLength = 0;
    unsigned char ldid = 0;
    std::vector<Field> fields;

    bool Damaged() const { return completeRecords < records; }
    // "PATH: damaged: ..." for a damaged table.
    std::string Damage(const std::filesystem::path& path) const;
    // Fails with Damage() when damaged: for commands that would otherwise
    // write a table without the records the file has lost.
    void RequireIntact(const std::filesystem::path& path) const;
    // For a command that has read records [0, read) of the table, one by one,
    // and stopped there: at the end of the records the file held whole when
    // it was opened, at a limit the user gave (`atLimit`), or at a record it
    // could not read. Fails naming the file, what was read and what the
    // header gives when a read failed, when the file now holds fewer whole
    // records than were read (another program cut it meanwhile; what was
    // read past its new end may not be the table's), or, unless at a limit,
    // when the table is damaged.
    void RequireReadWhole(const std::filesystem::path& path, int32_t read, bool atLimit) const;
};

// Fails naming the path when its bytes cannot be a dBASE table.
DbfLayout ReadDbfLayout(const std::filesystem::path& path);

}  // namespace quillet::tool
