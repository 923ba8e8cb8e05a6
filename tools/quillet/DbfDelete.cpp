// quillet dbf delete TABLE [RECNO...] [--from FILE|-] [--table-only]
//
// Deletes records by number (from 1, as `shp records` and `sbn query` count
// features) and compacts the table. Every number is checked before anything
// changes, so one batch deletes exactly the records named, whatever their
// order. The shapes of a shape data file beside the table go too, so that
// shapes and attributes stay in step; its spatial bin index, which numbers
// the old features, is removed.

#include <fstream>
#include <iostream>
#include <set>

#include "AtxIndexes.h"
#include "Common.h"
#include "DbfTable.h"
#include "LayerDeletion.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

// A record number from the command line or a list; 0 when it is none.
int32_t ParseRecordNumber(const std::string& text) {
    if (text.empty() || text.size() > 10 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return 0;
    long long value = std::stoll(text);
    return value <= INT32_MAX ? static_cast<int32_t>(value) : 0;
}

// Record numbers separated by white space, from a file or stdin ("-").
void ReadRecordNumbers(const std::string& from, std::set<int32_t>& numbers) {
    std::ifstream file;
    if (from != "-") {
        RequireRegularFile(from);
        file.open(from);
        if (!file) throw Failure(from + ": cannot be opened for reading");
    }
    std::istream& in = from == "-" ? std::cin : file;
    std::string source = from == "-" ? "stdin" : from;
    for (std::string token; in >> token;) {
        int32_t number = ParseRecordNumber(token);
        if (number == 0) throw Failure(source + ": not a record number (from 1): " + token);
        numbers.insert(number);
    }
    if (in.bad()) throw Failure(source + ": a read failed");
}

std::set<int32_t> RecordNumbers(const std::vector<std::string>& arguments,
                                const std::string& from) {
    std::set<int32_t> numbers;
    for (const auto& argument : arguments) {
        int32_t number = ParseRecordNumber(argument);
        if (number == 0) throw UsageError("not a record number (from 1): " + argument);
        numbers.insert(number);
    }
    if (!from.empty()) ReadRecordNumbers(from, numbers);
    if (numbers.empty()) throw UsageError("no record numbers given");
    return numbers;
}

void RequireRecords(const fs::path& path, const std::set<int32_t>& numbers, int32_t count) {
    if (*numbers.rbegin() > count) {
        throw Failure(path.string() + ": no record " + std::to_string(*numbers.rbegin()) +
                      " (it has " + std::to_string(count) + "); nothing was deleted");
    }
}

void RunDelete(const fs::path& path, const std::vector<std::string>& arguments,
               const std::string& from, bool tableOnly) {
    auto numbers = RecordNumbers(arguments, from);
    auto named = static_cast<int32_t>(numbers.size());
    DbfLayout layout = ReadDbfLayout(path);
    layout.RequireIntact(path);
    RequireRecords(path, numbers, layout.records);
    fs::path shp = fs::path(path).replace_extension(".shp");
    std::error_code ec;
    bool withShapes = !tableOnly && fs::exists(shp, ec);
    if (withShapes) {
        // Compaction takes out what either file had marked deleted before, so
        // the other file loses those records too: the two stay in step.
        std::set<int32_t> marked = MarkedInTable(path);
        int32_t shapes = ShapeCount(shp, marked, "nothing was deleted");
        RequireRecords(shp, numbers, shapes);
        for (int32_t n : marked) {
            if (n <= shapes && n <= layout.records) numbers.insert(n);
        }
    }

    LayerDeletion deletion = DeleteFromLayer(path, withShapes ? shp : fs::path(), numbers);
    int32_t removed = deletion.rowsRemoved;
    NoteRewrite(path, layout);

    std::cout << path.string() << ": deleted " << Count(named, "record");
    if (removed > named) std::cout << " (and " << removed - named << " marked deleted before)";
    if (withShapes) std::cout << ", and the same shapes from " << shp.string();
    std::cout << "\n";
    for (const auto& name : deletion.binIndexRemoved)
        std::cout << "removed " << name << ", which indexed the old shapes\n";
    ReportStaleIndexes(path);
}

}  // namespace

void InstallDelete(CLI::App& dbf) {
    auto* remove = dbf.add_subcommand(
        "delete", "Delete records (numbered from 1), with their shapes, and compact");
    auto path = std::make_shared<std::string>();
    auto numbers = std::make_shared<std::vector<std::string>>();
    auto from = std::make_shared<std::string>();
    auto tableOnly = std::make_shared<bool>(false);
    remove->add_option("TABLE", *path, "The table")->required();
    remove->add_option("RECNO", *numbers, "Record numbers, from 1");
    remove
        ->add_option("--from", *from,
                     "Also the numbers in FILE (- for stdin), separated by white space")
        ->type_name("FILE|-");
    remove->add_flag("--table-only", *tableOnly,
                     "Leave the shape data file beside the table alone");
    AddReindexOption(*remove);
    remove->callback([=] { RunDelete(*path, *numbers, *from, *tableOnly); });
}

}  // namespace quillet::tool
