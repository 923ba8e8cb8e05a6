#include "PathBatch.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "Common.h"

namespace quillet::tool {

namespace {

struct Outcome {
    std::string out;
    std::string error;
};

// Prints finished outcomes in path order: a path's text waits only for the
// paths before it.
class OrderedPrinter {
public:
    OrderedPrinter(size_t count, Progress* progress) : outcomes_(count), progress_(progress) {}

    void Finish(size_t index, Outcome outcome) {
        std::lock_guard<std::mutex> lock(mutex_);
        outcomes_[index] = std::move(outcome);
        if (progress_) progress_->Clear();
        for (; next_ < outcomes_.size() && outcomes_[next_]; ++next_) Print(*outcomes_[next_]);
        if (progress_) progress_->Update(++finished_);
    }

    int Failed() const {
        return static_cast<int>(std::count_if(outcomes_.begin(), outcomes_.end(),
                                              [](const auto& o) { return !o->error.empty(); }));
    }

private:
    static void Print(const Outcome& outcome) {
        std::cout << outcome.out << std::flush;
        if (!outcome.error.empty()) std::fprintf(stderr, "quillet: %s\n", outcome.error.c_str());
    }

    std::mutex mutex_;
    std::vector<std::optional<Outcome>> outcomes_;
    size_t next_ = 0;
    Progress* progress_;
    int64_t finished_ = 0;
};

Outcome RunOne(const PathWork& work, const std::filesystem::path& path) {
    try {
        return {work(path), ""};
    } catch (const std::exception& e) {
        std::string message = e.what();
        return {"", message.empty() ? path.string() + ": failed" : message};
    }
}

}  // namespace

int RunForEachPath(const std::vector<std::filesystem::path>& paths, int jobs,
                   const PathWork& work, Progress* progress) {
    // One path fails as a single command does: its own message, nothing more.
    if (paths.size() == 1) {
        std::cout << work(paths.front());
        return 0;
    }
    OrderedPrinter printer(paths.size(), progress);
    std::atomic<size_t> next{0};
    auto worker = [&] {
        for (size_t i = next++; i < paths.size(); i = next++)
            printer.Finish(i, RunOne(work, paths[i]));
    };
    size_t threads = std::min(static_cast<size_t>(std::max(jobs, 1)), paths.size());
    if (threads <= 1) {
        worker();
        return printer.Failed();
    }
    std::vector<std::jthread> pool;
    for (size_t t = 0; t < threads; ++t) pool.emplace_back(worker);
    pool.clear();  // joins
    return printer.Failed();
}

void RequireNoneFailed(int failed, size_t total, const std::string& noun) {
    if (failed == 0) return;
    throw Failure(std::to_string(failed) + " of " + Count(static_cast<int64_t>(total), noun) +
                  " failed");
}

std::vector<std::filesystem::path> DistinctPaths(const std::vector<std::string>& paths) {
    std::vector<std::filesystem::path> distinct;
    std::set<std::filesystem::path> seen;
    for (const auto& text : paths) {
        std::error_code error;
        auto canonical = std::filesystem::weakly_canonical(text, error);
        if (seen.insert(error ? std::filesystem::path(text) : canonical).second) {
            distinct.emplace_back(text);
        }
    }
    return distinct;
}

}  // namespace quillet::tool
