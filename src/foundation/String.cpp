#include "foundation/String.h"

#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <limits>
#include <stdexcept>
#include <vector>

#include "foundation/SystemCodePage.h"
#include "foundation/Variant.h"

namespace quillet {

namespace {

std::wstring NarrowToWide(const char* narrow) {
    if (!narrow || !*narrow) return {};
    size_t needed = sys::mbstowcs(nullptr, narrow, 0);
    if (needed == static_cast<size_t>(-1)) {
        // Not valid in the multibyte encoding: keep the bytes as Latin-1 so
        // that nothing is lost silently.
        std::wstring out;
        for (const char* p = narrow; *p; ++p) out += static_cast<wchar_t>(static_cast<unsigned char>(*p));
        return out;
    }
    std::wstring out(needed, L'\0');
    sys::mbstowcs(out.data(), narrow, needed);
    return out;
}

bool IsBlank(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }

// Simple case mapping of the alphabets tables and field names use (Latin,
// Greek, Cyrillic). The C library's towlower would depend on the process's
// locale, which the library never relies on.
wchar_t ToLower(wchar_t c) {
    if ((c >= L'A' && c <= L'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7) ||
        (c >= 0x391 && c <= 0x3AB && c != 0x3A2) || (c >= 0x410 && c <= 0x42F)) {
        return static_cast<wchar_t>(c + 0x20);
    }
    if (c >= 0x400 && c <= 0x40F) return static_cast<wchar_t>(c + 0x50);
    if (c >= 0x100 && c <= 0x17F && c != 0x130 && c != 0x131 && c != 0x138 && c != 0x149 &&
        c != 0x178) {
        bool evenIsUpper = (c < 0x139) || (c > 0x148 && c < 0x179);
        if ((c % 2 == 0) == evenIsUpper) return static_cast<wchar_t>(c + 1);
    }
    if (c == 0x178) return 0xFF;
    return c;
}

wchar_t ToUpper(wchar_t c) {
    if ((c >= L'a' && c <= L'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7) ||
        (c >= 0x3B1 && c <= 0x3CB && c != 0x3C2) || (c >= 0x430 && c <= 0x44F)) {
        return static_cast<wchar_t>(c - 0x20);
    }
    if (c >= 0x450 && c <= 0x45F) return static_cast<wchar_t>(c - 0x50);
    if (c >= 0x100 && c <= 0x17F && ToLower(static_cast<wchar_t>(c - 1)) == c) {
        return static_cast<wchar_t>(c - 1);
    }
    if (c == 0xFF) return 0x178;
    return c;
}

}  // namespace

// --- Storage -----------------------------------------------------------------

// Moves the first `keep` characters into a heap block with room for at
// least `length`. Returns the heap block given up (null for the inline one)
// for the caller to free once nothing reads from it any more.
wchar_t* String::Grow(size_t length, size_t keep) {
    if (length >= std::numeric_limits<uint32_t>::max() / 2) throw std::length_error("String too long");
    // Doubling keeps repeated appends linear.
    size_t capacity = std::max(length, size_t{capacity_} * 2);
    auto* grown = new wchar_t[capacity + 1];
    std::wmemcpy(grown, data_, keep);
    wchar_t* old = IsInline() ? nullptr : data_;
    data_ = grown;
    capacity_ = static_cast<uint32_t>(capacity);
    return old;
}

void String::Splice(size_t keep, std::wstring_view tail) {
    size_t length = keep + tail.size();
    wchar_t* old = length > capacity_ ? Grow(length, keep) : nullptr;
    if (!tail.empty()) std::wmemmove(data_ + keep, tail.data(), tail.size());
    delete[] old;
    length_ = static_cast<uint32_t>(length);
    data_[length] = L'\0';
}

String& String::operator=(const String& other) {
    if (this != &other) Assign(other.view());
    return *this;
}

String& String::operator=(String&& other) noexcept {
    if (this != &other) {
        FreeHeap();
        data_ = inline_;
        TakeFrom(other);
    }
    return *this;
}

// --- Text --------------------------------------------------------------------

String::String(const char* narrow) {
    inline_[0] = L'\0';
    Assign(NarrowToWide(narrow));
}

String String::FromUtf8(std::string_view utf8) {
    std::wstring out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        auto c = static_cast<unsigned char>(utf8[i]);
        int extra = c < 0x80 ? 0 : c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : -1;
        bool truncated = extra > 0 && i + static_cast<size_t>(extra) >= utf8.size();
        if (extra < 0 || truncated) {
            out += L'\xFFFD';
            ++i;
            continue;
        }
        char32_t cp = extra == 0 ? c : (c & (0x3F >> extra));
        bool valid = true;
        for (int k = 1; k <= extra; ++k) {
            auto cc = static_cast<unsigned char>(utf8[i + static_cast<size_t>(k)]);
            if ((cc & 0xC0) != 0x80) {
                valid = false;
                break;
            }
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (!valid) {
            out += L'\xFFFD';
            ++i;
            continue;
        }
        out += static_cast<wchar_t>(cp);
        i += static_cast<size_t>(extra) + 1;
    }
    return String(out);
}

std::string String::ToUtf8() const {
    std::string out;
    out.reserve(length_);
    for (wchar_t wc : view()) {
        auto c = static_cast<uint32_t>(wc);
        if (c > 0x10FFFF) c = 0xFFFD;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string String::ToNarrow() const {
    size_t room = size_t{length_} * 4 + 1;
    std::string out(room, '\0');
    size_t n = sys::wcstombs(out.data(), data_, room);
    if (n == static_cast<size_t>(-1)) return ToUtf8();
    out.resize(n);
    return out;
}

String& String::operator=(const wchar_t* text) {
    Assign(text ? std::wstring_view(text) : std::wstring_view());
    return *this;
}

String& String::operator=(const char* narrow) {
    Assign(NarrowToWide(narrow));
    return *this;
}

String& String::operator+=(wchar_t ch) {
    Splice(length_, {&ch, 1});
    return *this;
}

String& String::operator+=(const wchar_t* text) {
    if (text) Splice(length_, text);
    return *this;
}

String& String::operator+=(const char* narrow) {
    Splice(length_, NarrowToWide(narrow));
    return *this;
}

String& String::operator+=(const String& other) {
    Splice(length_, other.view());
    return *this;
}

void String::SetAt(int index, wchar_t ch) {
    if (index >= 0 && index < GetLength()) data_[index] = ch;
}

String String::Left(int n) const {
    if (n <= 0) return {};
    return String(view().substr(0, static_cast<size_t>(n)));
}

String String::Right(int n) const {
    if (n <= 0) return {};
    if (n >= GetLength()) return *this;
    return String(view().substr(length_ - static_cast<size_t>(n)));
}

String String::Mid(int first, int count) const {
    if (first < 0) first = 0;
    if (first >= GetLength()) return {};
    size_t n = count < 0 ? std::wstring_view::npos : static_cast<size_t>(count);
    return String(view().substr(static_cast<size_t>(first), n));
}

int String::Find(wchar_t ch, int start) const {
    if (start < 0) start = 0;
    size_t at = view().find(ch, static_cast<size_t>(start));
    return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

int String::Find(const wchar_t* text, int start) const {
    if (!text || start < 0) return -1;
    size_t at = view().find(text, static_cast<size_t>(start));
    return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

int String::ReverseFind(wchar_t ch) const {
    size_t at = view().rfind(ch);
    return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

int String::FindNoCase(const wchar_t* text) const {
    if (!text) return -1;
    std::wstring hay = str(), needle = text;
    for (auto& c : hay) c = ToLower(c);
    for (auto& c : needle) c = ToLower(c);
    size_t at = hay.find(needle);
    return at == std::wstring::npos ? -1 : static_cast<int>(at);
}

String& String::TrimLeft() {
    size_t i = 0;
    while (i < length_ && IsBlank(data_[i])) ++i;
    Assign(view().substr(i));
    return *this;
}

String& String::TrimRight() {
    size_t n = length_;
    while (n > 0 && IsBlank(data_[n - 1])) --n;
    SetLength(n);
    return *this;
}

String& String::MakeUpper() {
    std::transform(data_, data_ + length_, data_, ToUpper);
    return *this;
}

String& String::MakeLower() {
    std::transform(data_, data_ + length_, data_, ToLower);
    return *this;
}

int String::Compare(const wchar_t* other) const { return view().compare(other ? other : L""); }

int String::CompareNoCase(const wchar_t* other) const {
    return quillet::CompareNoCase(view(), other ? other : L"");
}

String& String::Format(const wchar_t* pattern, ...) {
    va_list args;
    va_start(args, pattern);
    FormatV(pattern, args);
    va_end(args);
    return *this;
}

String& String::FormatV(const wchar_t* pattern, va_list args) {
    std::vector<wchar_t> buffer(256);
    for (;;) {
        va_list copy;
        va_copy(copy, args);
        errno = 0;
        int n = std::vswprintf(buffer.data(), buffer.size(), pattern, copy);
        va_end(copy);
        if (n >= 0 && static_cast<size_t>(n) < buffer.size()) {
            Assign({buffer.data(), static_cast<size_t>(n)});
            return *this;
        }
        // vswprintf does not report the size it needs: grow until it fits,
        // within a sane bound, unless it failed on a character it cannot
        // convert (glibc says so in errno), which no size would cure.
        if (errno == EILSEQ || buffer.size() >= (1u << 24)) {
            SetLength(0);
            return *this;
        }
        buffer.resize(buffer.size() * 4);
    }
}

String String::Formatted(const wchar_t* pattern, ...) {
    String out;
    va_list args;
    va_start(args, pattern);
    out.FormatV(pattern, args);
    va_end(args);
    return out;
}

BSTR String::MakeBSTR() const {
    return SysAllocStringLen(data_, length_);
}

bool String::LoadStringW(unsigned, void*) {
    SetLength(0);
    return false;
}

int CompareNoCase(std::wstring_view a, std::wstring_view b) {
    size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i) {
        wchar_t ca = ToLower(a[i]);
        wchar_t cb = ToLower(b[i]);
        if (ca != cb) return ca < cb ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

}  // namespace quillet
