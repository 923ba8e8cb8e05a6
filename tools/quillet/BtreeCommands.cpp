// quillet btree info|dump|validate|replay|build: B-tree attribute indexes of
// either node format. Also a probe of `quillet info` for next-generation
// indexes.
//
// A next-generation file is told by its trailer: 22 bytes after the last
// whole 4096-byte node that decode to a key type. Any other file is taken to
// be of the older format, which records no key type, so its commands need
// --type (and --width for text).

#include <cmath>
#include <cstdint>
#include <iostream>
#include <sstream>

#include "Common.h"
#include "LocaleOption.h"
#include "attrindex/MTIndexNG.h"
#include "attrindex/MTSearch.h"
#include "codepage/CodePage.h"
#include "foundation/DebugOutput.h"

namespace quillet::tool {

namespace {

MTDataType ParseType(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (text.rfind("mt", 0) == 0) text.erase(0, 2);
    MTDataType type = MTDataTypeOfName(text);
    if (type == MTNone) {
        throw UsageError(
            "--type: unknown key type '" + text +
            "' (string, wstring, short, long, int64, float, double, date, datemap1, datemap2)");
    }
    return type;
}

// What the user said of an index that its file may not record.
struct KeyOptions {
    std::string type;
    int32_t width = 0;
    std::string codePage;
};

uint32_t CodePageOf(const KeyOptions& options) {
    if (options.codePage.empty()) return 0;
    uint32_t id = CodePage::FindCodePageId(String::FromUtf8(options.codePage));
    if (id == 0) throw UsageError("--codepage: unknown code page '" + options.codePage + "'");
    return id;
}

std::string Hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<uint32_t>(hr));
    return text;
}

// Collects the library's diagnostics while it lives.
class Diagnostics {
public:
    Diagnostics() {
        old_ = SetDebugOutputSink([this](const wchar_t* message) {
            if (first_.empty()) first_ = Utf8(message);
        });
    }
    ~Diagnostics() { SetDebugOutputSink(old_); }
    // The first message, without the index's name and the line's end.
    std::string First() const {
        std::string text = first_;
        while (!text.empty() && text.back() == '\n') text.pop_back();
        size_t cut = text.rfind(": ");
        return cut == std::string::npos ? text : text.substr(cut + 2);
    }

private:
    DebugSink old_;
    std::string first_;
};

bool IsNextGeneration(const std::filesystem::path& path) {
    std::error_code ec;
    auto size = std::filesystem::file_size(path, ec);
    if (ec || size % 4096 != MTIndexNG::Trailer::kLength) return false;
    std::ifstream in(path, std::ios::binary);
    unsigned char bytes[MTIndexNG::Trailer::kLength];
    in.seekg(static_cast<std::streamoff>(size - MTIndexNG::Trailer::kLength));
    if (!in.read(reinterpret_cast<char*>(bytes), sizeof bytes)) return false;
    MTIndexNG::Trailer trailer;
    MTDataType type = MTNone;
    int32_t width = 0;
    return trailer.DecodeFrom(bytes) == S_OK &&
           MTIndexNG::Trailer::TypeOf(trailer.typeWord, type, width) == S_OK;
}

std::unique_ptr<MTIndex> MakeIndex(bool ng, const KeyOptions& options) {
    uint32_t codePage = CodePageOf(options);
    if (ng && options.type.empty()) {
        auto index = std::make_unique<MTIndexNG>();
        index->SetCodePage(codePage);
        return index;
    }
    if (options.type.empty()) {
        throw UsageError("an index of the older format does not record its key type: give --type");
    }
    MTDataType type = ParseType(options.type);
    if (IsStringType(type) && options.width < 1)
        throw UsageError("--width: give the width of text keys");
    if (ng) return std::make_unique<MTIndexNG>(type, options.width, codePage);
    return std::make_unique<MTIndex>(type, options.width, codePage);
}

std::unique_ptr<MTIndex> OpenIndex(const std::filesystem::path& path, const KeyOptions& options,
                                   bool writable) {
    RequireRegularFile(path);
    auto index = MakeIndex(IsNextGeneration(path), options);
    Diagnostics diagnostics;
    uint32_t access = GENERIC_READ | (writable ? GENERIC_WRITE : 0);
    HRESULT hr = index->Open(WidePath(path).c_str(), access, writable ? 0 : FILE_SHARE_READ,
                             nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (FAILED(hr)) throw Failure(path.string() + ": not a readable index (" + Hex(hr) + ")");
    return index;
}

std::string KeyText(const MTKey& key) {
    if (key.GetType() == MTString) return Utf8(key.GetString() ? key.GetString() : L"");
    if (key.IsInteger()) return std::to_string(key.GetInteger());
    std::ostringstream out;
    out.precision(key.GetType() == MTFloat ? 9 : 17);
    out << static_cast<double>(key.GetWidened());
    return out.str();
}

Json KeyJson(const MTKey& key) {
    if (key.GetType() == MTString) return KeyText(key);
    if (key.IsInteger()) return key.GetInteger();
    double value = static_cast<double>(key.GetWidened());
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

Json Facts(MTIndex& index, const std::filesystem::path& path) {
    int64_t entries = 0;
    int32_t treeNodes = 0;
    Diagnostics diagnostics;
    HRESULT hr = index.CountTree(entries, treeNodes);
    if (FAILED(hr)) throw Failure(path.string() + ": " + diagnostics.First());
    const MTNodeGeometry& g = index.GetGeometry();
    int64_t nodes = (index.Size() + (index.IsLE() ? 0 : g.nodeSize - 1)) / g.nodeSize;
    return Json{{"format", index.IsLE() ? "ng" : "old"},
                {"key_type", MTDataTypeName(index.GetDataType())},
                {"key_width", index.GetKeyWidth()},
                {"max_keys", g.maxKeys},
                {"levels", index.GetLevels()},
                {"entries", entries},
                {"nodes", nodes},
                {"free_nodes", nodes - treeNodes},
                {"keys_truncated", index.GetKeysTruncated()}};
}

void RunInfo(const std::filesystem::path& path, const KeyOptions& options, bool json) {
    auto index = OpenIndex(path, options, false);
    Json facts = Facts(*index, path);
    json ? PrintJson(facts) : PrintFields(facts);
}

void RunDump(const std::filesystem::path& path, const KeyOptions& options, int64_t limit,
             const std::string& format) {
    if (format != "text" && format != "jsonl") throw UsageError("--format must be text or jsonl");
    auto index = OpenIndex(path, options, false);
    MTSearch search;
    HRESULT hr = index->SearchFirst(search);
    MTKey key;
    int32_t id = 0;
    std::string out;
    for (int64_t n = 0; n != limit && SUCCEEDED(hr) && (hr = search.Next(key, id)) == S_OK; ++n) {
        out += format == "text" ? KeyText(key) + '\t' + std::to_string(id) + '\n'
                                : Json{{"key", KeyJson(key)}, {"id", id}}.dump() + '\n';
        if (out.size() > 1 << 16) {
            std::cout << out;
            out.clear();
        }
    }
    std::cout << out;
    if (FAILED(hr)) throw Failure(path.string() + ": the scan stopped (" + Hex(hr) + ")");
}

void RunValidate(const std::filesystem::path& path, const KeyOptions& options) {
    auto index = OpenIndex(path, options, false);
    Diagnostics diagnostics;
    HRESULT hr = index->Validate();
    if (FAILED(hr)) {
        std::string reason = diagnostics.First();
        throw Failure(path.string() + ": inconsistent: " + (reason.empty() ? Hex(hr) : reason));
    }
    std::cout << path.string() << ": consistent, " << index->GetLevels() << " levels\n";
}

void RunReplay(const std::filesystem::path& path, const std::filesystem::path& trace,
               const KeyOptions& options) {
    RequireRegularFile(trace);
    auto index = OpenIndex(path, options, true);
    Diagnostics diagnostics;
    HRESULT hr = index->ReplayTrace(WidePath(trace).c_str());
    if (SUCCEEDED(hr)) hr = index->Close();
    if (FAILED(hr)) {
        std::string reason = diagnostics.First();
        throw Failure(trace.string() + ": replay failed: " + (reason.empty() ? Hex(hr) : reason));
    }
    std::cout << path.string() << ": replayed " << trace.string() << '\n';
}

// The key of a text line for a key type; false when it is none.
bool ParseKey(MTDataType type, const std::string& text, MTKey& key, std::wstring& wide) {
    if (IsStringType(type)) {
        wide = String::FromUtf8(text).str();
        key.SetString(wide.c_str(), false);
        return true;
    }
    size_t used = 0;
    try {
        if (type == MTShort || type == MTLong || type == MTInt64) {
            key.SetInt64(std::stoll(text, &used));
        } else {
            key.SetDouble(std::stod(text, &used));
        }
    } catch (const std::exception&) {
        return false;
    }
    return used == text.size();
}

// "KEY<TAB>ID", or "KEY,ID" when the line has no tab: the id after the last one.
void ParseLine(MTDataType type, const std::string& line, MTKey& key, std::wstring& wide,
               int32_t& id, int64_t number) {
    size_t cut = line.rfind('\t');
    if (cut == std::string::npos) cut = line.rfind(',');
    size_t used = 0;
    long long value = 0;
    try {
        if (cut != std::string::npos) value = std::stoll(line.substr(cut + 1), &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (cut == std::string::npos || used == 0 || used != line.size() - cut - 1 ||
        value < INT32_MIN || value > INT32_MAX || !ParseKey(type, line.substr(0, cut), key, wide)) {
        throw Failure("standard input: line " + std::to_string(number) +
                      ": expected KEY<TAB>ID or KEY,ID");
    }
    id = static_cast<int32_t>(value);
}

int64_t InputSize() {
    std::error_code ec;
    auto status = std::filesystem::status("/dev/stdin", ec);
    if (ec || !std::filesystem::is_regular_file(status)) return 0;
    auto size = std::filesystem::file_size("/dev/stdin", ec);
    return ec ? 0 : static_cast<int64_t>(size);
}

void RunBuild(const std::filesystem::path& path, const KeyOptions& options,
              const std::string& format) {
    if (format != "old" && format != "ng") throw UsageError("--format must be old or ng");
    if (options.type.empty()) throw UsageError("--type: give the key type");
    auto index = MakeIndex(format == "ng", options);
    HRESULT hr = index->Open(WidePath(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (SUCCEEDED(hr)) hr = index->StartBulkLoad(0);
    if (FAILED(hr)) throw Failure(path.string() + ": cannot be created (" + Hex(hr) + ")");
    std::string line;
    int64_t number = 0;
    int64_t read = 0;
    {
        Progress progress("Loading " + path.filename().string(), InputSize());
        MTKey key;
        std::wstring wide;
        int32_t id = 0;
        while (std::getline(std::cin, line)) {
            read += static_cast<int64_t>(line.size()) + 1;
            ++number;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (line.empty()) continue;
            ParseLine(index->GetDataType(), line, key, wide, id, number);
            hr = index->BulkInsert(key, id);
            if (FAILED(hr))
                throw Failure("standard input: line " + std::to_string(number) + ": " + Hex(hr));
            if (number % 4096 == 0) progress.Update(read);
        }
    }
    hr = index->FinishBulkLoad(false);
    if (FAILED(hr)) throw Failure(path.string() + ": writing the tree failed (" + Hex(hr) + ")");
    Json facts = Facts(*index, path);
    hr = index->Close();
    if (FAILED(hr)) throw Failure(path.string() + ": closing failed (" + Hex(hr) + ")");
    std::cout << path.string() << ": " << facts["entries"].get<int64_t>() << " entries, "
              << facts["levels"].get<int>() << " levels, " << facts["nodes"].get<int64_t>()
              << " nodes\n";
}

void AddKeyOptions(CLI::App* command, KeyOptions& options) {
    command->add_option("--type", options.type,
                        "Key type: string, wstring, short, long, int64, float, double, date, "
                        "datemap1, datemap2 (needed for the older format)");
    command->add_option("--width", options.width,
                        "Width of text keys: bytes (string), characters (wstring)");
    command->add_option("--codepage", options.codePage,
                        "Code page of string keys (default: the system's)");
    AddLocaleOption(*command, NamedCodePageOf(options.codePage));
}

void Install(CLI::App& app) {
    auto* group =
        app.add_subcommand("btree", "B-tree attribute indexes (older and next-generation format)");
    group->require_subcommand(1);
    group->footer(
        "A next-generation index is known by its trailer (22 bytes after the last whole\n"
        "4096-byte node); any other file is read as the older format, which records no\n"
        "key type: give --type, and --width for text keys.");
    auto path = std::make_shared<std::string>();
    auto options = std::make_shared<KeyOptions>();

    auto* info =
        group->add_subcommand("info", "Format, key type and width, levels, entries and nodes");
    auto json = std::make_shared<bool>(false);
    info->add_option("INDEX", *path, "The index file")->required();
    info->add_flag("--json", *json, "Print JSON");
    AddKeyOptions(info, *options);
    info->callback([path, options, json] { RunInfo(*path, *options, *json); });

    auto* dump = group->add_subcommand("dump", "The entries in order: key and record id");
    auto limit = std::make_shared<int64_t>(-1);
    auto format = std::make_shared<std::string>("text");
    dump->add_option("INDEX", *path, "The index file")->required();
    dump->add_option("--limit", *limit, "At most this many entries");
    dump->add_option("--format", *format, "text (key TAB id) or jsonl");
    AddKeyOptions(dump, *options);
    dump->callback([path, options, limit, format] { RunDump(*path, *options, *limit, *format); });

    auto* validate = group->add_subcommand(
        "validate", "Check the tree; exit 1 with the reason when inconsistent");
    validate->add_option("INDEX", *path, "The index file")->required();
    AddKeyOptions(validate, *options);
    validate->callback([path, options] { RunValidate(*path, *options); });

    auto* replay =
        group->add_subcommand("replay", "Repeat the operations of a .trace file on the index");
    auto trace = std::make_shared<std::string>();
    replay->add_option("INDEX", *path, "The index file")->required();
    replay->add_option("TRACE", *trace, "The trace file")->required();
    AddKeyOptions(replay, *options);
    replay->callback([path, trace, options] { RunReplay(*path, *trace, *options); });

    auto* build = group->add_subcommand(
        "build", "Bulk-load KEY<TAB>ID (or KEY,ID) lines from standard input");
    auto buildFormat = std::make_shared<std::string>("ng");
    build->add_option("INDEX", *path, "The index file to create")->required();
    build->add_option("--format", *buildFormat, "old or ng (default)");
    AddKeyOptions(build, *options);
    build->callback([path, options, buildFormat] { RunBuild(*path, *options, *buildFormat); });
}

bool ProbeIndex(const std::filesystem::path& path, std::span<const unsigned char>, Json& out) {
    if (!IsNextGeneration(path)) return false;
    out["kind"] = "B-tree attribute index (next generation)";
    try {
        out.update(Facts(*OpenIndex(path, KeyOptions{}, false), path));
    } catch (const Failure&) {
        out["readable"] = false;
    }
    return true;
}

void Register() {
    RegisterGroup("btree", Install);
    RegisterInfoProbe({60, "B-tree attribute index", ProbeIndex});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
