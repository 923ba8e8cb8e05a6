#pragma once

// Runs the built quillet program and captures what it prints, and writes
// the shape layers its commands read.

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

#include "shape/ShpFile.h"

namespace quillet::test {

struct ToolResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs `quillet ARGS` (arguments already quoted for the shell), with `input`
// on standard input when given.
ToolResult RunTool(const std::string& args, const std::string& input = "");

// Runs `quillet ARGS` with its standard output on a pipe and cuts `file` to
// `length` bytes (as a program that takes no lock does) once the command has
// printed its first bytes, while it waits for the pipe to take more: a
// command that prints a line a record is then still reading the file. The
// output must be far longer than a pipe holds (64 KiB), so that the cut
// comes before the command has read far.
ToolResult RunToolCuttingFile(const std::string& args, const std::filesystem::path& file,
                              uintmax_t length);

// Runs `quillet ARGS` with standard error on a terminal, as a person
// watching it sees it, and standard output thrown away; returns what it
// wrote on the terminal.
std::string RunToolOnTerminal(const std::string& args);

// The JSON value of each line of `text` (a command's --format jsonl output).
std::vector<nlohmann::json> JsonLines(const std::string& text);

// `path` quoted for the shell (no quote inside).
std::string Quote(const std::filesystem::path& path);

// Runs `quillet ARGS` and expects it to fail as bad input does: exit code 1,
// nothing on standard output and one line on standard error.
ToolResult ExpectOneLineFailure(const std::string& args);

// Copies a file to `to` and makes the copy writable (samples are read-only).
void CopyWritable(const std::filesystem::path& from, const std::filesystem::path& to);

// Writes the layer `shp` (with its .shx) through ShpFile: one record per
// entry of `records`, an empty one a null shape.
void WriteLayer(const std::filesystem::path& shp, ShpFile::qovaShapeTypeEnum type,
                ShpFile::DOUBLERECT box, const std::vector<std::vector<unsigned char>>& records);
std::vector<unsigned char> PointRecord(double x, double y);

}  // namespace quillet::test
