#include "foundation/StringArray.h"

#include <algorithm>
#include <cstddef>

namespace quillet {

void StringArray::Insert(const String& text, int index) {
    size_t at = index < 0 ? 0 : std::min(static_cast<size_t>(index), items_.size());
    items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(at), text);
}

bool StringArray::Set(int index, const String& text) {
    if (index < 0 || index >= GetSize()) return false;
    items_[static_cast<size_t>(index)] = text;
    return true;
}

void StringArray::RemoveAt(int index) {
    if (index < 0 || index >= GetSize()) return;
    items_.erase(items_.begin() + index);
}

}  // namespace quillet
