// The Win32-named calls of the platform layer and the error numbers that
// callers rely on.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "foundation/DebugOutput.h"
#include "foundation/FaultInjection.h"
#include "foundation/InstallDir.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"
#include "foundation/Win32FileHandle.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::ScopedEnv;

TEST(Win32ErrorTest, LastErrorIsPerThread) {
    SetLastError(ERROR_DISK_FULL);
    uint32_t seen = 1;
    std::thread([&seen] { seen = GetLastError(); }).join();
    EXPECT_EQ(seen, ERROR_SUCCESS);
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
}

class Win32FileTest : public ::testing::Test {
protected:
    std::wstring Path(const std::string& name) const { return dir_.Wide(name); }
    test::TempDir dir_;
};

TEST_F(Win32FileTest, DeleteFileReportsMissingFileAndFolder) {
    test::WriteBytes(dir_ / "a", {1});
    EXPECT_TRUE(DeleteFileW(Path("a").c_str()));
    EXPECT_FALSE(DeleteFileW(Path("a").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(DeleteFileW(Path("no/such").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(DeleteFileW(dir_.path().wstring().c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(Win32FileTest, MoveFileRefusesAnExistingTarget) {
    test::WriteBytes(dir_ / "from", {1, 2});
    test::WriteBytes(dir_ / "to", {3});
    EXPECT_FALSE(MoveFileW(Path("from").c_str(), Path("to").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(test::ReadBytes(dir_ / "to"), (std::vector<unsigned char>{3}));
    ASSERT_TRUE(DeleteFileW(Path("to").c_str()));
    EXPECT_TRUE(MoveFileW(Path("from").c_str(), Path("to").c_str()));
    EXPECT_EQ(test::ReadBytes(dir_ / "to"), (std::vector<unsigned char>{1, 2}));
    EXPECT_EQ(dir_.Files(), std::vector<std::string>{"to"});
    EXPECT_FALSE(MoveFileW(Path("from").c_str(), Path("other").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(Win32FileTest, CopyFileOverwritesUnlessAskedNotTo) {
    std::vector<unsigned char> bytes(200000);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i % 253);
    test::WriteBytes(dir_ / "from", bytes);
    test::WriteBytes(dir_ / "to", {9});
    EXPECT_FALSE(CopyFileW(Path("from").c_str(), Path("to").c_str(), 1));
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    EXPECT_TRUE(CopyFileW(Path("from").c_str(), Path("to").c_str(), 0));
    EXPECT_EQ(test::ReadBytes(dir_ / "to"), bytes);
    EXPECT_FALSE(CopyFileW(Path("missing").c_str(), Path("x").c_str(), 0));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(CopyFileW(Path("from").c_str(), Path("no/such").c_str(), 0));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    // Onto itself, under another name too: refused, and nothing lost.
    ASSERT_EQ(::link((dir_ / "from").c_str(), (dir_ / "alias").c_str()), 0);
    EXPECT_FALSE(CopyFileW(Path("from").c_str(), Path("alias").c_str(), 0));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(test::ReadBytes(dir_ / "from"), bytes);
}

TEST_F(Win32FileTest, TempPathComesFromTmpdirWithATrailingSlash) {
    ScopedEnv tmpdir("TMPDIR", "/var/tmp");
    wchar_t buffer[64];
    EXPECT_EQ(GetTempPathW(64, buffer), 9u);
    EXPECT_STREQ(buffer, L"/var/tmp/");
    EXPECT_EQ(GetTempPathW(5, buffer), 10u);  // the room needed
    ScopedEnv unset("TMPDIR", nullptr);
    EXPECT_EQ(GetTempPathW(64, buffer), 5u);
    EXPECT_STREQ(buffer, L"/tmp/");
}

TEST_F(Win32FileTest, TempFileNamesAreUniqueAndCreated) {
    std::wstring folder = dir_.path().wstring();
    std::set<std::wstring> names;
    for (int i = 0; i < 200; ++i) {
        wchar_t name[4096];
        uint32_t number = GetTempFileNameW(folder.c_str(), L"QUILLET", 0, name);
        ASSERT_NE(number, 0u);
        EXPECT_EQ(std::wstring(name).rfind(folder + L"/QUI", 0), 0u) << "prefix cut to 3";
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 200u);
    EXPECT_EQ(dir_.Files().size(), 200u);  // each one created, empty
}

TEST_F(Win32FileTest, TempFileNameWithAGivenNumberCreatesNothing) {
    wchar_t name[4096];
    std::wstring folder = dir_.path().wstring() + L"/";
    EXPECT_EQ(GetTempFileNameW(folder.c_str(), L"ab", 0x1F, name), 0x1Fu);
    EXPECT_EQ(std::wstring(name), folder + L"ab1F.tmp");
    EXPECT_TRUE(dir_.Files().empty());
    EXPECT_EQ(GetTempFileNameW(Path("no/such").c_str(), L"ab", 0, name), 0u);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(Win32FileTest, HandlesReadWriteMoveAndTruncate) {
    HANDLE file = CreateFileW(Path("h").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    uint32_t moved = 0;
    ASSERT_TRUE(WriteFile(file, "abcdef", 6, &moved, nullptr));
    EXPECT_EQ(moved, 6u);
    EXPECT_EQ(SetFilePointer(file, -2, nullptr, FILE_CURRENT), 4u);
    char tail[8] = {};
    ASSERT_TRUE(ReadFile(file, tail, 8, &moved, nullptr));  // short at the end, not a failure
    EXPECT_EQ(moved, 2u);
    EXPECT_STREQ(tail, "ef");
    EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
    int32_t high = 1;  // 4 GiB + 3
    EXPECT_EQ(SetFilePointer(file, 3, &high, FILE_BEGIN), 3u);
    EXPECT_EQ(high, 1);
    SetFilePointer(file, 3, nullptr, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    uint32_t sizeHigh = 9;
    EXPECT_EQ(GetFileSize(file, &sizeHigh), 3u);
    EXPECT_EQ(sizeHigh, 0u);
    EXPECT_TRUE(FlushFileBuffers(file));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(test::ReadBytes(dir_ / "h"), (std::vector<unsigned char>{'a', 'b', 'c'}));
}

TEST_F(Win32FileTest, HandleDispositionsAndSharing) {
    std::wstring path = Path("s");
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    HANDLE writer = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                0, nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                          nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    CloseHandle(writer);
    HANDLE reader = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_ALWAYS, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    uint32_t written = 0;
    EXPECT_FALSE(WriteFile(reader, "x", 1, &written, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    CloseHandle(reader);
}

// A writer that shares nothing works through a map of its file; the file's
// bytes and length must be exactly those of the descriptor's calls.
TEST_F(Win32FileTest, AMappedHandleKeepsTheFileExactThroughGrowthAndTruncation) {
    FaultInjectionScope faults;
    HANDLE file = CreateFileW(Path("m").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    uint32_t moved = 0;
    ASSERT_TRUE(WriteFile(file, "abcd", 4, &moved, nullptr));
    // Past the map's first reach (64 MiB), with a gap that reads as zeros.
    int32_t high = 0;
    const int32_t far = (65 << 20) + 3;
    SetFilePointer(file, far, &high, FILE_BEGIN);
    ASSERT_TRUE(WriteFile(file, "xyz", 3, &moved, nullptr));
    EXPECT_EQ(GetFileSize(file, nullptr), static_cast<uint32_t>(far) + 3);
    char bytes[8] = {};
    SetFilePointer(file, far - 2, nullptr, FILE_BEGIN);
    ASSERT_TRUE(ReadFile(file, bytes, 8, &moved, nullptr));
    EXPECT_EQ(moved, 5u);
    EXPECT_EQ(std::string(bytes, 5), std::string("\0\0xyz", 5));
    // Cut short: what lay past the new end is gone, not a fault.
    SetFilePointer(file, 2, nullptr, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    SetFilePointer(file, far, nullptr, FILE_BEGIN);
    ASSERT_TRUE(ReadFile(file, bytes, 3, &moved, nullptr));
    EXPECT_EQ(moved, 0u);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), 2u);
    // A write across the end; then one that the seam fails changes nothing.
    SetFilePointer(file, 1, nullptr, FILE_BEGIN);
    ASSERT_TRUE(WriteFile(file, "BC", 2, &moved, nullptr));
    FaultInjection::FailNth(FaultInjection::kWrite, 1);
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    EXPECT_FALSE(WriteFile(file, "Z", 1, &moved, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    EXPECT_TRUE(FlushFileBuffers(file));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(test::ReadBytes(dir_ / "m"), (std::vector<unsigned char>{'a', 'B', 'C'}));
}

TEST_F(Win32FileTest, AMappedHandleWritingNothingPastTheEndLeavesTheLength) {
    HANDLE file = CreateFileW(Path("z").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    uint32_t moved = 7;
    SetFilePointer(file, 100, nullptr, FILE_BEGIN);
    EXPECT_TRUE(WriteFile(file, nullptr, 0, &moved, nullptr));
    EXPECT_EQ(moved, 0u);
    EXPECT_TRUE(ReadFile(file, nullptr, 0, &moved, nullptr));
    EXPECT_EQ(GetFileSize(file, nullptr), 0u);
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_TRUE(test::ReadBytes(dir_ / "z").empty());
}

TEST(DebugOutputTest, DefaultSinkPrintsOnlyWhenAskedTo) {
    ScopedEnv off("QUILLET_DEBUG", nullptr);
    testing::internal::CaptureStderr();
    OutputDebugStringW(L"quiet");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ScopedEnv on("QUILLET_DEBUG", "1");
    testing::internal::CaptureStderr();
    OutputDebugStringW(L"caf\u00E9\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "caf\xC3\xA9\n");
}

TEST(InstallDirTest, ABuildTreeFindsTheRepositoryTables) {
    ScopedEnv home("QUILLET_HOME", nullptr);
    std::wstring dir = QovaSxS::GetCurrentInstallDir();
    ASSERT_FALSE(dir.empty());
    EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(dir) / "locale" / "codepage"));
}

TEST(InstallDirTest, ModuleFileNameIsAnAbsolutePath) {
    wchar_t buffer[4096];
    uint32_t length = GetModuleFileNameW(GetModuleHandleW(L"Quillet.dll"), buffer, 4096);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(buffer[0], L'/');
    EXPECT_EQ(std::wstring(buffer).size(), length);
    EXPECT_EQ(GetModuleHandleW(nullptr), nullptr);
    EXPECT_GT(GetModuleFileNameW(nullptr, buffer, 4096), 0u);

    wchar_t small[4];
    EXPECT_EQ(GetModuleFileNameW(nullptr, small, 4), 4u);
    EXPECT_EQ(small[3], L'\0');
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace
}  // namespace quillet
