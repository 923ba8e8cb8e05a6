#include "foundation/RewriteTransaction.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/Descriptor.h"
#include "foundation/File.h"
#include "foundation/HeldFiles.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

std::pair<uint64_t, uint64_t> IdentityOfPath(const std::wstring& path) {
    struct stat st {};
    if (::stat(NativePath(path.c_str()).c_str(), &st) != 0) return {0, 0};
    return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

}  // namespace

RewriteTransaction::RewriteTransaction() = default;

RewriteTransaction::~RewriteTransaction() {
    if (active_) Rollback();
    Release();
}

bool RewriteTransaction::Begin(const std::vector<std::wstring>& files) {
    if (active_ || files.empty()) return false;
    std::vector<File*> saved;
    for (size_t i = 0; i < files.size(); ++i) {
        auto file = std::make_unique<File>(files[i].c_str());
        if (!file->Open(0, 0, 0, 0, 0)) {
            if (i > 0 && file->GetLastError() == File::kNotFound) continue;
            lastError_ = file->GetLastError();
            Release();
            return false;
        }
        identities_.push_back(IdentityOfPath(files[i]));
        HeldFiles::Add(identities_.back());
        file->ShareWithinProcess();
        saved.push_back(file.get());
        held_.push_back(std::move(file));
    }
    journal_ = std::make_unique<RollbackJournal>(RollbackJournal::PathOf(files[0]));
    if (!journal_->Save(saved)) {
        lastError_ = File::kWriteFailed;
        Release();
        return false;
    }
    active_ = true;
    return true;
}

void RewriteTransaction::RemoveAtCommit(const std::wstring& file) {
    removals_.push_back(file);
}

bool RewriteTransaction::Commit() {
    if (!active_) return false;
    for (auto& file : held_) {
        if (!file->Flush()) {
            lastError_ = file->GetLastError();
            return false;
        }
    }
    // Deleted while the journal still stands, so that a crash in between
    // brings them back with the rest.
    for (const auto& path : removals_) {
        std::string native = NativePath(path.c_str());
        if (::unlink(native.c_str()) != 0 && errno != ENOENT) {
            lastError_ = File::kAccessDenied;
            return false;
        }
    }
    if (!removals_.empty() && !SyncFolderOf(NativePath(journal_->path().c_str()).c_str()))
        return false;
    if (!journal_->Discard()) return false;
    active_ = false;
    return true;
}

bool RewriteTransaction::Rollback() {
    if (!active_) return false;
    if (journal_->Load() != RollbackJournal::State::kWhole) return false;
    const auto& entries = journal_->entries();
    for (size_t i = 0; i < entries.size(); ++i) {
        if (!journal_->Restore(entries[i], *held_[i])) {
            lastError_ = held_[i]->GetLastError();
            return false;
        }
    }
    active_ = false;
    return journal_->Discard();
}

void RewriteTransaction::Release() {
    for (auto identity : identities_) HeldFiles::Remove(identity);
    for (auto& file : held_) file->Close();
    identities_.clear();
    held_.clear();
}

}  // namespace quillet
