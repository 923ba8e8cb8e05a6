#pragma once

// Helpers shared by the tool's command groups.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Registry.h"

namespace quillet::tool {

// A path as the library takes it (wide), from the UTF-8 the shell gives.
std::wstring WidePath(const std::filesystem::path& path);
std::string Utf8(const std::wstring& text);

// The name of a code page kind (CodePage::qovaCodePageEnum): "default",
// "OEM", "ANSI", "ISO" or "UTF-8".
const char* CodePageKindName(int kind);

// Fails (Failure naming the path) unless `path` is an existing regular file.
void RequireRegularFile(const std::filesystem::path& path);

// Up to `n` first bytes of a file; Failure when it cannot be read.
std::vector<unsigned char> ReadHead(const std::filesystem::path& path, size_t n);

// Prints a JSON value on stdout (pretty for objects), or as `key: value`
// lines for people.
void PrintJson(const Json& value);
void PrintFields(const Json& object);

// A progress bar on stderr for long work; silent unless stderr is a terminal.
class Progress {
public:
    Progress(std::string label, int64_t total);
    ~Progress();
    void Update(int64_t done);

private:
    std::string label_;
    int64_t total_;
    int lastPercent_ = -1;
    bool enabled_;
};

}  // namespace quillet::tool
