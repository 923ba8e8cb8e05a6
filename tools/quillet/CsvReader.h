#pragma once

// Reads a CSV file (RFC 4180: quoted fields, doubled quotes, CRLF or LF line
// ends) one row at a time, so that a file of any size takes the memory of
// its longest row.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace quillet::tool {

class CsvReader {
public:
    // Failure naming the path when it cannot be read.
    explicit CsvReader(const std::filesystem::path& path);

    // The next row that is not an empty line; false at the end of the file.
    // Failure when a quoted field runs to the end of the file.
    bool Next(std::vector<std::string>& row);
    // The line the last row began on, from 1.
    int64_t Line() const { return rowLine_; }
    // How many bytes have been read so far, for a progress bar.
    int64_t Offset() const { return offset_; }
    int64_t Size() const { return size_; }

private:
    int Get();
    int Peek() { return in_.rdbuf()->sgetc(); }
    // Reads the rest of a quoted field into `field`.
    void ReadQuoted(std::string& field);

    std::filesystem::path path_;
    std::ifstream in_;
    int64_t size_ = 0;
    int64_t offset_ = 0;
    int64_t line_ = 1;
    int64_t rowLine_ = 0;
};

}  // namespace quillet::tool
