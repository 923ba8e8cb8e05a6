// quillet sbn build|query|info: the spatial bin index (.sbn/.sbx) beside a
// shape data file. Also a probe of `quillet info` for bin indexes and a step
// of `quillet demo`.

#include <algorithm>
#include <cmath>
#include <iostream>
#include <optional>
#include <random>
#include <sstream>

#include "Common.h"
#include "foundation/ByteOrder.h"
#include "foundation/IEnvelope.h"
#include "recordfile/VFile.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/ShapeIndexing.h"

namespace quillet::tool {

namespace {

std::filesystem::path IndexPathOf(const std::filesystem::path& shp) {
    return Utf8(BinIndexPathFor(WidePath(shp).c_str()).GetPath().str());
}

ShapeIndexSummary BuildIndex(const std::filesystem::path& shp) {
    RequireRegularFile(shp);
    std::optional<Progress> progress;
    auto summary = BuildShapeFileIndex(WidePath(shp).c_str(), [&](int32_t done, int32_t total) {
        if (!progress) progress.emplace("Indexing " + shp.filename().string(), total);
        progress->Update(done);
    });
    progress.reset();
    auto index = IndexPathOf(shp).string();
    switch (summary.status) {
        case ShapeIndexSummary::kOk:
            break;
        case ShapeIndexSummary::kCannotOpenShapes:
            throw Failure(shp.string() + ": not a readable shape data file");
        case ShapeIndexSummary::kCannotCreate:
            throw Failure(index + ": cannot create the index");
        case ShapeIndexSummary::kWriteFailed:
            throw Failure(index + ": writing the index failed; the index is incomplete");
    }
    if (summary.unreadable > 0) {
        std::cerr << "quillet: warning: " << shp.string() << ": " << summary.unreadable
                  << " records could not be read and are not indexed\n";
    }
    return summary;
}

void RunBuild(const std::filesystem::path& shp) {
    auto summary = BuildIndex(shp);
    std::cout << IndexPathOf(shp).string() << ": " << summary.features << " features, "
              << summary.levels << " levels, " << summary.bins << " bins used\n";
}

// Opens the index beside `shp`; Failure when there is none.
std::unique_ptr<BinIndex> OpenIndex(const std::filesystem::path& shp) {
    auto path = IndexPathOf(shp);
    RequireRegularFile(path);
    auto index = std::make_unique<BinIndex>(WidePath(path).c_str());
    if (!index->IsOpen()) throw Failure(path.string() + ": not a readable bin index");
    return index;
}

WKSEnvelope ParseBox(const std::string& text) {
    std::istringstream in(text);
    double v[4];
    char comma = ',';
    for (int i = 0; i < 4; ++i) {
        if ((i > 0 && !(in >> comma)) || comma != ',' || !(in >> v[i])) {
            throw UsageError("--bbox: expected XMIN,YMIN,XMAX,YMAX, got '" + text + "'");
        }
    }
    in >> std::ws;
    if (!in.eof()) throw UsageError("--bbox: expected XMIN,YMIN,XMAX,YMAX, got '" + text + "'");
    return WKSEnvelope{v[0], v[1], v[2], v[3]};
}

std::vector<int32_t> Query(BinIndex& index, const WKSEnvelope& box) {
    Envelope query(box);
    RecNumSet found;
    index.Search(&query, &found);
    return found.ToVector();
}

void RunQuery(const std::filesystem::path& shp, const std::string& bbox, bool count) {
    WKSEnvelope box = ParseBox(bbox);
    auto found = Query(*OpenIndex(shp), box);
    if (count) {
        std::cout << found.size() << '\n';
        return;
    }
    std::string out;
    for (int32_t n : found) out += std::to_string(n) + '\n';
    std::cout << out;
}

Json IndexFacts(const BinIndex& index) {
    const WKSEnvelope& e = index.GetExtent();
    std::vector<int64_t> levels;
    for (int32_t bin = 1; bin <= index.GetBinCount(); ++bin) {
        auto level = static_cast<size_t>(BinLevel(bin));
        if (levels.size() <= level) levels.push_back(0);
        levels[level] += index.GetBin(bin).count;
    }
    return Json{{"features", index.GetFeatureCount()},
                {"extent", {e.XMin, e.YMin, e.XMax, e.YMax}},
                {"bins", index.GetBinCount()},
                {"levels", levels},
                {"records", index.GetRecordCount()}};
}

void RunInfo(const std::filesystem::path& shp, bool json) {
    Json facts = IndexFacts(*OpenIndex(shp));
    json ? PrintJson(facts) : PrintFields(facts);
}

void Install(CLI::App& app) {
    auto* group = app.add_subcommand("sbn", "Spatial bin indexes (.sbn/.sbx) of shape data files");
    group->require_subcommand(1);
    auto shp = std::make_shared<std::string>();

    auto* build = group->add_subcommand("build", "Build SHP's .sbn/.sbx from its records' boxes");
    build->add_option("SHP", *shp, "The shape data file")->required();
    build->callback([shp] { RunBuild(*shp); });

    auto* query = group->add_subcommand("query", "Feature numbers whose bins meet a rectangle");
    auto bbox = std::make_shared<std::string>();
    auto count = std::make_shared<bool>(false);
    query->add_option("SHP", *shp, "The shape data file")->required();
    query->add_option("--bbox", *bbox, "XMIN,YMIN,XMAX,YMAX")->required();
    query->add_flag("--count", *count, "Print only how many");
    query->callback([shp, bbox, count] { RunQuery(*shp, *bbox, *count); });

    auto* info = group->add_subcommand("info", "Features, extent, bins and levels of SHP's index");
    auto json = std::make_shared<bool>(false);
    info->add_option("SHP", *shp, "The shape data file")->required();
    info->add_flag("--json", *json, "Print JSON");
    info->callback([shp, json] { RunInfo(*shp, *json); });
}

bool ProbeBinIndex(const std::filesystem::path& path, std::span<const unsigned char> head,
                   Json& out) {
    if (head.size() < VFile::kHeaderLength) return false;
    VFile::FileType type = VFile::HeaderRec::TypeOf(head.data());
    if (type == VFile::kNotRecordFile) return false;
    VFile::HeaderRec header;
    header.DecodeFrom(head.data(), type);
    auto extension = path.extension().string();
    bool isIndexFile = extension == ".sbx" || extension == ".SBX";
    bool named = extension == ".sbn" || extension == ".SBN" || isIndexFile;
    if (header.userType != BinIndexHeader::kBuilderUserType && !named) return false;
    if (isIndexFile) {
        out["kind"] = "spatial bin index: record index (.sbx)";
        out["records"] = (std::filesystem::file_size(path) - VFile::kHeaderLength) /
                         VFile::kIndexEntryLength;
        return true;
    }
    BinIndex index(WidePath(path).c_str());
    out["kind"] = "spatial bin index";
    out["byte_order"] = type == VFile::kBigEndian ? "big" : "little";
    out["user_type"] = header.userType;
    if (index.IsOpen()) {
        out.update(IndexFacts(index));
    } else {
        out["readable"] = false;
    }
    return true;
}

// A small point layer, for when no other demo step has written one.
std::filesystem::path WriteDemoLayer(const std::filesystem::path& folder) {
    auto path = folder / "sbn-points.shp";
    VFile file(WidePath(path).c_str());
    if (!file.Create(0, VFile::kReadWrite, false, VFile::kIndexed, 0)) {
        throw Failure(path.string() + ": cannot create the demo layer");
    }
    unsigned char header[VFile::kUserHeaderLength] = {};
    EncodeFixed32LE(header, 1000);
    EncodeFixed32LE(header + 4, 1);  // points
    EncodeDoubleLE(header + 24, 1000);
    EncodeDoubleLE(header + 32, 1000);
    bool ok = file.WriteUserHeader(header, VFile::kUserHeaderLength);
    std::mt19937 random(500);
    std::uniform_real_distribution<double> coordinate(0, 1000);
    for (int i = 0; ok && i < 5000; ++i) {
        unsigned char record[20];
        EncodeFixed32LE(record, 1);
        EncodeDoubleLE(record + 4, coordinate(random));
        EncodeDoubleLE(record + 12, coordinate(random));
        ok = file.WriteNextRecord(record, sizeof record) >= 0;
    }
    if (!file.Close() || !ok) throw Failure(path.string() + ": writing the demo layer failed");
    return path;
}

void RunDemo(const std::filesystem::path& folder) {
    // The layer with the most records that an earlier step wrote.
    std::optional<std::filesystem::path> layer;
    uintmax_t largest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".shp" || entry.file_size() <= largest) continue;
        largest = entry.file_size();
        layer = entry.path();
    }
    if (!layer) layer = WriteDemoLayer(folder);

    std::cout << "$ quillet sbn build " << layer->filename().string() << '\n';
    RunBuild(*layer);
    auto index = OpenIndex(*layer);
    const WKSEnvelope& e = index->GetExtent();
    // A window of a hundredth of the extent, at its centre.
    double cx = (e.XMin + e.XMax) / 2;
    double cy = (e.YMin + e.YMax) / 2;
    double hw = (e.XMax - e.XMin) / 20;
    double hh = (e.YMax - e.YMin) / 20;
    WKSEnvelope window{cx - hw, cy - hh, cx + hw, cy + hh};
    auto found = Query(*index, window);
    std::cout << "A window of 1 % of the extent at its centre meets the bins of " << found.size()
              << " of " << index->GetFeatureCount() << " features";
    if (!found.empty()) std::cout << " (first: " << found.front() << ")";
    std::cout << ".\n";
}

void Register() {
    RegisterGroup("sbn", Install);
    RegisterInfoProbe({50, "spatial bin index", ProbeBinIndex});
    RegisterDemoStep({500, "Spatial bin index: build and query", RunDemo});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
