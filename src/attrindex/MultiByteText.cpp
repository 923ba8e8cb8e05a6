#include "attrindex/MultiByteText.h"

#include <cstring>
#include <cwchar>
#include <vector>

#include "foundation/SystemCodePage.h"

namespace quillet {

namespace {

// Converted text ends at a zero byte, as the C string the key is cut from.
std::string UpToZero(const char* bytes, int n) {
    return std::string(bytes, strnlen(bytes, static_cast<size_t>(n)));
}

}  // namespace

std::string ToMultiByte(const wchar_t* text, uint32_t codePage) {
    if (!text || !*text) return std::string();
    // The terminator stays out: not every code page writes it as one zero
    // byte (UTF-7 spells it out), so that it could not mark the end.
    int length = static_cast<int>(std::wcslen(text));
    // Keys are short: one call into room on the stack converts most of them,
    // where measuring first would look the code page up twice.
    char room[1024];
    int written = WideCharToMultiByte(codePage, 0, text, length, room, sizeof room, nullptr, nullptr);
    if (written > 0) return UpToZero(room, written);
    int needed = WideCharToMultiByte(codePage, 0, text, length, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return std::string();
    std::vector<char> buffer(static_cast<size_t>(needed));
    written = WideCharToMultiByte(codePage, 0, text, length, buffer.data(), needed, nullptr, nullptr);
    return written > 0 ? UpToZero(buffer.data(), written) : std::string();
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

bool WritesAsciiAsIs(uint32_t codePage) {
    constexpr int kFirst = 1;
    constexpr int kCount = 0x80 - kFirst;
    wchar_t wide[kCount];
    char narrow[kCount];
    for (int i = 0; i < kCount; ++i) {
        wide[i] = static_cast<wchar_t>(kFirst + i);
        narrow[i] = static_cast<char>(kFirst + i);
        char byte = 0;
        wchar_t back = 0;
        if (WideCharToMultiByte(codePage, 0, &wide[i], 1, &byte, 1, nullptr, nullptr) != 1 ||
            byte != narrow[i] || MultiByteToWideChar(codePage, 0, &narrow[i], 1, &back, 1) != 1 ||
            back != wide[i]) {
            return false;
        }
    }
    // Code pages with shift states could still write a run otherwise.
    char run[kCount + 16];
    int n = WideCharToMultiByte(codePage, 0, wide, kCount, run, sizeof run, nullptr, nullptr);
    return n == kCount && std::memcmp(run, narrow, kCount) == 0;
}

}  // namespace quillet
