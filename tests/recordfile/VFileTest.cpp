// The record file's layout on disk, the behaviour of rewrites, deletions and
// file operations, bad input, and faults during compaction. Random sequences
// of operations are in VFilePropertyTest.

#include "recordfile/VFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "foundation/ByteOrder.h"
#include "support/FaultSweep.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::Bytes;
using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

Bytes Record(size_t length, unsigned char seed) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(seed + i);
    return bytes;
}

int32_t BE(const Bytes& b, size_t at) { return static_cast<int32_t>(DecodeFixed32BE(&b[at])); }
int32_t LE(const Bytes& b, size_t at) { return static_cast<int32_t>(DecodeFixed32LE(&b[at])); }
void SetBE(Bytes& b, size_t at, int32_t value) {
    EncodeFixed32BE(&b[at], static_cast<uint32_t>(value));
}

Bytes ReadAll(VFile& file, int32_t n) {
    int32_t length = file.GetRecordLength(n);
    if (length <= 0) return {};
    Bytes bytes(static_cast<size_t>(length));
    EXPECT_TRUE(file.ReadRecord(n, bytes.data(), length));
    return bytes;
}

const Bytes kUserHeader = Record(72, 3);

// Writes records of the given lengths (record i seeded with 16 i) into a new
// indexed file of user type 7 with kUserHeader.
void WriteFile(const std::wstring& path, const std::vector<size_t>& lengths,
               VFile::FileType type = VFile::kBigEndian) {
    VFile file(path.c_str());
    ASSERT_TRUE(file.Create(7, VFile::kReadWrite, false, VFile::kIndexed, 0, type));
    ASSERT_TRUE(file.WriteUserHeader(kUserHeader.data(), 72));
    for (size_t i = 0; i < lengths.size(); ++i) {
        Bytes bytes = Record(lengths[i], static_cast<unsigned char>(i * 16));
        auto length = static_cast<int32_t>(bytes.size());
        ASSERT_EQ(file.WriteNextRecord(bytes.data(), length), static_cast<int32_t>(i));
    }
    ASSERT_TRUE(file.Close());
}

TEST(VFileIndexPath, TurnsTheLastCharacterOrTheOneBeforeAdfIntoX) {
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"/d/roads.shp", L"/d/roads.shx"},    {L"/d/roads.sbn", L"/d/roads.sbx"},
        {L"/d/w001001.adf", L"/d/w00100x.adf"}, {L"abc.ADF", L"abx.ADF"},
        {L"ab.adf", L"ab.adx"},  // shorter than "xxx.adf"
    };
    for (auto [data, index] : cases) EXPECT_EQ(VFile::IndexPath(data), index);
}

TEST(VFileLayout, BigEndianIndexedFileMatchesTheFormat) {
    TempDir dir;
    WriteFile(dir.Wide("a.shp"), {4, 20, 5});
    Bytes data = ReadBytes(dir / "a.shp");
    Bytes index = ReadBytes(dir / "a.shx");
    ASSERT_EQ(data.size(), 100u + 8 + 4 + 8 + 20 + 8 + 6);  // the odd record padded
    ASSERT_EQ(index.size(), 100u + 3 * 8);
    // Code, user type, variable length, file length in words; the user header
    // as given. The index file's header differs only in its length.
    const int32_t header[] = {9994, 7, 0, 0, 0, 0, static_cast<int32_t>(data.size() / 2)};
    for (size_t i = 0; i < 7; ++i) EXPECT_EQ(BE(data, 4 * i), header[i]) << i;
    EXPECT_EQ(Bytes(data.begin() + 28, data.begin() + 100), kUserHeader);
    EXPECT_EQ(BE(index, 24), static_cast<int32_t>(index.size() / 2));
    SetBE(index, 24, BE(data, 24));
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + 100, index.begin()));
    // Record headers: number + 1 and length in words. Index entries: offset
    // and length in words.
    const std::pair<size_t, int32_t> words[] = {{100, 1}, {104, 2}, {112, 2},
                                                {116, 10}, {140, 3}, {144, 3}};
    for (auto [offset, value] : words) EXPECT_EQ(BE(data, offset), value) << offset;
    const int32_t entries[] = {50, 2, 56, 10, 70, 3};
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(BE(index, 100 + 4 * i), entries[i]) << i;
    EXPECT_EQ(data.back(), 0);
}

TEST(VFileLayout, LittleEndianFileKeepsItsDataAt356) {
    TempDir dir;
    auto path = dir.Wide("l.dat");
    WriteFile(path, {8, 2}, VFile::kLittleEndian);
    Bytes data = ReadBytes(dir / "l.dat");
    EXPECT_EQ(LE(data, 0), 9994);
    EXPECT_EQ(Bytes(data.begin() + 28, data.begin() + 100), kUserHeader);
    EXPECT_EQ(LE(data, 356), 1);
    EXPECT_EQ(LE(data, 360), 4);
    EXPECT_EQ(LE(ReadBytes(dir / "l.dax"), 100), 50);  // offsets do not count the 256-byte area

    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
    EXPECT_EQ(file.GetFileType(), VFile::kLittleEndian);
    EXPECT_EQ(file.GetFilePosition(-1), 356);
    EXPECT_EQ(file.GetFilePosition(0), 356);
    EXPECT_EQ(ReadAll(file, 1), Record(2, 16));
    Bytes user(72);
    ASSERT_TRUE(file.ReadUserHeader(user.data(), 72));
    EXPECT_EQ(user, kUserHeader);
}

// What a rewrite leaves on disk; that the records read back, before and after
// the compaction at Close, is VFilePropertyTest's part.
TEST(VFileRecords, RewriteWithAnotherLengthAppendsAndMarksTheOldBytesDeleted) {
    TempDir dir;
    WriteFile(dir.Wide("r.shp"), {4, 4, 4, 4, 4});
    VFile file(dir.Wide("r.shp").c_str());
    ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
    Bytes same = Record(4, 200);
    ASSERT_TRUE(file.WriteRecord(2, same.data(), 4));
    EXPECT_EQ(file.GetFilePosition(2), 100 + 2 * 12);  // rewritten in place
    Bytes longer = Record(10, 100);
    ASSERT_TRUE(file.WriteRecord(3, longer.data(), 10));
    ASSERT_TRUE(file.Flush());
    EXPECT_EQ(file.GetFilePosition(3), 100 + 5 * 12);
    Bytes data = ReadBytes(dir / "r.shp");
    EXPECT_EQ(BE(data, 100 + 3 * 12 + 4), VFile::kDeletedMarker);
    EXPECT_EQ(BE(data, 160), 4);  // the new copy keeps its number + 1
    ASSERT_TRUE(file.Close());
    EXPECT_EQ(std::filesystem::file_size(dir / "r.shp"), 100u + 4 * 12 + 18);
}

TEST(VFileRecords, DeletedAndMissingRecordsReadAsNothingUntilCompacted) {
    TempDir dir;
    auto path = dir.Wide("c.shp");
    WriteFile(path, {4, 6, 8, 10, 12});
    VFile file(path.c_str());
    ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
    ASSERT_TRUE(file.DeleteRecord(1));
    ASSERT_TRUE(file.DeleteRecord(3));
    EXPECT_EQ(file.GetRecordLength(1), 0);
    EXPECT_EQ(file.GetRecordBuffer(1), nullptr);
    Bytes buffer(16);
    EXPECT_FALSE(file.ReadRecord(3, buffer.data(), 10));
    EXPECT_TRUE(file.IsCurrentRecordDeleted());
    EXPECT_FALSE(file.ReadRecord(5, buffer.data(), 1));
    EXPECT_FALSE(file.ReadRecord(-1, buffer.data(), 1));
    ASSERT_TRUE(file.CompactFile());
    ASSERT_TRUE(file.Close());
    EXPECT_EQ(BE(ReadBytes(dir / "c.shp"), 100 + 12), 2);  // renumbered on disk
}

// The compacted copy is made as a new indexed file in the default byte order,
// and it is what replaces the old one.
TEST(VFileRecords, CompactFileKeptTheOldFileCodeAndByteOrder) {
    TempDir dir;
    auto little = dir.Wide("l.dat");
    WriteFile(little, {4, 6, 8}, VFile::kLittleEndian);
    auto fixed = dir.Wide("f.dat");
    {
        VFile file(fixed.c_str());
        ASSERT_TRUE(file.Create(7, VFile::kReadWrite, false, VFile::kNotIndexed, 2));
        ASSERT_TRUE(file.WriteUserHeader(kUserHeader.data(), 72));
        for (unsigned char i = 0; i < 3; ++i)
            ASSERT_EQ(file.WriteNextRecord(Record(4, i).data(), 4), i);
        ASSERT_TRUE(file.Close());
    }
    for (auto [path, code] : {std::pair{little, 9994}, std::pair{fixed, 9993}}) {
        VFile file(path.c_str());
        ASSERT_TRUE(file.Open(VFile::kReadWrite, VFile::kIndexed, false, false));
        ASSERT_TRUE(file.DeleteRecord(1));
        ASSERT_TRUE(file.CompactFile());
        EXPECT_EQ(file.GetFileType(), VFile::kBigEndian);
        ASSERT_TRUE(file.Close());
        Bytes data = ReadBytes(std::filesystem::path(path));
        EXPECT_EQ(BE(data, 0), code);
        EXPECT_EQ(BE(data, 4), 7);
        EXPECT_EQ(BE(data, 24), static_cast<int32_t>(data.size() / 2));
        EXPECT_EQ(Bytes(data.begin() + 28, data.begin() + 100), kUserHeader);
        ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
        EXPECT_EQ(file.GetNumRecs(), 2);
        Bytes last = ReadAll(file, 1);
        ASSERT_FALSE(last.empty());
        EXPECT_EQ(last[0], code == 9994 ? 32 : 2);  // the former record 2
    }
}

TEST(VFileRecords, FixedLengthRecordsMarkTheirFirstFourBytes) {
    TempDir dir;
    VFile file(dir.Wide("f.dat").c_str());
    ASSERT_TRUE(file.Create(3, VFile::kReadWrite, false, VFile::kNotIndexed, 4));
    for (unsigned char i = 0; i < 3; ++i) {
        Bytes bytes = Record(8, static_cast<unsigned char>(i * 10));
        ASSERT_EQ(file.WriteNextRecord(bytes.data(), 8), i);
    }
    Bytes tooLong(9);
    EXPECT_FALSE(file.WriteRecord(0, tooLong.data(), 9));
    ASSERT_TRUE(file.DeleteRecord(1));
    ASSERT_TRUE(file.Flush());
    Bytes data = ReadBytes(dir / "f.dat");
    EXPECT_EQ(BE(data, 0), 9991);
    EXPECT_EQ(BE(data, 8), 4);
    EXPECT_EQ(BE(data, 108), VFile::kDeletedMarker);
    EXPECT_EQ(Bytes(data.begin() + 112, data.begin() + 116), Record(4, 14));  // the rest stays
    ASSERT_TRUE(file.Close());
    EXPECT_EQ(dir.Files(), std::vector<std::string>{"f.dat"});
}

TEST(VFileFiles, DeleteRenameAndCopyActOnBothFiles) {
    TempDir dir;
    WriteFile(dir.Wide("a.shp"), {4});
    VFile file(dir.Wide("a.shp").c_str());
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

    // A rename whose index file cannot move moves the data file back.
    std::filesystem::remove(dir / "b.shp");
    WriteFile(dir.Wide("a.shp"), {4});
    VFile other(dir.Wide("a.shp").c_str());
    EXPECT_FALSE(other.RenameFile(dir.Wide("b.shp").c_str()));
    EXPECT_EQ(dir.Files(), (std::vector<std::string>{"a.shp", "a.shx", "b.shx"}));
}

// Each case damages a good file of records 4, 8 and 12 bytes long; opening
// it fails cleanly or gives the records that are whole, and none of the
// others can be read either way. Without its index file it does not open.
TEST(VFileBadInput, DamagedFilesFailToOpenOrReadOnlyWhatIsWhole) {
    TempDir dir;
    WriteFile(dir.Wide("good.shp"), {4, 8, 12});
    const Bytes goodData = ReadBytes(dir / "good.shp");
    const Bytes goodIndex = ReadBytes(dir / "good.shx");
    auto dataWords = static_cast<int32_t>(goodData.size() / 2);
    struct Case {
        const char* what;
        std::function<void(Bytes& data, Bytes& index)> damage;
        std::optional<int32_t> records;  // none: fails to open
        int readable;
    } cases[] = {
        {"data header cut", [](Bytes& d, Bytes&) { d.resize(99); }, {}, 0},
        {"index header cut", [](Bytes&, Bytes& i) { i.resize(60); }, {}, 0},
        {"empty data file", [](Bytes& d, Bytes&) { d.clear(); }, {}, 0},
        {"file code 0", [](Bytes& d, Bytes&) { SetBE(d, 0, 0); }, {}, 0},
        {"file code 9990", [](Bytes& d, Bytes&) { SetBE(d, 0, 9990); }, {}, 0},
        {"file code 9995", [](Bytes& d, Bytes&) { SetBE(d, 0, 9995); }, {}, 0},
        {"file code -9994", [](Bytes& d, Bytes&) { SetBE(d, 0, -9994); }, {}, 0},
        {"record 1 starts at the end, record 2 is huge",
         [&](Bytes&, Bytes& i) {
             SetBE(i, 108, dataWords);
             SetBE(i, 120, 1000000);
         },
         3, 1},
        {"negative and huge lengths, a negative offset",
         [](Bytes&, Bytes& i) {
             SetBE(i, 104, -5);
             SetBE(i, 112, INT32_MAX);
             SetBE(i, 116, -1);
         },
         3, 0},
        {"a huge fixed record length", [](Bytes& d, Bytes&) { SetBE(d, 8, INT32_MAX); }, 0, 0},
        {"data cut short, a partial index entry",
         [](Bytes& d, Bytes& i) {
             d.resize(d.size() - 5);
             i.push_back(1);
         },
         3, 2},
        {"junk past the stated index length",
         [](Bytes&, Bytes& i) { i.resize(i.size() + 40, 0xEE); }, 3, 3},
        {"stated index length past the file: what the file holds",
         [](Bytes&, Bytes& i) {
             i.resize(i.size() + 40, 0xEE);
             SetBE(i, 24, 1000000);
         },
         8, 3},
        {"negative stated index length", [](Bytes&, Bytes& i) { SetBE(i, 24, -7); }, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes data = goodData;
        Bytes index = goodIndex;
        c.damage(data, index);
        WriteBytes(dir / "bad.shp", data);
        WriteBytes(dir / "bad.shx", index);
        VFile file(dir.Wide("bad.shp").c_str());
        bool opened = file.Open(VFile::kReadOnly, VFile::kIndexed, false, false);
        ASSERT_EQ(opened, c.records.has_value());
        if (!opened) continue;
        EXPECT_EQ(file.GetNumRecs(), *c.records);
        int readable = 0;
        for (int32_t n = 0; n < file.GetNumRecs(); ++n) {
            int32_t length = file.GetRecordLength(n);
            Bytes buffer(64);
            bool read = length > 0 && length <= 64 && file.ReadRecord(n, buffer.data(), length);
            EXPECT_EQ(read, file.GetRecordBuffer(n) != nullptr) << "record " << n;
            int32_t viewed = 0;
            EXPECT_EQ(read, file.ViewRecord(n, &viewed) != nullptr) << "record " << n;
            readable += read ? 1 : 0;
        }
        EXPECT_EQ(readable, c.readable);
    }

    std::filesystem::remove(dir / "good.shx");
    VFile lone(dir.Wide("good.shp").c_str());
    EXPECT_FALSE(lone.Open(VFile::kReadOnly, VFile::kIndexed, false, false));
    EXPECT_EQ(lone.GetLastError(), File::kNotFound);
}

// A record whose own header says deleted, though the index calls it live, is
// refused by ViewRecord as by ReadRecord, mapped or read through a buffer.
TEST(VFileBadInput, ViewRecordHeedsTheRecordsOwnHeader) {
    TempDir dir;
    WriteFile(dir.Wide("a.shp"), {4, 8});
    Bytes data = ReadBytes(dir / "a.shp");
    SetBE(data, 116, VFile::kDeletedMarker);  // record 1's length word
    WriteBytes(dir / "a.shp", data);
    for (bool othersMayWrite : {false, true}) {
        VFile file(dir.Wide("a.shp").c_str());
        ASSERT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, true, othersMayWrite));
        EXPECT_EQ(file.IsMemoryMapped(), !othersMayWrite);
        int32_t length = 0;
        const unsigned char* first = file.ViewRecord(0, &length);
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(Bytes(first, first + length), Record(4, 0));
        Bytes buffer(8);
        EXPECT_FALSE(file.ReadRecord(1, buffer.data(), 8));
        EXPECT_EQ(file.ViewRecord(1, &length), nullptr);
        EXPECT_TRUE(file.IsCurrentRecordDeleted());
    }
}

TEST(VFilePeerSamples, CorruptTooLongFailsCleanly) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    auto path = test::PeerSamplesDir() / "corrupt_too_long.shp";
    VFile file(test::WidePath(path).c_str());
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

// A write, seek, create or flush that fails at any point of a compaction
// leaves the data file and its index byte for byte as they were (or, when the
// compaction still succeeds, as a faultless one leaves them) and no temporary
// file behind.
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
