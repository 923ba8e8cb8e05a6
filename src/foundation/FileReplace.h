#pragma once

// A rewrite builds the new contents of a file elsewhere and then copies them
// back over the original, so that the original keeps its name and identity
// (and, for a file that travels with a companion, stays paired with it). The
// copy back is the one step that touches the original: before it starts the
// original's bytes go into a rollback journal beside it, and if the copy back
// fails part way, or the process dies, they are put back, so that a failed
// rewrite loses nothing. Files replaced together (a data file and its index)
// share one journal and are restored together.

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

// Copies each source over its target and makes it durable, under a journal
// named after the first target. On failure every target holds its old bytes
// again and the result is false; when they cannot be written back either, the
// journal stays beside the first target for the next open to restore.
bool ReplaceContents(std::initializer_list<FileReplacement> replacements, int32_t chunkSize);

}  // namespace quillet
