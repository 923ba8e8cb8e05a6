#include "LayerRewrite.h"

#include <memory>

#include "Common.h"
#include "foundation/File.h"
#include "foundation/RewriteTransaction.h"

namespace quillet::tool {

namespace fs = std::filesystem;

struct LayerRewrite::State {
    RewriteTransaction transaction;
};

LayerRewrite::LayerRewrite(const std::vector<fs::path>& files)
    : state_(std::make_unique<State>()), first_(files.at(0)) {
    std::vector<std::wstring> wide;
    for (const auto& file : files) wide.push_back(WidePath(file));
    if (state_->transaction.Begin(wide)) return;
    int32_t error = state_->transaction.GetLastError();
    if (error == File::kSharingViolation)
        throw Failure(first_.string() + ": in use by another program; nothing was changed");
    if (error == File::kNotFound) throw Failure(first_.string() + ": no such file");
    if (error == File::kAccessDenied)
        throw Failure(first_.string() + ": cannot be written (access denied); nothing was changed");
    throw Failure(first_.string() + ": cannot save its old bytes in " + first_.string() +
                  "-journal beside it (is the folder writable, is the disk full?); nothing was "
                  "changed");
}

LayerRewrite::~LayerRewrite() = default;

void LayerRewrite::RemoveAtCommit(const fs::path& file) {
    state_->transaction.RemoveAtCommit(WidePath(file));
}

void LayerRewrite::Run(const std::function<void()>& change) {
    RewriteTransaction& transaction = state_->transaction;
    std::string kept = "; the old bytes are kept in " + Utf8(transaction.JournalPath()) +
                       ": run `quillet recover " + first_.string() + "` once the cause is fixed";
    try {
        change();
    } catch (const Failure& failure) {
        if (transaction.Rollback()) throw;
        throw Failure(failure.what() + kept);
    }
    if (!transaction.Commit()) {
        std::string what = first_.string() + ": the new bytes could not be made durable";
        if (transaction.Rollback()) throw Failure(what + "; nothing was changed");
        throw Failure(what + kept);
    }
}

}  // namespace quillet::tool
