#pragma once

// Runs the built quillet program and captures what it prints.

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

}  // namespace quillet::test
