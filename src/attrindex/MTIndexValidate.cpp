// The consistency check of a tree: every level is walked left to right as
// the level above lists it, and each node is checked against its place.

#include <algorithm>
#include <vector>

#include "attrindex/MTIndex.h"

namespace quillet {

namespace {

// The nodes of one level, in order, with the separator each has above it
// (the last child of a level has none).
struct LevelList {
    std::vector<int32_t> nodes;
    std::vector<unsigned char> separators;
    std::vector<bool> hasSeparator;

    void Add(int32_t node, const unsigned char* separator, size_t width) {
        nodes.push_back(node);
        hasSeparator.push_back(separator != nullptr);
        size_t at = separators.size();
        separators.resize(at + width);
        if (separator)
            std::copy(separator, separator + width,
                      separators.begin() + static_cast<ptrdiff_t>(at));
    }
    void SetLastSeparator(const unsigned char* separator, size_t width) {
        hasSeparator.back() = true;
        std::copy(separator, separator + width, separators.end() - static_cast<ptrdiff_t>(width));
    }
};

}  // namespace

HRESULT MTIndex::Validate() {
    TreeCensus census;
    return CheckTree(census);
}

HRESULT MTIndex::CountTree(int64_t& entries, int32_t& nodes) {
    TreeCensus census;
    HRESULT hr = CheckTree(census);
    entries = census.entries;
    nodes = static_cast<int32_t>(std::count(census.inTree.begin(), census.inTree.end(), true));
    return hr;
}

HRESULT MTIndex::CheckTree(TreeCensus& census) {
    if (!IsOpen()) return E_UNEXPECTED;
    HRESULT hr = CommitAll();
    if (FAILED(hr)) return hr;
    int32_t nodes = std::max(GetNodeCount(), rootIndex_);
    census.entries = 0;
    census.inTree.assign(static_cast<size_t>(nodes) + 1, false);
    auto width = static_cast<size_t>(geometry_.keyWidth);
    MTNode node(this);
    LevelList level;
    level.Add(rootIndex_, nullptr, width);
    for (int32_t depth = 0; depth < levels_; ++depth) {
        bool leafLevel = depth == levels_ - 1;
        LevelList below;
        std::vector<unsigned char> previous(width);
        int32_t previousId = 0;
        bool havePrevious = false;
        for (size_t j = 0; j < level.nodes.size(); ++j) {
            int32_t n = level.nodes[j];
            if (n < 1 || n > nodes) {
                Report(L"node %d at level %d lies outside the file", n, depth);
                return E_FAIL;
            }
            if (census.inTree[static_cast<size_t>(n)]) {
                Report(L"node %d is reached twice", n);
                return E_FAIL;
            }
            census.inTree[static_cast<size_t>(n)] = true;
            hr = node.ReadNode(n);
            if (hr == E_FAIL) Report(L"node %d has a key count out of range", n);
            if (FAILED(hr) && hr != E_FAIL) Report(L"node %d cannot be read (0x%08X)", n, hr);
            if (FAILED(hr)) return hr;
            int32_t count = node.GetCount();
            int32_t brother = j + 1 < level.nodes.size() ? level.nodes[j + 1] : 0;
            const wchar_t* fault = nullptr;
            if (node.IsLeaf() != leafLevel) {
                fault = leafLevel ? L"node %d is not a leaf, at the leaf level"
                                  : L"node %d is a leaf above the leaf level";
            } else if (node.GetBrother() != brother) {
                fault = L"node %d does not link to the next node of its level";
            } else if (n != rootIndex_ && count < 1) {
                fault = L"node %d is empty";
            } else if (level.hasSeparator[j] &&
                       node.CompareBytes(count - 1, &level.separators[j * width]) != 0) {
                fault = L"node %d: the separator above it is not its last key";
            } else if (!leafLevel && j > 0 && node.GetLeftmost() != below.nodes.back()) {
                fault =
                    L"node %d: its leftmost child does not repeat its left brother's last child";
            }
            for (int32_t i = 0; !fault && i < count; ++i) {
                bool first = i == 0;
                if (first && !havePrevious) continue;
                const unsigned char* before = first ? previous.data() : node.GetKeyPtr(i - 1);
                int32_t beforeId = first ? previousId : node.GetId(i - 1);
                int c = node.CompareBytes(i, before);
                if (c < 0 || (leafLevel && c == 0 && node.GetId(i) <= beforeId)) {
                    fault = L"node %d: its keys are out of order";
                }
            }
            if (fault) {
                Report(fault, n);
                return E_FAIL;
            }
            if (leafLevel) {
                census.entries += count;
            } else {
                if (j > 0 && count > 0) below.SetLastSeparator(node.GetKeyPtr(0), width);
                for (int32_t c = j == 0 ? 0 : 1; c <= count; ++c) {
                    below.Add(node.GetChild(c), c < count ? node.GetKeyPtr(c) : nullptr, width);
                }
            }
            if (count > 0) {
                std::copy(node.GetKeyPtr(count - 1), node.GetKeyPtr(count - 1) + width,
                          previous.begin());
                previousId = node.GetId(count - 1);
                havePrevious = true;
            }
        }
        level = std::move(below);
    }
    return S_OK;
}

}  // namespace quillet
