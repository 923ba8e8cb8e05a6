#pragma once

// String: the wide-character string of the platform (wchar_t is a 32-bit code
// point). Narrow text given to it or asked of it is in the process's multibyte
// encoding, which is the configured ANSI code page (see SystemCodePage.h);
// FromUtf8/ToUtf8 convert explicitly for text that is known to be UTF-8.

#include <cstdarg>
#include <string>
#include <string_view>

#include "foundation/Export.h"

namespace quillet {

using BSTR = wchar_t*;

class QUILLET_EXPORT String {
public:
    String() = default;
    String(const wchar_t* text) : s_(text ? text : L"") {}  // NOLINT: implicit by design
    String(const wchar_t* text, size_t length) : s_(text, length) {}
    String(const char* narrow);  // NOLINT: implicit by design
    String(std::wstring text) : s_(std::move(text)) {}  // NOLINT: implicit by design
    String(std::wstring_view text) : s_(text) {}  // NOLINT: implicit by design

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

    const wchar_t* c_str() const { return s_.c_str(); }
    operator const wchar_t*() const { return s_.c_str(); }  // NOLINT: implicit by design
    const std::wstring& str() const { return s_; }
    std::wstring& str() { return s_; }
    int GetLength() const { return static_cast<int>(s_.size()); }
    bool IsEmpty() const { return s_.empty(); }
    void Empty() { s_.clear(); }
    wchar_t GetAt(int index) const { return s_[static_cast<size_t>(index)]; }
    wchar_t operator[](int index) const { return GetAt(index); }
    void SetAt(int index, wchar_t ch);

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
    bool operator==(const String& other) const { return s_ == other.s_; }
    bool operator==(const wchar_t* other) const { return s_ == (other ? other : L""); }
    auto operator<=>(const String& other) const { return s_ <=> other.s_; }

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
    std::wstring s_;
};

// Case-insensitive comparison of wide text, by a simple case mapping of the
// Latin, Greek and Cyrillic letters (independent of the process's locale).
QUILLET_EXPORT int CompareNoCase(std::wstring_view a, std::wstring_view b);

}  // namespace quillet
