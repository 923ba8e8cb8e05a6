// The foundation's step of `quillet demo`: a file of fixed-size records written
// and read back through File, its memory mapping, a sharing conflict between
// two opens, and the platform's temporary files and locale settings.

#include <iostream>
#include <string>

#include "Common.h"
#include "foundation/File.h"
#include "foundation/Locale.h"
#include "foundation/Settings.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"

namespace quillet::tool {

namespace {

constexpr int kRecordLength = 64;
constexpr int kRecords = 1000;

std::string RecordText(int n) {
    std::string text = "record " + std::to_string(n);
    text.resize(kRecordLength, ' ');
    return text;
}

void WriteRecords(const std::wstring& path) {
    File file(path.c_str());
    if (!file.Create(1, 0)) throw Failure(Utf8(path) + ": cannot create");
    for (int n = 0; n < kRecords; ++n) {
        if (file.Write(RecordText(n).data(), kRecordLength) != kRecordLength) {
            throw Failure(Utf8(path) + ": write failed, error " + std::to_string(file.GetLastError()));
        }
    }
    std::cout << "Wrote " << kRecords << " records of " << kRecordLength << " bytes through File: "
              << file.GetLengthEx() << " bytes\n";
    if (!file.Close()) throw Failure(Utf8(path) + ": close failed");
}

void ReadOneRecord(const std::wstring& path) {
    File file(path.c_str());
    if (!file.Open(1, 1, 1, 0, 0)) throw Failure(Utf8(path) + ": cannot open");
    void* memory = nullptr;
    if (!file.IsMapped() || !file.Seek(500 * kRecordLength, File::kBegin) ||
        file.GetMemory(&memory, kRecordLength) != kRecordLength) {
        throw Failure(Utf8(path) + ": not mapped");
    }
    std::string record(static_cast<const char*>(memory), kRecordLength);
    std::cout << "Read-only open is memory-mapped; record 500 reads \""
              << record.substr(0, record.find_last_not_of(' ') + 1) << "\"\n";
}

void ShowSharingConflict(const std::wstring& path) {
    File writer(path.c_str()), reader(path.c_str());
    if (!writer.Open(0, 1, 0, 0, 0)) throw Failure(Utf8(path) + ": cannot open for writing");
    bool opened = reader.Open(1, 1, 1, 0, 0);
    std::cout << "While a writer holds it without sharing, a reader "
              << (opened ? "opened it (no lock support here)"
                         : "fails: file error " + std::to_string(reader.GetLastError()) +
                               ", Win32 error " + std::to_string(GetLastError()))
              << "\n";
    writer.Close();
    std::cout << "After the writer closes, the reader " << (reader.Open(1, 1, 1, 0, 0) ? "opens" : "fails")
              << "\n";
}

void RunDemo(const std::filesystem::path& folder) {
    std::wstring path = WidePath(folder / "records.bin");
    WriteRecords(path);
    ReadOneRecord(path);
    ShowSharingConflict(path);

    wchar_t temp[4096];
    if (GetTempFileNameW(WidePath(folder).c_str(), L"qdemo", 0, temp)) {
        std::cout << "A temporary file: " << Utf8(temp) << "\n";
        DeleteFileW(temp);
    }
    std::cout << "Settings are read from " << CRegKey::StorePath() << "; ANSI code page " << GetACP()
              << ", OEM code page " << GetOEMCP() << ", language " << QovaLocale::GetLangID() << "\n";
}

}  // namespace

QUILLET_TOOL_REGISTER([] {
    RegisterDemoStep({900, "File access and the platform layer", RunDemo});
});

}  // namespace quillet::tool
