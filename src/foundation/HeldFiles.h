#pragma once

// Files this process holds exclusively across several opens, for a change
// made of many steps (see RewriteTransaction). While a file is held, other
// processes cannot open it, and this process's own opens of it take no lock
// of their own: they would conflict with the hold, which already keeps
// everyone else out. Internal to the library.

#include <cstdint>
#include <utility>

namespace quillet {

class HeldFiles {
public:
    using Identity = std::pair<uint64_t, uint64_t>;  // device, inode

    static void Add(Identity identity);
    static void Remove(Identity identity);
    static bool Contains(Identity identity);
    // Whether the descriptor's or the path's file is held; false when it
    // cannot be examined.
    static bool ContainsDescriptor(int fd);
    static bool ContainsPath(const char* path);
};

}  // namespace quillet
