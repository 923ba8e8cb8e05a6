#include "foundation/InstallDir.h"

#include <dlfcn.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "foundation/Utf8.h"
#include "foundation/Win32Error.h"

namespace quillet {

namespace {

bool HoldsCodePageTables(const std::string& folder) {
    struct stat st{};
    std::string tables = folder + "/locale/codepage";
    return ::stat(tables.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Any address inside the library identifies it to dladdr.
const char kLibraryAnchor = 0;

std::string ModulePath(HMODULE module) {
    char path[PATH_MAX];
    if (module) {
        Dl_info info{};
        if (dladdr(module, &info) && info.dli_fname && info.dli_fname[0] == '/') {
            return realpath(info.dli_fname, path) ? path : info.dli_fname;
        }
        // Linked into the program itself: dladdr names it as it was started.
    }
    ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (length <= 0) return {};
    return std::string(path, static_cast<size_t>(length));
}

}  // namespace

std::wstring QovaSxS::GetCurrentInstallDir() {
    if (const char* home = std::getenv("QUILLET_HOME"); home && *home) return utf8::Decode(home);
    if (HoldsCodePageTables(QUILLET_INSTALL_DATADIR)) return utf8::Decode(QUILLET_INSTALL_DATADIR);
    if (HoldsCodePageTables(QUILLET_SOURCE_DIR)) return utf8::Decode(QUILLET_SOURCE_DIR);
    return {};
}

HMODULE GetModuleHandleW(const wchar_t* name) {
    if (!name) return nullptr;
    return const_cast<char*>(&kLibraryAnchor);
}

uint32_t GetModuleFileNameW(HMODULE module, wchar_t* buffer, uint32_t size) {
    std::wstring path = utf8::Decode(ModulePath(module));
    if (path.empty()) {
        SetLastError(ERROR_GEN_FAILURE);
        return 0;
    }
    if (!buffer || size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    // As the Win32 call: a path that does not fit is cut, terminated, and the
    // result is the room given.
    if (path.size() >= size) {
        path.copy(buffer, size - 1);
        buffer[size - 1] = L'\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    path.copy(buffer, path.size());
    buffer[path.size()] = L'\0';
    return static_cast<uint32_t>(path.size());
}

}  // namespace quillet
