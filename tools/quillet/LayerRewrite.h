#pragma once

// How the tool's commands rewrite files in place: every file the command
// changes is held exclusively from the start to the end (no other program
// reads a half-done state), and journaled as one change (a crash, a kill or a
// failure anywhere puts all of them back; see RewriteTransaction).

#include <filesystem>
#include <functional>
#include <vector>

namespace quillet::tool {

class LayerRewrite {
public:
    // The files that exist of `files` (the first must) are held and
    // journaled. Failure, naming the file, when one is in use by another
    // program or the journal cannot be written: nothing has changed then.
    explicit LayerRewrite(const std::vector<std::filesystem::path>& files);
    ~LayerRewrite();
    LayerRewrite(const LayerRewrite&) = delete;
    LayerRewrite& operator=(const LayerRewrite&) = delete;

    // Deletes `file` when the change commits: it belongs to the old state.
    void RemoveAtCommit(const std::filesystem::path& file);

    // Runs `change`, then commits. When `change` throws, the files get their
    // old bytes back and the Failure is thrown again; when they cannot be
    // put back either, it says where the journal keeping them lies and how
    // to restore them.
    void Run(const std::function<void()>& change);

private:
    struct State;
    std::unique_ptr<State> state_;
    std::filesystem::path first_;
};

}  // namespace quillet::tool
