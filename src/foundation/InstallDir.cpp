#include "foundation/InstallDir.h"

#include <dlfcn.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/DebugOutput.h"
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

std::string Parent(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool IsInside(const std::string& path, const std::string& folder) {
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           path[folder.size()] == '/';
}

// The folders that may hold locale/codepage, most specific first. An
// installed copy may have been moved or installed under another prefix than
// the one it was configured for, so the data folder is also sought where it
// lies relative to the library's (or, linked statically, the program's) own
// folder. The source tree is consulted only by a build that runs from its
// build tree: an installed copy must never depend on it.
std::vector<std::string> CandidateFolders() {
    std::string module = ModulePath(GetModuleHandleW(L"Quillet.dll"));
    std::string moduleDir = Parent(module);
    std::vector<std::string> folders{QUILLET_INSTALL_DATADIR};
    if (!moduleDir.empty()) {
        folders.push_back(moduleDir + "/" QUILLET_DATADIR_FROM_LIBDIR);
        folders.push_back(moduleDir + "/" QUILLET_DATADIR_FROM_BINDIR);
    }
    if (IsInside(module, QUILLET_BINARY_DIR)) folders.push_back(QUILLET_SOURCE_DIR);
    // A library folder and a program folder side by side lead to the same place.
    std::sort(folders.begin() + 1, folders.end());
    folders.erase(std::unique(folders.begin() + 1, folders.end()), folders.end());
    return folders;
}

void ReportNoTables(const std::vector<std::string>& folders) {
    static std::atomic<bool> reported{false};
    if (reported.exchange(true)) return;
    std::string message =
        "quillet: no code page table folder (locale/codepage) found; looked in $QUILLET_HOME";
    for (const std::string& folder : folders) message += ", " + folder;
    message += "\n";
    OutputDebugStringW(utf8::Decode(message).c_str());
}

}  // namespace

std::wstring QovaSxS::GetCurrentInstallDir() {
    if (const char* home = std::getenv("QUILLET_HOME"); home && *home) return utf8::Decode(home);
    std::vector<std::string> folders = CandidateFolders();
    for (const std::string& folder : folders) {
        if (HoldsCodePageTables(folder)) return utf8::Decode(folder);
    }
    ReportNoTables(folders);
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
