#include "Staging.h"

#include <cstdlib>
#include <system_error>

#include "Registry.h"

namespace quillet::tool {

namespace fs = std::filesystem;

Staging::Staging(const fs::path& destination) : destination_(destination) {
    std::string pattern = (destination / ".quillet-XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        throw Failure(destination.string() + ": cannot create a working folder: " +
                      std::generic_category().message(errno));
    }
    folder_ = pattern;
}

Staging::~Staging() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void Staging::CopyIn(const std::string& name) const {
    std::error_code ec;
    if (!fs::exists(destination_ / name, ec)) return;
    fs::copy_file(destination_ / name, folder_ / name, ec);
    if (ec) throw Failure((destination_ / name).string() + ": cannot be copied: " + ec.message());
}

std::vector<std::string> Staging::Commit(const std::vector<std::string>& names) {
    std::vector<std::string> removed;
    for (const auto& name : names) {
        std::error_code ec;
        if (fs::exists(folder_ / name, ec)) {
            fs::rename(folder_ / name, destination_ / name, ec);
        } else if (fs::exists(destination_ / name, ec)) {
            fs::remove(destination_ / name, ec);
            if (!ec) removed.push_back(name);
        }
        if (ec)
            throw Failure((destination_ / name).string() +
                          ": cannot be put in place: " + ec.message());
    }
    return removed;
}

fs::path FolderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

}  // namespace quillet::tool
