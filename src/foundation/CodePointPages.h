#pragma once

// A value for each code point up to U+FFFF, such as the byte a code page
// writes for a character, found in constant time: 256-entry pages by the high
// byte of the code point, the pages without any value sharing one page of
// `kAbsent`. Internal to the library.

#include <array>
#include <cstdint>
#include <vector>

namespace quillet {

template <class T, T kAbsent>
class CodePointPages {
public:
    CodePointPages() {
        pageOf_.fill(0);
        pages_.emplace_back().fill(kAbsent);
    }

    void Set(uint16_t cp, T value) {
        uint16_t& page = pageOf_[cp >> 8];
        if (page == 0) {
            page = static_cast<uint16_t>(pages_.size());
            pages_.push_back(pages_[0]);
        }
        pages_[page][cp & 0xFF] = value;
    }

    // kAbsent for code points above U+FFFF too.
    T Find(uint32_t cp) const { return cp > 0xFFFF ? kAbsent : pages_[pageOf_[cp >> 8]][cp & 0xFF]; }

private:
    // 16 bits: with the shared page there can be 257 pages.
    std::array<uint16_t, 256> pageOf_;
    std::vector<std::array<T, 256>> pages_;
};

}  // namespace quillet
