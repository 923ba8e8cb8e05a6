// A write, seek, create or flush that fails at any point of a compaction
// leaves the data file and its index byte for byte as they were (or, when the
// compaction still succeeds, as a faultless one leaves them) and no temporary
// file behind. What a compaction leaves is VFileTest's and VFilePropertyTest's.

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "recordfile/VFile.h"
#include "support/FaultSweep.h"

namespace quillet {
namespace {

class VFileCompactionFaults : public test::RewriteFaultTest {};

TEST_F(VFileCompactionFaults, EveryFailurePointKeepsBothFilesWhole) {
    const std::wstring path = files_.Wide("c.shp");
    std::optional<VFile> file(path.c_str());
    ASSERT_TRUE(file->Create(7, VFile::kReadWrite, false, VFile::kIndexed, 0, VFile::kBigEndian));
    // Enough records that the data file takes several 4096-byte chunks.
    for (int i = 0; i < 160; ++i) {
        test::Bytes record(static_cast<size_t>(20 + i % 50), static_cast<unsigned char>(i));
        ASSERT_EQ(file->WriteNextRecord(record.data(), static_cast<int32_t>(record.size())), i);
    }
    for (int n : {0, 3, 80, 159}) ASSERT_TRUE(file->DeleteRecord(n));
    ASSERT_TRUE(file->Flush());
    const test::Bytes data = test::ReadBytes(files_ / "c.shp");
    const test::Bytes index = test::ReadBytes(files_ / "c.shx");
    file.reset();  // closing compacts: put the files back as they were before
    test::WriteBytes(files_ / "c.shp", data);
    test::WriteBytes(files_ / "c.shx", index);
    SweepRewrite(
        {"c.shp", "c.shx"}, [&] { file.emplace(path.c_str()); },
        [&] {
            return file->Open(VFile::kReadWrite, VFile::kIndexed, false, false) &&
                   file->CompactFile();
        },
        [&] { file.reset(); },
        {FaultInjection::kWrite, FaultInjection::kSeek, FaultInjection::kCreate,
         FaultInjection::kFlush});
}

}  // namespace
}  // namespace quillet
