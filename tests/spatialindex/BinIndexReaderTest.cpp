// The reader on index files written record by record: both header layouts and
// byte orders, and bad content, where searches return what they can. The
// builder's big-endian double header is checked on disk in BinIndexBuilderTest.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "IndexTestSupport.h"
#include "foundation/IEnvelope.h"
#include "recordfile/VFile.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexFormat.h"

namespace quillet::test {
namespace {

using Numbers = std::vector<int32_t>;

struct RawIndex {
    int32_t userType = BinIndexHeader::kBuilderUserType;
    VFile::FileType type = VFile::kBigEndian;
    BinIndexHeader header{4, WKSEnvelope{0, 0, 255, 255}};
    std::vector<BinMapEntry> bins;
    // How many bytes of the map record 0 gets: -1 all, 0 no record 0.
    int32_t mapLength = -1;
    // Records 1, 2, ...; an empty one is written as 4 bytes, too short for
    // an entry.
    std::vector<std::vector<BinFeatureRec>> records;
};

void WriteRaw(const std::filesystem::path& path, const RawIndex& raw) {
    bool big = raw.type == VFile::kBigEndian;
    VFile file(WidePath(path).c_str());
    ASSERT_TRUE(file.Create(raw.userType, VFile::kReadWrite, false, VFile::kIndexed, 0, raw.type));
    unsigned char header[BinIndexHeader::kDoubleLength];
    raw.header.EncodeTo(header, raw.userType, big);
    ASSERT_TRUE(file.WriteUserHeader(header, BinIndexHeader::LengthFor(raw.userType)));
    Bytes map(raw.bins.size() * BinMapEntry::kLength);
    for (size_t i = 0; i < raw.bins.size(); ++i) raw.bins[i].EncodeTo(&map[i * 8], big);
    auto mapLength = raw.mapLength < 0 ? static_cast<int32_t>(map.size()) : raw.mapLength;
    ASSERT_TRUE(mapLength == 0 || file.WriteRecord(0, map.data(), mapLength));
    for (int32_t r = 1; r <= static_cast<int32_t>(raw.records.size()); ++r) {
        const auto& entries = raw.records[static_cast<size_t>(r - 1)];
        Bytes bytes(std::max<size_t>(4, entries.size() * BinFeatureRec::kLength));
        for (size_t i = 0; i < entries.size(); ++i) entries[i].EncodeTo(&bytes[i * 8], big);
        ASSERT_TRUE(file.WriteRecord(r, bytes.data(), static_cast<int32_t>(bytes.size())));
    }
    ASSERT_TRUE(file.Close());
}

BinFeatureRec Entry(int32_t number, GridBox box = GridBox{10, 10, 20, 20}) {
    return BinFeatureRec{box, number};
}

// Not the whole extent, but the whole grid.
const WKSEnvelope kMostOfIt{0, 0, 254, 254};

TEST(BinIndexReaderTest, SearchesFindWhatTheFileHolds) {
    const BinIndexHeader floatHeader{2, WKSEnvelope{-10, 0, 10, 510}};
    struct Case {
        const char* what;
        RawIndex raw;
        WKSEnvelope window;
        Numbers found;
    } cases[] = {
        // x -10..-9 is grid 0..14, y 0..2 is grid 0..2: only feature 1.
        {"a little-endian file with a float header",
         {.userType = 0, .type = VFile::kLittleEndian, .header = floatHeader, .bins = {{2, 2}},
          .records = {{Entry(1, GridBox{0, 0, 10, 10}), Entry(2, GridBox{200, 200, 255, 255})}}},
         WKSEnvelope{-10, 0, -9, 2}, {1}},
        {"one bin: only the root's entries are checked, and a record no bin names is not read",
         {.bins = {{2, 3}},
          .records = {{Entry(5, GridBox{0, 0, 1, 1}), Entry(6, GridBox{100, 100, 101, 101}),
                       Entry(7, GridBox{250, 250, 255, 255})},
                      {Entry(8)}}},
         WKSEnvelope{90, 90, 254, 254}, {6, 7}},
        {"bin 2 names records past the end, bin 3 claims 5 entries and 2 are there",
         {.bins = {{2, 1}, {50, 3}, {3, 5}}, .records = {{Entry(1)}, {Entry(2), Entry(3)}}},
         kMostOfIt, {1, 2, 3}},
        {"bins beyond the map are not searched", {.bins = {{-1, 0}}, .records = {{Entry(1)}}},
         kMostOfIt, {}},
        {"no map record", {.bins = {{2, 1}}, .mapLength = 0, .records = {}}, kMostOfIt, {}},
        {"a map record too short for a bin", {.bins = {{2, 1}}, .mapLength = 6, .records = {}},
         kMostOfIt, {}},
        {"no map, but the whole extent needs none",
         {.bins = {{2, 1}}, .mapLength = 4, .records = {}},
         WKSEnvelope{0, 0, 255, 255}, {1, 2, 3, 4}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        WriteRaw(dir / "r.sbn", c.raw);
        EXPECT_EQ(Find(dir / "r.sbn", c.window), c.found);
    }
}

TEST(BinIndexReaderTest, HostileCountsAndFirstsAreBounded) {
    TempDir dir;
    RawIndex raw;
    const int32_t kMax = std::numeric_limits<int32_t>::max();
    const int32_t kMin = std::numeric_limits<int32_t>::min();
    // Every bin claims the whole file, over and over; some claim nonsense.
    raw.bins.assign(20000, BinMapEntry{2, kMax});
    raw.bins[0] = BinMapEntry{kMin, 5};
    raw.bins[1] = BinMapEntry{1, 5};  // record 0 is the map, not features
    raw.bins[2] = BinMapEntry{kMax, 7};
    raw.bins[3] = BinMapEntry{3, kMin};
    raw.records = {{Entry(1), Entry(2)}, {}, {Entry(3)}};
    WriteRaw(dir / "h.sbn", raw);
    BinIndex index(dir.Wide("h.sbn").c_str());
    EXPECT_EQ(index.GetBinCount(), 20000);
    int64_t claimed = 0;
    for (int32_t b = 1; b <= index.GetBinCount(); ++b) {
        EXPECT_GE(index.GetBin(b).count, 0);
        claimed += index.GetBin(b).count;
    }
    // No more entries than the data file could hold.
    EXPECT_LE(claimed * 8, static_cast<int64_t>(std::filesystem::file_size(dir / "h.sbn")));
    // The short record 2 ends bin 5's reading: feature 3 is not reached.
    EXPECT_EQ(Find(dir / "h.sbn", kMostOfIt), (Numbers{1, 2}));
}

TEST(BinIndexReaderTest, TruncatedAndForeignFilesGiveAnEmptyIndex) {
    TempDir dir;
    RawIndex raw;
    raw.bins = {{2, 1}};
    raw.records = {{Entry(1)}};
    WriteRaw(dir / "t.sbn", raw);
    auto bytes = ReadBytes(dir / "t.sbn");
    for (size_t keep : {0, 4, 60, 99}) {
        WriteBytes(dir / "cut.sbn", {bytes.begin(), bytes.begin() + static_cast<long>(keep)});
        std::filesystem::copy_file(dir / "t.sbx", dir / "cut.sbx",
                                   std::filesystem::copy_options::overwrite_existing);
        EXPECT_FALSE(BinIndex(dir.Wide("cut.sbn").c_str()).IsOpen()) << keep;
        EXPECT_TRUE(Find(dir / "cut.sbn", kMostOfIt).empty());
    }
    // Not a record file at all.
    WriteBytes(dir / "x.sbn", std::vector<unsigned char>(300, 0x41));
    WriteBytes(dir / "x.sbx", std::vector<unsigned char>(300, 0x41));
    EXPECT_FALSE(BinIndex(dir.Wide("x.sbn").c_str()).IsOpen());
    // The data file without its index file.
    std::filesystem::remove(dir / "t.sbx");
    EXPECT_FALSE(BinIndex(dir.Wide("t.sbn").c_str()).IsOpen());
}

TEST(BinIndexReaderTest, ShapeFilesOpenedAsIndexesDoNotMisbehave) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    for (const auto& entry : std::filesystem::directory_iterator(PeerSamplesDir())) {
        if (entry.path().extension() != ".shp") continue;
        SCOPED_TRACE(entry.path().filename().string());
        BinIndex index(WidePath(entry.path()).c_str());
        Envelope window(-1e9, -1e9, 1e9, 1e9);
        Envelope small(0, 0, 1, 1);
        RecNumSet found;
        index.Search(&window, &found);
        index.Search(&small, &found);
        EXPECT_LE(index.GetBinCount(),
                  static_cast<int32_t>(std::filesystem::file_size(entry.path()) / 8));
    }
}

// The byte layouts of the header, entries and map pairs, in either byte order.
TEST(BinIndexFormatTest, FloatHeaderFollowsTheFilesByteOrder) {
    const BinIndexHeader header{3, WKSEnvelope{1, 2, 0.5, -1}};
    for (bool bigEndian : {false, true}) {
        Bytes out(20);
        header.EncodeTo(out.data(), 0, bigEndian);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + 8), bigEndian
                                                           ? (Bytes{0, 0, 0, 3, 0x3F, 0x80, 0, 0})
                                                           : (Bytes{3, 0, 0, 0, 0, 0, 0x80, 0x3F}));
        BinIndexHeader back;
        back.DecodeFrom(out.data(), 7, bigEndian);
        EXPECT_EQ(back.featureCount, 3);
        const WKSEnvelope& e = back.extent;
        EXPECT_TRUE(e.XMin == 1 && e.YMin == 2 && e.XMax == 0.5 && e.YMax == -1);
    }
}

TEST(BinIndexFormatTest, EntriesAndMapPairs) {
    Bytes out(8);
    BinFeatureRec{GridBox{1, 2, 3, 4}, 0x01020304}.EncodeTo(out.data(), true);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 1, 2, 3, 4}));
    BinFeatureRec{GridBox{1, 2, 3, 4}, 0x01020304}.EncodeTo(out.data(), false);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 4, 3, 2, 1}));
    BinFeatureRec entry;
    entry.DecodeFrom(out.data(), false);
    EXPECT_EQ(entry.featureNumber, 0x01020304);
    EXPECT_EQ(entry.box, (GridBox{1, 2, 3, 4}));

    BinMapEntry{-1, 300}.EncodeTo(out.data(), true);
    EXPECT_EQ(out, (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 1, 0x2C}));
    BinMapEntry pair;
    pair.DecodeFrom(out.data(), true);
    EXPECT_EQ(pair.first, -1);
    EXPECT_EQ(pair.count, 300);
}

}  // namespace
}  // namespace quillet::test
