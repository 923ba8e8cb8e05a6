// Failures and a second process: a write, rename or create that fails in the
// middle of an operation loses no record that was live before it, and a
// process that shares a file with a writer reads every change whole after
// RefreshHeader.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>

#include "foundation/FaultInjection.h"
#include "recordfile/VFileNG.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;
using test::TempDir;

Bytes Data(size_t length, int seed) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(seed * 7 + i);
    return bytes;
}

using Records = std::map<int32_t, Bytes>;

// Every record of `expected` reads back; `either` may instead read as `other`.
void ExpectRecords(VFileNG& file, const Records& expected, int32_t either = 0,
                   const Bytes& other = {}) {
    for (const auto& [n, bytes] : expected) {
        Bytes read(static_cast<size_t>(file.GetRecordLength(n)));
        int32_t length = 0;
        ASSERT_TRUE(file.ReadRecord(n, read.data(), static_cast<int32_t>(read.size()), &length))
            << "record " << n << ", error " << file.GetLastError();
        if (n == either && read == other) continue;
        EXPECT_EQ(read, bytes) << "record " << n;
    }
}

class VFileNGFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        VFileNG file(path_.c_str());
        ASSERT_TRUE(file.Create(VFileNG::kReadWrite, false, 5, false));
        for (int i = 1; i <= 40; ++i) {
            Bytes data = Data(static_cast<size_t>(10 + 37 * i % 300), i);
            int32_t n = 0;
            ASSERT_TRUE(file.InsertRecord(data.data(), static_cast<int32_t>(data.size()), &n));
            records_[n] = data;
        }
        for (int32_t n : {3, 9, 17, 30, 40}) {
            ASSERT_TRUE(file.DeleteRecord(n));
            records_.erase(n);
        }
        file.Close(false);
        for (const auto& name : dir_.Files()) saved_[name] = test::ReadBytes(dir_ / name);
    }

    // Runs `operation` on the file with each call of each kind failing in
    // turn; after each run the file is closed and opened again, and every
    // record live before reads back (record `either` may read as `other`).
    void Sweep(const std::function<bool(VFileNG&)>& operation, int32_t either = 0,
               const Bytes& other = {}) {
        for (auto kind :
             {FaultInjection::kWrite, FaultInjection::kRename, FaultInjection::kCreate}) {
            int64_t calls = -1;
            for (int64_t n = 0; n <= calls || calls < 0; ++n) {
                SCOPED_TRACE(::testing::Message() << "kind " << kind << " call " << n);
                for (const auto& name : dir_.Files()) std::filesystem::remove(dir_ / name);
                for (const auto& [name, bytes] : saved_) test::WriteBytes(dir_ / name, bytes);
                VFileNG file(path_.c_str());
                ASSERT_TRUE(file.Open(VFileNG::kReadWrite, true, false));
                FaultInjection::Reset();
                FaultInjection::FailNth(kind, n);
                bool ok = operation(file);
                if (n == 0) {
                    EXPECT_TRUE(ok);
                    calls = FaultInjection::Count(kind);
                }
                FaultInjection::Reset();
                file.Close(false);
                ASSERT_TRUE(file.Open(VFileNG::kReadOnly, true, false)) << file.GetLastError();
                ExpectRecords(file, records_, either, other);
            }
        }
    }

    FaultInjectionScope disarm_;
    TempDir dir_;
    std::wstring path_ = dir_.Wide("f.dat");
    Records records_;
    std::map<std::string, Bytes> saved_;
};

TEST_F(VFileNGFaultTest, CompactionLosesNothing) {
    Sweep([](VFileNG& file) { return file.CompactFile(false); });
}

TEST_F(VFileNGFaultTest, InsertsLoseNothing) {
    Bytes data = Data(200, 99);
    Sweep([&](VFileNG& file) {
        int32_t n = 0;
        return file.InsertRecord(data.data(), 200, &n) &&
               file.InsertRecordWithId(5000, data.data(), 50) &&
               file.InsertRecordWithId(2000, data.data(), 20);  // moves chunk 4
    });
}

TEST_F(VFileNGFaultTest, UpdatesLoseNothing) {
    for (int32_t length : {5, 10 + 37 * 8 % 300, 290}) {  // shorter, equal, longer
        SCOPED_TRACE(length);
        Bytes data = Data(static_cast<size_t>(length), 77);
        Sweep([&](VFileNG& file) { return file.UpdateRecord(8, data.data(), length); }, 8, data);
    }
}

TEST(VFileNGSharedTest, AReaderInAnotherProcessSeesEveryChangeWhole) {
    TempDir dir;
    auto path = dir.Wide("s.dat");
    {
        VFileNG file(path.c_str());
        ASSERT_TRUE(file.Create(VFileNG::kReadWrite, false, 5, false));
    }
    int toReader[2], toWriter[2];
    ASSERT_EQ(pipe(toReader), 0);
    ASSERT_EQ(pipe(toWriter), 0);
    constexpr int kSteps = 300;
    // Step i inserts record i, makes record i / 2 longer and deletes i / 3.
    auto apply = [](Records& records, int i) {
        records[i] = Data(static_cast<size_t>(i % 50), i);
        if (records.count(i / 2)) records[i / 2] = Data(static_cast<size_t>(60 + i % 90), -i);
        records.erase(i / 3);
    };
    // Opened before the writer starts: the headers are read between its
    // changes, never while it writes them.
    VFileNG file(path.c_str());
    ASSERT_TRUE(file.Open(VFileNG::kReadOnly, true, true));
    pid_t writer = fork();
    if (writer == 0) {
        VFileNG mine(path.c_str());
        Records records;
        bool ok = mine.Open(VFileNG::kReadWrite, true, false);
        for (int i = 1; ok && i <= kSteps; ++i) {
            apply(records, i);
            const Bytes& data = records[i];
            ok = mine.InsertRecordWithId(i, data.data(), static_cast<int32_t>(data.size()));
            if (records.count(i / 2) && i / 2 != i) {
                const Bytes& longer = records[i / 2];
                ok = ok &&
                     mine.UpdateRecord(i / 2, longer.data(), static_cast<int32_t>(longer.size()));
            }
            if (i / 3 >= 1 && mine.RecordExists(i / 3)) ok = ok && mine.DeleteRecord(i / 3);
            ok = ok && mine.Flush();
            char done = ok ? 1 : 0;
            ok = ok && write(toReader[1], &done, 1) == 1 && read(toWriter[0], &done, 1) == 1;
        }
        _exit(ok ? 0 : 1);
    }
    // A failing check must not leave the writer waiting for an answer.
    struct Reap {
        pid_t pid;
        ~Reap() {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    } reap{writer};
    Records records;
    for (int i = 1; i <= kSteps; ++i) {
        char done = 0;
        ASSERT_EQ(read(toReader[0], &done, 1), 1);
        ASSERT_EQ(done, 1) << "the writer failed at step " << i;
        apply(records, i);
        ASSERT_TRUE(file.RefreshHeader());
        ExpectRecords(file, records);
        EXPECT_EQ(file.GetRecordCount(), static_cast<int32_t>(records.size()));
        ASSERT_EQ(write(toWriter[1], &done, 1), 1);
    }
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace quillet
