#include "CodePageTestSupport.h"

namespace quillet::test {

std::filesystem::path ShippedTables() {
    return std::filesystem::path(QUILLET_SOURCE_DIR) / "locale" / "codepage";
}

void ScopedTableHome::CopyShipped(const std::string& name) const {
    std::filesystem::copy_file(ShippedTables() / name, Folder() / name,
                               std::filesystem::copy_options::overwrite_existing);
}

std::wstring Decode(CodePage& page, const std::string& bytes) {
    std::wstring dst(bytes.size() + 1, L'#');
    page.Source2Native(bytes.c_str(), dst.data(), static_cast<uint32_t>(dst.size()));
    return dst.c_str();
}

std::string Encode(CodePage& page, const std::wstring& text) {
    std::string dst(4 * text.size() + 8, '#');
    page.Native2Source(text.c_str(), dst.data(), static_cast<uint32_t>(dst.size()));
    return dst.c_str();
}

}  // namespace quillet::test
