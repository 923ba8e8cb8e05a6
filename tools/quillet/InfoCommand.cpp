// quillet info FILE [--json]: names the kind of store a file holds from its
// first bytes and prints the header fields it can read. Command groups of the
// stores register more specific probes; the generic ones here come last.

#include <array>
#include <sstream>

#include "Common.h"
#include "PathBatch.h"
#include "foundation/ByteOrder.h"

namespace quillet::tool {

namespace {

constexpr size_t kHeadBytes = 512;

bool LooksLikeDBaseVersion(unsigned char v) {
    static constexpr std::array<unsigned char, 18> kVersions = {
        0x02, 0x03, 0x04, 0x05, 0x07, 0x30, 0x31, 0x32, 0x43,
        0x63, 0x83, 0x87, 0x8B, 0x8E, 0xCB, 0xE5, 0xF5, 0xFB};
    for (auto known : kVersions) {
        if (v == known) return true;
    }
    return false;
}

bool ProbeDBase(const std::filesystem::path&, std::span<const unsigned char> head, Json& out) {
    if (head.size() < 32 || !LooksLikeDBaseVersion(head[0])) return false;
    int month = head[2], day = head[3];
    auto headerLength = static_cast<int16_t>(DecodeFixed16LE(&head[8]));
    auto recordLength = static_cast<int16_t>(DecodeFixed16LE(&head[10]));
    if (month < 1 || month > 12 || day < 1 || day > 31 || headerLength < 33 || recordLength < 1) {
        return false;
    }
    char date[16];
    std::snprintf(date, sizeof date, "%04d-%02d-%02d", 1900 + head[1], month, day);
    out["kind"] = "dBASE table";
    out["version"] = head[0];
    out["date"] = date;
    out["records"] = static_cast<int32_t>(DecodeFixed32LE(&head[4]));
    out["header_length"] = headerLength;
    out["record_length"] = recordLength;
    out["ldid"] = head[29];
    out["field_count"] = (headerLength - 32) / 32;
    return true;
}

bool IsOlderFileCode(int32_t code) { return code >= 9991 && code <= 9994; }

bool ProbeOlderRecordFile(const std::filesystem::path&, std::span<const unsigned char> head,
                          Json& out) {
    if (head.size() < 100) return false;
    bool bigEndian = IsOlderFileCode(static_cast<int32_t>(DecodeFixed32BE(&head[0])));
    if (!bigEndian && !IsOlderFileCode(static_cast<int32_t>(DecodeFixed32LE(&head[0])))) {
        return false;
    }
    auto read = [&](size_t offset) {
        return static_cast<int32_t>(bigEndian ? DecodeFixed32BE(&head[offset])
                                              : DecodeFixed32LE(&head[offset]));
    };
    int32_t code = read(0);
    int32_t recordLength = read(8);
    out["kind"] = "record file";
    out["file_code"] = code;
    out["byte_order"] = bigEndian ? "big" : "little";
    out["record_length_kind"] = recordLength <= 0 ? "variable" : "fixed";
    out["indexed"] = code >= 9993;
    out["user_type"] = read(4);
    out["record_length_words"] = recordLength;
    out["file_length_words"] = read(24);
    out["data_start"] = bigEndian ? 100 : 356;
    return true;
}

Json Describe(const std::filesystem::path& path) {
    auto head = ReadHead(path, kHeadBytes);
    if (head.empty()) throw Failure(path.string() + ": empty file");
    for (const auto& probe : InfoProbes()) {
        Json out = Json::object();
        if (probe.probe(path, head, out)) return out;
    }
    return Json{{"kind", "unknown"}};
}

// One file prints as it always did; several print each with its path first
// (text: a blank line between files; JSON: an array).
void RunInfo(const std::vector<std::string>& files, bool json) {
    auto paths = DistinctPaths(files);
    bool several = paths.size() > 1;
    Json all = Json::array();
    int failed = RunForEachPath(paths, 1, [&](const std::filesystem::path& path) {
        Json out = several ? Json{{"path", path.string()}} : Json::object();
        out.update(Describe(path));
        if (json) {
            all.push_back(out);
            return std::string();
        }
        std::ostringstream text;
        if (several && path != paths.front()) text << '\n';
        PrintFields(out, text);
        return text.str();
    });
    if (json && (several || !all.empty())) PrintJson(several ? all : all.front());
    RequireNoneFailed(failed, paths.size(), "file");
}

void Install(CLI::App& app) {
    auto* cmd =
        app.add_subcommand("info", "Name the kind of store each file holds and show its header");
    auto files = std::make_shared<std::vector<std::string>>();
    auto json = std::make_shared<bool>(false);
    cmd->add_option("FILE", *files, "The files to look at")->required();
    cmd->add_flag("--json", *json, "Print JSON (an array for several files)");
    cmd->callback([files, json] { RunInfo(*files, *json); });
}

void Register() {
    RegisterGroup("info", Install);
    RegisterInfoProbe({900, "dBASE table", ProbeDBase});
    RegisterInfoProbe({910, "record file", ProbeOlderRecordFile});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
