#include "codepage/TableFile.h"

#include "codepage/CodePage.h"

namespace quillet {

namespace {
constexpr uint32_t kPathRoom = 4096;
}

std::wstring TableFilePath(const std::wstring& name) {
    wchar_t dir[kPathRoom];
    CodePage::GetDefaultPath(dir, kPathRoom);
    return std::wstring(dir) + L"/" + name;
}

TableFileHandle OpenTableFile(const std::wstring& path) {
    return TableFileHandle(std::fopen(String(path).ToUtf8().c_str(), "r"));
}

}  // namespace quillet
