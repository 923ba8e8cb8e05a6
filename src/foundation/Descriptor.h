#pragma once

// Positioned I/O and whole-file locks on a POSIX descriptor, shared by File
// and the Win32-named handle calls so that both read, write and share a file
// alike. Internal to the library.

#include <cstddef>
#include <cstdint>

namespace quillet {

// pread until n bytes or the end of the file; the count, or -1 (errno set).
int64_t ReadAt(int fd, unsigned char* out, size_t n, int64_t at);

// pwrite all n bytes; false with errno set otherwise.
bool WriteAt(int fd, const unsigned char* data, size_t n, int64_t at);

// Takes the whole-file lock of an open: exclusive for a writer that shares
// nothing, shared otherwise. A conflict fails with errno EAGAIN. File systems
// without open file description locks get no sharing control rather than no
// access. A file this process holds (HeldFiles) takes no lock.
bool LockWholeFile(int fd, bool exclusive);

// A new file with no name in `folder`, open for reading and writing, gone
// when closed: nothing is left behind even when the process is killed. The
// descriptor, or -1 with errno set.
int OpenUnnamed(const char* folder);

// Makes the entries of the folder that holds `path` durable: a file created,
// renamed or deleted there survives a crash only once its folder is synced.
bool SyncFolderOf(const char* path);

}  // namespace quillet
