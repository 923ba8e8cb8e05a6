#pragma once

// StringArray: an ordered array of String.

#include <vector>

#include "foundation/Export.h"
#include "foundation/String.h"

namespace quillet {

class QUILLET_EXPORT StringArray {
public:
    int GetSize() const { return static_cast<int>(items_.size()); }
    const String& operator[](int index) const { return items_[static_cast<size_t>(index)]; }
    String& operator[](int index) { return items_[static_cast<size_t>(index)]; }
    // Inserts before `index`; an index at or past the end appends.
    void Insert(const String& text, int index);
    void Add(const String& text) { items_.push_back(text); }
    // Replaces the item at `index`; false when out of range.
    bool Set(int index, const String& text);
    void RemoveAt(int index);
    void RemoveAll() { items_.clear(); }

    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }

private:
    std::vector<String> items_;
};

}  // namespace quillet
