#pragma once

// A rewrite builds the new contents of a file elsewhere and then copies them
// back over the original, so that the original keeps its name and identity
// (and, for a file that travels with a companion, stays paired with it). The
// copy back is the one step that touches the original: before it starts the
// original's bytes are copied aside into a temporary file, and if the copy
// back fails part way they are put back, so that a failed rewrite loses
// nothing. Files replaced together (a data file and its index) are restored
// together: if any of them fails, all of them get their old bytes back.

#include <cstdint>
#include <initializer_list>

namespace quillet {

class File;

// Replaces the bytes of `to` by those of `from`, through the open files, in
// chunks of `chunkSize` bytes. A target open read-only is reopened for
// writing. True only when every byte of the source arrived: a short read or
// any failed call is a failure.
bool CopyFileBytes(File& from, File& to, int32_t chunkSize);

// One file whose bytes are to be replaced by another's.
struct FileReplacement {
    File& source;
    File& target;
};

// Copies each source over its target and flushes it. On failure every target
// holds its old bytes again (as far as the restoring copy can write them) and
// the result is false. The temporary copies are removed whatever happens.
bool ReplaceContents(std::initializer_list<FileReplacement> replacements, int32_t chunkSize);

}  // namespace quillet
