#include "ToolRunner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "foundation/ByteOrder.h"
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

ToolResult RunToolCuttingFile(const std::string& args, const std::filesystem::path& file,
                              uintmax_t length) {
    TempDir io;
    auto err = io / "stderr";
    std::string command =
        std::string("'") + QUILLET_TOOL_PATH + "' " + args + " </dev/null 2>'" + err.string() + "'";
    ToolResult result;
    int out[2];
    if (pipe(out) != 0) {
        ADD_FAILURE() << "no pipe";
        return result;
    }
    pid_t child = fork();
    if (child == 0) {
        close(out[0]);
        dup2(out[1], STDOUT_FILENO);
        close(out[1]);
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(out[1]);
    char buffer[65536];
    // The first byte: the command has opened the file and read from it; it
    // cannot read much further until the pipe is read.
    ssize_t n = read(out[0], buffer, 1);
    if (n == 1) result.out.append(buffer, 1);
    std::filesystem::resize_file(file, length);
    while ((n = read(out[0], buffer, sizeof buffer)) > 0)
        result.out.append(buffer, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.err = Slurp(err);
    return result;
}

std::string RunToolOnTerminal(const std::string& args) {
    int terminal = -1, side = -1;
    if (openpty(&terminal, &side, nullptr, nullptr, nullptr) != 0) {
        ADD_FAILURE() << "no terminal to run on";
        return "";
    }
    std::string command = std::string("'") + QUILLET_TOOL_PATH + "' " + args + " >/dev/null";
    pid_t child = fork();
    if (child == 0) {
        close(terminal);
        dup2(side, STDERR_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(side);
    std::string seen;
    char buffer[4096];
    // The read fails once the child has closed its side of the terminal.
    for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;)
        seen.append(buffer, static_cast<size_t>(n));
    close(terminal);
    int status = 0;
    waitpid(child, &status, 0);
    return seen;
}

void CopyWritable(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(to, std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
}

std::vector<nlohmann::json> JsonLines(const std::string& text) {
    std::vector<nlohmann::json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
    return lines;
}

std::string Quote(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}

ToolResult ExpectOneLineFailure(const std::string& args) {
    auto result = RunTool(args);
    EXPECT_EQ(result.exitCode, 1) << args;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1)
        << args << ": " << result.err;
    EXPECT_TRUE(result.out.empty()) << args << ": " << result.out;
    return result;
}

void WriteLayer(const std::filesystem::path& shp, ShpFile::qovaShapeTypeEnum type,
                ShpFile::DOUBLERECT box, const std::vector<std::vector<unsigned char>>& records) {
    ShpFile file(String::FromUtf8(shp.string()).c_str());
    ASSERT_TRUE(file.Create(type, &box));
    for (const auto& record : records) {
        ASSERT_TRUE(file.InsertRecord(record.empty() ? nullptr : record.data(),
                                      static_cast<int32_t>(record.size())));
    }
    ASSERT_TRUE(file.Close());
}

std::vector<unsigned char> PointRecord(double x, double y) {
    std::vector<unsigned char> bytes(20);
    EncodeFixed32LE(&bytes[0], ShpFile::qovaShapePoint);
    EncodeDoubleLE(&bytes[4], x);
    EncodeDoubleLE(&bytes[12], y);
    return bytes;
}

}  // namespace quillet::test
