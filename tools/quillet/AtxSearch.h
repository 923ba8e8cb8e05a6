#pragma once

// Asking a table's column which records match: the operators of
// `atx query`, values typed as the column's, and the search through the
// column's index. Shared by `atx query` and `shp dump --where`.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "attrindex/MTreeIndex.h"
#include "dbase/DBase.h"
#include "foundation/IField.h"

namespace quillet::tool {

struct Operator {
    const char* name;
    qovaSQLPredicates predicate;
    size_t minValues;
    size_t maxValues;
};

// The operator called `text`; a usage error when there is none or it does
// not take `values` values.
const Operator& ParseOperator(const std::string& text, size_t values);

// An open table, its field and the field's index file.
struct Column {
    std::filesystem::path tablePath;
    DBase table;
    int field;
    std::string name;
    std::filesystem::path indexPath;
    bool upToDate = false;

    Column(const std::filesystem::path& path, const std::string& fieldName);
    Field Describe() const;
};

// The records (from 0, ascending) whose field matches, through the index at
// `column.indexPath`; Failure when it is missing or cannot answer.
std::vector<int32_t> SearchColumn(Column& column, const Operator& op,
                                  const std::vector<std::string>& texts);

// Says on stderr when the column's index is older than its table.
void NoteIfStale(const Column& column);

// The records whose field matches, through its index when it has one, else
// through an index of the column built for this search alone from a scan of
// the table: so that a scan answers as the index would, quirks included.
// `indexed` says which it was.
std::vector<int32_t> MatchingRecords(const std::filesystem::path& table, const std::string& field,
                                     const std::string& op, const std::vector<std::string>& values,
                                     bool& indexed);

}  // namespace quillet::tool
