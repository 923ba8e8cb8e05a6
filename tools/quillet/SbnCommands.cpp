// quillet sbn build|query|info: the spatial bin index (.sbn/.sbx) beside a
// shape data file. Also a probe of `quillet info` for bin indexes and a step
// of `quillet demo`.

#include <algorithm>
#include <iostream>

#include "Common.h"
#include "LayerSelection.h"
#include "PathBatch.h"
#include "ShapeLayer.h"
#include "foundation/IEnvelope.h"
#include "recordfile/VFile.h"
#include "shape/ShpFile.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexBuilder.h"
#include "spatialindex/ShapeIndexing.h"

namespace quillet::tool {

namespace {

std::filesystem::path IndexPathOf(const std::filesystem::path& shp) {
    return Utf8(BinIndexPathFor(WidePath(shp).c_str()).GetPath().str());
}

struct BuildSummary {
    int32_t features = 0;
    int levels = 0;
    int32_t bins = 0;
};

// Builds the index of `shp` from its records' boxes, read through ShpFile.
// Layers built side by side show no bar of their own: their bars would
// overwrite one another on the one terminal line.
BuildSummary BuildIndex(const std::filesystem::path& shp, bool showProgress) {
    RequireRegularFile(shp);
    auto indexPath = IndexPathOf(shp);
    ShpFile shapes(WidePath(shp).c_str());
    if (indexPath == shp || !shapes.Open(true, true, false) ||
        shapes.GetVersion() != ShpFile::Header::kVersion) {
        std::string inUse = InUse(shp);
        throw Failure(inUse.empty() ? shp.string() + ": not a readable shape data file" : inUse);
    }
    const ShpFile::DOUBLERECT& e = shapes.GetExtent();
    Envelope extent(e.xmin, e.ymin, e.xmax, e.ymax);
    BuildSummary summary;
    summary.features = shapes.GetNumRecords();
    BinIndexBuilder builder;
    if (!builder.Create(WidePath(indexPath).c_str(), summary.features, &extent)) {
        throw Failure(indexPath.string() + ": cannot create the index");
    }
    int32_t unreadable = 0;
    {
        Progress progress("Indexing " + shp.filename().string(),
                          showProgress ? summary.features : 0);
        for (int32_t n = 0; n < summary.features; ++n) {
            progress.Update(n);
            int32_t length = 0;
            const unsigned char* record = shapes.ReadRecord(n, length);
            WKSEnvelope box;
            if (!record || !ShapeRecordEnvelope(record, length, &box)) {
                unreadable += !shapes.IsRecordDeleted(n);
                continue;
            }
            Envelope envelope(box);  // null shapes are empty: the builder skips them
            builder.AddFeature(n + 1, &envelope);
        }
        progress.Done();
    }
    if (!builder.Finish()) {
        throw Failure(indexPath.string() + ": writing the index failed; the index is incomplete");
    }
    if (unreadable > 0) {
        // One write, so that the warnings of layers built side by side stay whole.
        std::cerr << "quillet: warning: " + shp.string() + ": " + std::to_string(unreadable) +
                         " records could not be read and are not indexed\n";
    }
    summary.levels = builder.GetLevels();
    summary.bins = builder.GetBinCount();
    return summary;
}

std::string RunBuild(const std::filesystem::path& shp, bool showProgress) {
    auto summary = BuildIndex(shp, showProgress);
    return IndexPathOf(shp).string() + ": " + std::to_string(summary.features) + " features, " +
           std::to_string(summary.levels) + " levels, " + std::to_string(summary.bins) +
           " bins used\n";
}

bool IsLayer(const std::filesystem::path& path) {
    auto extension = path.extension().string();
    return extension == ".shp" || extension == ".SHP";
}

// The layers named: a folder stands for the shape data files directly in it.
std::vector<std::filesystem::path> LayersOf(const std::vector<std::string>& arguments) {
    std::vector<std::string> named;
    for (const auto& argument : arguments) {
        std::error_code error;
        if (!std::filesystem::is_directory(argument, error)) {
            named.push_back(argument);
            continue;
        }
        std::vector<std::string> inFolder;
        for (const auto& entry : std::filesystem::directory_iterator(argument, error)) {
            if (IsLayer(entry.path())) inFolder.push_back(entry.path().string());
        }
        if (error) throw Failure(argument + ": cannot list the folder: " + error.message());
        if (inFolder.empty()) throw Failure(argument + ": no shape data files in the folder");
        std::sort(inFolder.begin(), inFolder.end());
        named.insert(named.end(), inFolder.begin(), inFolder.end());
    }
    return DistinctPaths(named);
}

void RunBuilds(const std::vector<std::string>& arguments, int jobs) {
    auto layers = LayersOf(arguments);
    bool oneAtATime = jobs <= 1 || layers.size() == 1;
    // Layers built side by side share one bar that counts layers.
    Progress progress("Indexing " + Count(static_cast<int64_t>(layers.size()), "layer"),
                      oneAtATime ? 0 : static_cast<int64_t>(layers.size()));
    int failed = RunForEachPath(
        layers, jobs,
        [oneAtATime](const std::filesystem::path& shp) { return RunBuild(shp, oneAtATime); },
        &progress);
    RequireNoneFailed(failed, layers.size(), "layer");
}

// Opens the index beside `shp`; Failure when there is none.
std::unique_ptr<BinIndex> OpenIndex(const std::filesystem::path& shp) {
    auto path = IndexPathOf(shp);
    RequireRegularFile(path);
    auto index = std::make_unique<BinIndex>(WidePath(path).c_str());
    if (!index->IsOpen()) throw Failure(path.string() + ": not a readable bin index");
    return index;
}

RecNumSet Query(BinIndex& index, const WKSEnvelope& box) {
    Envelope query(box);
    RecNumSet found;
    index.Search(&query, &found);
    return found;
}

// The record count of the layer beside the index, or -1 when there is no
// shape data file to read there.
int32_t LayerRecords(const std::filesystem::path& shp) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(shp, error)) return -1;
    ShpFile shapes(WidePath(shp).c_str());
    if (!shapes.Open(true, true, false)) return -1;
    return shapes.GetNumRecords();
}

// "PATH: damaged: ..." when the index claims more features than the layer
// has records; empty otherwise.
std::string FeatureCountDamage(const std::filesystem::path& shp, const BinIndex& index,
                               int32_t layerRecords) {
    if (layerRecords < 0 || index.GetFeatureCount() <= layerRecords) return "";
    return IndexPathOf(shp).string() + ": damaged: the index gives " +
           Count(index.GetFeatureCount(), "feature") + ", but its layer " + shp.string() + " has " +
           Count(layerRecords, "record");
}

// Prints the feature numbers found, ascending, one a line (or how many), as
// the set holds them: range by range, so that a search that covers an index
// claiming 2^31 features costs no memory for them. Numbers above `last`
// name no record of the layer and are left out.
void PrintFound(const RecNumSet& found, int64_t last, bool count) {
    int64_t total = 0;
    std::string out;
    for (auto [first, end] : found.Ranges()) {
        int64_t to = std::min<int64_t>(end, last);
        if (first > to) break;
        if (count) {
            total += to - first + 1;
            continue;
        }
        for (int64_t n = first; n <= to; ++n) {
            out += std::to_string(n);
            out += '\n';
            if (out.size() >= 64 * 1024) {
                std::cout << out;
                out.clear();
            }
        }
    }
    if (count) out = std::to_string(total) + '\n';
    std::cout << out;
}

void RunQuery(const std::filesystem::path& shp, const std::string& bbox, bool count) {
    WKSEnvelope box = ParseBox(bbox);
    auto index = OpenIndex(shp);
    int32_t layerRecords = LayerRecords(shp);
    RecNumSet found = Query(*index, box);
    PrintFound(found, layerRecords < 0 ? INT32_MAX : layerRecords, count);
    std::string damage = FeatureCountDamage(shp, *index, layerRecords);
    const auto& ranges = found.Ranges();
    if (damage.empty() && layerRecords >= 0 && !ranges.empty() &&
        ranges.back().second > layerRecords) {
        damage = IndexPathOf(shp).string() + ": damaged: it names feature " +
                 std::to_string(ranges.back().second) + ", but its layer " + shp.string() +
                 " has " + Count(layerRecords, "record");
    }
    if (!damage.empty()) throw Failure(damage);
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
    auto index = OpenIndex(shp);
    Json facts = IndexFacts(*index);
    json ? PrintJson(facts) : PrintFields(facts);
    std::string damage = FeatureCountDamage(shp, *index, LayerRecords(shp));
    if (!damage.empty()) throw Failure(damage);
}

void Install(CLI::App& app) {
    auto* group = app.add_subcommand("sbn", "Spatial bin indexes (.sbn/.sbx) of shape data files");
    group->require_subcommand(1);
    auto shp = std::make_shared<std::string>();

    auto* build =
        group->add_subcommand("build", "Build each layer's .sbn/.sbx from its records' boxes");
    auto layers = std::make_shared<std::vector<std::string>>();
    auto jobs = std::make_shared<int>(1);
    build->add_option("SHP", *layers, "Shape data files, or folders of them")->required();
    build->add_option("--jobs,-j", *jobs, "Layers built at once, each in its own thread")
        ->check(CLI::Range(1, 1024));
    build->callback([layers, jobs] { RunBuilds(*layers, *jobs); });

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
        std::error_code error;
        auto size = static_cast<int64_t>(std::filesystem::file_size(path, error));
        out["records"] =
            error ? 0
                  : std::max<int64_t>(0, (size - VFile::kHeaderLength) / VFile::kIndexEntryLength);
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

void RunDemo(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> layers;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".shp") layers.push_back(entry.path());
    }
    std::sort(layers.begin(), layers.end());
    if (layers.empty()) std::cout << "No shape layer to index.\n";
    for (const auto& layer : layers) {
        std::cout << "$ quillet sbn build " << layer.filename().string() << '\n';
        std::cout << RunBuild(layer, true);
        auto index = OpenIndex(layer);
        // The lower left quarter of the extent.
        const WKSEnvelope& e = index->GetExtent();
        WKSEnvelope window{e.XMin, e.YMin, (e.XMin + e.XMax) / 2, (e.YMin + e.YMax) / 2};
        auto found = Query(*index, window);
        std::cout << "  the lower left quarter of the extent meets the bins of "
                  << (found.Count() == 0 ? "no feature" : "features");
        // A layer of the demo's own: a few features.
        for (int32_t n : found.ToVector()) std::cout << ' ' << n;
        std::cout << '\n';
    }
}

void Register() {
    RegisterGroup("sbn", Install);
    RegisterInfoProbe({50, "spatial bin index", ProbeBinIndex});
    RegisterDemoStep({500, "Spatial bin index: build and query", RunDemo});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
