#include "LayerDeletion.h"

#include "Common.h"
#include "DbfTable.h"
#include "LayerRewrite.h"
#include "ShapeLayer.h"
#include "Staging.h"
#include "recordfile/VFile.h"

namespace quillet::tool {

namespace fs = std::filesystem;

namespace {

// The numbers were checked before, so a file that fails here failed to
// write, whatever status it gives (a table's failed header write reads as a
// bad header): the message names what the system said.
[[noreturn]] void FailWriting(const fs::path& path, const std::string& what) {
    throw Failure(path.string() + ": " + what + WriteFailureCause());
}

// Returns how many records the compaction removed (records marked deleted
// before go too).
int32_t DeleteFromTable(const fs::path& path, const std::set<int32_t>& numbers) {
    DBase table(WidePath(path));
    if (!table.Open(false, false, CodePage::qovaCodePageDefault)) Fail(path, table);
    int32_t before = table.GetNumRecords();
    for (int32_t number : numbers) {
        if (!table.DeleteRecord(number - 1))
            FailWriting(path, "the records could not be marked deleted");
    }
    // Closing compacts: the records are gone, not only marked.
    if (!table.Close()) FailWriting(path, "the compacted table could not be written");
    if (!table.Open(true, true, CodePage::qovaCodePageDefault)) Fail(path, table);
    return before - table.GetNumRecords();
}

int32_t DeleteShapes(const fs::path& shp, const std::set<int32_t>& numbers) {
    VFile shapes(WidePath(shp).c_str());
    if (!shapes.Open(VFile::kReadWrite, VFile::kIndexed, false, false)) {
        throw Failure(shp.string() + ": cannot be opened for writing with its index file");
    }
    int32_t before = shapes.GetNumRecs();
    for (int32_t number : numbers) {
        if (!shapes.DeleteRecord(number - 1))
            FailWriting(shp, "cannot delete shape " + std::to_string(number));
    }
    if (!shapes.CompactFile()) FailWriting(shp, "compaction failed");
    int32_t after = shapes.GetNumRecs();
    if (!shapes.Close()) FailWriting(shp, "cannot write its header");
    return before - after;
}

}  // namespace

std::set<int32_t> MarkedInTable(const fs::path& path) {
    DBase table(WidePath(path));
    if (!table.Open(true, true, CodePage::qovaCodePageDefault)) Fail(path, table);
    std::set<int32_t> marked;
    for (int32_t n = 0; n < table.GetNumRecords(); ++n) {
        if (table.IsRecordDeleted(n)) marked.insert(n + 1);
    }
    return marked;
}

int32_t ShapeCount(const fs::path& shp, std::set<int32_t>& marked, const std::string& nothingDone) {
    VFile shapes(WidePath(shp).c_str());
    if (!shapes.Open(VFile::kReadOnly, VFile::kIndexed, true, false)) {
        throw Failure(shp.string() + ": not a readable shape data file with its index file; " +
                      nothingDone);
    }
    for (int32_t n = 0; n < shapes.GetNumRecs(); ++n) {
        if (shapes.IsRecordDeleted(n)) marked.insert(n + 1);
    }
    return shapes.GetNumRecs();
}

LayerDeletion DeleteFromLayer(const fs::path& table, const fs::path& shp,
                              const std::set<int32_t>& numbers) {
    std::vector<fs::path> files;
    if (!table.empty()) files.push_back(table);
    std::vector<fs::path> binIndex;
    if (!shp.empty()) {
        auto layer = NamesOfLayer(shp);
        files.push_back(shp);
        files.push_back(FolderOf(shp) / layer.index);
        for (const auto& name : layer.binIndex) binIndex.push_back(FolderOf(shp) / name);
        files.insert(files.end(), binIndex.begin(), binIndex.end());
    }
    LayerRewrite rewrite(files);
    LayerDeletion result;
    rewrite.Run([&] {
        if (!table.empty()) result.rowsRemoved = DeleteFromTable(table, numbers);
        if (!shp.empty()) result.shapesRemoved = DeleteShapes(shp, numbers);
        if (result.shapesRemoved == 0) return;
        std::error_code ec;
        for (const auto& file : binIndex) {
            if (!fs::exists(file, ec)) continue;
            rewrite.RemoveAtCommit(file);
            result.binIndexRemoved.push_back(file.filename().string());
        }
    });
    return result;
}

}  // namespace quillet::tool
