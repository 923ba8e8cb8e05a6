// quillet vfile info|dump|get|put|delete|compact|check: next-generation
// record files, with their index (".dat" -> ".dax") and free list
// (".freelist"). Also the probes of `quillet info` for the three files.
//
// Record numbers are the file's own, which start at 1 (as the tool counts
// records everywhere): no translation is needed.

#include <unistd.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <set>

#include "Common.h"
#include "foundation/ByteOrder.h"
#include "recordfile/VFileNG.h"
#include "recordfile/VFileNGCheck.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

// The record file's codes and the file layer's it passes on share numbers,
// so each text names what either may mean.
std::string Problem(const VFileNG& file) {
    switch (file.GetLastError()) {
        case VFileNG::kErrorNoRecord: return "no such record";
        case VFileNG::kErrorReadOnly: return "read-only or access denied";
        case File::kNotFound: return "no such file, or its index is missing";
        case VFileNG::kErrorNoCompactFile:
            return "in use by another program, or no room for a copy";
        case VFileNG::kErrorInvalid: return "invalid record number, or a block that reads short";
        case VFileNG::kErrorCorrupt: return "damaged: a header contradicts the file";
        default: return "file error " + std::to_string(file.GetLastError());
    }
}

std::unique_ptr<VFileNG> OpenStore(const fs::path& path, bool writable) {
    // A compaction cut off while it swapped names may have left the file
    // under its temporary name: put it back before looking for it.
    VFileNG::RecoverCompaction(WidePath(path).c_str());
    RequireRegularFile(path);
    auto file = std::make_unique<VFileNG>(WidePath(path).c_str());
    // A writer shares with no one, so that two writers cannot interleave.
    bool opened = writable ? file->Open(VFileNG::kReadWrite, false, false)
                           : file->Open(VFileNG::kReadOnly, true, false);
    if (!opened)
        throw Failure(path.string() + ": not a readable record file (" + Problem(*file) + ")");
    return file;
}

int32_t ParseNumber(const std::string& text) {
    size_t used = 0;
    long long value = 0;
    try {
        value = std::stoll(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || value < 1 || value > INT32_MAX) {
        throw UsageError("not a record number (from 1): " + text);
    }
    return static_cast<int32_t>(value);
}

// Every number whose chunk the index stores, up to the highest, ascending.
template <typename F>
void ForEachNumber(VFileNG& file, F&& visit) {
    VFileNGIndex& index = file.GetIndex();
    int32_t max = file.GetMaxRecordNumber(false);
    for (int32_t n = index.GetNextStoredNumber(1); n >= 1 && n <= max;
         n = n < INT32_MAX ? index.GetNextStoredNumber(n + 1) : -1) {
        if (!visit(n)) return;
    }
}

std::string SideFile(const String& path) {
    std::string name = Utf8(path.str());
    return fs::exists(name) ? name : std::string();
}

Json Facts(VFileNG& file) {
    const VFileNG::FileHeader& h = file.GetHeader();
    FileSystemPath list(file.GetName());
    list.SetExtension(L"freelist");
    std::string listName = SideFile(list.GetPath());
    return Json{{"version", h.version},
                {"records", h.recordCount},
                {"min_record_number", file.GetMinRecordNumber()},
                {"max_record_number", file.GetMaxRecordNumber(false)},
                {"max_record_length", h.maxRecordLength},
                {"pointer_length", h.pointerLength},
                {"free_bytes", h.freeBytes},
                {"end_of_data", h.endOfData},
                {"user_header_length", file.GetUserHeaderLength()},
                {"chunks", file.GetIndex().GetHeader().chunkCount},
                {"index_file", Utf8(file.GetIndex().GetName().str())},
                {"free_list_file", listName.empty() ? Json(nullptr) : Json(listName)}};
}

void RunInfo(const fs::path& path, bool json) {
    Json facts = Facts(*OpenStore(path, false));
    json ? PrintJson(facts) : PrintFields(facts);
}

void RunDump(const fs::path& path, int64_t limit, const std::string& format) {
    if (format != "text" && format != "jsonl") throw UsageError("--format must be text or jsonl");
    auto file = OpenStore(path, false);
    std::string out;
    int64_t shown = 0;
    ForEachNumber(*file, [&](int32_t n) {
        if (shown == limit) return false;
        int64_t position = file->GetIndex().GetFilePosition(n);
        if (position <= 0) return true;
        int32_t length = file->GetRecordLength(n);
        out += format == "text"
                   ? std::to_string(n) + '\t' + std::to_string(position) + '\t' +
                         std::to_string(length) + '\n'
                   : Json{{"record", n}, {"position", position}, {"length", length}}.dump() + '\n';
        if (out.size() > (1 << 16)) {
            std::cout << out;
            out.clear();
        }
        ++shown;
        return true;
    });
    std::cout << out;
}

void RunGet(const fs::path& path, const std::string& number) {
    int32_t n = ParseNumber(number);
    auto file = OpenStore(path, false);
    int32_t length = file->GetRecordLength(n);
    std::string bytes(static_cast<size_t>(length), '\0');
    auto* buffer = reinterpret_cast<unsigned char*>(bytes.data());
    if (file->IsRecordDeleted(n) || !file->ReadRecord(n, buffer, length, &length)) {
        throw Failure(path.string() + ": record " + number + ": " +
                      (file->IsRecordDeleted(n) ? "no such record" : Problem(*file)));
    }
    std::cout.write(bytes.data(), length);
}

void RunPut(const fs::path& path, const std::string& number) {
    int32_t n = number.empty() ? 0 : ParseNumber(number);
    std::string input(std::istreambuf_iterator<char>(std::cin), {});
    if (input.size() > INT32_MAX) throw Failure("standard input: longer than a record may be");
    std::unique_ptr<VFileNG> file;
    VFileNG::RecoverCompaction(WidePath(path).c_str());
    if (fs::exists(path)) {
        file = OpenStore(path, true);
    } else {
        file = std::make_unique<VFileNG>(WidePath(path).c_str());
        if (!file->Create(VFileNG::kReadWrite, false, VFileNGIndex::kDefaultPointerLength, false))
            throw Failure(path.string() + ": cannot be created (" + Problem(*file) + ")");
    }
    const auto* data = reinterpret_cast<const unsigned char*>(input.data());
    auto length = static_cast<int32_t>(input.size());
    bool ok = n == 0                  ? file->InsertRecord(data, length, &n)
              : file->RecordExists(n) ? file->UpdateRecord(n, data, length)
                                      : file->InsertRecordWithId(n, data, length);
    if (!ok || !file->Flush()) throw Failure(path.string() + ": " + Problem(*file));
    file->Close(false);
    std::cout << n << '\n';
}

void RunDelete(const fs::path& path, const std::vector<std::string>& arguments) {
    std::set<int32_t> numbers;
    for (const auto& argument : arguments) numbers.insert(ParseNumber(argument));
    auto file = OpenStore(path, true);
    // All checked first: a batch deletes every record named, or none.
    for (int32_t n : numbers) {
        if (file->IsRecordDeleted(n)) {
            throw Failure(path.string() + ": record " + std::to_string(n) + ": no such record");
        }
    }
    for (int32_t n : numbers) {
        if (!file->DeleteRecord(n)) {
            throw Failure(path.string() + ": record " + std::to_string(n) + ": " + Problem(*file));
        }
    }
    if (!file->Flush()) throw Failure(path.string() + ": " + Problem(*file));
    std::cout << path.string() << ": deleted "
              << Count(static_cast<int64_t>(numbers.size()), "record") << '\n';
}

void RunCompact(const fs::path& path, bool renumber) {
    auto file = OpenStore(path, true);
    int64_t before = file->GetHeader().endOfData;
    {
        Progress progress("Compacting " + path.filename().string(),
                          file->GetMaxRecordNumber(false));
        if (!file->CompactFile(renumber, [&](int32_t done, int32_t) { progress.Update(done); })) {
            throw Failure(path.string() + ": compaction failed (" + Problem(*file) +
                          "); the file is as it was");
        }
        progress.Done();
    }
    std::cout << path.string() << ": " << Count(file->GetHeader().recordCount, "record") << ", "
              << before - file->GetHeader().endOfData << " bytes freed\n";
}

void RunCheck(const fs::path& path) {
    auto file = OpenStore(path, false);
    // The list is opened apart, read-only use aside: a list that cannot be
    // opened is reported, not repaired.
    FreeList list(file->GetName(), file->GetFilePointerLength());
    bool hasList = fs::exists(Utf8(list.GetPath().GetPath().str()));
    if (hasList && FAILED(list.Open(FreeList::OpenExisting))) {
        throw Failure(path.string() + ": inconsistent: the free list cannot be read");
    }
    auto report = VFileNGCheck::Run(*file, hasList ? &list : nullptr);
    for (const auto& problem : report.problems) std::cout << problem << '\n';
    if (!report.IsConsistent()) {
        throw Failure(path.string() + ": inconsistent: " + report.problems.front());
    }
    std::cout << path.string() << ": consistent, " << Count(report.records, "record") << ", "
              << Count(report.deletedBlocks, "deleted block") << " (" << report.deletedBytes
              << " bytes), " << Count(report.freeListBlocks, "free-list block") << '\n';
}

void Install(CLI::App& app) {
    auto* group =
        app.add_subcommand("vfile", "Next-generation record files (data, index, free list)");
    group->require_subcommand(1);
    group->footer("Record numbers are the file's own, from 1.");
    auto path = std::make_shared<std::string>();
    auto addFile = [&](CLI::App* command) {
        command->add_option("FILE", *path, "The record data file")->required();
    };

    auto* info = group->add_subcommand("info", "Header, numbers, lengths and side files");
    auto json = std::make_shared<bool>(false);
    addFile(info);
    info->add_flag("--json", *json, "Print JSON");
    info->callback([path, json] { RunInfo(*path, *json); });

    auto* dump = group->add_subcommand("dump", "Each live record: number, position, length");
    auto limit = std::make_shared<int64_t>(-1);
    auto format = std::make_shared<std::string>("text");
    addFile(dump);
    AddLimitOption(*dump, *limit, "records");
    dump->add_option("--format", *format, "text (number TAB position TAB length) or jsonl");
    dump->callback([path, limit, format] { RunDump(*path, *limit, *format); });

    auto number = std::make_shared<std::string>();
    auto* get = group->add_subcommand("get", "Record N's bytes to standard output");
    addFile(get);
    get->add_option("N", *number, "Record number")->required();
    get->callback([path, number] { RunGet(*path, *number); });

    auto* put = group->add_subcommand(
        "put", "Standard input as a new record (or as record N); makes the file if needed");
    addFile(put);
    put->add_option("N", *number, "Record number to write (default: a new one)");
    put->callback([path, number] { RunPut(*path, *number); });

    auto* remove = group->add_subcommand("delete", "Delete records; all of them, or none");
    auto numbers = std::make_shared<std::vector<std::string>>();
    addFile(remove);
    remove->add_option("N", *numbers, "Record numbers")->required();
    remove->callback([path, numbers] { RunDelete(*path, *numbers); });

    auto* compact = group->add_subcommand("compact", "Rewrite without deleted space");
    auto renumber = std::make_shared<bool>(false);
    addFile(compact);
    compact->add_flag("--renumber", *renumber, "Number the records 1, 2, 3, ... afterwards");
    compact->callback([path, renumber] { RunCompact(*path, *renumber); });

    auto* check =
        group->add_subcommand("check", "Walk data, index and free list; exit 1 when they disagree");
    addFile(check);
    check->callback([path] { RunCheck(*path); });
}

// ---- probes of `quillet info` ----

int32_t Int32At(std::span<const unsigned char> head, size_t at) {
    return static_cast<int32_t>(DecodeFixed32LE(&head[at]));
}

bool ProbeData(const fs::path& path, std::span<const unsigned char> head, Json& out) {
    if (head.size() < VFileNG::kHeaderLength) return false;
    int32_t version = Int32At(head, 0);
    if (version != 1 && version != 2 && version != 3 && version != 9996) return false;
    if (GetMaxDatafileLength(Int32At(head, 12)) == 0) return false;
    out["kind"] = "next-generation record file";
    VFileNG file(WidePath(path).c_str());
    if (file.Open(VFileNG::kReadOnly, true, false)) {
        out.update(Facts(file));
        return true;
    }
    // Without a readable index only the header speaks.
    VFileNG::FileHeader h;
    h.DecodeFrom(head.data());
    out.update(Json{{"version", h.version},
                    {"records", h.recordCount},
                    {"max_record_length", h.maxRecordLength},
                    {"pointer_length", h.pointerLength},
                    {"free_bytes", h.freeBytes},
                    {"end_of_data", h.endOfData},
                    {"user_header_position", h.userHeaderPosition},
                    {"readable", false}});
    return true;
}

// The data file beside `path` whose side file `path` is, by `sideOf`.
std::string DataFileFor(const fs::path& path, const std::function<String(const String&)>& sideOf) {
    std::error_code error;
    fs::path folder = path.parent_path();
    for (const auto& entry : fs::directory_iterator(folder.empty() ? "." : folder, error)) {
        fs::path candidate = folder / entry.path().filename();
        if (candidate == path || candidate.stem() != path.stem()) continue;
        if (fs::equivalent(Utf8(sideOf(String(WidePath(candidate))).str()), path, error)) {
            return candidate.string();
        }
    }
    return {};
}

bool ProbeIndex(const fs::path& path, std::span<const unsigned char> head, Json& out) {
    if (head.size() < VFileNGIndex::kHeaderLength) return false;
    int32_t count = Int32At(head, 4);
    int32_t pointerLength = Int32At(head, 12);
    if (GetMaxDatafileLength(pointerLength) == 0 || count < 0) return false;
    int64_t blockAt = 16 + int64_t{count} * 1024 * pointerLength;
    std::ifstream in(path, std::ios::binary);
    unsigned char block[4];
    in.seekg(blockAt);
    if (!in.read(reinterpret_cast<char*>(block), 4)) return false;
    std::error_code error;
    auto size = static_cast<int64_t>(fs::file_size(path, error));
    if (error || size != blockAt + 16 + 4 * int64_t{static_cast<int32_t>(DecodeFixed32LE(block))}) {
        return false;
    }
    out["kind"] = "next-generation record index";
    out["version"] = Int32At(head, 0);
    out["chunks"] = count;
    out["max_record_number"] = Int32At(head, 8);
    out["pointer_length"] = pointerLength;
    std::string data =
        DataFileFor(path, [](const String& p) { return VFileNGIndex::IndexPath(p); });
    out["data_file"] = data.empty() ? Json(nullptr) : Json(data);
    return true;
}

bool ProbeFreeList(const fs::path& path, std::span<const unsigned char>, Json& out) {
    std::error_code error;
    auto size = static_cast<int64_t>(fs::file_size(path, error));
    if (error || path.extension() != ".freelist" ||
        size % FreeList::kPageSize != FreeList::kHeaderLength)
        return false;
    std::ifstream in(path, std::ios::binary);
    unsigned char head[8];
    in.seekg(size - FreeList::kHeaderLength);
    if (!in.read(reinterpret_cast<char*>(head), 8) || DecodeFixed32LE(head) != FreeList::kVersion) {
        return false;
    }
    out["kind"] = "free list of a next-generation record file";
    out["pages"] = size / FreeList::kPageSize;
    out["first_unused_page"] = static_cast<int32_t>(DecodeFixed32LE(head + 4));
    std::string data = DataFileFor(path, [](const String& p) {
        FileSystemPath list(p);
        list.SetExtension(L"freelist");
        return list.GetPath();
    });
    out["data_file"] = data.empty() ? Json(nullptr) : Json(data);
    return true;
}

void Register() {
    RegisterGroup("vfile", Install);
    // The side files' probes check their whole length, so they go first: an
    // index starts with what could be a data file's version and pointer length.
    RegisterInfoProbe({68, "next-generation record index", ProbeIndex});
    RegisterInfoProbe({69, "free list", ProbeFreeList});
    RegisterInfoProbe({70, "next-generation record file", ProbeData});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
