#pragma once

// Runs the built quillet program and captures what it prints.

#include <filesystem>
#include <string>

namespace quillet::test {

struct ToolResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs `quillet ARGS` (arguments already quoted for the shell), with `input`
// on standard input when given.
ToolResult RunTool(const std::string& args, const std::string& input = "");

// `path` quoted for the shell (no quote inside).
std::string Quote(const std::filesystem::path& path);

// Runs `quillet ARGS` and expects it to fail as bad input does: exit code 1,
// nothing on standard output and one line on standard error.
ToolResult ExpectOneLineFailure(const std::string& args);

}  // namespace quillet::test
