#pragma once

// Output that appears whole or not at all. A command that writes or rewrites
// files makes them in a private folder beside their destination and moves
// them into place only once everything has been written; a command that fails
// on the way leaves the destination as it was, and the folder goes with
// whatever it holds.

#include <filesystem>
#include <string>
#include <vector>

namespace quillet::tool {

class Staging {
public:
    // A new private folder inside `destination`, the folder the files go to.
    explicit Staging(const std::filesystem::path& destination);
    ~Staging();
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    // Where the file called `name` is made before it is moved into place.
    std::filesystem::path operator/(const std::string& name) const { return folder_ / name; }
    // Starts the staged `name` from the destination's file of that name,
    // when there is one, so that a command can change a copy.
    void CopyIn(const std::string& name) const;
    // Moves each of `names` into the destination. A name with no staged file
    // is removed from the destination: whatever stood there belonged to what
    // was replaced. Returns the names so removed.
    std::vector<std::string> Commit(const std::vector<std::string>& names);

private:
    std::filesystem::path destination_;
    std::filesystem::path folder_;
};

// The folder a path's file lies in ("." for a bare name).
std::filesystem::path FolderOf(const std::filesystem::path& path);

}  // namespace quillet::tool
