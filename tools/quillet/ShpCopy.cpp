// quillet shp copy SRC.shp DST.shp
//
// Copies a layer: the live shapes through ShpFile, the header and the
// projection file, and the table beside them as its bytes stand (with its
// .cpg and memo file), so that every value reads back the same in any
// program. A feature that is deleted in the shapes or in the table is left
// out of both, so that the copy's shapes and rows stay in step. The copy
// appears whole or not at all, and replaces every file of a layer that
// stood at DST.

#include <algorithm>
#include <iostream>

#include "Common.h"
#include "DbfLayout.h"
#include "ShapeLayer.h"
#include "Staging.h"
#include "TableCopy.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

// The side files of a table that go along as they are.
constexpr const char* kTableSideFiles[] = {".cpg", ".dbt"};

// The features to leave out: those deleted in the shapes or in the table.
std::vector<bool> DroppedFeatures(ShpFile& shapes, const std::vector<bool>& deletedRows) {
    std::vector<bool> dropped(
        std::max(static_cast<size_t>(shapes.GetNumRecords()), deletedRows.size()));
    for (size_t n = 0; n < dropped.size(); ++n) {
        bool shapeDeleted = n < static_cast<size_t>(shapes.GetNumRecords()) &&
                            shapes.IsRecordDeleted(static_cast<int32_t>(n));
        dropped[n] = shapeDeleted || (n < deletedRows.size() && deletedRows[n]);
    }
    return dropped;
}

int32_t CopyShapes(ShpFile& source, const fs::path& sourcePath, const fs::path& target,
                   const std::vector<bool>& dropped) {
    ShpFile copy(WidePath(target).c_str());
    ShpFile::DOUBLERECT extent = source.GetExtent();
    if (!copy.Create(source.GetShapeType(), &extent))
        throw Failure(target.string() + ": cannot be created");
    copy.SetZExtent(source.GetZExtent(), false);
    copy.SetMExtent(source.GetMExtent(), false);
    Progress progress("copying", source.GetNumRecords());
    for (int32_t n = 0; n < source.GetNumRecords(); ++n) {
        progress.Update(n);
        if (dropped[static_cast<size_t>(n)]) continue;
        int32_t length = 0;
        const unsigned char* bytes = source.ReadRecord(n, length);
        if (!bytes)
            throw Failure(ShapeDamage(sourcePath, 1) + " (record " + std::to_string(n + 1) + ")");
        if (!copy.InsertRecord(bytes, length)) throw Failure(target.string() + ": a write failed");
    }
    progress.Done();
    if (!copy.WriteHeader() || !copy.Close()) throw Failure(target.string() + ": a write failed");
    return copy.GetNumRecords();
}

// A side file copied as it is, when there is one; writable like the files
// the copy writes, whatever the source's permissions.
void CopyAsIs(const fs::path& from, const fs::path& to) {
    std::error_code ec;
    if (!fs::exists(from, ec)) return;
    fs::copy_file(from, to, ec);
    if (!ec) fs::permissions(to, fs::perms::owner_write, fs::perm_options::add, ec);
    if (ec) throw Failure(from.string() + ": cannot be copied: " + ec.message());
}

fs::path WithExtension(fs::path path, const fs::path& extension) {
    return path.replace_extension(extension);
}

// Copies the table beside the source shapes, and its side files, into the
// staging folder; returns the records copied.
int32_t CopyTable(const fs::path& table, const DbfLayout& layout, const std::vector<bool>& dropped,
                  const Staging& staging, const std::string& targetTable) {
    int32_t rows = CopyTableRecords(table, layout, staging / targetTable, dropped);
    for (const char* extension : kTableSideFiles) {
        CopyAsIs(WithExtension(table, extension),
                 staging / WithExtension(targetTable, extension).string());
    }
    return rows;
}

void RunCopy(const fs::path& source, const fs::path& target) {
    std::error_code ec;
    if (fs::equivalent(source, target, ec))
        throw Failure(target.string() + ": is the source itself");
    auto shapes = OpenShape(source, true);
    // An index file shorter than its header would drop the records it lost.
    if (shapes->GetNumRecords() < IndexStatedRecords(source)) throw Failure(ShapeDamage(source, 0));
    fs::path table = WithExtension(source, ".dbf");
    bool withTable = fs::exists(table, ec);
    DbfLayout layout;
    if (withTable) {
        layout = ReadDbfLayout(table);
        layout.RequireIntact(table);
    }
    auto dropped =
        DroppedFeatures(*shapes, withTable ? DeletedRecords(table, layout) : std::vector<bool>());

    Staging staging(FolderOf(target));
    auto layer = NamesOfLayer(target);
    int32_t copied = CopyShapes(*shapes, source, staging / layer.data, dropped);
    CopyAsIs(WithExtension(source, ".prj"), staging / layer.projection);
    std::string targetTable = WithExtension(layer.data, ".dbf").string();
    int32_t rows = withTable ? CopyTable(table, layout, dropped, staging, targetTable) : 0;
    // Whatever of an older layer at the target the copy does not replace goes.
    std::vector<std::string> names = {layer.data, layer.index, layer.projection, targetTable};
    for (const char* extension : kTableSideFiles)
        names.push_back(WithExtension(targetTable, extension).string());
    names.insert(names.end(), layer.binIndex.begin(), layer.binIndex.end());
    staging.Commit(names);

    std::cout << target.string() << ": copied " << Count(copied, "shape");
    if (withTable) std::cout << " and a table of " << Count(rows, "record");
    auto left = std::count(dropped.begin(), dropped.end(), true);
    if (left > 0)
        std::cout << "; left out " << Count(left, "feature")
                  << " deleted in the shapes or the table";
    std::cout << "\n";
}

}  // namespace

void InstallShpCopy(CLI::App& shp) {
    auto* copy = shp.add_subcommand(
        "copy", "Copy a layer: shapes, header, projection and the table beside them");
    auto source = std::make_shared<std::string>();
    auto target = std::make_shared<std::string>();
    copy->add_option("SRC", *source, "The shape data file to copy")->required();
    copy->add_option("DST", *target, "The shape data file to write (its layer is replaced)")
        ->required();
    copy->callback([source, target] { RunCopy(*source, *target); });
}

}  // namespace quillet::tool
