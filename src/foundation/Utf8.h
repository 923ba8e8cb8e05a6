#pragma once

// UTF-8 encoding and decoding of single code points and whole strings, for the
// places where the platform meets the system (paths, the settings file, the
// environment, stderr) and for code page 65001. Internal to the library.

#include <cstddef>
#include <string>
#include <string_view>

namespace quillet::utf8 {

inline constexpr char32_t kReplacement = 0xFFFD;

// Whether the code point can be encoded (not a surrogate, at most U+10FFFF).
constexpr bool IsScalar(char32_t cp) { return cp < 0xD800 || (cp > 0xDFFF && cp <= 0x10FFFF); }

// Decodes the well-formed sequence at s[0, n) into cp; returns its length, or
// 0 when it is malformed, overlong, a surrogate or cut short.
size_t DecodeOne(const unsigned char* s, size_t n, char32_t& cp);
// Encodes a scalar value into out (room for 4); returns the bytes written.
size_t EncodeOne(char32_t cp, char* out);
// The bytes EncodeOne writes for cp.
constexpr size_t EncodedLength(char32_t cp) {
    return cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
}

// Whole strings; what cannot be converted becomes U+FFFD.
std::string Encode(std::wstring_view text);
std::wstring Decode(std::string_view bytes);

}  // namespace quillet::utf8
