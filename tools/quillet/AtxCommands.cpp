// quillet atx build | query | info | check: the column indexes of a table,
// "<table>.<field>.atx" beside it. Record numbers count from 1.
//
// A query sends the values as the column's own type, so that a value typed
// as the table shows it finds the key (a float column's 1.1 is the float
// 1.1), and sorts the record numbers it gets.

#include <algorithm>
#include <cmath>
#include <iostream>

#include "AtxIndexes.h"
#include "AtxSearch.h"
#include "Common.h"
#include "DbfTable.h"
#include "LocaleOption.h"
#include "ScratchFile.h"
#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndex.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

struct QueryOptions {
    std::string table;
    std::string field;
    std::string op;
    std::vector<std::string> values;
    bool count = false;
    bool dump = false;
    std::string format = "csv";
};

void RunQuery(const QueryOptions& options) {
    const Operator& op = ParseOperator(options.op, options.values.size());
    Column column(options.table, options.field);
    std::vector<int32_t> records = SearchColumn(column, op, options.values);
    NoteIfStale(column);
    if (options.count) {
        std::cout << records.size() << "\n";
    } else if (options.dump) {
        DumpRecords(column.tablePath, records, options.format);
    } else {
        for (int32_t record : records) std::cout << record + 1 << "\n";
    }
}

void RunBuild(const std::string& table, const std::string& fieldName, bool json) {
    Column column(table, fieldName);
    int64_t entries = BuildIndex(column.table, column.field, column.tablePath, column.indexPath);
    Json out = {{"path", column.indexPath.filename().string()},
                {"field", column.name},
                {"entries", entries}};
    if (json) {
        PrintJson(out);
    } else {
        std::cout << "built " << column.indexPath.filename().string() << " ("
                  << EntriesText(entries) << ")\n";
    }
}

const char* KeyClassName(AtxKeyLayout::KeyClass keyClass) {
    switch (keyClass) {
        case AtxKeyLayout::kShort: return "short";
        case AtxKeyLayout::kLong: return "long";
        case AtxKeyLayout::kFloat: return "float";
        case AtxKeyLayout::kDouble: return "double";
        case AtxKeyLayout::kText: return "string";
    }
    return "none";
}

// The index file of a column opened through the legacy interface's class.
struct IndexFile {
    MTreeIndex descriptor;
    std::unique_ptr<LegacyIndex> index;

    IndexFile(Column& column, const fs::path& path) {
        Field field = column.Describe();
        if (!fs::exists(path)) {
            throw Failure(column.tablePath.string() + ": field " + column.name + " has no index");
        }
        descriptor.SetupFieldProperties(&field);
        index = std::make_unique<LegacyIndex>(path.string());
        if (!index->Open(LegacyIndex::LayoutOf(descriptor.GetKeyDescriptor()), false)) {
            throw Failure(path.string() + ": cannot be opened as the index of " + column.name);
        }
    }
};

void RunInfo(const std::string& table, const std::string& fieldName, bool json) {
    Column column(table, fieldName);
    IndexFile file(column, column.indexPath);
    const AtxKeyLayout& layout = file.index->GetLayout();
    int64_t entries = 0;
    std::string problem = file.index->Check(entries);
    Json out = {{"path", column.indexPath.filename().string()},
                {"field", column.name},
                {"key_type", KeyClassName(layout.keyClass)},
                {"key_width", layout.width},
                {"max_keys", layout.maxKeys},
                {"levels", file.index->CountLevels()},
                {"entries", entries},
                {"nodes", file.index->GetNodeCount()},
                {"up_to_date", column.upToDate},
                {"damage", problem.empty() ? Json(nullptr) : Json(problem)}};
    json ? PrintJson(out) : PrintFields(out);
}

// The first place where two indexes' entries differ, or an empty text.
std::string FirstDifference(LegacyIndex& index, LegacyIndex& fresh) {
    index.Top();
    fresh.Top();
    LegacyIndex::Key a;
    LegacyIndex::Key b;
    int32_t idA = 0;
    int32_t idB = 0;
    for (int64_t n = 1;; ++n) {
        bool moreA = index.Next(idA, a);
        bool moreB = fresh.Next(idB, b);
        if (!moreA && !moreB) return std::string();
        bool same = moreA && moreB && idA == idB && a.text == b.text &&
                    (a.number == b.number || (std::isnan(a.number) && std::isnan(b.number)));
        if (same) continue;
        if (!moreB) return "entry " + std::to_string(n) + " is not in the table";
        return "entry " + std::to_string(n) + " should be record " + std::to_string(idB + 1);
    }
}

void RunCheck(const std::string& table, const std::string& fieldName, bool json) {
    Column column(table, fieldName);
    IndexFile file(column, column.indexPath);
    int64_t entries = 0;
    std::string problem = file.index->Check(entries);
    if (problem.empty()) {
        ScratchFile scratch;
        int64_t expected = WriteIndex(column.table, column.field, column.tablePath, scratch.Path());
        IndexFile fresh(column, scratch.Path());
        problem = FirstDifference(*file.index, *fresh.index);
        if (problem.empty() && expected != entries) problem = "the entry counts differ";
    }
    Json out = {{"path", column.indexPath.filename().string()},
                {"entries", entries},
                {"consistent", problem.empty()},
                {"up_to_date", column.upToDate},
                {"problem", problem.empty() ? Json(nullptr) : Json(problem)}};
    if (json) {
        PrintJson(out);
    } else if (problem.empty()) {
        std::cout << column.indexPath.filename().string() << ": consistent with the table ("
                  << EntriesText(entries) << ")"
                  << (column.upToDate ? "" : ", though older than the table") << "\n";
    }
    if (!problem.empty()) {
        throw Failure(column.indexPath.string() + ": does not match the table: " + problem);
    }
}

void AddTableAndField(CLI::App& command, std::shared_ptr<std::string> table,
                      std::shared_ptr<std::string> field) {
    command.add_option("TABLE", *table, "The table (.dbf)")->required();
    command.add_option("FIELD", *field, "The indexed field")->required();
}

void Install(CLI::App& app) {
    auto* atx = app.add_subcommand("atx", "Column indexes of tables (<table>.<field>.atx)");
    atx->require_subcommand(1);

    auto table = std::make_shared<std::string>();
    auto field = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);

    auto* build = atx->add_subcommand("build", "Build (or rebuild) the index of a field");
    AddTableAndField(*build, table, field);
    build->add_flag("--json", *json, "Print JSON");
    AddLocaleOption(*build, TableCodePageOf(*table));
    build->callback([=] { RunBuild(*table, *field, *json); });

    auto* query = atx->add_subcommand("query", "Records whose field matches, through the index");
    auto options = std::make_shared<QueryOptions>();
    query->add_option("TABLE", options->table, "The table (.dbf)")->required();
    query->add_option("FIELD", options->field, "The indexed field")->required();
    query
        ->add_option("OP", options->op,
                     "=, <>, <, >, <=, >=, between, not-between, in, not-in or like")
        ->required();
    query->add_option("VALUE", options->values, "The value(s); dates as YYYY-MM-DD")->required();
    query->add_flag("--count", options->count, "Print only how many records match");
    query->add_flag("--dump", options->dump, "Print the matching records as dbf dump does");
    query->add_option("--format", options->format, "With --dump: csv or jsonl")
        ->check(CLI::IsMember({"csv", "jsonl"}));
    AddLocaleOption(*query, TableCodePageOf(options->table));
    query->callback([=] { RunQuery(*options); });

    auto* info = atx->add_subcommand("info", "Show an index's key, size and levels");
    AddTableAndField(*info, table, field);
    info->add_flag("--json", *json, "Print JSON");
    info->callback([=] { RunInfo(*table, *field, *json); });

    auto* check = atx->add_subcommand(
        "check", "Check that an index is sound and holds exactly the table's values");
    AddTableAndField(*check, table, field);
    check->add_flag("--json", *json, "Print JSON");
    AddLocaleOption(*check, TableCodePageOf(*table));
    check->callback([=] { RunCheck(*table, *field, *json); });
}

void Register() {
    RegisterGroup("atx", Install);
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
