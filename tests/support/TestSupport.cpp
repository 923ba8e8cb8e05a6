#include "support/TestSupport.h"

#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace quillet::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quillet-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot create a temporary folder");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::wstring TempDir::Wide(const std::string& name) const {
    return WidePath(path_ / name);
}

std::vector<std::string> TempDir::Files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::wstring WidePath(const std::filesystem::path& path) {
    std::string s = path.string();
    return std::wstring(s.begin(), s.end());
}

Bytes ReadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::filesystem::path PeerSamplesDir() {
    std::filesystem::path dir = std::filesystem::path(QUILLET_SHARED_DIR) / "data" / "peer-samples";
    std::error_code ec;
    return std::filesystem::is_directory(dir, ec) ? dir : std::filesystem::path();
}

}  // namespace quillet::test
