// quillet shp dump: a layer's features, each shape with its table row, as
// `ogr2ogr` writes them (GeoJSON, GeoJSON lines, CSV with a WKT column),
// chosen by a window (through the bin index when there is one) and a
// condition on a field (through its column index when there is one). A
// record whose counts disagree with its size is named on stderr and left
// out, never printed as a guess.

#include <algorithm>
#include <iostream>
#include <optional>

#include "Common.h"
#include "DbfTable.h"
#include "FeatureWriter.h"
#include "LayerSelection.h"
#include "LocaleOption.h"
#include "Registry.h"
#include "ShapeLayer.h"
#include "shape/ShapeGeometry.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

struct DumpOptions {
    std::string path;
    std::string format = "geojson";
    std::string fields;
    std::string bbox;
    std::vector<std::string> where;
};

// The table beside a layer, open for reading; none when the layer has none.
struct LayerTable {
    fs::path path;
    std::unique_ptr<DBase> table;
    DbfLayout layout;

    explicit LayerTable(const fs::path& shp) : path(fs::path(shp).replace_extension(".dbf")) {
        std::error_code error;
        if (!fs::is_regular_file(path, error)) return;
        table = std::make_unique<DBase>(WidePath(path));
        layout = OpenTable(*table, path, true);
    }

    std::vector<int> Fields(const std::string& names) {
        std::vector<int> chosen;
        if (!table) {
            if (!names.empty()) throw Failure(path.string() + ": no such table, so no fields");
            return chosen;
        }
        if (names.empty()) {
            for (int i = 0; i < table->GetNumFields(); ++i) chosen.push_back(i);
        }
        for (const auto& name : Split(names, ','))
            chosen.push_back(FindField(*table, layout, path, name));
        return chosen;
    }

    // What the layer calls the fields: the names the file stores, as other
    // readers show them, or the library's where two are the same.
    std::vector<std::string> Names(const std::vector<int>& fields) {
        std::vector<std::string> names;
        if (!table) return names;
        CodePage page(table->GetCodePage().GetCodePageId());
        for (int field : fields) {
            String stored(DecodeText(page, layout.fields[static_cast<size_t>(field)].name));
            stored.Trim();
            std::string name = Utf8(stored.str());
            if (std::find(names.begin(), names.end(), name) != names.end())
                name = Utf8(table->GetFieldName(field).str());
            names.push_back(name);
        }
        return names;
    }

    // Moves to record n's row: false when the row is marked deleted (the
    // feature is then left out, as other readers leave it out); `hasRow` says
    // whether the table holds one. A row that cannot be read ends the dump.
    bool MoveTo(int32_t n, bool& hasRow) {
        hasRow = table && n < layout.completeRecords;
        if (!hasRow) return true;
        bool deleted = table->IsRecordDeleted(n);
        if (table->GetCurrentRecord() != n || !table->SeekToCurrent())
            throw Failure(path.string() + ": record " + std::to_string(n + 1) + " cannot be read");
        return !deleted;
    }
};

std::optional<Condition> ParseCondition(const std::vector<std::string>& words) {
    if (words.empty()) return std::nullopt;
    if (words.size() < 3) throw UsageError("--where: expected FIELD OP VALUE...");
    return Condition{words[0], words[1], {words.begin() + 2, words.end()}};
}

struct DumpCounts {
    int32_t unreadable = 0;  // records whose bytes cannot be read
    int32_t skipped = 0;     // records that hold no geometry
};

// Writes the selected features; says on stderr why each record that holds no
// geometry is left out.
DumpCounts WriteFeatures(ShpFile& shp, const fs::path& path, const LayerSelection& selection,
                         LayerTable& table, FeatureWriter& writer) {
    DumpCounts counts;
    Progress progress("dump", shp.GetNumRecords());
    ShapeGeometry geometry;
    for (auto [first, last] : selection.Candidates()) {
        for (int32_t n = first; n <= last; ++n) {
            progress.Update(n);
            if (shp.IsRecordDeleted(n)) continue;
            int32_t length = 0;
            const unsigned char* bytes = shp.ReadRecord(n, length);
            if (!bytes) {
                ++counts.unreadable;
                continue;
            }
            bool hasRow = false;
            if (!selection.InWindow(bytes, length) || !table.MoveTo(n, hasRow)) continue;
            std::string problem;
            if (!geometry.Decode({bytes, static_cast<size_t>(length)}, problem)) {
                std::cerr << "quillet: " << path.string() << ": record " << n + 1
                          << " left out: " << problem << "\n";
                ++counts.skipped;
                continue;
            }
            writer.Write(geometry, hasRow);
        }
    }
    progress.Done();
    return counts;
}

void RunDump(const DumpOptions& options) {
    std::optional<WKSEnvelope> window;
    if (!options.bbox.empty()) window = ParseBox(options.bbox);
    std::optional<Condition> condition = ParseCondition(options.where);
    auto shp = OpenShape(options.path, true);
    LayerTable table(options.path);
    if (condition && !table.table)
        throw Failure(table.path.string() + ": no such table for --where");
    std::vector<int> fields = table.Fields(options.fields);
    LayerSelection selection(options.path, shp->GetNumRecords(), window, condition);
    FeatureWriter writer(options.format, fs::path(options.path).stem().string(), table.table.get(),
                         fields, table.Names(fields));
    DumpCounts counts = WriteFeatures(*shp, options.path, selection, table, writer);
    writer.Finish();
    std::string damage = ShapeDamage(options.path, counts.unreadable);
    if (table.table && table.layout.Damaged())
        damage += (damage.empty() ? "" : "; ") + table.layout.Damage(table.path);
    if (counts.skipped > 0) {
        damage += (damage.empty() ? options.path + ": " : "; ") + Count(counts.skipped, "record") +
                  " left out: no geometry in their bytes";
    }
    if (!damage.empty()) throw Failure(damage);
}

// Runs after the shape file step, on the layers it wrote.
void RunDemo(const fs::path& folder) {
    DumpOptions options;
    options.path = (folder / "fields.shp").string();
    options.format = "geojsonseq";
    std::cout << "\nfields.shp as GeoJSON (quillet shp dump --format geojsonseq):\n";
    RunDump(options);
    std::cout.flush();
}

QUILLET_TOOL_REGISTER([] { RegisterDemoStep({410, "A layer exported as GeoJSON", RunDemo}); });

}  // namespace

void InstallShpDump(CLI::App& shp) {
    auto* dump = shp.add_subcommand("dump", "Each feature, shape and table row, as GeoJSON or CSV");
    auto options = std::make_shared<DumpOptions>();
    dump->add_option("SHP", options->path, "The shape data file")->required();
    dump->add_option("--format", options->format,
                     "geojson (a FeatureCollection), geojsonseq (a Feature a line) or csv (WKT "
                     "and the fields)")
        ->check(CLI::IsMember({"geojson", "geojsonseq", "csv"}));
    dump->add_option("--fields", options->fields, "Only these fields, comma-separated");
    dump->add_option("--bbox", options->bbox,
                     "XMIN,YMIN,XMAX,YMAX: only features whose box meets it");
    dump->add_option("--where", options->where,
                     "FIELD OP VALUE...: only features whose row matches, with the operators "
                     "of atx query")
        ->expected(3, CLI::detail::expected_max_vector_size);
    AddLocaleOption(*dump, [options] {
        std::string table = fs::path(options->path).replace_extension(".dbf").string();
        return TableCodePageOf(table)();
    });
    dump->callback([options] { RunDump(*options); });
}

}  // namespace quillet::tool
