#include "CsvReader.h"

#include "Common.h"

namespace quillet::tool {

namespace {

constexpr int kEnd = std::char_traits<char>::eof();

}  // namespace

CsvReader::CsvReader(const std::filesystem::path& path) : path_(path) {
    RequireRegularFile(path);
    in_.open(path, std::ios::binary);
    if (!in_) throw Failure(path.string() + ": cannot be opened for reading");
    size_ = static_cast<int64_t>(std::filesystem::file_size(path));
}

int CsvReader::Get() {
    int c = in_.rdbuf()->sbumpc();
    if (c == kEnd) return c;
    ++offset_;
    if (c == '\n') ++line_;
    return c;
}

void CsvReader::ReadQuoted(std::string& field) {
    int64_t opened = line_;
    for (int c = Get(); c != kEnd; c = Get()) {
        if (c != '"') {
            field += static_cast<char>(c);
        } else if (Peek() == '"') {
            field += static_cast<char>(Get());
        } else {
            return;
        }
    }
    throw Failure(path_.string() + ": line " + std::to_string(opened) +
                  ": a quoted field is never closed");
}

bool CsvReader::Next(std::vector<std::string>& row) {
    row.clear();
    while (Peek() == '\r' || Peek() == '\n') Get();
    if (Peek() == kEnd) {
        if (offset_ < size_) throw Failure(path_.string() + ": a read failed");
        return false;
    }
    rowLine_ = line_;
    std::string field;
    for (int c = Get();; c = Get()) {
        if (c == '"') {
            ReadQuoted(field);
        } else if (c == ',') {
            row.push_back(std::move(field));
            field.clear();
        } else if (c == '\r' || c == '\n' || c == kEnd) {
            if (c == '\r' && Peek() == '\n') Get();
            row.push_back(std::move(field));
            return true;
        } else {
            field += static_cast<char>(c);
        }
    }
}

}  // namespace quillet::tool
