#pragma once

// String: the wide-character string of the platform (wchar_t is a 32-bit code
// point). Narrow text given to it or asked of it is in the process's multibyte
// encoding, which is the configured ANSI code page (see SystemCodePage.h);
// FromUtf8/ToUtf8 convert explicitly for text that is known to be UTF-8.
//
// Text of up to kInlineCapacity characters is kept inside the object. Table
// scans hand out one String per field, and field values and names are
// nearly always that short: keeping them off the heap takes about a third
// off the cost of reading a table as text. Longer text lives in one heap
// block.

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/Export.h"

namespace quillet {

using BSTR = wchar_t*;

class QUILLET_EXPORT String {
public:
    static constexpr int kInlineCapacity = 27;

    String() { inline_[0] = L'\0'; }
    String(const wchar_t* text) { Assign(text ? std::wstring_view(text) : std::wstring_view()); }  // NOLINT: implicit by design
    String(const wchar_t* text, size_t length) { Assign({text, length}); }
    String(const char* narrow);  // NOLINT: implicit by design
    String(const std::wstring& text) { Assign(text); }  // NOLINT: implicit by design
    String(std::wstring_view text) { Assign(text); }  // NOLINT: implicit by design
    String(const String& other) { Assign(other.view()); }
    String(String&& other) noexcept { TakeFrom(other); }
    String& operator=(const String& other);
    String& operator=(String&& other) noexcept;
    ~String() { FreeHeap(); }

    static String FromUtf8(std::string_view utf8);
    std::string ToUtf8() const;
    // The text in the process's multibyte encoding.
    std::string ToNarrow() const;

    String& operator=(const wchar_t* text);
    String& operator=(const char* narrow);
    String& operator+=(wchar_t ch);
    String& operator+=(const wchar_t* text);
    String& operator+=(const char* narrow);
    String& operator+=(const String& other);
    friend String operator+(String a, const String& b) { return a += b; }

    const wchar_t* c_str() const { return data_; }
    operator const wchar_t*() const { return data_; }  // NOLINT: implicit by design
    std::wstring_view view() const { return {data_, length_}; }
    std::wstring str() const { return std::wstring(view()); }
    int GetLength() const { return static_cast<int>(length_); }
    bool IsEmpty() const { return length_ == 0; }
    void Empty() { SetLength(0); }
    wchar_t GetAt(int index) const { return data_[index]; }
    wchar_t operator[](int index) const { return GetAt(index); }
    void SetAt(int index, wchar_t ch);
    // Makes the string `length` characters long (keeping what fits) and
    // returns its characters for the caller to fill in place.
    wchar_t* GetBufferSetLength(int length) {
        SetLength(length > 0 ? static_cast<size_t>(length) : 0);
        return data_;
    }

    // The first n (or last n) characters; all of them when n exceeds the length.
    String Left(int n) const;
    String Right(int n) const;
    String Mid(int first, int count = -1) const;
    // Index of the first occurrence, or -1.
    int Find(wchar_t ch, int start = 0) const;
    int Find(const wchar_t* text, int start = 0) const;
    int ReverseFind(wchar_t ch) const;
    // Index of the first occurrence ignoring case, or -1.
    int FindNoCase(const wchar_t* text) const;

    // Remove leading (trailing) white space: space, tab, CR, LF, VT, FF.
    String& TrimLeft();
    String& TrimRight();
    String& Trim() { return TrimRight().TrimLeft(); }
    String& MakeUpper();
    String& MakeLower();

    int Compare(const wchar_t* other) const;
    int CompareNoCase(const wchar_t* other) const;
    bool operator==(const String& other) const { return view() == other.view(); }
    bool operator==(const wchar_t* other) const { return view() == (other ? other : L""); }
    auto operator<=>(const String& other) const { return view() <=> other.view(); }

    // printf-style formatting with a wide pattern; %ls takes a wide string and
    // %s a narrow one, as in the C library. Returns *this.
    String& Format(const wchar_t* pattern, ...);
    String& FormatV(const wchar_t* pattern, va_list args);
    static String Formatted(const wchar_t* pattern, ...);

    // A component-model string copy that the caller frees with SysFreeString.
    BSTR MakeBSTR() const;
    // Resource strings: the library has none, so this empties the string and
    // returns false.
    bool LoadStringW(unsigned id, void* module = nullptr);

private:
    bool IsInline() const { return data_ == inline_; }
    // Keeps the first `keep` characters and appends `tail`, which may point
    // into this string.
    void Splice(size_t keep, std::wstring_view tail);
    void Assign(std::wstring_view text) { Splice(0, text); }
    wchar_t* Grow(size_t length, size_t keep);
    void SetLength(size_t length) {
        if (length > capacity_) delete[] Grow(length, length_);
        length_ = static_cast<uint32_t>(length);
        data_[length] = L'\0';
    }
    // Moves other's text here and leaves other empty; this string must hold
    // no heap block.
    void TakeFrom(String& other) noexcept {
        length_ = other.length_;
        capacity_ = other.capacity_;
        if (other.IsInline()) {
            // A fixed-size copy is a few vector moves; the length-bound copy
            // would be a library call.
            std::memcpy(inline_, other.inline_, sizeof inline_);
        } else {
            data_ = other.data_;
            other.data_ = other.inline_;
            other.capacity_ = kInlineCapacity;
        }
        other.length_ = 0;
        other.inline_[0] = L'\0';
    }
    void FreeHeap() noexcept {
        if (!IsInline()) delete[] data_;
    }

    wchar_t* data_ = inline_;
    uint32_t length_ = 0;
    uint32_t capacity_ = kInlineCapacity;  // characters, not counting the terminator
    wchar_t inline_[kInlineCapacity + 1];
};

// Case-insensitive comparison of wide text, by a simple case mapping of the
// Latin, Greek and Cyrillic letters (independent of the process's locale).
QUILLET_EXPORT int CompareNoCase(std::wstring_view a, std::wstring_view b);

}  // namespace quillet
