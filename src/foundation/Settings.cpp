#include "foundation/Settings.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "foundation/Utf8.h"
#include "foundation/Win32Error.h"

namespace quillet {

namespace {

// Registry names compare without regard to case.
std::wstring Folded(std::wstring_view name) {
    std::wstring out(name);
    for (wchar_t& c : out) {
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c + (L'a' - L'A'));
    }
    return out;
}

std::string_view Trimmed(std::string_view text) {
    const char* blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

// A key path without leading or trailing backslashes, folded.
std::wstring KeyPath(std::wstring_view path) {
    size_t first = path.find_first_not_of(L'\\');
    if (first == std::wstring_view::npos) return {};
    size_t last = path.find_last_not_of(L'\\');
    return Folded(path.substr(first, last - first + 1));
}

const char* NonEmptyEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? value : nullptr;
}

std::string HomeDirectory() {
    if (const char* home = NonEmptyEnvironment("HOME")) return home;
    const passwd* entry = getpwuid(getuid());
    return entry && entry->pw_dir ? entry->pw_dir : "";
}

}  // namespace

std::string CRegKey::StorePath() {
    if (const char* config = NonEmptyEnvironment("QUILLET_CONFIG")) return config;
    if (const char* xdg = NonEmptyEnvironment("XDG_CONFIG_HOME")) {
        return std::string(xdg) + "/quillet/settings";
    }
    std::string home = HomeDirectory();
    return home.empty() ? std::string() : home + "/.config/quillet/settings";
}

int32_t CRegKey::Open(HKEY, const wchar_t* subKey, uint32_t) {
    Close();
    std::wstring wanted = KeyPath(subKey ? subKey : L"");
    std::string storePath = StorePath();
    std::ifstream store(storePath);
    bool found = false;
    std::string line;
    bool firstLine = true;
    while (store && std::getline(store, line)) {
        std::string_view text = Trimmed(line);
        // Editors on other systems may start the file with a byte order mark.
        if (firstLine && text.substr(0, 3) == "\xEF\xBB\xBF") text = Trimmed(text.substr(3));
        firstLine = false;
        if (text.empty() || text[0] == '#' || text[0] == ';') continue;
        size_t equals = text.find('=');
        if (equals == std::string_view::npos) continue;
        std::wstring key = utf8::Decode(Trimmed(text.substr(0, equals)));
        size_t split = key.find_last_of(L'\\');
        std::wstring path = KeyPath(split == std::wstring::npos ? L"" : key.substr(0, split));
        std::wstring name = Folded(split == std::wstring::npos ? key : key.substr(split + 1));
        if (path == wanted) {
            values_[name] = utf8::Decode(Trimmed(text.substr(equals + 1)));
            found = true;
        } else if (wanted.empty() || path.compare(0, wanted.size() + 1, wanted + L'\\') == 0) {
            found = true;  // a value of a subkey: the key exists
        }
    }
    if (!found) {
        values_.clear();
        return ERROR_FILE_NOT_FOUND;
    }
    open_ = true;
    return ERROR_SUCCESS;
}

int32_t CRegKey::QueryStringValue(const wchar_t* name, wchar_t* value, uint32_t* chars) {
    if (!open_) return ERROR_INVALID_HANDLE;
    if (!chars) return ERROR_INVALID_PARAMETER;
    auto found = values_.find(Folded(name ? name : L""));
    if (found == values_.end()) return ERROR_FILE_NOT_FOUND;
    const std::wstring& text = found->second;
    auto needed = static_cast<uint32_t>(text.size() + 1);
    if (!value || *chars < needed) {
        *chars = needed;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    text.copy(value, text.size());
    value[text.size()] = L'\0';
    *chars = needed;
    return ERROR_SUCCESS;
}

int32_t CRegKey::QueryValue(wchar_t* value, const wchar_t* name, uint32_t* bytes) {
    if (!bytes) return ERROR_INVALID_PARAMETER;
    uint32_t chars = *bytes / sizeof(wchar_t);
    int32_t result = QueryStringValue(name, value, &chars);
    if (result == ERROR_SUCCESS || result == ERROR_INSUFFICIENT_BUFFER) {
        *bytes = chars * static_cast<uint32_t>(sizeof(wchar_t));
    }
    return result;
}

int32_t CRegKey::Close() {
    open_ = false;
    values_.clear();
    return ERROR_SUCCESS;
}

}  // namespace quillet
