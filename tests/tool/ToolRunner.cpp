#include "ToolRunner.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

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
