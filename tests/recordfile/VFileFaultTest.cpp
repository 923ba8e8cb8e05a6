// A write, seek, create or flush that fails at any point of a compaction
// leaves the data file and its index byte for byte as they were (or, when the
// compaction still succeeds, as a faultless one leaves them) and no temporary
// file behind.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "foundation/FaultInjection.h"
#include "recordfile/VFile.h"
#include "support/FaultSweep.h"
#include "support/ScopedEnv.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;
using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

class VFileCompactionFaults : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = files_.Wide("c.shp");
        {
            VFile file(path_.c_str());
            ASSERT_TRUE(file.Create(7, VFile::kReadWrite, false, VFile::kIndexed, 0, VFile::kBigEndian));
            // Enough records that the data file takes several 4096-byte chunks.
            for (int i = 0; i < 160; ++i) {
                Bytes record(static_cast<size_t>(20 + i % 50), static_cast<unsigned char>(i));
                ASSERT_EQ(file.WriteNextRecord(record.data(), static_cast<int32_t>(record.size())), i);
            }
            ASSERT_TRUE(file.Close());
        }
        VFile file(path_.c_str());
        ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
        for (int n : {0, 3, 80, 159}) ASSERT_TRUE(file.DeleteRecord(n));
        ASSERT_TRUE(file.Flush());
        data_ = ReadBytes(files_ / "c.shp");
        index_ = ReadBytes(files_ / "c.shx");
    }

    FaultInjectionScope disarmAtEnd_;
    TempDir files_;
    TempDir temp_;
    test::ScopedEnv tmpdir_{"TMPDIR", temp_.path().c_str()};
    std::wstring path_;
    Bytes data_;
    Bytes index_;
};

TEST_F(VFileCompactionFaults, EveryFailurePointKeepsBothFilesWhole) {
    std::optional<VFile> file;
    Bytes compactedData;
    Bytes compactedIndex;
    test::FaultSweep sweep;
    sweep.restore = [&] {
        WriteBytes(files_ / "c.shp", data_);
        WriteBytes(files_ / "c.shx", index_);
        file.emplace(path_.c_str());
    };
    sweep.operation = [&] {
        return file->Open(VFile::kReadWrite, VFile::kIndexed, false, false) && file->CompactFile();
    };
    sweep.finish = [&] { file.reset(); };
    sweep.check = [&](FaultInjection::Operation kind, int64_t n, bool ok) {
        Bytes data = ReadBytes(files_ / "c.shp");
        Bytes index = ReadBytes(files_ / "c.shx");
        if (n == 0) {
            compactedData = data;
            compactedIndex = index;
            EXPECT_LT(data.size(), data_.size());
            VFile compacted(path_.c_str());
            ASSERT_TRUE(compacted.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
            EXPECT_EQ(compacted.GetNumRecs(), 156);
            EXPECT_EQ(compacted.GetRecordLength(0), 22);  // record 1, padded to whole words
        } else if (ok) {
            EXPECT_EQ(data, compactedData) << "kind " << kind << " call " << n;
            EXPECT_EQ(index, compactedIndex) << "kind " << kind << " call " << n;
        } else {
            EXPECT_EQ(data, data_) << "kind " << kind << " call " << n;
            EXPECT_EQ(index, index_) << "kind " << kind << " call " << n;
        }
        EXPECT_TRUE(temp_.Files().empty()) << "kind " << kind << " call " << n;
        EXPECT_EQ(files_.Files(), (std::vector<std::string>{"c.shp", "c.shx"}));
    };
    sweep.Run({FaultInjection::kWrite, FaultInjection::kSeek, FaultInjection::kCreate, FaultInjection::kFlush});
}

}  // namespace
}  // namespace quillet
