// The 7-bit Arabic code pages 448 ("ALARABI") and 449 ("ASMO 449"). Their text
// is 7-bit; Arabic letters occupy 0x40-0x7F, where Latin letters lie in ASCII.
// "{" switches to Latin mode and "}" to Arabic mode. The index file gives, for
// each of the 64 codes 0x40-0x7F, the byte of Windows code page 1256 that the
// code stands for in Arabic mode (0: none).

#include <cinttypes>
#include <new>

#include "codepage/CodePage.h"
#include "codepage/TableFile.h"

namespace quillet {

namespace {

constexpr size_t kIndexEntries = 64;
constexpr unsigned char kFirstIndexed = 0x40;
constexpr unsigned char kLatinSwitch = '{';
constexpr unsigned char kArabicSwitch = '}';

}  // namespace

void CodePage::init_arab7(const wchar_t* path) {
    if (!arabToWindows_) arabToWindows_.reset(new (std::nothrow) unsigned char[256]);
    if (!arabFromWindows_) arabFromWindows_.reset(new (std::nothrow) unsigned char[256]);
    if (!arab7Index_) arab7Index_.reset(new (std::nothrow) unsigned char[kIndexEntries]());
    if (!arabToWindows_ || !arabFromWindows_ || !arab7Index_) {
        arabToWindows_.reset();
        return;
    }

    if (auto file = OpenTableFile(path)) {
        int value = 0;
        for (size_t i = 0; i < kIndexEntries && !std::feof(file.get()) &&
                           std::fscanf(file.get(), "%d", &value) == 1;
             ++i) {
            arab7Index_[i] = static_cast<unsigned char>(value);
        }
    }

    for (unsigned b = 0; b < 256; ++b) {
        arabToWindows_[b] = static_cast<unsigned char>(b);
        arabFromWindows_[b] = static_cast<unsigned char>(b);
    }
    for (size_t i = 0; i < kIndexEntries; ++i) {
        arabToWindows_[kFirstIndexed + i] = arab7Index_[i];
        if (arab7Index_[i] != 0) arabFromWindows_[arab7Index_[i]] = static_cast<unsigned char>(kFirstIndexed + i);
    }
}

bool CodePage::isLatin(unsigned char ch) {
    return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

bool CodePage::Latin_Conv_To_Wincode(Arab7Cursor& c) {
    for (; *c.src && c.dst < c.end; ++c.src) {
        unsigned char byte = *c.src;
        if (byte == kArabicSwitch && c.depth == 0) {
            ++c.src;
            return true;
        }
        if (byte == kLatinSwitch) ++c.depth;
        if (byte == kArabicSwitch) --c.depth;
        *c.dst++ = static_cast<char>(byte);
    }
    return false;
}

bool CodePage::Arab_Conv_To_Wincode(Arab7Cursor& c) {
    for (; *c.src && c.dst < c.end; ++c.src) {
        unsigned char byte = *c.src;
        if (byte == kLatinSwitch && c.depth == 0) {
            ++c.src;
            return true;
        }
        if (byte == kArabicSwitch && c.depth > 0) --c.depth;
        unsigned char windows = arabToWindows_[byte];
        if (windows != 0) *c.dst++ = static_cast<char>(windows);
    }
    return false;
}

bool CodePage::Latin_Conv_From_Wincode(Arab7Cursor& c) {
    for (; *c.src && c.dst < c.end; ++c.src) {
        if (*c.src >= 0x80) {
            *c.dst++ = static_cast<char>(kArabicSwitch);
            return true;
        }
        *c.dst++ = static_cast<char>(*c.src);
    }
    return false;
}

bool CodePage::Arab_Conv_From_Wincode(Arab7Cursor& c) {
    for (; *c.src && c.dst < c.end; ++c.src) {
        if (isLatin(*c.src)) {
            *c.dst++ = static_cast<char>(kLatinSwitch);
            return true;
        }
        *c.dst++ = static_cast<char>(arabFromWindows_[*c.src]);
    }
    return false;
}

void CodePage::From_Arab7_To_Wincode(const char* src, char* dst, uint32_t size) {
    if (size == 0) return;
    Arab7Cursor c{reinterpret_cast<const unsigned char*>(src), dst, dst + size - 1, 0};
    if (HasArabicTables()) {
        bool arabic = arabicMajor_ != 0;
        while (arabic ? Arab_Conv_To_Wincode(c) : Latin_Conv_To_Wincode(c)) arabic = !arabic;
    }
    *c.dst = '\0';
}

void CodePage::From_Wincode_To_Arab7(const char* src, char* dst, uint32_t size) {
    if (size == 0) return;
    Arab7Cursor c{reinterpret_cast<const unsigned char*>(src), dst, dst + size - 1, 0};
    if (HasArabicTables()) {
        bool arabic = arabicMajor_ != 0;
        while (arabic ? Arab_Conv_From_Wincode(c) : Latin_Conv_From_Wincode(c)) arabic = !arabic;
    }
    *c.dst = '\0';
}

}  // namespace quillet
