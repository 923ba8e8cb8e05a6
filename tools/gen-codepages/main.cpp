// gen-codepages LOCALE_DIR CNS_SOURCE
//
// Writes the code page table files into LOCALE_DIR (the repository's
// locale/codepage) and the CNS 11643 tables as C++ into CNS_SOURCE
// (src/codepage/Cns11643Tables.cpp). Every table comes from glibc's iconv,
// except the built-in LDID rows and the 7-bit Arabic chart, which are data of
// this program. The output depends only on glibc's tables, so running it again
// reproduces the committed files byte for byte.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Iconv.h"
#include "codepage/LdidRows.h"

namespace fs = std::filesystem;

namespace gencp {

namespace {

bool WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) std::cerr << "gen-codepages: " << path.string() << ": cannot write\n";
    return static_cast<bool>(out);
}

std::string Printf(const char* format, auto... args) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, args...);
    return buffer;
}

// --- single-byte code pages: "%d.txt", lines "0xBB 0xUUUU" for bytes 0x80-0xFF

struct SingleByteCodePage {
    int number;                      // as the tables name it (ISO parts as 8859 + part)
    std::vector<std::string> names;  // iconv's names for it, tried in order
};

std::vector<SingleByteCodePage> SingleByteCodePages() {
    std::vector<SingleByteCodePage> pages;
    for (int dos : {437, 737, 775, 850, 852, 855, 857, 860, 861, 862, 863, 864, 865, 866, 867, 869,
                    874}) {
        pages.push_back({dos, {"CP" + std::to_string(dos), "IBM" + std::to_string(dos)}});
    }
    for (int windows = 1250; windows <= 1258; ++windows) {
        pages.push_back({windows, {"CP" + std::to_string(windows)}});
    }
    for (int part = 1; part <= 16; ++part) {
        pages.push_back({std::stoi("8859" + std::to_string(part)), {"ISO-8859-" + std::to_string(part)}});
    }
    return pages;
}

bool WriteSingleByteTables(const fs::path& dir) {
    for (const auto& page : SingleByteCodePages()) {
        std::string charset = FirstKnownCharset(page.names);
        if (charset.empty()) continue;  // glibc does not know it (867, 8859-12)
        Decoder decoder(charset);
        std::string text;
        for (int byte = 0x80; byte <= 0xFF; ++byte) {
            auto unicode = decoder.DecodeOne(std::string(1, static_cast<char>(byte)));
            if (unicode && *unicode <= 0xFFFF) text += Printf("0x%02X 0x%04X\n", byte, *unicode);
        }
        if (!WriteFile(dir / (std::to_string(page.number) + ".txt"), text)) return false;
    }
    return true;
}

// --- LDID tables: "dbasecpg.txt" (LDID code page) and "cpgdbase.txt" (key LDID)

bool WriteLdidTables(const fs::path& dir) {
    std::string forward;
    for (const auto& row : quillet::kBuiltinLdidRows) {
        forward += Printf("%u %u\n", unsigned{row.ldid}, unsigned{row.codePage});
    }
    std::string reverse;
    for (const auto& row : quillet::kBuiltinLocaleKeyRows) {
        reverse += Printf("%u %u\n", unsigned{row.key}, unsigned{row.ldid});
    }
    return WriteFile(dir / quillet::kLdidFileName, forward) &&
           WriteFile(dir / quillet::kLocaleKeyFileName, reverse);
}

// --- 7-bit Arabic: 64 lines, the code page 1256 byte of each code 0x40-0x7F

// The characters of codes 0x40-0x7F of the 7-bit Arabic code of ASMO 449,
// taken from its code chart as registered in the ISO international register
// of coded character sets (registration 89, "7-bit Arabic code for information
// interchange", ASMO 449-1982). 0 marks a code the chart leaves empty.
constexpr uint32_t kAsmo449Chart[64] = {
    0x0040, 0x0621, 0x0622, 0x0623, 0x0624, 0x0625, 0x0626, 0x0627,  // 0x40-0x47
    0x0628, 0x0629, 0x062A, 0x062B, 0x062C, 0x062D, 0x062E, 0x062F,  // 0x48-0x4F
    0x0630, 0x0631, 0x0632, 0x0633, 0x0634, 0x0635, 0x0636, 0x0637,  // 0x50-0x57
    0x0638, 0x0639, 0x063A, 0x005B, 0x005C, 0x005D, 0x005E, 0x005F,  // 0x58-0x5F
    0x0640, 0x0641, 0x0642, 0x0643, 0x0644, 0x0645, 0x0646, 0x0647,  // 0x60-0x67
    0x0648, 0x0649, 0x064A, 0x064B, 0x064C, 0x064D, 0x064E, 0x064F,  // 0x68-0x6F
    0x0650, 0x0651, 0x0652, 0,      0,      0,      0,      0,       // 0x70-0x77
    0,      0,      0,      0x007B, 0x007C, 0x007D, 0x203E, 0x007F,  // 0x78-0x7F
};

bool WriteArabicIndexes(const fs::path& dir) {
    Decoder windows("CP1256");
    std::map<uint32_t, int> byteOf;
    for (int byte = 0xFF; byte >= 1; --byte) {
        if (auto unicode = windows.DecodeOne(std::string(1, static_cast<char>(byte)))) {
            byteOf[*unicode] = byte;
        }
    }
    std::string text;
    for (uint32_t unicode : kAsmo449Chart) {
        auto found = unicode ? byteOf.find(unicode) : byteOf.end();
        text += Printf("%d\n", found != byteOf.end() ? found->second : 0);
    }
    // No chart of ALARABI is published apart from ASMO 449's; both code pages
    // place the Arabic letters at the same codes.
    return WriteFile(dir / quillet::kAlarabiIndexFileName, text) &&
           WriteFile(dir / quillet::kAsmo449IndexFileName, text);
}

// --- CNS 11643 through EUC-TW, as C++ arrays

constexpr int kCellsPerRow = 94;

struct CnsTable {
    const char* name;  // of the Table object
    int planeByte;     // 0xA1 + plane - 1 in the four-byte form
    int first;         // first index
    int end;           // one past the last index; 0: up to the last character
};

// Planes 1 to 3 as far as the tables reach (plane 2 to row 0x72, plane 3 to
// row 0x62), and the extension set: glibc's plane 15, in two ranges.
constexpr CnsTable kCnsTables[] = {
    {"kPlane1", 0xA1, 0, (0x7D - 0x20) * kCellsPerRow},
    {"kPlane2", 0xA2, 0, (0x72 - 0x20) * kCellsPerRow},
    {"kPlane3", 0xA3, 0, (0x62 - 0x20) * kCellsPerRow},
    {"kExtensionLow", 0xAF, 0, (0x4A - 0x20) * kCellsPerRow},
    {"kExtensionHigh", 0xAF, 4418, 0},
};

std::vector<uint32_t> DecodeCnsRange(Decoder& decoder, const CnsTable& table) {
    std::vector<uint32_t> values;
    for (int index = table.first; index < kCellsPerRow * kCellsPerRow; ++index) {
        if (table.end && index >= table.end) break;
        std::string code = {'\x8E', static_cast<char>(table.planeByte),
                            static_cast<char>(0xA1 + index / kCellsPerRow),
                            static_cast<char>(0xA1 + index % kCellsPerRow)};
        values.push_back(decoder.DecodeOne(code).value_or(0));
    }
    if (!table.end) {
        while (!values.empty() && values.back() == 0) values.pop_back();
    }
    return values;
}

bool WriteCnsTables(const fs::path& path) {
    Decoder decoder("EUC-TW");
    if (!decoder.IsOpen()) {
        std::cerr << "gen-codepages: iconv has no EUC-TW\n";
        return false;
    }
    std::ostringstream out;
    out << "// Generated by tools/gen-codepages from glibc's EUC-TW converter; do not edit.\n"
           "// CNS 11643 planes 1 to 3 and the extension set, as Cns11643.h describes.\n\n"
           "#include \"codepage/Cns11643.h\"\n\n"
           "namespace quillet::cns11643 {\n\nnamespace {\n";
    std::string objects;
    for (const auto& table : kCnsTables) {
        auto values = DecodeCnsRange(decoder, table);
        out << "\nconst uint32_t " << table.name << "Values[] = {";
        for (size_t i = 0; i < values.size(); ++i) {
            out << (i % 10 == 0 ? "\n   " : "") << Printf(" 0x%05X,", values[i]);
        }
        out << "\n};\n";
        objects += Printf("const Table %s = {", table.name) + table.name + "Values, " +
                   std::to_string(table.first) + ", " + std::to_string(values.size()) + "};\n";
    }
    out << "\n}  // namespace\n\n" << objects << "\n}  // namespace quillet::cns11643\n";
    return WriteFile(path, out.str());
}

}  // namespace

}  // namespace gencp

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: gen-codepages LOCALE_DIR CNS_SOURCE\n";
        return 2;
    }
    fs::path dir = argv[1];
    std::error_code error;
    fs::create_directories(dir, error);
    if (error) {
        std::cerr << "gen-codepages: " << dir.string() << ": " << error.message() << "\n";
        return 1;
    }
    bool ok = gencp::WriteSingleByteTables(dir) && gencp::WriteLdidTables(dir) &&
              gencp::WriteArabicIndexes(dir) && gencp::WriteCnsTables(argv[2]);
    return ok ? 0 : 1;
}
