// The consistency check of an .atx tree, level by level from the root down.
// A level is the brother chain from the first child of the level above; its
// nodes must be that level's children, in order (the extra last pointer of a
// node may repeat its brother's first child, as the bulk builder writes
// them); each separator must be the last key below its child; and the leaves
// must hold every key in order.

#include <cstdio>
#include <cstring>

#include "attrindex/LegacyIndex.h"

namespace quillet {

namespace {

std::string Problem(const char* what, int32_t node) {
    char text[128];
    std::snprintf(text, sizeof text, "%s (node %d)", what, node);
    return text;
}

}  // namespace

std::string LegacyIndex::Check(int64_t& entries) {
    entries = 0;
    std::vector<bool> seen(static_cast<size_t>(nodes_) + 1, false);
    std::vector<Member> root;
    return CheckLevel(nodes_, 0, entries, seen, root);
}

std::string LegacyIndex::CheckLeaf(const Node& node, std::string& previous, int64_t& entries) {
    int32_t count = node.Count();
    for (int32_t i = 0; i < count; ++i) {
        const unsigned char* key = layout_.KeyAt(node.image, i);
        if (!previous.empty() &&
            layout_.Compare(reinterpret_cast<const unsigned char*>(previous.data()), key) > 0) {
            return Problem("keys out of order", node.number);
        }
        previous.assign(reinterpret_cast<const char*>(key), static_cast<size_t>(layout_.width));
    }
    entries += count;
    return std::string();
}

std::string LegacyIndex::CheckLevel(int32_t first, int depth, int64_t& entries,
                                    std::vector<bool>& seen, std::vector<Member>& level) {
    if (depth > 32) return Problem("more levels than any index has", first);
    std::vector<int32_t> children;
    std::vector<std::string> separators;
    // Per interior node: its first child's place in `children` and its key count.
    std::vector<size_t> start;
    std::vector<int32_t> counts;
    std::string previous;
    Node node;
    for (int32_t n = first; n != 0; n = node.Word(0)) {
        if (n < 1 || n > nodes_ || seen[static_cast<size_t>(n)]) {
            return Problem("a link that leaves the file or loops", n);
        }
        seen[static_cast<size_t>(n)] = true;
        if (!ReadNode(n, node)) return Problem("an unreadable node or a key count out of range", n);
        bool leaves = level.empty() ? node.IsLeaf() : level.front().leaf;
        if (node.IsLeaf() != leaves) return Problem("leaves and interior nodes on one level", n);
        level.push_back({n, leaves, std::string()});
        if (leaves) {
            std::string problem = CheckLeaf(node, previous, entries);
            if (!problem.empty()) return problem;
            if (node.Count() > 0) level.back().lastKey = previous;
            continue;
        }
        // The extra last pointer of the left brother repeats this first child.
        if (!children.empty() && children.back() == node.Child(0)) children.pop_back();
        start.push_back(children.size());
        counts.push_back(node.Count());
        for (int32_t c = 0; c <= node.Count(); ++c) {
            children.push_back(node.Child(c));
            if (c < node.Count()) {
                separators.emplace_back(reinterpret_cast<const char*>(layout_.KeyAt(node.image, c)),
                                        static_cast<size_t>(layout_.width));
            }
        }
    }
    if (level.empty() || level.front().leaf) {
        if (level.size() > 1 && entries == 0) return Problem("empty leaves", first);
        return std::string();
    }
    std::vector<Member> below;
    std::string problem = CheckLevel(children.front(), depth + 1, entries, seen, below);
    if (!problem.empty()) return problem;
    if (below.size() != children.size()) return Problem("children missing from their level", first);
    size_t s = 0;
    for (size_t i = 0; i < children.size(); ++i) {
        if (below[i].number != children[i]) return Problem("a child out of place", children[i]);
    }
    for (size_t m = 0; m < level.size(); ++m) {
        size_t end = m + 1 < level.size() ? start[m + 1] : children.size();
        for (int32_t k = 0; k < counts[m]; ++k, ++s) {
            if (start[m] + k >= end || separators[s] != below[start[m] + k].lastKey) {
                return Problem("a separator that is not its child's last key", level[m].number);
            }
        }
        level[m].lastKey = below[end - 1].lastKey;
    }
    return std::string();
}

}  // namespace quillet
