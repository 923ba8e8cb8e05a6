// The hook of the commands that change a table: they register --reindex and,
// when done, call ReportStaleIndexes. A process runs one command, so the
// option lives here rather than in each command's own options.

#include <iostream>

#include "AtxIndexes.h"
#include "Common.h"
#include "DbfTable.h"

namespace quillet::tool {

namespace {

bool s_reindex = false;

}  // namespace

void AddReindexOption(CLI::App& command) {
    command.add_flag("--reindex", s_reindex,
                     "Rebuild the table's column indexes (.atx) afterwards");
}

void ReportStaleIndexes(const std::filesystem::path& tablePath) {
    std::filesystem::path path = tablePath;
    path.replace_extension(".dbf");
    if (!std::filesystem::is_regular_file(path)) return;
    DBase table(WidePath(path));
    OpenTable(table, path, true);
    for (const TableIndex& index : FindTableIndexes(table, path)) {
        std::string name = index.path.filename().string();
        if (index.fieldNumber < 0) {
            std::cerr << "quillet: " << path.string() << ": index " << name
                      << " names no field of the table; remove it\n";
        } else if (s_reindex) {
            int64_t entries = BuildIndex(table, index.fieldNumber, path, index.path);
            std::cout << "rebuilt " << name << " (" << EntriesText(entries) << ")\n";
        } else if (!index.upToDate) {
            std::cerr << "quillet: " << path.string() << ": index " << name
                      << " is now out of date; rebuild it with --reindex or quillet atx build\n";
        }
    }
}

}  // namespace quillet::tool
