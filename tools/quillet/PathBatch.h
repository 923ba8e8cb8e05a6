#pragma once

// One command over many paths. A user who names twenty layers wants the
// nineteen good ones done even when one is damaged, and a script wants to
// know that one failed: each path's failure is one line on stderr, the
// others go on, and the command fails at the end.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quillet::tool {

class Progress;

// One path's work: returns what it prints on stdout; throws (Failure) to
// report the path's problem.
using PathWork = std::function<std::string(const std::filesystem::path&)>;

// Runs `work` for every path, in `jobs` threads, and returns how many paths
// failed. A single path's failure propagates, as a one-file command's does.
// Output is printed in the order of `paths` (each path's text as soon as it
// and every path before it are done), so that the result does not depend on
// how the threads were scheduled. `progress`, when given, counts the paths
// done.
int RunForEachPath(const std::vector<std::filesystem::path>& paths, int jobs,
                   const PathWork& work, Progress* progress = nullptr);

// Failure ("N of M <noun>s failed") when `failed` is not zero.
void RequireNoneFailed(int failed, size_t total, const std::string& noun);

// The paths as given, each once (a file named twice, by two spellings, is
// worked on once: two threads must never write the same index).
std::vector<std::filesystem::path> DistinctPaths(const std::vector<std::string>& paths);

}  // namespace quillet::tool
