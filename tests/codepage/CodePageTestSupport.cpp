#include "CodePageTestSupport.h"

namespace quillet::test {

std::filesystem::path ShippedTables() {
    return std::filesystem::path(QUILLET_SOURCE_DIR) / "locale" / "codepage";
}

void ScopedTableHome::CopyShipped(const std::string& name) const {
    std::filesystem::copy_file(ShippedTables() / name, Folder() / name,
                               std::filesystem::copy_options::overwrite_existing);
}

}  // namespace quillet::test
