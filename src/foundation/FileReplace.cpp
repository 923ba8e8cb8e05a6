#include "foundation/FileReplace.h"

#include <vector>

#include "foundation/File.h"
#include "foundation/TemporaryFile.h"

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

bool ReplaceContents(std::initializer_list<FileReplacement> replacements, int32_t chunkSize) {
    std::vector<TemporaryFile> saved(replacements.size());
    const FileReplacement* replacement = replacements.begin();
    for (TemporaryFile& aside : saved) {
        if (!aside.Create(L"sav") || !CopyFileBytes(replacement->target, aside.file(), chunkSize)) return false;
        ++replacement;
    }
    size_t failed = 0;
    for (replacement = replacements.begin(); replacement != replacements.end(); ++replacement, ++failed) {
        if (!CopyFileBytes(replacement->source, replacement->target, chunkSize) || !replacement->target.Flush()) {
            break;
        }
    }
    if (replacement == replacements.end()) return true;
    // Every target up to the one that failed has been written: all get their
    // old bytes back, so that files replaced together stay a pair.
    for (size_t i = 0; i <= failed; ++i) {
        File& target = replacements.begin()[i].target;
        CopyFileBytes(saved[i].file(), target, chunkSize);
        target.Flush();
    }
    return false;
}

}  // namespace quillet
