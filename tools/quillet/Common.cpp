#include "Common.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <system_error>

#include "foundation/String.h"

namespace quillet::tool {

std::wstring WidePath(const std::filesystem::path& path) {
    return quillet::String::FromUtf8(path.string()).str();
}

std::string Utf8(const std::wstring& text) { return quillet::String(text).ToUtf8(); }

const char* CodePageKindName(int kind) {
    switch (kind) {
        case 1: return "OEM";
        case 2: return "ANSI";
        case 3: return "ISO";
        case 4: return "UTF-8";
        default: return "default";
    }
}

void RequireRegularFile(const std::filesystem::path& path) {
    std::error_code ec;
    auto status = std::filesystem::status(path, ec);
    if (ec || !std::filesystem::exists(status)) {
        throw Failure(path.string() + ": no such file");
    }
    if (std::filesystem::is_directory(status)) {
        throw Failure(path.string() + ": is a directory");
    }
    if (!std::filesystem::is_regular_file(status)) {
        throw Failure(path.string() + ": not a regular file");
    }
}

std::vector<unsigned char> ReadHead(const std::filesystem::path& path, size_t n) {
    RequireRegularFile(path);
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure(path.string() + ": cannot be opened for reading");
    std::vector<unsigned char> head(n);
    in.read(reinterpret_cast<char*>(head.data()), static_cast<std::streamsize>(n));
    head.resize(static_cast<size_t>(in.gcount()));
    return head;
}

void PrintJson(const Json& value) { std::cout << value.dump(2) << '\n'; }

void PrintFields(const Json& object) {
    for (auto& [key, value] : object.items()) {
        if (value.is_string()) {
            std::cout << key << ": " << value.get<std::string>() << '\n';
        } else if (value.is_null()) {
            std::cout << key << ": -\n";
        } else {
            std::cout << key << ": " << value.dump() << '\n';
        }
    }
}

Progress::Progress(std::string label, int64_t total)
    : label_(std::move(label)), total_(total), enabled_(isatty(STDERR_FILENO) && total > 0) {}

Progress::~Progress() {
    if (enabled_ && lastPercent_ >= 0) std::fprintf(stderr, "\n");
}

void Progress::Update(int64_t done) {
    if (!enabled_) return;
    int percent = static_cast<int>(done * 100 / total_);
    if (percent == lastPercent_) return;
    lastPercent_ = percent;
    constexpr int kWidth = 40;
    int filled = percent * kWidth / 100;
    std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", label_.c_str(), filled,
                 "========================================", kWidth - filled, "", percent);
    std::fflush(stderr);
}

}  // namespace quillet::tool
