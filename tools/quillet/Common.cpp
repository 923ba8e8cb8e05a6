#include "Common.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iostream>
#include <system_error>

#include "foundation/RewriteRecovery.h"
#include "foundation/String.h"

namespace quillet::tool {

std::wstring WidePath(const std::filesystem::path& path) {
    return quillet::String::FromUtf8(path.string()).str();
}

std::string Utf8(const std::wstring& text) { return quillet::String(text).ToUtf8(); }

const char* CodePageKindName(int kind) {
    switch (kind) {
        case 1: return "OEM";
        case 2: return "ANSI";
        case 3: return "ISO";
        case 4: return "UTF-8";
        default: return "default";
    }
}

Json CodePageJson(const CodePage& page) {
    return {{"code_page", page.GetCodePageId()},
            {"code_page_kind", CodePageKindName(page.GetCodePageType())},
            {"code_page_name", Utf8(page.GetCodePageName().str())}};
}

std::string Count(int64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void RequireRegularFile(const std::filesystem::path& path) {
    std::error_code ec;
    auto status = std::filesystem::status(path, ec);
    if (ec || !std::filesystem::exists(status)) {
        throw Failure(path.string() + ": no such file");
    }
    if (std::filesystem::is_directory(status)) {
        throw Failure(path.string() + ": is a directory");
    }
    if (!std::filesystem::is_regular_file(status)) {
        throw Failure(path.string() + ": not a regular file");
    }
}

std::string RecoveryProblem(const std::filesystem::path& path, int outcome,
                            const std::string& journals) {
    switch (static_cast<RecoveryOutcome>(outcome)) {
        case RecoveryOutcome::kInUse:
            return path.string() + ": in use by another program (a rewrite may be running)";
        case RecoveryOutcome::kCannotWrite:
            return path.string() + ": " + journals + " holds the old bytes of an interrupted " +
                   "rewrite, but the files cannot be written to put them back (access denied)";
        case RecoveryOutcome::kFailed:
            return path.string() + ": putting back the old bytes from " + journals +
                   " failed (is the disk full?); the journal stays for `quillet recover`";
        default: return "";
    }
}

void RecoverBeforeReading(const std::filesystem::path& path) {
    // A journal is shown as it stands, never followed.
    if (path.filename().string().ends_with("-journal")) return;
    RecoveryReport report = RecoverInterruptedRewrite(WidePath(path));
    std::string journals;
    for (const auto& journal : report.journals)
        journals += (journals.empty() ? "" : ", ") + Utf8(journal);
    std::string problem = RecoveryProblem(path, static_cast<int>(report.outcome), journals);
    if (!problem.empty()) throw Failure(problem);
    if (report.outcome == RecoveryOutcome::kRolledBack)
        std::cerr << "quillet: note: " << path.string()
                  << ": rolled back an interrupted rewrite from " << journals << "\n";
}

std::vector<unsigned char> ReadHead(const std::filesystem::path& path, size_t n) {
    RequireRegularFile(path);
    RecoverBeforeReading(path);
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure(path.string() + ": cannot be opened for reading");
    std::vector<unsigned char> head(n);
    in.read(reinterpret_cast<char*>(head.data()), static_cast<std::streamsize>(n));
    head.resize(static_cast<size_t>(in.gcount()));
    return head;
}

std::vector<ConvertibleCodePage> ConvertibleCodePages() {
    std::vector<ConvertibleCodePage> pages = {{65001, "built in"},
                                              {448, "index file"},
                                              {449, "index file"},
                                              {88591, "system"},
                                              {932, "system"},
                                              {936, "system"},
                                              {949, "system"},
                                              {950, "system"},
                                              {885932, "built in (EUC-JP)"},
                                              {885950, "built in (EUC-TW)"}};
    wchar_t folder[4096];
    CodePage::GetDefaultPath(folder, 4096);
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(Utf8(folder), error)) {
        std::string stem = entry.path().stem().string();
        if (entry.path().extension() != ".txt" || stem.empty() ||
            stem.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        pages.push_back({static_cast<uint32_t>(std::stoul(stem)), "table file"});
    }
    auto byId = [](const ConvertibleCodePage& a, const ConvertibleCodePage& b) {
        return a.id < b.id;
    };
    std::stable_sort(pages.begin(), pages.end(), byId);
    // 88591 has a table file, but the system serves it.
    auto sameId = [](const ConvertibleCodePage& a, const ConvertibleCodePage& b) {
        return a.id == b.id;
    };
    pages.erase(std::unique(pages.begin(), pages.end(), sameId), pages.end());
    return pages;
}

uint32_t ParseCodePage(const std::string& text) {
    uint32_t id = CodePage::FindCodePageId(String::FromUtf8(text));
    auto pages = ConvertibleCodePages();
    bool known =
        std::any_of(pages.begin(), pages.end(), [id](const auto& page) { return page.id == id; });
    if (!known) throw UsageError("unknown code page: " + text);
    return id;
}

std::string EncodeText(CodePage& page, const std::wstring& text) {
    // 6 bytes a character covers every code page, braces of 7-bit Arabic included.
    std::string bytes(6 * text.size() + 2, '\0');
    page.Native2Source(text.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size()));
    bytes.resize(std::strlen(bytes.c_str()));
    return bytes;
}

std::wstring DecodeText(CodePage& page, const std::string& bytes) {
    // Rejected bytes leave their output position as it was.
    std::wstring text(bytes.size() + 1, L'\xFFFD');
    page.Source2Native(bytes.c_str(), text.data(), static_cast<uint32_t>(text.size()));
    text.resize(std::wcslen(text.c_str()));
    return text;
}

void AddLimitOption(CLI::App& command, int64_t& limit, const std::string& what) {
    command.add_option("--limit", limit, "At most N " + what)
        ->type_name("N")
        ->check(CLI::Validator(
            [](std::string& text) {
                return text.find_first_not_of("0123456789") == std::string::npos && !text.empty()
                           ? std::string()
                           : "must be a whole number of 0 or more, not " + text;
            },
            "N >= 0"));
}

void PrintJson(const Json& value) { std::cout << value.dump(2) << '\n'; }

void PrintFields(const Json& object, std::ostream& out) {
    for (auto& [key, value] : object.items()) {
        if (value.is_string()) {
            out << key << ": " << value.get<std::string>() << '\n';
        } else if (value.is_null()) {
            out << key << ": -\n";
        } else {
            out << key << ": " << value.dump() << '\n';
        }
    }
}

Progress::Progress(std::string label, int64_t total)
    : label_(std::move(label)), total_(total), enabled_(isatty(STDERR_FILENO) && total > 0) {}

Progress::~Progress() {
    if (enabled_ && lastPercent_ >= 0) std::fprintf(stderr, "\r\033[K");
}

void Progress::Clear() {
    if (enabled_ && lastPercent_ >= 0) std::fprintf(stderr, "\r\033[K");
    lastPercent_ = -1;
}

void Progress::Update(int64_t done) {
    if (!enabled_) return;
    int percent = static_cast<int>(done * 100 / total_);
    if (percent == lastPercent_) return;
    lastPercent_ = percent;
    constexpr int kWidth = 40;
    int filled = percent * kWidth / 100;
    std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", label_.c_str(), filled,
                 "========================================", kWidth - filled, "", percent);
    std::fflush(stderr);
}

}  // namespace quillet::tool
