// A mapped file cut by another program that takes no lock (truncate): the
// reader or writer must not die of SIGBUS, and gets failures instead.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "foundation/File.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;

Bytes Sequence(size_t n) {
    Bytes bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + i / 251 + 1);
    return bytes;
}

// A fresh file of `bytes` in a folder of the test's own, opened read-only
// (and so mapped).
class FileCutTest : public ::testing::Test {
protected:
    std::unique_ptr<File> Reading(const Bytes& bytes) {
        test::WriteBytes(dir_ / "data.bin", bytes);
        auto file = std::make_unique<File>(dir_.Wide("data.bin").c_str());
        EXPECT_TRUE(file->Open(1, 1, 1, 0, 0));
        return file;
    }

    test::TempDir dir_;
};

// Another program that takes no lock (truncate) may still cut a mapped file.
// Reading the lost pages must not kill the reader: it gets read failures.
size_t PageSize() {
    return static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

TEST_F(FileCutTest, AReaderOfAMappedFileCutByAnotherProgramGetsReadFailuresNotSIGBUS) {
    const size_t page = PageSize();
    Bytes bytes = Sequence(6 * page);
    auto file = Reading(bytes);
    ASSERT_TRUE(file->IsMapped());
    // Memory handed out before the cut, on a page that will be lost.
    void* early = nullptr;
    ASSERT_TRUE(file->Seek(static_cast<int32_t>(4 * page), File::kBegin));
    ASSERT_EQ(file->GetMemory(&early, 16), 16);
    ASSERT_EQ(0, std::memcmp(early, bytes.data() + 4 * page, 16));

    ASSERT_EQ(::truncate((dir_ / "data.bin").c_str(), static_cast<off_t>(2 * page)), 0);
    // Still mapped: nothing has touched a lost page yet.
    EXPECT_TRUE(file->IsMapped());
    std::vector<unsigned char> out(page);
    ASSERT_TRUE(file->Seek(static_cast<int32_t>(3 * page + 10), File::kBegin));
    EXPECT_EQ(file->Read(out.data(), 64), 0);
    EXPECT_EQ(file->GetLastError(), File::kReadFailed);
    EXPECT_FALSE(file->IsMapped());
    // The lost page of the earlier memory reads as zeros, not as a fault.
    EXPECT_EQ(static_cast<const unsigned char*>(early)[0], 0);
    // What the file still holds reads whole, through the descriptor; a read
    // across its new end is short.
    ASSERT_TRUE(file->Seek(static_cast<int32_t>(page), File::kBegin));
    ASSERT_EQ(file->Read(out.data(), static_cast<int>(page)), static_cast<int>(page));
    EXPECT_EQ(0, std::memcmp(out.data(), bytes.data() + page, page));
    ASSERT_TRUE(file->Seek(static_cast<int32_t>(2 * page - 8), File::kBegin));
    EXPECT_EQ(file->Read(out.data(), 16), 8);
    EXPECT_EQ(file->GetLastError(), File::kReadFailed);
    void* memory = nullptr;
    ASSERT_TRUE(file->Seek(0, File::kBegin));
    EXPECT_EQ(file->GetMemory(&memory, 16), 0);
    EXPECT_EQ(file->GetLastError(), File::kReadFailed);
    EXPECT_TRUE(file->Close());
}

// A writer that holds the file alone maps it for writing: a cut there makes
// writes and reads of the lost pages fail, and the rest go on.
TEST_F(FileCutTest, AWriterOfAMappedFileCutByAnotherProgramGetsFailuresNotSIGBUS) {
    const size_t page = PageSize();
    const auto pageOffset = [&](size_t n) { return static_cast<int64_t>(n * page); };
    test::WriteBytes(dir_ / "data.bin", Sequence(6 * page));
    File file(dir_.Wide("data.bin").c_str());
    ASSERT_TRUE(file.Open(0, 1, 0, 0, 0));
    Bytes data(16, 0xAB);
    ASSERT_TRUE(file.SeekEx(pageOffset(5), File::kBegin));
    ASSERT_EQ(file.Write(data.data(), 16), 16);
    ASSERT_EQ(::truncate((dir_ / "data.bin").c_str(), static_cast<off_t>(2 * page)), 0);

    file.WillWrite(pageOffset(4), 16);
    ASSERT_TRUE(file.SeekEx(pageOffset(4), File::kBegin));
    EXPECT_EQ(file.Write(data.data(), 16), 0);
    EXPECT_EQ(file.GetLastError(), File::kWriteFailed);
    Bytes out(16);
    ASSERT_TRUE(file.SeekEx(pageOffset(5), File::kBegin));
    EXPECT_EQ(file.Read(out.data(), 16), 0);
    EXPECT_EQ(file.GetLastError(), File::kReadFailed);
    ASSERT_TRUE(file.SeekEx(8, File::kBegin));
    EXPECT_EQ(file.Write(data.data(), 16), 16);
    EXPECT_TRUE(file.Close());
    Bytes after = test::ReadBytes(dir_ / "data.bin");
    ASSERT_EQ(after.size(), 2 * page);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), after.begin() + 8));
}

TEST_F(FileCutTest, AFaultOutsideTheLibrarysMappingsStillEndsTheProcess) {
    // Once a File has mapped a file, the process's SIGBUS handler is the
    // library's; a fault in a mapping of the program's own must still end
    // the program as before.
    auto file = Reading(Sequence(100));
    ASSERT_TRUE(file->IsMapped());
    const size_t page = PageSize();
    test::WriteBytes(dir_ / "own.bin", Sequence(4 * page));
    pid_t child = ::fork();
    if (child == 0) {
        int fd = ::open((dir_ / "own.bin").c_str(), O_RDONLY);
        void* map = ::mmap(nullptr, 4 * page, PROT_READ, MAP_SHARED, fd, 0);
        if (fd < 0 || map == MAP_FAILED ||
            ::ftruncate(::open((dir_ / "own.bin").c_str(), O_RDWR), 0) != 0)
            ::_exit(10);
        volatile const unsigned char* bytes = static_cast<const unsigned char*>(map);
        unsigned char value = bytes[3 * page];
        ::_exit(value == 0 ? 20 : 21);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    // Killed by SIGBUS, or, under AddressSanitizer, whose handler came
    // first, ended by its report (exit 1, or an abort when it is told to).
    if (WIFSIGNALED(status)) {
        EXPECT_TRUE(WTERMSIG(status) == SIGBUS || WTERMSIG(status) == SIGABRT) << WTERMSIG(status);
    } else {
        EXPECT_EQ(WEXITSTATUS(status), 1) << "the fault was swallowed or the setup failed";
    }
}

}  // namespace
}  // namespace quillet
