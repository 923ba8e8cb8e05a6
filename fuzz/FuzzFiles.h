#pragma once

// The fuzz targets that parse files write the fuzz bytes into files of one
// private folder first, since the parsers read through the file layer. The
// folder is made under $TMPDIR (else /tmp), never in the current folder; the
// files of an input are removed when the input is done, and the folder when
// the process exits normally (a crash leaves the input that crashed, which
// libFuzzer saves as an artifact anyway).

#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace quillet::fuzz {

// A folder of this process's own, made on first use and removed at exit.
inline const std::filesystem::path& Folder() {
    struct Owned {
        std::filesystem::path path;
        Owned() {
            std::error_code error;
            auto base = std::filesystem::temp_directory_path(error);  // $TMPDIR, else /tmp
            if (error) base = "/tmp";
            std::string pattern = (base / "quillet-fuzz-XXXXXX").string();
            if (!mkdtemp(pattern.data())) abort();
            path = pattern;
        }
        ~Owned() {
            std::error_code error;
            std::filesystem::remove_all(path, error);
        }
    };
    static const Owned folder;
    return folder.path;
}

// Empties the folder when it goes: one per input, so that the files of one
// input (and any the library made beside them) do not outlive it.
class InputScope {
public:
    InputScope() = default;
    ~InputScope() {
        std::error_code error;
        for (std::filesystem::directory_iterator it(Folder(), error), end; !error && it != end;
             it.increment(error)) {
            std::error_code ignored;
            std::filesystem::remove_all(it->path(), ignored);
        }
    }
    InputScope(const InputScope&) = delete;
    InputScope& operator=(const InputScope&) = delete;
};

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
