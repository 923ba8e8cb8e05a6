// quillet scan DIR [--recursive] [--json]: every store in a folder, what it
// holds, the files beside it, and what is wrong between them: a table whose
// count differs from its shapes', a bin index that counts other features
// than its layer has, a damaged file, an interrupted rewrite. Files with a journal
// beside them are reported, not opened: opening would roll them back.

#include <algorithm>
#include <iostream>
#include <map>

#include "Common.h"
#include "DbfTable.h"
#include "LocaleOption.h"
#include "ShapeLayer.h"
#include "foundation/RewriteRecovery.h"
#include "spatialindex/BinIndex.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The files of one store: by lower-case extension (".shp", ".dbf", ...),
// with every ".atx" of the table under ".atx".
struct Store {
    std::map<std::string, fs::path> files;
    std::vector<fs::path> attributeIndexes;
    fs::path Main() const {
        auto shp = files.find(".shp");
        return shp != files.end() ? shp->second : files.at(".dbf");
    }
};

std::map<fs::path, Store> FindStores(const fs::path& folder, bool recursive) {
    std::map<fs::path, Store> stores;
    auto add = [&](const fs::path& file) {
        std::string extension = Lower(file.extension().string());
        fs::path stem = file.parent_path() / Lower(file.stem().string());
        if (extension == ".atx") {
            // NAME.FIELD.atx
            stores[stem.parent_path() / Lower(fs::path(stem).stem().string())]
                .attributeIndexes.push_back(file);
        } else {
            stores[stem].files[extension] = file;
        }
    };
    std::error_code ec;
    if (recursive) {
        for (const auto& entry : fs::recursive_directory_iterator(folder, ec))
            if (entry.is_regular_file()) add(entry.path());
    } else {
        for (const auto& entry : fs::directory_iterator(folder, ec))
            if (entry.is_regular_file()) add(entry.path());
    }
    if (ec) throw Failure(folder.string() + ": cannot be listed: " + ec.message());
    std::erase_if(stores, [](const auto& store) {
        return !store.second.files.count(".shp") && !store.second.files.count(".dbf");
    });
    return stores;
}

void DescribeShapes(const fs::path& shp, Json& out, std::vector<std::string>& problems) {
    ShpFile shapes(String(WidePath(shp).c_str()));
    if (!shapes.Open(true, true, false)) {
        problems.push_back(shp.filename().string() + " cannot be read as a shape data file");
        return;
    }
    const auto& e = shapes.GetExtent();
    out["records"] = shapes.GetNumRecords();
    out["shape_type"] = static_cast<int>(shapes.GetShapeType());
    out["extent"] = {e.xmin, e.ymin, e.xmax, e.ymax};
    std::string damage = ShapeDamage(shp, 0);
    if (!damage.empty()) problems.push_back(damage);
}

void DescribeTable(const fs::path& dbf, Json& out, std::vector<std::string>& problems) {
    DBase table(WidePath(dbf));
    if (!table.Open(true, true, CodePage::qovaCodePageDefault)) {
        problems.push_back(dbf.filename().string() + " cannot be read as a table");
        return;
    }
    CodePage page;
    out["records"] = table.GetNumRecords();
    out.update(CodePageJson(table.GetCodePage()));
    out["code_page_reason"] = ChooseTableCodePage(dbf, page);
    out.update(TextReadingJson(table.GetCodePage()));
    DbfLayout layout = ReadDbfLayout(dbf);
    if (layout.completeRecords < layout.records)
        problems.push_back(dbf.filename().string() + " is damaged: its header gives " +
                           std::to_string(layout.records) + " records, the file holds " +
                           std::to_string(layout.completeRecords));
}

void CheckBinIndex(const Store& store, const Json& out, std::vector<std::string>& problems) {
    auto sbn = store.files.find(".sbn");
    if (sbn == store.files.end() || !out.contains("records")) return;
    BinIndex index(WidePath(sbn->second).c_str());
    std::string name = sbn->second.filename().string();
    if (!index.IsOpen()) {
        problems.push_back(name + " cannot be read as a bin index");
    } else if (index.GetFeatureCount() != out["records"].get<int32_t>()) {
        problems.push_back(name + " counts " + std::to_string(index.GetFeatureCount()) +
                           " features, the layer has " + out["records"].dump() +
                           " shapes: `quillet sbn build` makes it again");
    }
}

Json DescribeStore(const Store& store) {
    fs::path main = store.Main();
    bool layer = store.files.count(".shp") != 0;
    Json out = {{"path", main.string()}, {"kind", layer ? "shape layer" : "dBASE table"}};
    std::vector<std::string> problems;
    Json sideFiles = Json::array();
    for (const auto& [extension, path] : store.files)
        if (path != main) sideFiles.push_back(path.filename().string());
    for (const auto& index : store.attributeIndexes) sideFiles.push_back(index.filename().string());
    out["side_files"] = sideFiles;
    auto journals = JournalsBeside(WidePath(main));
    auto table = store.files.find(".dbf");
    if (!journals.empty()) {
        for (const auto& journal : journals)
            problems.push_back("an interrupted rewrite left " + Utf8(journal) +
                               ": `quillet recover " + main.string() + "` rolls it back");
    } else {
        if (layer) DescribeShapes(main, out, problems);
        if (table != store.files.end()) {
            Json facts;
            DescribeTable(table->second, facts, problems);
            if (layer && facts.contains("records") && out.contains("records") &&
                facts["records"] != out["records"])
                problems.push_back("the table has " + facts["records"].dump() +
                                   " records, the shapes " + out["records"].dump());
            layer ? (void)(out["table"] = facts) : out.update(facts);
        }
        if (layer) CheckBinIndex(store, out, problems);
    }
    out["problems"] = problems;
    return out;
}

void PrintStore(const Json& store) {
    std::cout << store["path"].get<std::string>() << ": " << store["kind"].get<std::string>();
    if (store.contains("records"))
        std::cout << ", " << Count(store["records"].get<int64_t>(), "record");
    if (store.contains("shape_type"))
        std::cout << ", " << ShapeTypeName(store["shape_type"].get<int32_t>()) << ", extent "
                  << store["extent"].dump();
    const Json& table = store.contains("table") ? store["table"] : store;
    if (table.contains("code_page"))
        std::cout << "\n  code page " << table["code_page"] << " ("
                  << table["code_page_name"].get<std::string>() << "), from the "
                  << table["code_page_reason"].get<std::string>();
    if (table.contains("reads_right") && !table["reads_right"].get<bool>())
        std::cout << "\n  its text reads wrong on this locale (through "
                  << table["read_through"].get<std::string>() << ")"
                  << (table["locale_fix"].is_null()
                          ? std::string()
                          : "; " + table["locale_fix"].get<std::string>() + " reads it right");
    if (!store["side_files"].empty()) {
        std::cout << "\n  beside it:";
        for (const auto& name : store["side_files"]) std::cout << " " << name.get<std::string>();
    }
    for (const auto& problem : store["problems"])
        std::cout << "\n  problem: " << problem.get<std::string>();
    std::cout << "\n";
}

void RunScan(const std::string& folder, bool recursive, bool json) {
    if (!fs::is_directory(folder)) throw Failure(folder + ": not a folder");
    Json stores = Json::array();
    size_t problems = 0;
    for (const auto& [stem, store] : FindStores(folder, recursive)) {
        stores.push_back(DescribeStore(store));
        problems += stores.back()["problems"].size();
        if (!json) PrintStore(stores.back());
    }
    if (json) PrintJson(stores);
    if (problems > 0) throw Failure(folder + ": " + Count(problems, "problem") + " found");
}

void Install(CLI::App& app) {
    auto* cmd = app.add_subcommand(
        "scan", "List the layers and tables in a folder, with their side files and problems");
    auto folder = std::make_shared<std::string>();
    auto recursive = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    cmd->add_option("DIR", *folder, "The folder")->required();
    cmd->add_flag("--recursive", *recursive, "Also the folders inside it");
    cmd->add_flag("--json", *json, "Print JSON");
    cmd->callback([=] { RunScan(*folder, *recursive, *json); });
}

void Register() {
    RegisterGroup("scan", Install);
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
