#pragma once

// Measurements the benchmark programs share.

#include <cstdio>

namespace quillet::bench {

// Anonymous resident memory (heap and stacks) in KiB, from /proc/self/status.
// Pages of a mapped file are left out: they belong to the system's cache and
// come and go with it, so this is what tells whether memory stays flat.
inline long AnonymousRssKb() {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (!status) return 0;
    char line[256];
    long kb = 0;
    while (std::fgets(line, sizeof line, status)) {
        if (std::sscanf(line, "RssAnon: %ld", &kb) == 1) break;
    }
    std::fclose(status);
    return kb;
}

}  // namespace quillet::bench
