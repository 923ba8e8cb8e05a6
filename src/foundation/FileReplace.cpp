#include "foundation/FileReplace.h"

#include <vector>

#include "foundation/File.h"
#include "foundation/HeldFiles.h"
#include "foundation/RollbackJournal.h"
#include "foundation/Win32File.h"

namespace quillet {

bool CopyFileBytes(File& from, File& to, int32_t chunkSize) {
    if (to.IsReadOnly()) {
        to.Close();
        if (!to.Open(0, 1, 0, 0, 0)) return false;
    }
    if (!from.Seek(0, File::kBegin) || !to.SetLength(0) || !to.Seek(0, File::kBegin)) return false;
    std::vector<char> chunk(static_cast<size_t>(chunkSize));
    int64_t copied = 0;
    for (;;) {
        int n = from.Read(chunk.data(), chunkSize);
        if (n <= 0) break;
        if (to.Write(chunk.data(), n) != n) return false;
        copied += n;
    }
    return copied == from.GetLengthEx();
}

namespace {

bool CopyAll(std::initializer_list<FileReplacement> replacements, int32_t chunkSize) {
    for (const FileReplacement& replacement : replacements) {
        if (!CopyFileBytes(replacement.source, replacement.target, chunkSize) ||
            !replacement.target.Flush())
            return false;
    }
    return true;
}

}  // namespace

bool ReplaceContents(std::initializer_list<FileReplacement> replacements, int32_t chunkSize) {
    File& first = replacements.begin()->target;
    // A transaction of this process holds the files and has journaled them
    // already; it puts them back itself if this fails.
    if (HeldFiles::ContainsPath(NativePath(first.GetPath().c_str()).c_str()))
        return CopyAll(replacements, chunkSize);
    std::vector<File*> targets;
    for (const FileReplacement& replacement : replacements) targets.push_back(&replacement.target);
    RollbackJournal journal(RollbackJournal::PathOf(first.GetPath()));
    if (!journal.Save(targets)) return false;
    if (CopyAll(replacements, chunkSize)) return journal.Discard();
    // Every target gets its old bytes back, so that files replaced together
    // stay a pair. If that fails too (the disk is still full), the journal
    // stays: it is then the only whole copy, and the next open restores it.
    if (journal.Load() != RollbackJournal::State::kWhole) return false;
    for (size_t i = 0; i < targets.size(); ++i) {
        if (!journal.Restore(journal.entries()[i], *targets[i])) return false;
    }
    journal.Discard();
    return false;
}

}  // namespace quillet
