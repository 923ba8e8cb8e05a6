#pragma once

// Measurements the benchmark programs share.

#include <errno.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

namespace quillet::bench {

// Anonymous resident memory (heap and stacks) in KiB of this process, or of
// process `pid` (0 once it has gone), from its /proc status. Pages of a
// mapped file are left out: they belong to the system's cache and come and go
// with it, so this is what tells whether memory stays flat.
inline long AnonymousRssKb(pid_t pid = 0) {
    std::string path = pid == 0 ? "/proc/self/status" : "/proc/" + std::to_string(pid) + "/status";
    std::FILE* status = std::fopen(path.c_str(), "r");
    if (!status) return 0;
    char line[256];
    long kb = 0;
    while (std::fgets(line, sizeof line, status)) {
        if (std::sscanf(line, "RssAnon: %ld", &kb) == 1) break;
    }
    std::fclose(status);
    return kb;
}

// Seconds that `work` takes, started once the system has written back its
// dirty pages, so that no store's timing pays for writing back another's file.
inline double Seconds(const std::function<void()>& work) {
    ::sync();
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A folder of this run's own under the temporary folder, made on first use.
inline std::filesystem::path WorkDir(const std::string& program) {
    static const std::filesystem::path dir = [&] {
        auto d = std::filesystem::temp_directory_path() /
                 ("quillet-" + program + "-" + std::to_string(getpid()));
        std::filesystem::create_directories(d);
        return d;
    }();
    return dir;
}

// Ends the program when a store refuses what the benchmark asks of it.
inline void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what);
    std::exit(1);
}
inline void Fail(const char* what) {
    Check(false, what);
}

}  // namespace quillet::bench
