// quillet codepage list | decode CP | encode CP | info TABLE.dbf
//
// The code pages Quillet converts, conversion of stdin to and from UTF-8, and
// how the code page of a table is chosen. CP is a number or a `.cpg`-style
// name, accepted exactly as the library accepts `.cpg` texts.

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

#include "Common.h"
#include "codepage/CodePage.h"

namespace quillet::tool {

namespace {

constexpr size_t kDbfHeaderBytes = 32;
constexpr size_t kLdidOffset = 29;
constexpr std::streamsize kMaxCpgBytes = 4096;

uint32_t ParseCodePage(const std::string& text) {
    uint32_t id = CodePage::FindCodePageId(String::FromUtf8(text));
    if (id == 0) throw UsageError("unknown code page: " + text);
    return id;
}

std::string ReadAll(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// --- list

struct Listed {
    uint32_t id;
    const char* source;
};

std::vector<Listed> ConvertibleCodePages() {
    std::vector<Listed> pages = {{65001, "built in"}, {448, "index file"}, {449, "index file"},
                                 {88591, "system"},   {932, "system"},     {936, "system"},
                                 {949, "system"},     {950, "system"},     {885932, "built in (EUC-JP)"},
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
    std::sort(pages.begin(), pages.end(), [](const Listed& a, const Listed& b) { return a.id < b.id; });
    return pages;
}

void RunList(bool json) {
    Json out = Json::array();
    for (const auto& listed : ConvertibleCodePages()) {
        CodePage page(listed.id);
        out.push_back({{"code_page", listed.id},
                       {"kind", CodePageKindName(page.GetCodePageType())},
                       {"name", Utf8(page.GetCodePageName().str())},
                       {"source", listed.source}});
    }
    if (json) return PrintJson(out);
    std::cout << std::left << std::setw(10) << "code page" << std::setw(9) << "kind" << std::setw(14)
              << "name" << "source\n";
    for (const auto& row : out) {
        std::cout << std::setw(10) << row["code_page"].get<uint32_t>() << std::setw(9)
                  << row["kind"].get<std::string>() << std::setw(14) << row["name"].get<std::string>()
                  << row["source"].get<std::string>() << "\n";
    }
}

// --- decode and encode, one zero-free run of bytes at a time

std::wstring DecodeRun(CodePage& page, const std::string& bytes) {
    // Rejected bytes leave their output position as it was: show them as U+FFFD.
    std::wstring text(bytes.size() + 1, L'\xFFFD');
    page.Source2Native(bytes.c_str(), text.data(), static_cast<uint32_t>(text.size()));
    text.resize(std::wcslen(text.c_str()));
    return text;
}

std::string EncodeRun(CodePage& page, const std::wstring& text) {
    // 6 bytes a character covers every code page, braces of 7-bit Arabic included.
    std::string bytes(6 * text.size() + 2, '\0');
    page.Native2Source(text.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size()));
    bytes.resize(std::strlen(bytes.c_str()));
    return bytes;
}

// Converts the lines of stdin one by one; zero bytes pass through unchanged.
template <class Convert>
void ConvertStdin(Convert convert) {
    std::string input = ReadAll(std::cin);
    size_t start = 0;
    while (start < input.size()) {
        size_t end = input.find_first_of(std::string("\n\0", 2), start);
        if (end == std::string::npos) end = input.size();
        std::cout << convert(input.substr(start, end - start));
        if (end < input.size()) std::cout << input[end];
        start = end + 1;
    }
    std::cout.flush();
    if (!std::cout) throw Failure("stdout: write failed");
}

void RunDecode(const std::string& cp) {
    CodePage page(ParseCodePage(cp));
    ConvertStdin([&](const std::string& line) { return Utf8(DecodeRun(page, line)); });
}

void RunEncode(const std::string& cp) {
    CodePage page(ParseCodePage(cp));
    ConvertStdin([&](const std::string& line) { return EncodeRun(page, String::FromUtf8(line).str()); });
}

// --- info: the choice a table's reader makes, from the header and the .cpg

std::optional<std::string> ReadCpg(const std::filesystem::path& table) {
    for (const char* extension : {".cpg", ".CPG"}) {
        auto path = std::filesystem::path(table).replace_extension(extension);
        std::ifstream in(path, std::ios::binary);
        if (!in) continue;
        std::string text(kMaxCpgBytes, '\0');
        in.read(text.data(), kMaxCpgBytes);
        text.resize(static_cast<size_t>(in.gcount()));
        return text;
    }
    return std::nullopt;
}

void RunInfo(const std::string& file, bool json) {
    std::filesystem::path path(file);
    auto head = ReadHead(path, kDbfHeaderBytes);
    if (head.size() < kDbfHeaderBytes) throw Failure(file + ": too short for a dBASE header");
    unsigned char ldid = head[kLdidOffset];
    auto cpg = ReadCpg(path);

    CodePage page;
    std::string reason;
    if (ldid != 0 && page.SetCodePage(ldid)) {
        reason = "language driver byte";
    } else if (ldid != 0) {
        reason = "language driver byte unknown: system default";
    } else if (cpg && page.SetCodePage(String::FromUtf8(*cpg))) {
        reason = ".cpg file";
    } else if (cpg) {
        reason = ".cpg text not recognised: system default";
    } else {
        reason = "no language driver byte and no .cpg file: system default";
    }

    char ldidText[8];
    std::snprintf(ldidText, sizeof ldidText, "0x%02X", ldid);
    Json out = {{"file", file},
                {"ldid", ldidText},
                {"cpg", cpg ? Json(*cpg) : Json(nullptr)},
                {"code_page", page.GetCodePageId()},
                {"kind", CodePageKindName(page.GetCodePageType())},
                {"name", Utf8(page.GetCodePageName().str())},
                {"reason", reason}};
    json ? PrintJson(out) : PrintFields(out);
}

// --- demo

std::string Hex(const std::string& bytes) {
    std::ostringstream out;
    for (unsigned char byte : bytes) out << std::hex << std::setw(2) << std::setfill('0') << int{byte} << ' ';
    std::string text = out.str();
    if (!text.empty()) text.pop_back();
    return text;
}

void RunDemo(const std::filesystem::path&) {
    std::cout << "A table names its code page with a header byte or a .cpg text:\n";
    for (const char* text : {"ANSI 1252", "OEM 850", "ISO 8859-15", "UTF-8", "ASMO 449"}) {
        CodePage page{String(text)};
        std::cout << "  \"" << text << "\" -> " << page.GetCodePageId() << " ("
                  << CodePageKindName(page.GetCodePageType()) << "), LDID " << int{page.GetDBaseLDId()}
                  << ", written back as \"" << Utf8(page.GetCodePageName().str()) << "\"\n";
    }
    const std::wstring text = L"Cr\u00E8me br\u00FBl\u00E9e \u20AC5";
    std::cout << "The text \"" << Utf8(text) << "\" as each stores it:\n";
    for (uint32_t id : {1252u, 850u, 885915u, 65001u}) {
        CodePage page(id);
        std::string bytes = EncodeRun(page, text);
        std::cout << "  " << std::left << std::setw(12) << Utf8(page.GetCodePageName().str()) << Hex(bytes)
                  << "  -> back: " << Utf8(DecodeRun(page, bytes)) << "\n";
    }
}

void Install(CLI::App& app) {
    auto* group = app.add_subcommand("codepage", "Code pages: list, convert, and see a table's choice");
    group->require_subcommand(1);

    auto* list = group->add_subcommand("list", "Every code page Quillet can convert, with kind and name");
    auto listJson = std::make_shared<bool>(false);
    list->add_flag("--json", *listJson, "Print JSON");
    list->callback([listJson] { RunList(*listJson); });

    auto* decode = group->add_subcommand("decode", "Bytes on stdin in code page CP to UTF-8 on stdout");
    auto decodeCp = std::make_shared<std::string>();
    decode->add_option("CP", *decodeCp, "Code page number or .cpg-style name")->required();
    decode->callback([decodeCp] { RunDecode(*decodeCp); });

    auto* encode = group->add_subcommand("encode", "UTF-8 on stdin to bytes in code page CP on stdout");
    auto encodeCp = std::make_shared<std::string>();
    encode->add_option("CP", *encodeCp, "Code page number or .cpg-style name")->required();
    encode->callback([encodeCp] { RunEncode(*encodeCp); });

    auto* info = group->add_subcommand("info", "A table's language driver byte, .cpg text and code page");
    auto file = std::make_shared<std::string>();
    auto infoJson = std::make_shared<bool>(false);
    info->add_option("TABLE", *file, "The .dbf table")->required();
    info->add_flag("--json", *infoJson, "Print JSON");
    info->callback([file, infoJson] { RunInfo(*file, *infoJson); });
}

void Register() {
    RegisterGroup("codepage", Install);
    RegisterDemoStep({200, "Code pages", RunDemo});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
