#include "recordfile/VFileNGCheck.h"

#include <cstdlib>
#include <map>

namespace quillet {

namespace {

struct Block {
    int32_t size;  // as its header says: negative when deleted
    bool used = false;
};

class Checker {
public:
    Checker(VFileNG& file, FreeList* list, size_t maxProblems)
        : file_(file), list_(list), maxProblems_(maxProblems) {}

    VFileNGCheck::Report Run() {
        WalkBlocks();
        CheckIndex();
        CheckUserHeader();
        for (const auto& [position, block] : blocks_) {
            if (block.size < 0 || block.used) continue;
            if (block.size == 0) {
                // A deleted block of a bare header reads as size 0, the same
                // as an empty record: no record holding it tells them apart.
                --report_.liveBlocks;
                ++report_.deletedBlocks;
                report_.deletedBytes += file_.GetRecordHeaderLength();
            } else {
                Problem("the live block at " + std::to_string(position) + " belongs to no record");
            }
        }
        CheckCounts();
        CheckFreeList();
        return report_;
    }

private:
    void Problem(const std::string& text) {
        if (report_.problems.size() < maxProblems_) report_.problems.push_back(text);
    }

    void WalkBlocks() {
        const VFileNG::FileHeader& header = file_.GetHeader();
        const int64_t headerLength = file_.GetRecordHeaderLength();
        int64_t position = VFileNG::kHeaderLength;
        VFileNG::RecordHeader block;
        // Every block is at least a header long, so the walk ends.
        while (position < header.endOfData) {
            if (!file_.ReadRecordHeader(position, block)) {
                Problem("the block at " + std::to_string(position) + " cannot be read");
                return;
            }
            int64_t length = headerLength + std::abs(int64_t{block.size});
            if (std::abs(int64_t{block.size}) > header.maxRecordLength) {
                Problem("the block at " + std::to_string(position) + " claims " +
                        std::to_string(block.size) + " bytes, beyond the longest record");
                return;
            }
            blocks_[position] = Block{block.size};
            if (block.size >= 0) {
                ++report_.liveBlocks;
            } else {
                ++report_.deletedBlocks;
                report_.deletedBytes += length;
            }
            position += length;
        }
        if (position != header.endOfData) {
            Problem("the last block ends at " + std::to_string(position) +
                    ", past the end of data " + std::to_string(header.endOfData));
        }
    }

    void CheckCounts() {
        const VFileNG::FileHeader& header = file_.GetHeader();
        if (report_.deletedBytes != header.freeBytes) {
            Problem("the header counts " + std::to_string(header.freeBytes) +
                    " free bytes, the deleted blocks hold " + std::to_string(report_.deletedBytes));
        }
    }

    // Marks the live block at `position` as used by `owner`.
    void Claim(int64_t position, const std::string& owner) {
        auto it = blocks_.find(position);
        if (it == blocks_.end() || it->second.size < 0) {
            Problem(owner + " points at " + std::to_string(position) + ", which is no live block");
        } else if (it->second.used) {
            Problem(owner + " points at the block at " + std::to_string(position) +
                    ", which another record holds too");
        } else {
            it->second.used = true;
        }
    }

    void CheckIndex() {
        VFileNGIndex& index = file_.GetIndex();
        int32_t max = index.GetHeader().maxRecordNumber;
        for (int32_t n = index.GetNextStoredNumber(1); n >= 1 && n <= max;
             n = n < INT32_MAX ? index.GetNextStoredNumber(n + 1) : -1) {
            int64_t position = index.GetFilePosition(n);
            if (position <= 0) continue;
            ++report_.records;
            Claim(position, "record " + std::to_string(n));
        }
        if (report_.records != file_.GetHeader().recordCount) {
            Problem("the header counts " + std::to_string(file_.GetHeader().recordCount) +
                    " records, the index points at " + std::to_string(report_.records));
        }
    }

    void CheckUserHeader() {
        int64_t position = file_.GetHeader().userHeaderPosition;
        if (position != 0) Claim(position, "the user header");
    }

    void CheckFreeList() {
        if (!list_) return;
        std::vector<FreeList::FreeBlock> free;
        if (FAILED(list_->ListBlocks(free))) {
            Problem("the free list's chains cannot be walked");
            return;
        }
        report_.freeListBlocks = static_cast<int64_t>(free.size());
        const int64_t headerLength = file_.GetRecordHeaderLength();
        for (const FreeList::FreeBlock& entry : free) {
            auto it = blocks_.find(entry.position);
            std::string where = "the free list's block of " + std::to_string(entry.size) +
                                " bytes at " + std::to_string(entry.position);
            if (it == blocks_.end()) {
                Problem(where + " starts no block");
            } else if (it->second.size >= 0) {
                Problem(where + " is a live block");
            } else if (headerLength - it->second.size != entry.size) {
                Problem(where + " is a deleted block of " +
                        std::to_string(headerLength - it->second.size) + " bytes");
            }
        }
    }

    VFileNG& file_;
    FreeList* list_;
    size_t maxProblems_;
    std::map<int64_t, Block> blocks_;
    VFileNGCheck::Report report_;
};

}  // namespace

VFileNGCheck::Report VFileNGCheck::Run(VFileNG& file, FreeList* list, size_t maxProblems) {
    return Checker(file, list, maxProblems).Run();
}

}  // namespace quillet
