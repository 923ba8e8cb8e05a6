#include "attrindex/MultiByteText.h"

#include <cstring>
#include <vector>

#include "foundation/SystemCodePage.h"

namespace quillet {

std::string ToMultiByte(const wchar_t* text) {
    if (!text || !*text) return std::string();
    // Keys are short: one call into room on the stack converts most of them,
    // where measuring first would look the code page up twice.
    char room[1024];
    int written = WideCharToMultiByte(CP_ACP, 0, text, -1, room, sizeof room, nullptr, nullptr);
    if (written > 0) return std::string(room);
    int needed = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return std::string();
    std::vector<char> buffer(static_cast<size_t>(needed) + 1);
    written = WideCharToMultiByte(CP_ACP, 0, text, -1, buffer.data(), needed, nullptr, nullptr);
    return written > 0 ? std::string(buffer.data()) : std::string();
}

std::wstring FromMultiByte(const char* text, size_t n) {
    size_t length = strnlen(text, n);
    if (length == 0) return std::wstring();
    int size = static_cast<int>(length);
    int needed = MultiByteToWideChar(CP_ACP, 0, text, size, nullptr, 0);
    if (needed <= 0) return std::wstring();
    std::wstring result(static_cast<size_t>(needed), L'\0');
    int written = MultiByteToWideChar(CP_ACP, 0, text, size, result.data(), needed);
    result.resize(written > 0 ? static_cast<size_t>(written) : 0);
    return result;
}

}  // namespace quillet
