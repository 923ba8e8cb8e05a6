#pragma once

// The column indexes of a table ("<table>.<field>.atx" beside it): which
// there are, whether each is up to date, and building one. Shared by the atx
// commands, `dbf info` and the commands that change tables.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Registry.h"
#include "dbase/DBase.h"

namespace quillet::tool {

struct TableIndex {
    std::string field;  // as the file names it
    int fieldNumber;    // -1 when the table has no such field
    std::filesystem::path path;
    bool upToDate;  // not older than the table
};

// The index files beside an open table, by name.
std::vector<TableIndex> FindTableIndexes(DBase& table, const std::filesystem::path& tablePath);
// "indexes": [{"field", "path", "up_to_date"}], as `dbf info --json` prints them.
Json IndexesJson(DBase& table, const std::filesystem::path& tablePath);
// The lines `dbf info` prints for them.
void PrintIndexes(const Json& indexes);

// The index file of a field of an open table.
std::filesystem::path IndexPathOf(DBase& table, int field);
// Builds the index of a field of an open table into `target` (through a
// temporary file, so that a failure leaves the old index), with a progress
// bar; the number of entries. Failure naming the table when the field cannot
// be indexed.
int64_t BuildIndex(DBase& table, int field, const std::filesystem::path& tablePath,
                   const std::filesystem::path& target);
// The same, written straight into `target`, a file no one else reads.
int64_t WriteIndex(DBase& table, int field, const std::filesystem::path& tablePath,
                   const std::filesystem::path& target);

// "1 entry", "2 entries".
std::string EntriesText(int64_t entries);

// Adds --reindex to a command that changes a table.
void AddReindexOption(CLI::App& command);
// Called when such a command has changed a table: rebuilds the table's
// indexes when --reindex was given, else says on stderr which are now out of
// date (and which name no field). Nothing when there is no table.
void ReportStaleIndexes(const std::filesystem::path& tablePath);

}  // namespace quillet::tool
