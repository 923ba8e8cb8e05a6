#include "recordfile/VFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "foundation/ByteOrder.h"
#include "foundation/FaultInjection.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;
using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

Bytes Record(size_t length, unsigned char seed) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(seed + i);
    return bytes;
}

int32_t BE(const Bytes& bytes, size_t offset) { return static_cast<int32_t>(DecodeFixed32BE(&bytes[offset])); }
int32_t LE(const Bytes& bytes, size_t offset) { return static_cast<int32_t>(DecodeFixed32LE(&bytes[offset])); }

Bytes ReadAll(VFile& file, int32_t n) {
    int32_t length = file.GetRecordLength(n);
    if (length <= 0) return {};
    Bytes bytes(static_cast<size_t>(length));
    EXPECT_TRUE(file.ReadRecord(n, bytes.data(), length));
    return bytes;
}

// Writes records of the given lengths (seeded by their number) into a new
// big-endian indexed file.
void WriteFile(const std::wstring& path, const std::vector<size_t>& lengths, VFile::FileType type = VFile::kBigEndian) {
    VFile file(path.c_str());
    ASSERT_TRUE(file.Create(0, VFile::kReadWrite, false, VFile::kIndexed, 0, type));
    for (size_t i = 0; i < lengths.size(); ++i) {
        Bytes bytes = Record(lengths[i], static_cast<unsigned char>(i * 16));
        ASSERT_EQ(file.WriteNextRecord(bytes.data(), static_cast<int32_t>(bytes.size())), static_cast<int32_t>(i));
    }
    ASSERT_TRUE(file.Close());
}

TEST(VFileIndexPath, TurnsTheLastCharacterOrTheOneBeforeAdfIntoX) {
    EXPECT_EQ(VFile::IndexPath(L"/d/roads.shp"), L"/d/roads.shx");
    EXPECT_EQ(VFile::IndexPath(L"/d/roads.sbn"), L"/d/roads.sbx");
    EXPECT_EQ(VFile::IndexPath(L"/d/w001001.adf"), L"/d/w00100x.adf");
    EXPECT_EQ(VFile::IndexPath(L"abc.ADF"), L"abx.ADF");
    EXPECT_EQ(VFile::IndexPath(L"ab.adf"), L"ab.adx");  // shorter than "xxx.adf"
}

TEST(VFileLayout, BigEndianIndexedFileMatchesTheFormat) {
    TempDir dir;
    auto path = dir.Wide("a.shp");
    WriteFile(path, {4, 20, 6});
    Bytes data = ReadBytes(dir / "a.shp");
    Bytes index = ReadBytes(dir / "a.shx");
    ASSERT_EQ(data.size(), 100u + 8 + 4 + 8 + 20 + 8 + 6);
    ASSERT_EQ(index.size(), 100u + 3 * 8);
    EXPECT_EQ(BE(data, 0), 9994);
    EXPECT_EQ(BE(data, 4), 0);
    EXPECT_EQ(BE(data, 8), 0);
    EXPECT_EQ(BE(data, 24), static_cast<int32_t>(data.size() / 2));
    EXPECT_EQ(BE(index, 24), static_cast<int32_t>(index.size() / 2));
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + 24, index.begin()));
    // Record headers hold the number + 1 and the length in words.
    EXPECT_EQ(BE(data, 100), 1);
    EXPECT_EQ(BE(data, 104), 2);
    EXPECT_EQ(BE(data, 112), 2);
    EXPECT_EQ(BE(data, 116), 10);
    EXPECT_EQ(data[108], 0);
    // Index entries: offset and length in words.
    EXPECT_EQ(BE(index, 100), 50);
    EXPECT_EQ(BE(index, 104), 2);
    EXPECT_EQ(BE(index, 108), 56);
    EXPECT_EQ(BE(index, 112), 10);
    EXPECT_EQ(BE(index, 116), 70);
}

TEST(VFileLayout, LittleEndianFileKeepsItsDataAt356) {
    TempDir dir;
    auto path = dir.Wide("l.dat");
    WriteFile(path, {8, 2}, VFile::kLittleEndian);
    Bytes data = ReadBytes(dir / "l.dat");
    EXPECT_EQ(LE(data, 0), 9994);
    EXPECT_EQ(LE(data, 356), 1);
    EXPECT_EQ(LE(data, 360), 4);
    Bytes index = ReadBytes(dir / "l.dax");
    EXPECT_EQ(LE(index, 100), 50);  // offsets do not count the 256-byte area

    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
    EXPECT_EQ(file.GetFileType(), VFile::kLittleEndian);
    EXPECT_EQ(file.GetNumRecs(), 2);
    EXPECT_EQ(file.GetFilePosition(-1), 356);
    EXPECT_EQ(file.GetFilePosition(0), 356);
    EXPECT_EQ(ReadAll(file, 1), Record(2, 16));
}

TEST(VFileRecords, ReopenReadsWhatWasWrittenWithTheUserHeader) {
    TempDir dir;
    auto path = dir.Wide("u.shp");
    {
        VFile file(path.c_str());
        ASSERT_TRUE(file.Create(7, VFile::kReadWrite, false, VFile::kIndexed, 0));
        Bytes user = Record(72, 3);
        ASSERT_TRUE(file.WriteUserHeader(user.data(), 72));
        Bytes odd = Record(5, 1);
        ASSERT_EQ(file.WriteNextRecord(odd.data(), 5), 0);
        ASSERT_TRUE(file.Close());
    }
    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
    EXPECT_EQ(file.GetUserType(), 7);
    Bytes user(72);
    ASSERT_TRUE(file.ReadUserHeader(user.data(), 72));
    EXPECT_EQ(user, Record(72, 3));
    Bytes padded = Record(5, 1);
    padded.push_back(0);  // odd lengths are padded to whole words
    EXPECT_EQ(ReadAll(file, 0), padded);
    EXPECT_FALSE(file.ReadRecord(1, padded.data(), 1));
    EXPECT_FALSE(file.ReadRecord(-1, padded.data(), 1));
}

TEST(VFileRecords, RewriteWithAnotherLengthAppendsAndMarksTheOldBytesDeleted) {
    TempDir dir;
    auto path = dir.Wide("r.shp");
    WriteFile(path, {4, 4, 4, 4, 4});
    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
    int32_t oldPosition = file.GetFilePosition(3);
    Bytes same = Record(4, 200);
    ASSERT_TRUE(file.WriteRecord(2, same.data(), 4));
    EXPECT_EQ(file.GetFilePosition(2), oldPosition - 12);  // rewritten in place
    Bytes longer = Record(10, 100);
    ASSERT_TRUE(file.WriteRecord(3, longer.data(), 10));
    ASSERT_TRUE(file.Flush());
    EXPECT_EQ(file.GetNumRecs(), 5);
    EXPECT_EQ(file.GetFilePosition(3), 100 + 5 * 12);
    EXPECT_EQ(ReadAll(file, 3), longer);
    EXPECT_EQ(ReadAll(file, 2), same);

    Bytes data = ReadBytes(dir / "r.shp");
    EXPECT_EQ(BE(data, static_cast<size_t>(oldPosition) + 4), VFile::kDeletedMarker);
    EXPECT_EQ(BE(data, 160), 4);  // the new copy keeps its number + 1
    ASSERT_TRUE(file.Close());

    // Close compacted the dead bytes away.
    EXPECT_EQ(std::filesystem::file_size(dir / "r.shp"), 100u + 4 * 12 + 18);
    ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
    EXPECT_EQ(ReadAll(file, 3), longer);
    EXPECT_EQ(ReadAll(file, 4), Record(4, 64));
}

TEST(VFileRecords, CompactingRenumbersTheLiveRecords) {
    TempDir dir;
    auto path = dir.Wide("c.shp");
    WriteFile(path, {4, 6, 8, 10, 12});
    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
    ASSERT_TRUE(file.DeleteRecord(1));
    ASSERT_TRUE(file.DeleteRecord(3));
    EXPECT_TRUE(file.IsRecordDeleted(1));
    EXPECT_EQ(file.GetRecordLength(1), 0);
    Bytes buffer(16);
    EXPECT_FALSE(file.ReadRecord(3, buffer.data(), 10));
    EXPECT_TRUE(file.IsCurrentRecordDeleted());
    EXPECT_EQ(file.GetRecordBuffer(1), nullptr);
    ASSERT_TRUE(file.CompactFile());
    EXPECT_EQ(file.GetNumRecs(), 3);
    EXPECT_EQ(ReadAll(file, 0), Record(4, 0));
    EXPECT_EQ(ReadAll(file, 1), Record(8, 32));
    EXPECT_EQ(ReadAll(file, 2), Record(12, 64));
    ASSERT_TRUE(file.Close());

    Bytes data = ReadBytes(dir / "c.shp");
    EXPECT_EQ(BE(data, 24), static_cast<int32_t>(data.size() / 2));
    EXPECT_EQ(BE(data, 100 + 12), 2);  // renumbered
    EXPECT_EQ(std::filesystem::file_size(dir / "c.shx"), 100u + 3 * 8);
}

TEST(VFileRecords, FixedLengthRecordsMarkTheirFirstFourBytes) {
    TempDir dir;
    auto path = dir.Wide("f.dat");
    {
        VFile file(path.c_str());
        ASSERT_TRUE(file.Create(3, VFile::kReadWrite, false, VFile::kNotIndexed, 4));
        for (unsigned char i = 0; i < 4; ++i) {
            Bytes bytes = Record(i == 2 ? 5 : 8, static_cast<unsigned char>(i * 10));
            ASSERT_EQ(file.WriteNextRecord(bytes.data(), static_cast<int32_t>(bytes.size())), i);
        }
        Bytes tooLong(9);
        EXPECT_FALSE(file.WriteRecord(0, tooLong.data(), 9));
        ASSERT_TRUE(file.DeleteRecord(1));
        ASSERT_TRUE(file.Flush());
        Bytes data = ReadBytes(dir / "f.dat");
        EXPECT_EQ(BE(data, 0), 9991);
        EXPECT_EQ(BE(data, 8), 4);
        EXPECT_EQ(BE(data, 108), VFile::kDeletedMarker);
        ASSERT_TRUE(file.Close());
    }
    EXPECT_FALSE(FileExists(dir.Wide("f.dax").c_str()));
    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kNotIndexed, false, false));
    EXPECT_EQ(file.GetNumRecs(), 3);
    Bytes padded = Record(5, 20);
    padded.resize(8, 0);
    EXPECT_EQ(ReadAll(file, 1), padded);
    EXPECT_EQ(ReadAll(file, 2), Record(8, 30));
}

TEST(VFileFiles, DeleteRenameAndCopyActOnBothFiles) {
    TempDir dir;
    auto path = dir.Wide("a.shp");
    WriteFile(path, {4});
    VFile file(path.c_str());
    ASSERT_TRUE(file.CopyFileW(dir.Wide("b.shp").c_str()));
    EXPECT_EQ(ReadBytes(dir / "b.shx"), ReadBytes(dir / "a.shx"));
    ASSERT_TRUE(file.RenameFile(dir.Wide("c.shp").c_str()));
    EXPECT_EQ(std::wstring(file.GetName()), dir.Wide("c.shp"));
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"b.shp", "b.shx", "c.shp", "c.shx"}));
    ASSERT_TRUE(file.DeleteFileW());
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"b.shp", "b.shx"}));
    EXPECT_FALSE(file.DeleteFileW());
    EXPECT_EQ(file.GetLastError(), File::kNotFound);
    EXPECT_FALSE(file.RenameFile(dir.Wide("d.shp").c_str()));
}

TEST(VFileFiles, RenameMovesTheDataFileBackWhenTheIndexCannotMove) {
    TempDir dir;
    WriteFile(dir.Wide("a.shp"), {4});
    WriteFile(dir.Wide("b.shp"), {4});
    std::filesystem::remove(dir / "b.shp");  // b.shx blocks the index move
    VFile file(dir.Wide("a.shp").c_str());
    EXPECT_FALSE(file.RenameFile(dir.Wide("b.shp").c_str()));
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"a.shp", "a.shx", "b.shx"}));
}

TEST(VFileFaults, FailedCompactionKeepsTheRecordsAndLeavesNoTemporaryFiles) {
    TempDir dir;
    TempDir temporary;
    const char* saved = std::getenv("TMPDIR");
    std::string savedValue = saved ? saved : "";
    setenv("TMPDIR", temporary.path().c_str(), 1);
    auto path = dir.Wide("c.shp");
    for (int n = 1; n <= 40; ++n) {
        WriteFile(path, {4, 6, 8, 10, 12});
        VFile file(path.c_str());
        ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
        ASSERT_TRUE(file.DeleteRecord(1));
        ASSERT_TRUE(file.DeleteRecord(3));
        ASSERT_TRUE(file.Flush());
        bool compacted;
        {
            FaultInjectionScope scope;
            FaultInjection::FailNth(FaultInjection::kWrite, n);
            compacted = file.CompactFile();
        }
        EXPECT_TRUE(temporary.Files().empty()) << "write " << n;
        // The first writes go to the copy: failing them must lose nothing.
        if (n <= 5) {
            EXPECT_FALSE(compacted);
            ASSERT_TRUE(file.Close());
            ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
            ASSERT_EQ(file.GetNumRecs(), 3) << "write " << n;
            EXPECT_EQ(ReadAll(file, 2), Record(12, 64));
        }
    }
    saved ? setenv("TMPDIR", savedValue.c_str(), 1) : unsetenv("TMPDIR");
}

// ---- bad input ----

class VFileBadInput : public ::testing::Test {
protected:
    void SetUp() override {
        WriteFile(dir_.Wide("good.shp"), {4, 8, 12});
        data_ = ReadBytes(dir_ / "good.shp");
        index_ = ReadBytes(dir_ / "good.shx");
    }
    bool OpenWith(const Bytes& data, const Bytes& index) {
        WriteBytes(dir_ / "bad.shp", data);
        WriteBytes(dir_ / "bad.shx", index);
        file_ = std::make_unique<VFile>(dir_.Wide("bad.shp").c_str());
        return file_->Open(VFile::kReadOnly, VFile::kIndexed, false, false);
    }
    // Reads every record every way; none may succeed past a corrupt entry.
    int ReadableRecords() {
        int readable = 0;
        for (int32_t n = 0; n < file_->GetNumRecs(); ++n) {
            int32_t length = file_->GetRecordLength(n);
            Bytes buffer(64);
            bool read = length > 0 && length <= 64 && file_->ReadRecord(n, buffer.data(), length);
            bool viaBuffer = file_->GetRecordBuffer(n) != nullptr;
            EXPECT_EQ(read, viaBuffer) << "record " << n;
            readable += read ? 1 : 0;
        }
        return readable;
    }
    void SetBE(Bytes& bytes, size_t offset, int32_t value) {
        EncodeFixed32BE(&bytes[offset], static_cast<uint32_t>(value));
    }

    TempDir dir_;
    Bytes data_;
    Bytes index_;
    std::unique_ptr<VFile> file_;
};

TEST_F(VFileBadInput, TruncatedHeadersFailToOpen) {
    EXPECT_FALSE(OpenWith(Bytes(data_.begin(), data_.begin() + 99), index_));
    EXPECT_FALSE(OpenWith(data_, Bytes(index_.begin(), index_.begin() + 60)));
    EXPECT_FALSE(OpenWith({}, index_));
    EXPECT_TRUE(OpenWith(data_, index_));
}

TEST_F(VFileBadInput, FileCodesOutOfRangeFailToOpen) {
    for (int32_t code : {0, 9990, 9995, -9994}) {
        Bytes data = data_;
        SetBE(data, 0, code);
        EXPECT_FALSE(OpenWith(data, index_)) << code;
    }
    Bytes little = data_;
    EncodeFixed32LE(&little[0], 9991);
    EXPECT_TRUE(OpenWith(little, index_));
    EXPECT_EQ(file_->GetFileType(), VFile::kLittleEndian);
}

TEST_F(VFileBadInput, DataFileWithoutItsIndexFileFailsToOpen) {
    WriteBytes(dir_ / "lone.shp", data_);
    VFile file(dir_.Wide("lone.shp").c_str());
    EXPECT_FALSE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
    EXPECT_EQ(file.GetLastError(), File::kNotFound);
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(VFileBadInput, IndexEntriesPastTheEndOfTheDataFileAreNotRead) {
    Bytes index = index_;
    SetBE(index, 100 + 8, static_cast<int32_t>(data_.size() / 2));  // record 1 starts at the end
    SetBE(index, 100 + 16 + 4, 1000000);                           // record 2 is huge
    ASSERT_TRUE(OpenWith(data_, index));
    EXPECT_EQ(ReadableRecords(), 1);
    EXPECT_EQ(file_->GetRecordBuffer(2), nullptr);
}

TEST_F(VFileBadInput, NegativeAndHugeLengthsAreNotRead) {
    Bytes index = index_;
    SetBE(index, 100 + 4, -5);
    SetBE(index, 100 + 12, INT32_MAX);
    SetBE(index, 100 + 16, -1);  // negative offset
    ASSERT_TRUE(OpenWith(data_, index));
    EXPECT_EQ(ReadableRecords(), 0);
    EXPECT_TRUE(file_->IsRecordDeleted(0));
    Bytes data = data_;
    SetBE(data, 8, INT32_MAX);  // a huge fixed record length
    EXPECT_TRUE(OpenWith(data, index_));
    EXPECT_EQ(file_->GetNumRecs(), 0);
}

TEST_F(VFileBadInput, TruncatedDataAndOddIndexLengths) {
    Bytes data(data_.begin(), data_.end() - 5);
    Bytes index = index_;
    index.push_back(1);  // a partial entry does not count
    ASSERT_TRUE(OpenWith(data, index));
    EXPECT_EQ(file_->GetNumRecs(), 3);
    EXPECT_EQ(ReadableRecords(), 2);
}

TEST_F(VFileBadInput, RecordCountFollowsTheStatedIndexLengthWithinTheFile) {
    Bytes index = index_;
    index.resize(index.size() + 40, 0xEE);  // junk past the stated end
    ASSERT_TRUE(OpenWith(data_, index));
    EXPECT_EQ(file_->GetNumRecs(), 3);
    SetBE(index, 24, 1000000);
    ASSERT_TRUE(OpenWith(data_, index));
    EXPECT_EQ(file_->GetNumRecs(), 8);  // never more than the file holds
    SetBE(index, 24, -7);
    ASSERT_TRUE(OpenWith(data_, index));
    EXPECT_EQ(file_->GetNumRecs(), 0);
}

TEST(VFilePeerSamples, CorruptTooLongFailsCleanly) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    auto path = test::PeerSamplesDir() / "corrupt_too_long.shp";
    std::string narrow = path.string();
    VFile file(std::wstring(narrow.begin(), narrow.end()).c_str());
    if (!file.Open(VFile::kReadOnly, VFile::kIndexed, false, false)) return;
    int64_t dataLength = static_cast<int64_t>(std::filesystem::file_size(path));
    for (int32_t n = 0; n < file.GetNumRecs(); ++n) {
        int32_t length = file.GetRecordLength(n);
        ASSERT_LE(length, dataLength);
        if (length > 0) {
            Bytes bytes(static_cast<size_t>(length));
            file.ReadRecord(n, bytes.data(), length);
        }
    }
}

}  // namespace
}  // namespace quillet
