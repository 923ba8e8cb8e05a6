// quillet codepage list | decode CP | encode CP | info TABLE.dbf
//
// The code pages Quillet converts, conversion of stdin to and from UTF-8, and
// how the code page of a table is chosen. CP is a number or a `.cpg`-style
// name, accepted exactly as the library accepts `.cpg` texts.

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

#include "Common.h"
#include "DbfLayout.h"
#include "LocaleOption.h"
#include "SystemLocale.h"
#include "codepage/CodePage.h"

namespace quillet::tool {

namespace {

constexpr std::streamsize kMaxCpgBytes = 4096;

std::string ReadAll(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// --- list

void RunList(bool json) {
    Json out = Json::array();
    for (const auto& listed : ConvertibleCodePages()) {
        CodePage page(listed.id);
        Json row = CodePageJson(page);
        row["source"] = listed.source;
        out.push_back(row);
    }
    if (json) return PrintJson(out);
    std::cout << std::left << std::setw(10) << "code page" << std::setw(9) << "kind" << std::setw(14)
              << "name" << "source\n";
    for (const auto& row : out) {
        std::cout << std::setw(10) << row["code_page"].get<uint32_t>() << std::setw(9)
                  << row["code_page_kind"].get<std::string>() << std::setw(14)
                  << row["code_page_name"].get<std::string>() << row["source"].get<std::string>()
                  << "\n";
    }
}

// --- decode and encode

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
    ConvertStdin([&](const std::string& line) { return Utf8(DecodeText(page, line)); });
}

void RunEncode(const std::string& cp) {
    CodePage page(ParseCodePage(cp));
    ConvertStdin(
        [&](const std::string& line) { return EncodeText(page, String::FromUtf8(line).str()); });
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

}  // namespace

std::string ChooseTableCodePage(const std::filesystem::path& path, CodePage& page) {
    unsigned char ldid = ReadDbfLayout(path).ldid;
    auto cpg = ReadCpg(path);
    if (ldid != 0 && page.SetCodePage(ldid)) return "language driver byte";
    if (ldid != 0) return "language driver byte unknown: system default";
    if (cpg && page.SetCodePage(String::FromUtf8(*cpg))) return ".cpg file";
    if (cpg) return ".cpg text not recognised: system default";
    return "no language driver byte and no .cpg file: system default";
}

namespace {

void RunInfo(const std::string& file, bool json) {
    std::filesystem::path path(file);
    CodePage page;
    std::string reason = ChooseTableCodePage(path, page);
    auto cpg = ReadCpg(path);
    Json out = {{"file", file},
                {"ldid", ReadDbfLayout(path).ldid},
                {"cpg", cpg ? Json(*cpg) : Json(nullptr)}};
    out.update(CodePageJson(page));
    out["reason"] = reason;
    out.update(TextReadingJson(page));
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

// Shift-JIS text as the library reads it on the current locale, and under
// the locale that --locale auto gives it. A code page reads its locale when
// it is made, so each reading makes its own.
void ShowDoubleByteFix() {
    SystemLocale current = CurrentLocale();
    auto under = [&current](const SystemLocale& locale, const auto& convert) {
        ApplyLocale(locale);
        CodePage page(932u);
        auto result = convert(page);
        ApplyLocale(current);
        return result;
    };
    std::string bytes = under(*FindLocale("ja_JP"), [](CodePage& page) {
        return EncodeText(page, L"\u6771\u4EAC\u90FD");
    });
    auto decode = [&bytes](CodePage& page) { return Utf8(DecodeText(page, bytes)); };
    Json reading = under(current, [](CodePage& page) { return TextReadingJson(page); });
    std::cout << "A table whose .cpg says 932 (Shift-JIS) holds " << Hex(bytes) << ". On "
              << current.name << " it is read through "
              << reading["read_through"].get<std::string>() << ": \"" << under(current, decode)
              << "\"\n";
    if (reading["reads_right"].get<bool>()) return;
    auto fix = LocaleReading(932, CodePage::FindCodePageType(932));
    std::cout << "  quillet codepage info names the fix, "
              << reading["locale_fix"].get<std::string>() << " (--locale auto finds it too): \""
              << under(*fix, decode) << "\"\n";
}

void RunDemo(const std::filesystem::path&) {
    ShowDoubleByteFix();
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
        std::string bytes = EncodeText(page, text);
        std::cout << "  " << std::left << std::setw(12) << Utf8(page.GetCodePageName().str())
                  << Hex(bytes) << "  -> back: " << Utf8(DecodeText(page, bytes)) << "\n";
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
    AddLocaleOption(*decode, NamedCodePageOf(*decodeCp));
    decode->callback([decodeCp] { RunDecode(*decodeCp); });

    auto* encode = group->add_subcommand("encode", "UTF-8 on stdin to bytes in code page CP on stdout");
    auto encodeCp = std::make_shared<std::string>();
    encode->add_option("CP", *encodeCp, "Code page number or .cpg-style name")->required();
    AddLocaleOption(*encode, NamedCodePageOf(*encodeCp));
    encode->callback([encodeCp] { RunEncode(*encodeCp); });

    auto* info = group->add_subcommand("info", "A table's language driver byte, .cpg text and code page");
    auto file = std::make_shared<std::string>();
    auto infoJson = std::make_shared<bool>(false);
    info->add_option("TABLE", *file, "The .dbf table")->required();
    info->add_flag("--json", *infoJson, "Print JSON");
    AddLocaleOption(*info, TableCodePageOf(*file));
    info->callback([file, infoJson] { RunInfo(*file, *infoJson); });
}

void Register() {
    RegisterGroup("codepage", Install);
    RegisterDemoStep({550, "Code pages", RunDemo});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
