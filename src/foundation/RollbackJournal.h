#pragma once

// A rewrite that copies new bytes over a file in place (so that the file keeps
// its name and identity) would leave it cut if it were killed, or if the disk
// filled, part way through the copy. So before the first byte changes, the
// file's old bytes go into a journal beside it, "NAME-journal", and the
// journal is made durable; it is deleted only once the new bytes are durable.
// A whole journal found later means the rewrite never finished: its bytes are
// put back (see RewriteRecovery). A torn one means the file was never
// touched, since nothing changes before the journal is whole on disk.
//
// One journal may cover several files of a folder (a table and the shapes
// that travel with it, or a record file and its index). It names them by
// their file names, each with its length and a checksum of its bytes, and
// the header carries a checksum of its own.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "foundation/Export.h"

namespace quillet {

class File;

class QUILLET_EXPORT RollbackJournal {
public:
    // One saved file: its name in the journal's folder and where its bytes lie.
    struct Entry {
        std::string name;
        int64_t length = 0;
        uint64_t checksum = 0;
        int64_t offset = 0;
    };
    enum class State { kAbsent, kWhole, kTorn };

    // The journal of a rewrite of `file`.
    static std::wstring PathOf(const std::wstring& file);

    explicit RollbackJournal(std::wstring path);
    ~RollbackJournal();
    RollbackJournal(const RollbackJournal&) = delete;
    RollbackJournal& operator=(const RollbackJournal&) = delete;

    const std::wstring& path() const { return path_; }

    // Saves the whole current contents of each file (read through the open
    // File, so that its buffered writes count) and makes the journal and its
    // folder entry durable. A journal already at the path is refused: it may
    // be the only copy of another rewrite's old bytes. On failure the partial
    // journal is deleted and the files are untouched.
    bool Save(std::span<File* const> files);
    // Deletes the journal and makes that durable: the rewrite is done.
    bool Discard();

    // Reads and checks the journal at the path.
    State Load();
    const std::vector<Entry>& entries() const { return entries_; }
    // The folder path of entry `name`.
    std::wstring PathOfEntry(const Entry& entry) const;
    // Copies the saved bytes of `entry` over `target`, cuts it to their
    // length and makes it durable.
    bool Restore(const Entry& entry, File& target);

private:
    bool WriteEntries(std::span<File* const> files);
    bool CheckData();

    std::wstring path_;
    std::unique_ptr<File> file_;
    std::vector<Entry> entries_;
};

}  // namespace quillet
