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

// "PATH: damaged: ..." when the file is shorter than its header says or
// `unreadable` of its live records could not be read; empty otherwise.
std::string ShapeDamage(const std::filesystem::path& path, int32_t unreadable);

// "Point", "PolygonZ", ...: the name of a shape type; "unknown" for none.
const char* ShapeTypeName(int32_t type);

// The file names (no folder) of the layer of a shape data file.
struct ShapeFileNames {
    std::string data;
    std::string index;
    std::string projection;
    std::vector<std::string> binIndex;  // the spatial bin index: .sbn, .sbx
};
ShapeFileNames NamesOfLayer(const std::filesystem::path& shp);

// `shp copy`, which has a file of its own; the shp group adds it.
void InstallShpCopy(CLI::App& shp);

}  // namespace quillet::tool
