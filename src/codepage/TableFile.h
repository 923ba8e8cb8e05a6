#pragma once

// Opening the code page table files of the install's "locale/codepage" folder.
// Internal to the code page subsystem.

#include <cstdio>
#include <memory>
#include <string>

namespace quillet {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using TableFileHandle = std::unique_ptr<FILE, FileCloser>;

// The folder of the table files followed by "/" and `name`.
std::wstring TableFilePath(const std::wstring& name);
// Opens a table file for reading as text; null when it cannot be opened.
TableFileHandle OpenTableFile(const std::wstring& path);

}  // namespace quillet
