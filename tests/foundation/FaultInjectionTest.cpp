#include "foundation/FaultInjection.h"

#include <gtest/gtest.h>

#include "foundation/File.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

class FaultInjectionTest : public ::testing::Test {
protected:
    std::wstring Path(const std::string& name = "data.bin") const { return dir_.Wide(name); }
    test::TempDir dir_;
    FaultInjectionScope scope_;
};

TEST_F(FaultInjectionTest, TheNthWriteFailsAsADiskFullAndLaterOnesSucceed) {
    File file(Path().c_str());
    ASSERT_TRUE(file.Create(1, 0));
    FaultInjection::FailNth(FaultInjection::kWrite, 3);
    EXPECT_EQ(file.Write("a", 1), 1);
    EXPECT_EQ(file.Write("b", 1), 1);
    EXPECT_EQ(file.Write("c", 1), 0);
    EXPECT_EQ(file.GetLastError(), File::kDiskFull);
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    EXPECT_EQ(file.Write("d", 1), 1);
    EXPECT_EQ(FaultInjection::Count(FaultInjection::kWrite), 4);
    ASSERT_TRUE(file.Close());
    EXPECT_EQ(test::ReadBytes(dir_ / "data.bin"), (std::vector<unsigned char>{'a', 'b', 'd'}));
}

TEST_F(FaultInjectionTest, AFailedFlushIsReportedOnceAndDropsTheBufferedBytes) {
    File file(Path().c_str());
    ASSERT_TRUE(file.Create(1, 0));
    FaultInjection::FailNth(FaultInjection::kFlush, 1);
    ASSERT_EQ(file.Write("abc", 3), 3);  // buffered
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(file.GetLastError(), File::kDiskFull);
    EXPECT_TRUE(test::ReadBytes(dir_ / "data.bin").empty());
    EXPECT_TRUE(file.Close());
}

TEST_F(FaultInjectionTest, SeekReadAndSetLengthFailures) {
    test::WriteBytes(dir_ / "data.bin", {1, 2, 3});
    File file(Path().c_str());
    ASSERT_TRUE(file.Open(0, 1, 0, 0, 0));
    FaultInjection::FailNth(FaultInjection::kSeek, 2);
    EXPECT_TRUE(file.Seek(1, File::kBegin));
    EXPECT_FALSE(file.Seek(2, File::kBegin));
    EXPECT_EQ(file.GetLastError(), File::kSeekFailed);
    EXPECT_EQ(file.GetPosition(), 1);
    FaultInjection::FailNth(FaultInjection::kRead, 1);
    unsigned char byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0);
    EXPECT_EQ(file.GetLastError(), File::kReadFailed);
    EXPECT_EQ(file.Read(&byte, 1), 1);
    EXPECT_EQ(byte, 2);
    FaultInjection::FailNth(FaultInjection::kWrite, 1);
    EXPECT_FALSE(file.SetLength(0));
    EXPECT_EQ(file.GetLengthEx(), 3);
}

TEST_F(FaultInjectionTest, CreateOpenAndTempFilesFail) {
    FaultInjection::FailNth(FaultInjection::kCreate, 1);
    File file(Path().c_str());
    EXPECT_FALSE(file.Create(1, 0));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(FileExists(Path().c_str()));
    ASSERT_TRUE(file.Create(1, 0));
    FaultInjection::FailNth(FaultInjection::kCreate, 1);
    EXPECT_FALSE(file.Open(0, 1, 0, 0, 0));
    FaultInjection::FailNth(FaultInjection::kCreate, 1);
    wchar_t name[4096];
    EXPECT_EQ(GetTempFileNameW(dir_.path().wstring().c_str(), L"tmp", 0, name), 0u);
    EXPECT_EQ(dir_.Files(), std::vector<std::string>{"data.bin"});
}

TEST_F(FaultInjectionTest, RenameAndCopyFail) {
    test::WriteBytes(dir_ / "a", {1});
    FaultInjection::FailNth(FaultInjection::kRename, 1);
    EXPECT_FALSE(MoveFileW(Path("a").c_str(), Path("b").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    FaultInjection::FailNth(FaultInjection::kRename, 1);
    EXPECT_FALSE(CopyFileW(Path("a").c_str(), Path("b").c_str(), 0));
    EXPECT_EQ(dir_.Files(), std::vector<std::string>{"a"});
    EXPECT_TRUE(MoveFileW(Path("a").c_str(), Path("b").c_str()));
}

}  // namespace
}  // namespace quillet
