#include "AtxIndexes.h"

#include <algorithm>
#include <iostream>

#include "Common.h"
#include "DbfTable.h"
#include "attrindex/MTreeIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "attrindex/TableColumn.h"

namespace quillet::tool {

namespace fs = std::filesystem;

std::string EntriesText(int64_t entries) {
    return std::to_string(entries) + (entries == 1 ? " entry" : " entries");
}

std::filesystem::path IndexPathOf(DBase& table, int field) {
    FileSystemPath path;
    bool upToDate = false;
    table.IndexExists(field, path, upToDate);
    return fs::path(Utf8(path.GetPath().str()));
}

std::vector<TableIndex> FindTableIndexes(DBase& table, const fs::path& tablePath) {
    std::vector<TableIndex> found;
    fs::path folder = tablePath.parent_path().empty() ? fs::path(".") : tablePath.parent_path();
    std::string prefix = tablePath.stem().string() + ".";
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        std::string name = entry.path().filename().string();
        if (name.size() <= prefix.size() + 4 || name.compare(0, prefix.size(), prefix) != 0 ||
            name.compare(name.size() - 4, 4, ".atx") != 0) {
            continue;
        }
        std::string field = name.substr(prefix.size(), name.size() - prefix.size() - 4);
        int number = table.GetFieldNumber(String::FromUtf8(field));
        bool upToDate = false;
        if (number >= 0) {
            FileSystemPath path;
            table.IndexExists(number, path, upToDate);
        }
        found.push_back({field, number, entry.path(), upToDate});
    }
    std::sort(found.begin(), found.end(),
              [](const TableIndex& a, const TableIndex& b) { return a.path < b.path; });
    return found;
}

Json IndexesJson(DBase& table, const fs::path& tablePath) {
    Json indexes = Json::array();
    for (const TableIndex& index : FindTableIndexes(table, tablePath)) {
        Json item = {{"field", index.field},
                     {"path", index.path.filename().string()},
                     {"up_to_date", index.upToDate}};
        if (index.fieldNumber < 0) item["orphan"] = true;
        indexes.push_back(item);
    }
    return indexes;
}

void PrintIndexes(const Json& indexes) {
    if (indexes.empty()) return;
    std::cout << "indexes:\n";
    for (const auto& index : indexes) {
        std::cout << "  " << index["field"].get<std::string>() << " "
                  << index["path"].get<std::string>() << " "
                  << (index.contains("orphan")          ? "names no field"
                      : index["up_to_date"].get<bool>() ? "up to date"
                                                        : "out of date")
                  << "\n";
    }
}

int64_t WriteIndex(DBase& table, int field, const fs::path& tablePath, const fs::path& target) {
    Field column = ColumnField(table, field);
    std::string name = Utf8(table.GetFieldName(field).str());
    MTreeIndex descriptor;
    if (FAILED(descriptor.SetupFieldProperties(&column))) {
        throw Failure(tablePath.string() + ": field " + name + " (type " +
                      std::string(1, table.GetFieldType(field)) + ") cannot be indexed");
    }
    MTreeIndexBuilder builder;
    if (!builder.Init(WidePath(target).c_str(), &column, MTreeIndexBuilder::kTypeMap0)) {
        throw Failure(tablePath.string() + ": field " + name + " cannot be indexed");
    }
    TableColumnEnumerator rows(table, field);
    int64_t entries = 0;
    {
        Progress reading("reading " + name, table.GetNumRecords());
        int32_t id = 0;
        Variant value;
        while (rows.Next(id, value)) {
            if (!builder.InsertEntry(id, value)) {
                throw Failure(tablePath.string() + ": record " + std::to_string(id + 1) +
                              " has a value the index of " + name + " cannot hold");
            }
            value.Clear();
            ++entries;
            if (entries % 4096 == 0) reading.Update(rows.GetPosition());
        }
    }
    if (rows.Failed()) Fail(tablePath, table);
    Progress writing("writing " + target.filename().string(), entries);
    builder.SetProgress([&writing](int64_t done, int64_t) { writing.Update(done); });
    if (!builder.Write()) throw Failure(target.string() + ": cannot be written");
    return entries;
}

int64_t BuildIndex(DBase& table, int field, const fs::path& tablePath, const fs::path& target) {
    fs::path temporary = target.string() + ".tmp";
    std::error_code ignored;
    int64_t entries = 0;
    try {
        entries = WriteIndex(table, field, tablePath, temporary);
    } catch (const Failure&) {
        fs::remove(temporary, ignored);
        throw;
    }
    fs::rename(temporary, target, ignored);
    if (ignored) throw Failure(target.string() + ": cannot be replaced: " + ignored.message());
    return entries;
}

}  // namespace quillet::tool
