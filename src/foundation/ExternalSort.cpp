#include "foundation/ExternalSort.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/Win32File.h"

namespace quillet {

namespace {

using SortElement = ExternalSort::SortElement;
using CompareFunction = ExternalSort::CompareFunction;

// A run on disk is a sequence of (32-bit native size, bytes) records.
constexpr int64_t kSizePrefix = sizeof(int32_t);
// Bookkeeping charged to the budget for each element held in memory.
constexpr int64_t kPerElement = sizeof(SortElement);
// The collection area is allocated at once but touched only as it fills, so a
// large budget costs address space rather than memory; it is capped all the
// same.
constexpr int64_t kMaxArena = int64_t{256} << 20;
// Smallest read buffer per run in a merge: with less, more runs are merged in
// an extra pass rather than read in tiny pieces.
constexpr int64_t kMinRunBuffer = int64_t{16} << 10;
constexpr int64_t kWriteBuffer = int64_t{256} << 10;
constexpr size_t kHugePage = size_t{2} << 20;

// Repeats step(bytes done so far) until n bytes are moved; false on an error or
// when nothing moves.
template <typename Step>
bool S_TransferAll(int64_t n, Step step) {
    for (int64_t done = 0; done < n;) {
        ssize_t moved = step(done);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) return false;
        done += moved;
    }
    return true;
}

// The one temporary file that holds every run of a sort, one after another.
// It is unlinked as soon as it is open, so it vanishes with the descriptor
// whatever happens to the sort or the process.
class RunFile {
public:
    ~RunFile() {
        if (fd_ >= 0) ::close(fd_);
    }

    bool Open() {
        if (fd_ >= 0) return true;
        wchar_t folder[4096];
        wchar_t path[4096];
        uint32_t length = GetTempPathW(4096, folder);
        if (length == 0 || length >= 4096 || GetTempFileNameW(folder, L"srt", 0, path) == 0) {
            return false;
        }
        fd_ = ::open(NativePath(path).c_str(), O_RDWR | O_CLOEXEC);
        DeleteFileW(path);
        return fd_ >= 0;
    }

    int64_t Size() const { return size_; }

    bool Append(const unsigned char* data, int64_t n) {
        int64_t at = size_;
        bool ok = S_TransferAll(n, [&](int64_t done) {
            return ::pwrite(fd_, data + done, static_cast<size_t>(n - done), at + done);
        });
        if (ok) size_ += n;
        return ok;
    }

    bool ReadAt(int64_t offset, unsigned char* data, int64_t n) const {
        return S_TransferAll(n, [&](int64_t done) {
            return ::pread(fd_, data + done, static_cast<size_t>(n - done), offset + done);
        });
    }

private:
    int fd_ = -1;
    int64_t size_ = 0;
};

// Sorted elements sit scattered over the collection area, so reading them in
// order misses the cache on almost every one: the one some places ahead is
// fetched early, while the current one is used.
constexpr size_t kPrefetchDistance = 8;

inline void PrefetchAhead(const std::vector<SortElement>& elements, size_t i) {
    if (i + kPrefetchDistance < elements.size()) {
        __builtin_prefetch(elements[i + kPrefetchDistance].data);
    }
}

struct Run {
    int64_t offset = 0;
    int64_t bytes = 0;
};

// Appends one run to the run file through a buffer.
class RunWriter {
public:
    explicit RunWriter(RunFile* file) : file_(file), buffer_(kWriteBuffer) {
        run_.offset = file->Size();
    }

    bool Add(const SortElement& e) {
        int64_t need = kSizePrefix + e.size;
        if (fill_ + need > static_cast<int64_t>(buffer_.size()) && !Drain()) return false;
        if (need > static_cast<int64_t>(buffer_.size())) return Put(e, true);
        return Put(e, false);
    }

    // Writes what is buffered; the run is then complete.
    bool Finish(Run* run) {
        if (!Drain()) return false;
        run_.bytes = file_->Size() - run_.offset;
        *run = run_;
        return true;
    }

private:
    bool Put(const SortElement& e, bool direct) {
        std::memcpy(buffer_.data() + fill_, &e.size, kSizePrefix);
        if (direct) {  // larger than the buffer: prefix, then the bytes unbuffered
            fill_ += kSizePrefix;
            return Drain() && file_->Append(e.data, e.size);
        }
        std::memcpy(buffer_.data() + fill_ + kSizePrefix, e.data, static_cast<size_t>(e.size));
        fill_ += kSizePrefix + e.size;
        return true;
    }

    bool Drain() {
        bool ok = file_->Append(buffer_.data(), fill_);
        fill_ = 0;
        return ok;
    }

    RunFile* file_;
    std::vector<unsigned char> buffer_;
    int64_t fill_ = 0;
    Run run_;
};

// Reads the elements of one run back through a buffer of its own, or those
// of the last run, which stays sorted in memory.
class RunReader {
public:
    RunReader(const RunFile* file, const Run& run, int64_t bufferSize, int32_t maxElement)
        : file_(file),
          next_(run.offset),
          end_(run.offset + run.bytes),
          maxElement_(maxElement),
          size_(std::max(bufferSize, kSizePrefix + maxElement)),
          buffer_(new unsigned char[static_cast<size_t>(size_)]) {}
    explicit RunReader(const std::vector<SortElement>* memory)
        : file_(nullptr), next_(0), end_(0), maxElement_(0), size_(0), memory_(memory) {}

    // Moves to the next element; false at the end of the run or on a bad read.
    bool Advance() {
        if (memory_) {
            if (static_cast<size_t>(next_) == memory_->size()) return false;
            PrefetchAhead(*memory_, static_cast<size_t>(next_));
            current_ = (*memory_)[static_cast<size_t>(next_++)];
            return true;
        }
        pos_ += consumed_;
        consumed_ = 0;
        int32_t size;
        if (!Ensure(kSizePrefix)) return false;
        std::memcpy(&size, buffer_.get() + pos_, kSizePrefix);
        if (size < 0 || size > maxElement_ || !Ensure(kSizePrefix + size)) {
            failed_ = true;
            return false;
        }
        current_.size = size;
        current_.data = buffer_.get() + pos_ + kSizePrefix;
        consumed_ = kSizePrefix + size;
        return true;
    }

    const SortElement& Current() const { return current_; }
    bool Failed() const { return failed_; }

private:
    // Makes n bytes available at pos_; false at the end of the run.
    bool Ensure(int64_t n) {
        if (fill_ - pos_ >= n) return true;
        std::memmove(buffer_.get(), buffer_.get() + pos_, static_cast<size_t>(fill_ - pos_));
        fill_ -= pos_;
        pos_ = 0;
        int64_t want = std::min(size_ - fill_, end_ - next_);
        if (want > 0) {
            if (!file_->ReadAt(next_, buffer_.get() + fill_, want)) {
                failed_ = true;
                return false;
            }
            next_ += want;
            fill_ += want;
        }
        if (fill_ >= n) return true;
        failed_ = failed_ || fill_ != 0;  // a run never ends inside an element
        return false;
    }

    const RunFile* file_;
    int64_t next_;
    int64_t end_;
    int32_t maxElement_;
    // Not zeroed first: a merge's buffers share the whole budget.
    int64_t size_;
    std::unique_ptr<unsigned char[]> buffer_;
    const std::vector<SortElement>* memory_ = nullptr;
    int64_t pos_ = 0;
    int64_t fill_ = 0;
    int64_t consumed_ = 0;
    SortElement current_{0, nullptr};
    bool failed_ = false;
};

// Merges runs through a tree of losers: each inner node keeps the run that
// lost the match played there, so replacing the winner's element replays one
// path from its leaf to the root, one comparison per level (a binary heap
// needs two).
class Merger {
public:
    // `memory`, when given, is one more run: sorted elements held in memory.
    Merger(CompareFunction compare, const RunFile* file, const std::vector<Run>& runs,
           int64_t bufferSize, int32_t maxElement,
           const std::vector<SortElement>* memory = nullptr)
        : compare_(compare),
          k_(runs.size() + (memory ? 1 : 0)),
          loser_(k_),
          live_(k_) {
        readers_.reserve(k_);
        for (const Run& run : runs) readers_.emplace_back(file, run, bufferSize, maxElement);
        if (memory) readers_.emplace_back(memory);
        for (size_t i = 0; i < k_; ++i) {
            live_[i] = readers_[i].Advance();
            failed_ = failed_ || readers_[i].Failed();
        }
        // Leaf i stands at node k + i; play every match bottom-up once.
        std::vector<size_t> winner(2 * k_);
        for (size_t i = 0; i < k_; ++i) winner[k_ + i] = i;
        for (size_t node = k_; node-- > 1;) {
            size_t a = winner[2 * node], b = winner[2 * node + 1];
            bool aWins = Beats(a, b);
            winner[node] = aWins ? a : b;
            loser_[node] = aWins ? b : a;
        }
        top_ = k_ > 1 ? winner[1] : 0;
    }

    // As ExternalSort::Next: the element stays valid until the next call.
    int Next(int32_t* size, const unsigned char** element) {
        if (pending_) {
            pending_ = false;
            live_[top_] = readers_[top_].Advance();
            failed_ = failed_ || readers_[top_].Failed();
            Replay(top_);
        }
        if (failed_) return -1;
        if (k_ == 0 || !live_[top_]) return 1;
        const SortElement& e = readers_[top_].Current();
        *size = e.size;
        *element = e.data;
        pending_ = true;
        return 0;
    }

private:
    // Whether run a's element comes first; an exhausted run loses to all.
    bool Beats(size_t a, size_t b) const {
        if (!live_[a]) return false;
        if (!live_[b]) return true;
        return compare_(&readers_[a].Current(), &readers_[b].Current()) <= 0;
    }

    void Replay(size_t run) {
        for (size_t node = (k_ + run) / 2; node >= 1; node /= 2) {
            if (Beats(loser_[node], run)) std::swap(loser_[node], run);
        }
        top_ = run;
    }

    CompareFunction compare_;
    size_t k_;
    std::vector<RunReader> readers_;
    std::vector<size_t> loser_;  // node 1 is the root; node 0 is unused
    std::vector<bool> live_;
    size_t top_ = 0;
    bool pending_ = false;
    bool failed_ = false;
};

struct FreeDeleter {
    void operator()(unsigned char* p) const { std::free(p); }
};

}  // namespace

class ExternalSort::Impl {
public:
    Impl(CompareFunction compare, int64_t budget, int32_t expectedCount)
        : compare_(compare), budget_(budget), arenaSize_(std::min(budget, kMaxArena)) {
        elements_.reserve(
            static_cast<size_t>(std::clamp<int64_t>(expectedCount, 0, budget / kPerElement)));
    }

    // The area is touched page by page as it fills: in huge pages, where the
    // system gives them, that is one fault in 512.
    bool Ready() {
        size_t size = (static_cast<size_t>(arenaSize_) + kHugePage - 1) / kHugePage * kHugePage;
        arena_.reset(static_cast<unsigned char*>(std::aligned_alloc(kHugePage, size)));
        if (arena_) ::madvise(arena_.get(), size, MADV_HUGEPAGE);
        return arena_ != nullptr;
    }

    bool SetPrefix(PrefixFunction prefix) {
        if (state_ != kCollecting || count_ != 0) return false;
        prefix_ = prefix;
        perElement_ = kPerElement + (prefix ? static_cast<int64_t>(sizeof(Keyed)) : 0);
        return true;
    }

    bool Add(int32_t size, const void* element) {
        if (state_ != kCollecting || size < 0 || (size > 0 && !element)) return false;
        bool fitsArena = arenaFill_ + size <= arenaSize_;
        if (!elements_.empty() && (!fitsArena || MemoryUsed() + perElement_ + size > budget_) &&
            !Spill()) {
            return Fail();
        }
        if (elements_.size() == elements_.capacity()) ReserveForBudget();
        maxElement_ = std::max(maxElement_, size);
        if (size > arenaSize_) {  // too big to hold: it becomes a run of its own
            elements_.push_back({size, static_cast<const unsigned char*>(element)});
            bool ok = Spill();
            if (ok) ++count_;
            return ok ? true : Fail();
        }
        unsigned char* copy = arena_.get() + arenaFill_;
        if (size > 0) std::memcpy(copy, element, static_cast<size_t>(size));
        arenaFill_ += size;
        elements_.push_back({size, copy});
        ++count_;
        return true;
    }

    bool Sort() {
        if (state_ != kCollecting) return false;
        if (runs_.empty()) {
            SortInMemory();
            state_ = kInMemory;
            return true;
        }
        // The last run is merged from memory rather than written and read
        // back, when what it leaves of the budget reads the runs on disk.
        if (!elements_.empty() &&
            static_cast<int64_t>(runs_.size()) * kMinRunBuffer <= budget_ - MemoryUsed()) {
            SortInMemory();
            merger_ = std::make_unique<Merger>(compare_, &file_, runs_,
                                               ReadBuffer(runs_.size(), budget_ - MemoryUsed()),
                                               maxElement_, &elements_);
            state_ = kMerging;
            return true;
        }
        if (!elements_.empty() && !Spill()) return Fail();
        arena_.reset();
        if (!MergeDownTo(FanIn())) return Fail();
        merger_ = std::make_unique<Merger>(compare_, &file_, runs_,
                                           ReadBuffer(runs_.size(), budget_), maxElement_);
        state_ = kMerging;
        return true;
    }

    int Next(int32_t* size, const unsigned char** element) {
        if (!size || !element) return -1;
        switch (state_) {
            case kInMemory:
                if (next_ == elements_.size()) return 1;
                PrefetchAhead(elements_, next_);
                *size = elements_[next_].size;
                *element = elements_[next_].data;
                ++next_;
                return 0;
            case kMerging: {
                int result = merger_->Next(size, element);
                if (result < 0) state_ = kFailed;
                return result;
            }
            default:
                return -1;
        }
    }

    int64_t Count() const { return count_; }
    int RunCount() const { return spilled_; }

private:
    enum State { kCollecting, kInMemory, kMerging, kFailed };

    int64_t MemoryUsed() const {
        return arenaFill_ + static_cast<int64_t>(elements_.size()) * perElement_;
    }

    // Growing the list by doubling would copy it and touch fresh memory at
    // each step; room for all the budget can hold costs address space only.
    void ReserveForBudget() {
        int64_t room = (std::min(budget_, kMaxArena) - MemoryUsed()) / perElement_;
        elements_.reserve(elements_.size() + static_cast<size_t>(std::max<int64_t>(room, 1)));
    }

    // How many runs one merge reads at once within the budget.
    size_t FanIn() const {
        return static_cast<size_t>(std::max<int64_t>(2, budget_ / kMinRunBuffer));
    }
    // Each run's share of `memory`.
    static int64_t ReadBuffer(size_t runs, int64_t memory) {
        return std::max(kMinRunBuffer, memory / static_cast<int64_t>(std::max<size_t>(runs, 1)));
    }

    struct Keyed {
        uint64_t prefix;
        SortElement element;
    };

    void SortInMemory() {
        if (prefix_) return SortByPrefix();
        CompareFunction compare = compare_;
        std::sort(
            elements_.begin(), elements_.end(),
            [compare](const SortElement& a, const SortElement& b) { return compare(&a, &b) < 0; });
    }

    // The pairs sort with the prefixes inline and beside the element, so
    // that the compare function is called only on ties. They live on from
    // run to run, so that later runs reuse memory already touched.
    void SortByPrefix() {
        std::vector<Keyed>& keyed = keyed_;
        keyed.clear();
        keyed.reserve(elements_.size());
        for (const SortElement& e : elements_) keyed.push_back({prefix_(&e), e});
        CompareFunction compare = compare_;
        std::sort(keyed.begin(), keyed.end(), [compare](const Keyed& a, const Keyed& b) {
            if (a.prefix != b.prefix) return a.prefix < b.prefix;
            return compare(&a.element, &b.element) < 0;
        });
        for (size_t i = 0; i < keyed.size(); ++i) elements_[i] = keyed[i].element;
    }

    bool Spill() {
        if (!file_.Open()) return false;
        SortInMemory();
        RunWriter writer(&file_);
        for (size_t i = 0; i < elements_.size(); ++i) {
            PrefetchAhead(elements_, i);
            if (!writer.Add(elements_[i])) return false;
        }
        Run run;
        if (!writer.Finish(&run)) return false;
        runs_.push_back(run);
        ++spilled_;
        elements_.clear();
        arenaFill_ = 0;
        return true;
    }

    // Merges groups of runs into longer runs until at most fanIn remain.
    bool MergeDownTo(size_t fanIn) {
        while (runs_.size() > fanIn) {
            std::vector<Run> merged;
            for (size_t first = 0; first < runs_.size(); first += fanIn) {
                size_t last = std::min(first + fanIn, runs_.size());
                std::vector<Run> group(runs_.begin() + static_cast<std::ptrdiff_t>(first),
                                       runs_.begin() + static_cast<std::ptrdiff_t>(last));
                Merger merger(compare_, &file_, group, ReadBuffer(group.size(), budget_),
                              maxElement_);
                RunWriter writer(&file_);
                int32_t size;
                const unsigned char* data;
                int result;
                while ((result = merger.Next(&size, &data)) == 0) {
                    if (!writer.Add({size, data})) return false;
                }
                Run run;
                if (result < 0 || !writer.Finish(&run)) return false;
                merged.push_back(run);
            }
            runs_ = std::move(merged);
        }
        return true;
    }

    bool Fail() {
        state_ = kFailed;
        elements_.clear();
        arena_.reset();
        return false;
    }

    CompareFunction compare_;
    PrefixFunction prefix_ = nullptr;
    int64_t perElement_ = kPerElement;
    int64_t budget_;
    int64_t arenaSize_;
    std::unique_ptr<unsigned char, FreeDeleter> arena_;
    int64_t arenaFill_ = 0;
    std::vector<SortElement> elements_;
    std::vector<Keyed> keyed_;
    int32_t maxElement_ = 0;
    int64_t count_ = 0;
    int spilled_ = 0;

    RunFile file_;
    std::vector<Run> runs_;

    State state_ = kCollecting;
    size_t next_ = 0;
    std::unique_ptr<Merger> merger_;
};

ExternalSort::ExternalSort() = default;
ExternalSort::~ExternalSort() = default;

bool ExternalSort::Init(CompareFunction compare, int32_t memoryBudget, int32_t expectedCount) {
    impl_.reset();
    if (!compare || memoryBudget <= 0) return false;
    auto impl =
        std::unique_ptr<Impl>(new (std::nothrow) Impl(compare, memoryBudget, expectedCount));
    if (!impl || !impl->Ready()) return false;
    impl_ = std::move(impl);
    return true;
}

bool ExternalSort::SetPrefix(PrefixFunction prefix) {
    return impl_ && impl_->SetPrefix(prefix);
}

bool ExternalSort::Add(int32_t size, const void* element) {
    return impl_ && impl_->Add(size, element);
}

bool ExternalSort::Sort() {
    return impl_ && impl_->Sort();
}

int ExternalSort::Next(int32_t* size, const unsigned char** element) {
    return impl_ ? impl_->Next(size, element) : -1;
}

int64_t ExternalSort::GetCount() const {
    return impl_ ? impl_->Count() : 0;
}

int ExternalSort::GetRunCount() const {
    return impl_ ? impl_->RunCount() : 0;
}

}  // namespace quillet
