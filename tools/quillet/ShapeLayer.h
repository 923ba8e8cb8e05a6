#pragma once

// What the commands that read or rewrite shape layers share: opening a
// shape data file with a message that says what is wrong with it, telling
// a damaged one, and the names of a layer's files.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Registry.h"
#include "shape/ShpFile.h"

namespace quillet::tool {

// Opens a shape data file or fails with a line that says why: not a shape
// data file, its index file missing, or damaged.
std::unique_ptr<ShpFile> OpenShape(const std::filesystem::path& path, bool readOnly);

// "PATH: damaged: ..." when the file is shorter than its header says, its
// index file holds fewer records than its header says, or `unreadable` of
// its live records could not be read; empty otherwise. The lengths are read
// when it is called, so that a file cut while it was read counts.
std::string ShapeDamage(const std::filesystem::path& path, int32_t unreadable);

// "Point", "PolygonZ", ...: the name of a shape type; "unknown" for none.
const char* ShapeTypeName(int32_t type);

// "PATH: the file is in use ..." when another program holds the shape data
// file or its index file exclusively; empty otherwise.
std::string InUse(const std::filesystem::path& shp);

// The records of a layer as the header of its index file gives them (-1
// when it cannot be read), and as many as the index file holds whole.
int64_t IndexStatedRecords(const std::filesystem::path& shp);
int64_t IndexHeldRecords(const std::filesystem::path& shp);
// Of the records the index file holds, those whose bytes the data file holds
// whole (a deleted record counts: it has none to read).
int32_t RecordsInFile(ShpFile& shp);

// The file names (no folder) of the layer of a shape data file.
struct ShapeFileNames {
    std::string data;
    std::string index;
    std::string projection;
    std::vector<std::string> binIndex;  // the spatial bin index: .sbn, .sbx
};
ShapeFileNames NamesOfLayer(const std::filesystem::path& shp);

// `shp copy` and `shp dump`, which have files of their own; the shp group
// adds them.
void InstallShpCopy(CLI::App& shp);
void InstallShpDump(CLI::App& shp);

}  // namespace quillet::tool
