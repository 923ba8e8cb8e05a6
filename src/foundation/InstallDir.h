#pragma once

// Where the library's data files lie, and the module queries used to find them.

#include <cstdint>
#include <string>

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT QovaSxS {
public:
    // $QUILLET_HOME when set; else the first folder holding locale/codepage
    // of: the configured install prefix's share/quillet, the same folder
    // found relative to the library's own location (an install moved or made
    // under another prefix), and, for a library that runs from its build
    // tree, the source tree. Else empty, which the debug output reports once
    // (callers then derive the folder from the module's own location).
    static std::wstring GetCurrentInstallDir();
};

using HMODULE = void*;
// A handle of the loaded module (the library itself when the name is that of
// the library, or null for the main program). Never fails: unknown names give
// the library's own handle.
QUILLET_EXPORT HMODULE GetModuleHandleW(const wchar_t* name);
// The full path of the module's file; returns its length, 0 on failure.
QUILLET_EXPORT uint32_t GetModuleFileNameW(HMODULE module, wchar_t* buffer, uint32_t size);

}  // namespace quillet
