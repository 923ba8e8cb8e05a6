#include "foundation/RecNumSet.h"

#include <algorithm>

namespace quillet {

void RecNumSet::Add(int32_t n) {
    AddRange(n, n);
}

void RecNumSet::AddRange(int32_t first, int32_t last) {
    if (last < first) return;
    if (sorted_ && !ranges_.empty()) {
        auto& back = ranges_.back();
        // Numbers mostly come in ascending order: grow the last range in place.
        if (first >= back.first && int64_t{first} <= int64_t{back.second} + 1) {
            back.second = std::max(back.second, last);
            return;
        }
        if (first < back.first) sorted_ = false;
    }
    ranges_.emplace_back(first, last);
}

bool RecNumSet::Contains(int32_t n) const {
    Normalize();
    auto it = std::upper_bound(ranges_.begin(), ranges_.end(), n,
                               [](int32_t v, const auto& range) { return v < range.first; });
    return it != ranges_.begin() && n <= std::prev(it)->second;
}

int64_t RecNumSet::Count() const {
    Normalize();
    int64_t count = 0;
    for (const auto& [first, last] : ranges_) count += int64_t{last} - first + 1;
    return count;
}

void RecNumSet::Clear() {
    ranges_.clear();
    sorted_ = true;
}

std::vector<int32_t> RecNumSet::ToVector() const {
    Normalize();
    std::vector<int32_t> numbers;
    numbers.reserve(static_cast<size_t>(Count()));
    for (const auto& [first, last] : ranges_) {
        for (int64_t n = first; n <= last; ++n) numbers.push_back(static_cast<int32_t>(n));
    }
    return numbers;
}

bool RecNumSet::ToVector(std::vector<int32_t>& out, int64_t maxCount) const {
    out.clear();
    if (Count() > maxCount) return false;
    out = ToVector();
    return true;
}

const std::vector<std::pair<int32_t, int32_t>>& RecNumSet::Ranges() const {
    Normalize();
    return ranges_;
}

void RecNumSet::Normalize() const {
    if (sorted_) return;
    std::sort(ranges_.begin(), ranges_.end());
    size_t out = 0;
    for (size_t i = 1; i < ranges_.size(); ++i) {
        auto& current = ranges_[out];
        if (int64_t{ranges_[i].first} <= int64_t{current.second} + 1) {
            current.second = std::max(current.second, ranges_[i].second);
        } else {
            ranges_[++out] = ranges_[i];
        }
    }
    ranges_.resize(out + 1);
    sorted_ = true;
}

}  // namespace quillet
