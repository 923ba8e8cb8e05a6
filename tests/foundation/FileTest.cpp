#include "foundation/File.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "foundation/FaultInjection.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;

Bytes Sequence(size_t n) {
    Bytes bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + i / 251);
    return bytes;
}

class FileTest : public ::testing::Test {
protected:
    std::wstring Path(const std::string& name = "data.bin") const { return dir_.Wide(name); }
    // A file with the given bytes, made outside the class under test.
    std::wstring Existing(const Bytes& bytes, const std::string& name = "data.bin") const {
        test::WriteBytes(dir_ / name, bytes);
        return Path(name);
    }
    // That file, opened read-only.
    std::unique_ptr<File> Reading(const Bytes& bytes, const std::string& name = "data.bin") const {
        auto file = std::make_unique<File>(Existing(bytes, name).c_str());
        EXPECT_TRUE(file->Open(1, 1, 1, 0, 0));
        return file;
    }

    test::TempDir dir_;
};

TEST_F(FileTest, ReadAtEndOfFileIsShortAndZeroByteReadsSucceed) {
    auto file = Reading(Sequence(10));
    unsigned char out[16] = {};
    EXPECT_EQ(file->Read(out, 0), 0);
    EXPECT_EQ(file->GetLastError(), File::kNoError);
    EXPECT_EQ(file->Read(out, 16), 10);
    EXPECT_EQ(file->GetLastError(), File::kReadFailed);
    EXPECT_EQ(0, std::memcmp(out, Sequence(10).data(), 10));
    EXPECT_EQ(file->Read(out, 1), 0);
    EXPECT_EQ(file->GetLastError(), File::kReadFailed);
    EXPECT_EQ(file->Read(out, 0), 0);
    EXPECT_EQ(file->GetLastError(), File::kNoError);
}

TEST_F(FileTest, SetLengthZeroEmptiesAndKeepsThePosition) {
    File file(Existing(Sequence(100)).c_str());
    ASSERT_TRUE(file.Open(0, 1, 0, 0, 0));
    ASSERT_TRUE(file.Seek(40, File::kBegin));
    ASSERT_TRUE(file.SetLength(0));
    EXPECT_EQ(file.GetLength(), 0);
    EXPECT_EQ(file.GetPosition(), 40);
    unsigned char out[4];
    EXPECT_EQ(file.Read(out, 4), 0);
    ASSERT_TRUE(file.Seek(0, File::kBegin));
    ASSERT_EQ(file.Write("abc", 3), 3);
    ASSERT_TRUE(file.Close());
    EXPECT_EQ(test::ReadBytes(dir_ / "data.bin"), (Bytes{'a', 'b', 'c'}));
}

// Past the end is a valid position (the property moves there); before the
// start is not, and a failed seek leaves the position where it was.
TEST_F(FileTest, SeeksBeforeTheStartOrByAnUnknownMethodFail) {
    auto file = Reading(Sequence(100));
    ASSERT_TRUE(file->Seek(50, File::kEnd));
    EXPECT_FALSE(file->Seek(-1, File::kBegin));
    EXPECT_EQ(file->GetLastError(), File::kSeekFailed);
    EXPECT_EQ(file->GetPosition(), 150);
    EXPECT_FALSE(file->Seek(-151, File::kCurrent));
    EXPECT_FALSE(file->Seek(0, static_cast<File::MoveMethod>(3)));
}

TEST_F(FileTest, SeeksBeyondFourGigabytes) {
    const int64_t far = (int64_t{5} << 30) + 123;
    File file(Path().c_str());
    ASSERT_TRUE(file.Create(1, 0));
    ASSERT_TRUE(file.SeekEx(far, File::kBegin));
    if (file.Write("tail", 4) != 4 || !file.Flush()) {
        GTEST_SKIP() << "the file system refuses a sparse file of 5 GiB";
    }
    EXPECT_EQ(file.GetLengthEx(), far + 4);
    EXPECT_EQ(file.GetLength(), -1);  // does not fit the 32-bit form
    ASSERT_TRUE(file.SeekEx(-4, File::kEnd));
    EXPECT_EQ(file.GetPosition(), far);
    char out[4];
    ASSERT_EQ(file.Read(out, 4), 4);
    EXPECT_EQ(std::string(out, 4), "tail");
    ASSERT_TRUE(file.SeekEx(-far, File::kCurrent));
    EXPECT_EQ(file.GetPosition(), 4);
    EXPECT_FALSE(file.SeekEx(INT64_MAX, File::kEnd));
    EXPECT_TRUE(file.Delete());
}

// Random runs of every operation against a byte vector: the buffers, the
// mapping and the direct paths for large transfers must all show one file.
RC_GTEST_PROP(FileProperty, BehavesLikeAByteVector, ()) {
    test::TempDir dir;
    std::wstring path = dir.Wide("data.bin");
    Bytes model;
    int64_t position = 0;
    bool readOnly = false;
    File file(path.c_str());
    RC_ASSERT(file.Create(1, 0));
    auto size = [] { return *rc::gen::weightedOneOf<int>({{9, rc::gen::inRange(0, 300)},
                                                          {1, rc::gen::inRange(60000, 140000)}}); };
    int steps = *rc::gen::inRange(1, 80);
    for (int step = 0; step < steps; ++step) {
        auto length = static_cast<int64_t>(model.size());
        switch (*rc::gen::inRange(0, 6)) {
            case 0: {
                int64_t target = *rc::gen::inRange<int64_t>(0, length + 100);
                auto method = static_cast<File::MoveMethod>(*rc::gen::inRange(0, 3));
                int64_t from = method == File::kBegin     ? 0
                               : method == File::kCurrent ? position
                                                          : length;
                RC_ASSERT(file.SeekEx(target - from, method));
                position = target;
                RC_ASSERT(file.GetPosition() == position);
                break;
            }
            case 1: {
                Bytes data(static_cast<size_t>(size()), static_cast<unsigned char>(step + 1));
                int n = static_cast<int>(data.size());
                if (readOnly) {
                    RC_ASSERT(file.Write(data.data(), n) == 0);
                    RC_ASSERT(file.GetLastError() == File::kAccessDenied);
                    break;
                }
                RC_ASSERT(file.Write(data.data(), n) == n);
                // Writing nothing past the end does not extend the file.
                if (n > 0 && model.size() < static_cast<size_t>(position + n)) {
                    model.resize(static_cast<size_t>(position + n));
                }
                std::copy(data.begin(), data.end(), model.begin() + position);
                position += n;
                break;
            }
            case 2: {
                int n = size();
                Bytes out(static_cast<size_t>(n));
                int64_t expected = std::clamp<int64_t>(length - position, 0, n);
                RC_ASSERT(file.Read(out.data(), n) == expected);
                RC_ASSERT(std::equal(out.begin(), out.begin() + expected, model.begin() + position));
                position += expected;
                break;
            }
            case 3: {
                if (readOnly) break;
                auto newLength = *rc::gen::inRange<int64_t>(0, length + 1000);
                RC_ASSERT(file.SetLengthEx(newLength));
                model.resize(static_cast<size_t>(newLength));
                break;
            }
            case 4: {
                RC_ASSERT(file.Close());
                readOnly = *rc::gen::arbitrary<bool>();
                RC_ASSERT(file.Open(readOnly, 1, readOnly, 0, 0));
                position = 0;
                break;
            }
            default: RC_ASSERT(file.GetLengthEx() == length);
        }
    }
    RC_ASSERT(file.Close());
    RC_ASSERT(test::ReadBytes(dir / "data.bin") == model);
}

TEST_F(FileTest, ReadOnlyOpensAreMappedHandOutMemoryAndRefuseWrites) {
    Bytes bytes = Sequence(1000);
    auto file = Reading(bytes);
    ASSERT_TRUE(file->IsMapped());
    EXPECT_TRUE(file->IsReadOnly());
    void* memory = nullptr;
    ASSERT_EQ(file->GetMemory(&memory, 10), 10);
    EXPECT_EQ(0, std::memcmp(memory, bytes.data(), 10));
    ASSERT_TRUE(file->Seek(-4, File::kEnd));
    EXPECT_EQ(file->GetMemory(&memory, 10), 4);
    EXPECT_EQ(0, std::memcmp(memory, bytes.data() + 996, 4));
    EXPECT_EQ(file->GetPosition(), 1000);
    unsigned char out[8];
    ASSERT_TRUE(file->Seek(500, File::kBegin));
    ASSERT_EQ(file->Read(out, 8), 8);
    EXPECT_EQ(0, std::memcmp(out, bytes.data() + 500, 8));
    EXPECT_EQ(file->Write("x", 1), 0);
    EXPECT_EQ(file->GetLastError(), File::kAccessDenied);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(file->SetLength(0));
    EXPECT_EQ(file->GetLastError(), File::kAccessDenied);

    File writable(Existing(bytes, "other.bin").c_str());
    ASSERT_TRUE(writable.Open(0, 1, 1, 0, 0));
    EXPECT_FALSE(writable.IsMapped());
    EXPECT_EQ(writable.GetMemory(&memory, 1), 0);
    auto empty = Reading({}, "empty.bin");
    EXPECT_FALSE(empty->IsMapped());
    EXPECT_EQ(empty->Read(out, 1), 0);
}

TEST_F(FileTest, OpenFailuresLeaveTheObjectClosedAndReusable) {
    File file(Path("missing.bin").c_str());
    EXPECT_FALSE(file.Open(1, 1, 1, 0, 0));
    EXPECT_EQ(file.GetLastError(), File::kNotFound);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(file.IsOpen());
    ASSERT_TRUE(file.Create(1, 0));
    EXPECT_TRUE(file.IsOpen());
    EXPECT_EQ(file.GetLastError(), File::kNoError);

    File inMissingFolder(Path("no/such/folder.bin").c_str());
    EXPECT_FALSE(inMissingFolder.Open(1, 1, 1, 0, 0));
    EXPECT_EQ(inMissingFolder.GetLastError(), File::kNotFound);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(inMissingFolder.Create(1, 0));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);

    File folder(dir_.path().wstring().c_str());
    EXPECT_FALSE(folder.Open(1, 1, 1, 0, 0));
    EXPECT_EQ(folder.GetLastError(), File::kAccessDenied);
    EXPECT_FALSE(folder.IsOpen());

    // A pipe would block a plain open until a writer came.
    ASSERT_EQ(::mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    File pipe(Path("pipe").c_str());
    EXPECT_FALSE(pipe.Open(1, 1, 1, 0, 0));
    EXPECT_EQ(pipe.GetLastError(), File::kAccessDenied);
}

TEST_F(FileTest, OperationsOnAClosedFileFail) {
    File file(Path().c_str());
    unsigned char byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0);
    EXPECT_EQ(file.GetLastError(), File::kNotOpen);
    EXPECT_EQ(file.Write(&byte, 1), 0);
    EXPECT_FALSE(file.Seek(0, File::kBegin));
    EXPECT_EQ(file.GetLengthEx(), -1);
    EXPECT_FALSE(file.SetLength(0));
    EXPECT_FALSE(file.Flush());
    EXPECT_TRUE(file.Close());
}

TEST_F(FileTest, PermissionDeniedWhenNotRoot) {
    if (::geteuid() == 0) GTEST_SKIP() << "permission bits do not deny root";
    std::wstring path = Existing(Sequence(10));
    ASSERT_EQ(::chmod((dir_ / "data.bin").c_str(), 0444), 0);
    File file(path.c_str());
    EXPECT_FALSE(file.Open(0, 1, 0, 0, 0));
    EXPECT_EQ(file.GetLastError(), File::kAccessDenied);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(file.Open(1, 1, 1, 0, 0));
}

TEST_F(FileTest, CreateReplacesAndDeleteClosesAndRemoves) {
    File file(Existing(Sequence(50)).c_str());
    EXPECT_TRUE(FileExists(Path().c_str()));
    ASSERT_TRUE(file.Create(1, 0));
    EXPECT_EQ(file.GetLength(), 0);
    EXPECT_FALSE(file.IsReadOnly());
    ASSERT_EQ(file.Write("abc", 3), 3);
    EXPECT_TRUE(file.Delete());
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(FileExists(Path().c_str()));
    EXPECT_FALSE(file.Delete());
    EXPECT_EQ(file.GetLastError(), File::kNotFound);
    EXPECT_FALSE(FileExists(dir_.path().wstring().c_str()));  // a folder
    EXPECT_FALSE(FileExists(nullptr));
}

TEST_F(FileTest, NonAsciiPathsReachTheSystemAsUtf8) {
    std::wstring wide = dir_.path().wstring() + L"/\u00E9t\u00E9.dbf";
    File byWideName(wide.c_str());
    ASSERT_TRUE(byWideName.Create(1, 0));
    ASSERT_TRUE(byWideName.Close());
    EXPECT_TRUE(std::filesystem::exists(dir_ / "\xC3\xA9t\xC3\xA9.dbf"));
}

// Sharing between two opens of one file.
TEST_F(FileTest, AnExclusiveWriterExcludesReadersAndIsExcludedByThem) {
    std::wstring path = Existing(Sequence(10));
    File writer(path.c_str()), reader(path.c_str()), secondReader(path.c_str());
    ASSERT_TRUE(writer.Open(0, 1, 0, 0, 0));
    EXPECT_FALSE(reader.Open(1, 1, 1, 0, 0));
    EXPECT_EQ(reader.GetLastError(), File::kSharingViolation);
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(reader.IsOpen());

    ASSERT_TRUE(writer.Close());  // the lock goes with Close
    ASSERT_TRUE(reader.Open(1, 1, 1, 0, 0));
    EXPECT_TRUE(secondReader.Open(1, 1, 1, 0, 0));  // readers share
    EXPECT_FALSE(writer.Open(0, 1, 0, 0, 0));
    EXPECT_EQ(writer.GetLastError(), File::kSharingViolation);
    EXPECT_FALSE(writer.Create(1, 0));
    EXPECT_EQ(writer.GetLastError(), File::kSharingViolation);
    EXPECT_EQ(test::ReadBytes(dir_ / "data.bin"), Sequence(10));  // Create did not empty it
}

TEST_F(FileTest, SharingWritersCoexistWithReaders) {
    std::wstring path = Existing(Sequence(10));
    File writer(path.c_str()), otherWriter(path.c_str()), reader(path.c_str());
    ASSERT_TRUE(writer.Open(0, 1, 1, 1, 0));
    ASSERT_TRUE(otherWriter.Open(0, 1, 1, 0, 0));
    ASSERT_TRUE(reader.Open(1, 1, 1, 1, 0));
    EXPECT_FALSE(reader.IsMapped());  // others may write: reads go to the file
    char first = 0;
    ASSERT_EQ(reader.Read(&first, 1), 1);  // fills the reader's buffer
    ASSERT_EQ(writer.Write("Z", 1), 1);
    ASSERT_TRUE(writer.Flush());
    ASSERT_TRUE(reader.Seek(0, File::kBegin));  // a seek forgets what was read
    ASSERT_EQ(reader.Read(&first, 1), 1);
    EXPECT_EQ(first, 'Z');
}

TEST_F(FileTest, AMappedFileOpenAtExitCrashedWhenStaticsWereDestroyed) {
    std::wstring path = Existing(Sequence(5000));
    pid_t child = ::fork();
    if (child == 0) {
        static File held(path.c_str());  // destroyed after the library's statics
        if (!held.Open(1, 1, 1, 0, 0) || !held.IsMapped()) ::_exit(2);
        std::exit(0);  // runs the static destructors
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(FileTest, LocksHoldAgainstOtherProcesses) {
    std::wstring path = Existing(Sequence(10));
    File writer(path.c_str());
    ASSERT_TRUE(writer.Open(0, 1, 0, 0, 0));
    // The child reports through its exit status whether it could open.
    auto childOpens = [&path](int readOnly) {
        pid_t child = ::fork();
        if (child == 0) {
            File file(path.c_str());
            bool opened = file.Open(readOnly, 1, 1, 0, 0);
            ::_exit(opened ? 0 : file.GetLastError() == File::kSharingViolation ? 1 : 2);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(childOpens(1), 1);
    ASSERT_TRUE(writer.Close());
    EXPECT_EQ(childOpens(1), 0);
}

TEST_F(FileTest, AMappedFileCannotBeCutUnderTheMapping) {
    std::wstring path = Existing(Sequence(5000));
    File reader(path.c_str()), writer(path.c_str());
    ASSERT_TRUE(reader.Open(1, 1, 1, 0, 0));
    ASSERT_TRUE(reader.IsMapped());
    ASSERT_TRUE(writer.Open(0, 1, 1, 0, 0));
    EXPECT_FALSE(writer.SetLength(4999));
    EXPECT_EQ(writer.GetLastError(), File::kSharingViolation);
    EXPECT_TRUE(writer.SetLength(8000));  // growing leaves the mapping whole
    EXPECT_TRUE(reader.Close());
    EXPECT_TRUE(writer.SetLength(0));
}

TEST_F(FileTest, ReopeningOrDestroyingAnObjectReleasesItsOwnLock) {
    std::wstring path = Existing(Sequence(10));
    File other(path.c_str());
    {
        File file(path.c_str());
        ASSERT_TRUE(file.Open(0, 1, 0, 0, 0));
        EXPECT_TRUE(file.Open(0, 1, 0, 0, 0));
        EXPECT_TRUE(file.Create(1, 0));
        EXPECT_FALSE(other.Open(1, 1, 1, 0, 0));
    }
    EXPECT_TRUE(other.Open(1, 1, 1, 0, 0));
}

// The test seam of the platform layer.
class FaultInjectionTest : public FileTest {
    FaultInjectionScope disarmAtEnd_;
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
    EXPECT_EQ(test::ReadBytes(dir_ / "data.bin"), (Bytes{'a', 'b', 'd'}));
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
