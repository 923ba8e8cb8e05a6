#include "ToolRunner.h"

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "support/TestSupport.h"

namespace quillet::test {

namespace {

std::string Slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

ToolResult RunTool(const std::string& args, const std::string& input) {
    TempDir io;
    auto in = io / "stdin", out = io / "stdout", err = io / "stderr";
    std::ofstream(in, std::ios::binary) << input;
    std::string command = std::string("'") + QUILLET_TOOL_PATH + "' " + args + " <'" + in.string() +
                          "' >'" + out.string() + "' 2>'" + err.string() + "'";
    int status = std::system(command.c_str());
    ToolResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = Slurp(out);
    result.err = Slurp(err);
    return result;
}

}  // namespace quillet::test
