// How the commands that read stores speak of damage: files cut while they
// read them, files shorter than their headers say, indexes that claim more
// than their layer has, files that another program holds, and header words
// at the edge of their range. Every command shows what it can read and then
// reports the damage with exit 1; none dies or hides it.

#include <gtest/gtest.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <sstream>

#include "ToolRunner.h"
#include "foundation/ByteOrder.h"
#include "foundation/File.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

using Json = nlohmann::json;

constexpr int kHeaderLength = 65;  // 32 + one field descriptor + the terminator
constexpr int kRecordLength = 7;   // the deleted flag and ID:N:6

// A table of IDs 1..count in one N(6) field, written byte by byte (the
// tool's import would take long for a large count under the sanitizers).
void WriteIdTable(const std::filesystem::path& path, int32_t count) {
    Bytes bytes(kHeaderLength, 0);
    bytes[0] = 0x03;
    bytes[1] = 124;
    bytes[2] = 1;
    bytes[3] = 2;
    EncodeFixed32LE(&bytes[4], static_cast<uint32_t>(count));
    EncodeFixed16LE(&bytes[8], kHeaderLength);
    EncodeFixed16LE(&bytes[10], kRecordLength);
    bytes[29] = 0x57;
    bytes[32] = 'I';
    bytes[33] = 'D';
    bytes[32 + 11] = 'N';
    bytes[32 + 16] = 6;
    bytes[64] = 0x0D;
    bytes.reserve(bytes.size() + static_cast<size_t>(count) * kRecordLength + 1);
    char record[16];
    for (int32_t id = 1; id <= count; ++id) {
        std::snprintf(record, sizeof record, " %6d", id);
        bytes.insert(bytes.end(), record, record + kRecordLength);
    }
    bytes.push_back(0x1A);
    WriteBytes(path, bytes);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

size_t PageSize() {
    return static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// --- Files cut while they are read (issue 16: a reader died of SIGBUS, or
// printed part of a table with exit 0)

TEST(DamageTest, DbfDumpOfATableCutWhileItReadDiedOrExitedZero) {
    TempDir dir;
    auto table = dir / "t.dbf";
    const int32_t count = 200000, kept = 100000;
    WriteIdTable(table, count);
    auto result = RunToolCuttingFile("dbf dump " + Quote(table), table,
                                     kHeaderLength + uintmax_t{kept} * kRecordLength);
    ASSERT_EQ(result.exitCode, 1) << "the reader died or hid the cut: " << result.err;
    auto lines = Lines(result.out);
    ASSERT_GE(lines.size(), size_t{kept} + 1);
    EXPECT_EQ(lines[0], "ID");
    for (int32_t id = 1; id <= kept; ++id)
        ASSERT_EQ(lines[static_cast<size_t>(id)], std::to_string(id));
    // Past the new end, only what the system shows of the last page (zeros,
    // blank rows) may have been read before the reader saw the cut.
    EXPECT_LE(lines.size(), kept + 1 + PageSize() / kRecordLength + 1);
    for (size_t i = kept + 1; i < lines.size(); ++i) EXPECT_EQ(lines[i], "") << i;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_TRUE(Has(result.err, table.string() + ": damaged")) << result.err;
    EXPECT_TRUE(Has(result.err, "200000 records")) << result.err;
    EXPECT_TRUE(Has(result.err, "ends after 100000")) << result.err;
}

TEST(DamageTest, ShpRecordsOfALayerCutWhileItReadDied) {
    TempDir dir;
    auto shp = dir / "p.shp";
    const int32_t count = 100000, kept = 50000;
    std::vector<std::vector<unsigned char>> records;
    for (int32_t n = 0; n < count; ++n) records.push_back(PointRecord(n, 1));
    WriteLayer(shp, ShpFile::qovaShapePoint, {0, 0, count, 1}, records);
    const uintmax_t keptBytes = 100 + uintmax_t{kept} * 28;
    auto result = RunToolCuttingFile("shp records --format jsonl " + Quote(shp), shp, keptBytes);
    ASSERT_EQ(result.exitCode, 1) << "the reader died or hid the cut: " << result.err;
    auto lines = JsonLines(result.out);
    ASSERT_GE(lines.size(), size_t{kept});
    for (int32_t n = 0; n < kept; ++n) {
        ASSERT_EQ(lines[static_cast<size_t>(n)]["record"], n + 1);
        ASSERT_EQ(lines[static_cast<size_t>(n)]["bbox"][0], n);
    }
    // Past the new end: at most what the last page shows (zeros), and no
    // record of the lost pages.
    EXPECT_LE(lines.size(), kept + PageSize() / 28 + 1);
    for (size_t i = kept; i < lines.size(); ++i) EXPECT_EQ(lines[i]["shape_type"], 0) << i;
    EXPECT_TRUE(Has(result.err, shp.string() + ": damaged")) << result.err;
    EXPECT_TRUE(Has(result.err, "cannot be read")) << result.err;
    EXPECT_TRUE(Has(result.err, "the file has " + std::to_string(keptBytes) + " bytes"))
        << result.err;
}

// --- Files shorter than their headers say: read as far as they go, the
// count they hold shown beside the header's, and exit 1

TEST(DamageTest, DbfInfoShowsTheRecordsTheFileHoldsBesideTheHeadersCount) {
    TempDir dir;
    WriteIdTable(dir / "t.dbf", 10);
    auto whole = RunTool("dbf info --json " + Quote(dir / "t.dbf"));
    ASSERT_EQ(whole.exitCode, 0) << whole.err;
    EXPECT_EQ(Json::parse(whole.out)["records"], 10);
    EXPECT_EQ(Json::parse(whole.out)["records_in_file"], 10);

    std::filesystem::resize_file(dir / "t.dbf", kHeaderLength + 4 * kRecordLength + 3);
    auto cut = RunTool("dbf info --json " + Quote(dir / "t.dbf"));
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(Json::parse(cut.out)["records"], 10);
    EXPECT_EQ(Json::parse(cut.out)["records_in_file"], 4);
    EXPECT_TRUE(Has(cut.err, "damaged: the header gives 10 records, but the file ends after 4"))
        << cut.err;
    auto text = RunTool("dbf info " + Quote(dir / "t.dbf"));
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_TRUE(Has(text.out, "records: 10\nrecords_in_file: 4\n")) << text.out;

    auto dump = RunTool("dbf dump " + Quote(dir / "t.dbf"));
    EXPECT_EQ(dump.exitCode, 1);
    EXPECT_EQ(dump.out, "ID\n1\n2\n3\n4\n");
    EXPECT_TRUE(Has(dump.err, "10 records")) << dump.err;
    // A limit within what the file holds reads no damage.
    auto limited = RunTool("dbf dump --limit 2 " + Quote(dir / "t.dbf"));
    EXPECT_EQ(limited.exitCode, 0) << limited.err;
    EXPECT_EQ(limited.out, "ID\n1\n2\n");
}

TEST(DamageTest, ShpInfoShowsTheRecordsTheFilesHoldBesideTheHeadersCount) {
    TempDir dir;
    auto shp = dir / "p.shp";
    WriteLayer(shp, ShpFile::qovaShapePoint, {0, 0, 9, 1},
               {PointRecord(0, 1), PointRecord(1, 1), PointRecord(2, 1), PointRecord(3, 1),
                PointRecord(4, 1), PointRecord(5, 1)});
    auto whole = RunTool("shp info --json " + Quote(shp));
    ASSERT_EQ(whole.exitCode, 0) << whole.err;
    EXPECT_EQ(Json::parse(whole.out)["records"], 6);
    EXPECT_EQ(Json::parse(whole.out)["records_in_file"], 6);

    // The data file loses its last two records.
    std::filesystem::resize_file(shp, 100 + 4 * 28 + 5);
    auto cut = RunTool("shp info --json " + Quote(shp));
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(Json::parse(cut.out)["records"], 6);
    EXPECT_EQ(Json::parse(cut.out)["records_in_file"], 4);
    EXPECT_TRUE(Has(cut.err, shp.string() + ": damaged: 2 records cannot be read")) << cut.err;
    auto text = RunTool("shp info " + Quote(shp));
    EXPECT_TRUE(Has(text.out, "records: 6\nrecords_in_file: 4\n")) << text.out;

    // The index file loses its last three entries: its header still gives six.
    auto shx = dir / "p.shx";
    std::filesystem::resize_file(shx, 100 + 3 * 8);
    auto shortIndex = RunTool("shp info --json " + Quote(shp));
    EXPECT_EQ(shortIndex.exitCode, 1);
    EXPECT_EQ(Json::parse(shortIndex.out)["records"], 6);
    EXPECT_EQ(Json::parse(shortIndex.out)["records_in_file"], 3);
    EXPECT_TRUE(Has(shortIndex.err, "its index file " + shx.string() +
                                        " holds 3 of the 6 records its header gives"))
        << shortIndex.err;
    auto records = RunTool("shp records " + Quote(shp));
    EXPECT_EQ(records.exitCode, 1);
    EXPECT_EQ(Lines(records.out).size(), 3u) << records.out;
    EXPECT_TRUE(Has(records.err, "holds 3 of the 6 records")) << records.err;
    auto copy = ExpectOneLineFailure("shp copy " + Quote(shp) + " " + Quote(dir / "c.shp"));
    EXPECT_TRUE(Has(copy.err, "holds 3 of the 6 records")) << copy.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "c.shp"));
}

// --- The other findings of the reliability run

// The feature count is the first word of the index's user header (offset 28
// of the record file's header), in the file's byte order.
void SetFeatureCount(const std::filesystem::path& sbn, int32_t count) {
    auto bytes = ReadBytes(sbn);
    bool big = bytes[0] == 0;  // the file code 9994 starts with a zero byte only big-endian
    if (big) {
        EncodeFixed32BE(&bytes[28], static_cast<uint32_t>(count));
    } else {
        EncodeFixed32LE(&bytes[28], static_cast<uint32_t>(count));
    }
    WriteBytes(sbn, bytes);
}

TEST(DamageTest, SbnQueryOfHugeFeatureCountAskedForGigabytes) {
    TempDir dir;
    auto shp = dir / "p.shp";
    WriteLayer(shp, ShpFile::qovaShapePoint, {0, 0, 100, 100},
               {PointRecord(10, 10), PointRecord(50, 50), PointRecord(90, 90)});
    ASSERT_EQ(RunTool("sbn build " + Quote(shp)).exitCode, 0);
    SetFeatureCount(dir / "p.sbn", 0x7FFFFFFF);
    ASSERT_EQ(Json::parse(RunTool("info --json " + Quote(dir / "p.sbn")).out)["features"],
              0x7FFFFFFF);

    // A query that covers the extent adds 1..N as one range. Listing it cost
    // 8 GiB; the layer has three records, which is what there is to show.
    auto query = RunTool("sbn query " + Quote(shp) + " --bbox -1,-1,101,101");
    EXPECT_EQ(query.exitCode, 1);
    EXPECT_EQ(query.out, "1\n2\n3\n");
    EXPECT_EQ(std::count(query.err.begin(), query.err.end(), '\n'), 1) << query.err;
    EXPECT_TRUE(Has(query.err, (dir / "p.sbn").string() +
                                   ": damaged: the index gives 2147483647 features, but its "
                                   "layer " +
                                   shp.string() + " has 3 records"))
        << query.err;
    auto count = RunTool("sbn query " + Quote(shp) + " --bbox -1,-1,101,101 --count");
    EXPECT_EQ(count.exitCode, 1);
    EXPECT_EQ(count.out, "3\n");
    auto info = RunTool("sbn info --json " + Quote(shp));
    EXPECT_EQ(info.exitCode, 1);
    EXPECT_EQ(Json::parse(info.out)["features"], 0x7FFFFFFF);
    EXPECT_TRUE(Has(info.err, "2147483647 features")) << info.err;

    // With no layer beside it, the count is counted, not listed.
    std::filesystem::rename(shp, dir / "elsewhere.shp");
    auto alone = RunTool("sbn query " + Quote(shp) + " --bbox -1,-1,101,101 --count");
    EXPECT_EQ(alone.exitCode, 0) << alone.err;
    EXPECT_EQ(alone.out, "2147483647\n");
}

TEST(DamageTest, ALockedShpWasReportedAsDamaged) {
    TempDir dir;
    auto shp = dir / "p.shp";
    WriteLayer(shp, ShpFile::qovaShapePoint, {0, 0, 1, 1}, {PointRecord(0, 0)});
    for (const char* name : {"p.shp", "p.shx"}) {
        // Another program's exclusive hold (a writer that shares nothing).
        File holder(dir.Wide(name).c_str());
        ASSERT_TRUE(holder.Open(0, 1, 0, 0, 0));
        for (const std::string& args :
             {"shp info " + Quote(shp), "shp records " + Quote(shp), "sbn build " + Quote(shp)}) {
            auto result = ExpectOneLineFailure(args);
            EXPECT_TRUE(Has(result.err, (dir / name).string() + ": the file is in use"))
                << args << ": " << result.err;
            EXPECT_FALSE(Has(result.err, "damaged")) << args << ": " << result.err;
        }
        ASSERT_TRUE(holder.Close());
    }
    EXPECT_EQ(RunTool("shp info " + Quote(shp)).exitCode, 0);
}

TEST(DamageTest, InfoOfShxWithHugeLengthWordOverflowed) {
    TempDir dir;
    auto shp = dir / "p.shp";
    WriteLayer(shp, ShpFile::qovaShapePoint, {0, 0, 1, 1}, {PointRecord(0, 0)});
    auto shx = ReadBytes(dir / "p.shx");
    EncodeFixed32BE(&shx[24], 0x7FFFFFFF);
    WriteBytes(dir / "p.shx", shx);
    auto info = RunTool("info --json " + Quote(dir / "p.shx"));
    ASSERT_EQ(info.exitCode, 0) << info.err;
    auto json = Json::parse(info.out);
    EXPECT_EQ(json["kind"], "shape index file");
    EXPECT_EQ(json["file_length_words"], 0x7FFFFFFF);
    EXPECT_EQ(json["records"], (int64_t{0x7FFFFFFF} * 2 - 100) / 8);

    // The same word read through the layer: a damaged index file, whose one
    // entry is read.
    auto layer = RunTool("shp info --json " + Quote(shp));
    EXPECT_EQ(layer.exitCode, 1);
    EXPECT_EQ(Json::parse(layer.out)["records"], (int64_t{0x7FFFFFFF} * 2 - 100) / 8);
    EXPECT_EQ(Json::parse(layer.out)["records_in_file"], 1);
    EXPECT_TRUE(Has(layer.err, "holds 1 of the 536870899 records")) << layer.err;

    // The data file's word too.
    auto data = ReadBytes(shp);
    EncodeFixed32BE(&data[24], 0x7FFFFFFF);
    WriteBytes(shp, data);
    auto probe = RunTool("info --json " + Quote(shp));
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    EXPECT_EQ(Json::parse(probe.out)["file_length_words"], 0x7FFFFFFF);
    auto records = RunTool("shp records " + Quote(shp));
    EXPECT_EQ(records.exitCode, 1);
    EXPECT_TRUE(Has(records.err, "its header gives 4294967294")) << records.err;
}

}  // namespace
}  // namespace quillet::test
