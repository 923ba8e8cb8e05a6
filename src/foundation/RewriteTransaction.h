#pragma once

// Several files of a folder rewritten as one change: a table and the shapes
// that must stay in step with it, or a table changed in many steps (columns
// added, then filled). The transaction holds every file exclusively for its
// whole run, so that no other process reads a half-done state, and saves
// their old bytes in one journal, named after the first file, before any of
// them changes. The rewrites made inside it write no journals of their own:
// this one covers them. Until Commit, a failure or a crash anywhere puts every
// file back as it was.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Export.h"
#include "foundation/RollbackJournal.h"

namespace quillet {

class File;

class QUILLET_EXPORT RewriteTransaction {
public:
    RewriteTransaction();
    // Rolls back unless committed.
    ~RewriteTransaction();
    RewriteTransaction(const RewriteTransaction&) = delete;
    RewriteTransaction& operator=(const RewriteTransaction&) = delete;

    // Holds the files that exist of `files` (the first must exist) and
    // journals them. False, with nothing changed, when one is in use (the
    // error is then File::kSharingViolation) or the journal cannot be made.
    bool Begin(const std::vector<std::wstring>& files);
    // Marks a held file to be deleted by Commit: it belongs to the old state
    // only (an index of records that are gone).
    void RemoveAtCommit(const std::wstring& file);
    // Makes the files' new bytes durable, deletes the files marked, and then
    // the journal: from here on the change stands.
    bool Commit();
    // Puts every file back as it was. When that fails too, the journal stays
    // beside the files, for the next open (or `quillet recover`) to finish.
    bool Rollback();

    // The error of the failing file operation, as File::GetLastError.
    int32_t GetLastError() const { return lastError_; }
    const std::wstring& JournalPath() const { return journal_->path(); }

private:
    void Release();

    std::vector<std::unique_ptr<File>> held_;
    std::vector<std::pair<uint64_t, uint64_t>> identities_;  // device, inode
    std::vector<std::wstring> removals_;
    std::unique_ptr<RollbackJournal> journal_;
    bool active_ = false;
    int32_t lastError_ = 0;
};

}  // namespace quillet
