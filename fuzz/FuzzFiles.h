#pragma once

// The fuzz targets that parse files write the fuzz bytes into files of one
// private folder first, since the parsers read through the file layer.

#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

namespace quillet::fuzz {

// A folder of this process's own, made on first use.
inline const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = [] {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quillet-fuzz-XXXXXX").string();
        if (!mkdtemp(pattern.data())) abort();
        return std::filesystem::path(pattern);
    }();
    return folder;
}

// Writes the bytes as the whole file; a failure here is the harness's, so it aborts.
inline void WriteFile(const std::filesystem::path& path, const uint8_t* data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) abort();
    if (size > 0 && std::fwrite(data, 1, size, f) != size) abort();
    if (std::fclose(f) != 0) abort();
}

// Removes every file of the folder, so that a target leaves nothing behind
// between inputs (the folder itself goes at exit).
inline void RemoveFiles() {
    static const bool removeFolderAtExit = [] {
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(Folder(), ignored);
        });
        return true;
    }();
    (void)removeFolderAtExit;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(Folder(), ignored)) {
        std::filesystem::remove(entry.path(), ignored);
    }
}

// The path as the library takes it.
inline std::wstring Wide(const std::filesystem::path& path) {
    std::string narrow = path.string();
    return std::wstring(narrow.begin(), narrow.end());
}

}  // namespace quillet::fuzz
