#pragma once

// What the dbf commands share: opening a table (after checking that the
// file is one), naming the library's failures, field descriptions given on
// the command line, and the facts `dbf info` shows. Record numbers that
// people give and see count from 1.

#include <filesystem>
#include <string>
#include <vector>

#include "DbfLayout.h"
#include "Registry.h"
#include "dbase/DBase.h"

namespace quillet::tool {

// The library's last status in words.
std::string StatusText(int32_t status);
[[noreturn]] void Fail(const std::filesystem::path& path, const DBase& table);
// What the system said of the last failed write (" (no space left on the
// device)"), or nothing when it said nothing the user can act on.
std::string WriteFailureCause();

// Opens `table` on `path` once its bytes have been found to be a table;
// returns their layout. The code page comes from the table, else the
// configured default.
DbfLayout OpenTable(DBase& table, const std::filesystem::path& path, bool readOnly);

// The file names (no folder) of a table and its .cpg.
std::vector<std::string> TableFileNames(const std::filesystem::path& path);

// Says on stderr what the library's rewrite of a table changed that was not
// asked for: names it cleaned (reserved or clashing ones are renamed when
// they are written back) and the language driver byte it set from the code
// page. `before` is the layout before the rewrite, less any dropped field.
void NoteRewrite(const std::filesystem::path& path, const DbfLayout& before);

// The number of the field called `name`, either as the library names it
// (names cleaned of duplicates and reserved words) or as the file stores it,
// ignoring case; Failure naming the table when there is none.
int FindField(DBase& table, const DbfLayout& layout, const std::filesystem::path& path,
              const std::string& name);

// A field description NAME:TYPE:WIDTH[:DECIMALS]; a usage error when it is
// not one.
struct FieldSpec {
    std::string name;
    DBase::qovaDataType type;
    int width;
    int decimals;
};
FieldSpec ParseFieldSpec(const std::string& spec);
std::vector<FieldSpec> ParseSchema(const std::string& schema);
void AddFields(DBase& table, const std::filesystem::path& path,
               const std::vector<FieldSpec>& specs);

// The header, code page and fields of an open table, as `dbf info --json`
// prints them.
Json TableInfoJson(DBase& table);

std::vector<std::string> Split(const std::string& text, char separator);

// Prints records (numbered from 0, in the order given) as `dbf dump` does,
// in its format "csv" (with the header row) or "jsonl".
void DumpRecords(const std::filesystem::path& path, const std::vector<int32_t>& records,
                 const std::string& format);

// The dbf commands that have files of their own; the group adds them.
void InstallImportCsv(CLI::App& dbf);
void InstallAddField(CLI::App& dbf);
void InstallDelete(CLI::App& dbf);

}  // namespace quillet::tool
