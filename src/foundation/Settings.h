#pragma once

// The settings store that stands in for the registry: a text file of
// `key = value` lines at $QUILLET_CONFIG, else $XDG_CONFIG_HOME/quillet/settings,
// else ~/.config/quillet/settings. Keys keep the registry's path and value name
// joined by a backslash, e.g. `SOFTWARE\QOVA\Common\CodePage\dbfDefault = UTF-8`.
// Lines starting with '#' or ';' are comments. The file is read on every Open,
// so a change takes effect for the next reader. Values are UTF-8 in the file.

#include <cstdint>
#include <map>
#include <string>

#include "foundation/Export.h"

namespace quillet {

using HKEY = uintptr_t;
inline constexpr HKEY HKEY_CURRENT_USER = 0x80000001u;
inline constexpr HKEY HKEY_LOCAL_MACHINE = 0x80000002u;
inline constexpr uint32_t KEY_READ = 0x20019u;

class QUILLET_EXPORT CRegKey {
public:
    CRegKey() = default;
    ~CRegKey() { Close(); }

    // ERROR_SUCCESS (0) when the store has any value under the key, else
    // ERROR_FILE_NOT_FOUND (2). Both roots read the same store.
    int32_t Open(HKEY root, const wchar_t* subKey, uint32_t access = KEY_READ);
    // Copies the value into `value`, `*chars` characters of room with the
    // terminator; on return *chars holds the length written with the
    // terminator. ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, or
    // ERROR_INSUFFICIENT_BUFFER (nothing written, *chars set to the need).
    int32_t QueryStringValue(const wchar_t* name, wchar_t* value, uint32_t* chars);
    // The same with the room given in bytes, as the older call took it.
    int32_t QueryValue(wchar_t* value, const wchar_t* name, uint32_t* bytes);
    int32_t Close();

    // Where the store is read from, as the rules above find it.
    static std::string StorePath();

private:
    bool open_ = false;
    std::map<std::wstring, std::wstring> values_;
};

}  // namespace quillet
