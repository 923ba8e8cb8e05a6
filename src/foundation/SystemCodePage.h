#pragma once

// The system's multibyte conversions. They convert with the configured ANSI
// code page (GetACP) or OEM code page (GetOEMCP), through glibc's iconv, so that
// results never depend on the caller's setlocale. Single-byte code pages are
// served from a 256-entry table built once per code page, so a call costs no
// iconv round trip; UTF-8 (65001) is converted directly. Double-byte code
// pages (932, 936, 949, 950) are served from tables that iconv fills once,
// giving what iconv gives; other multi-byte code pages, and characters the
// tables lack, go through iconv descriptors kept per thread. Invalid input becomes U+FFFD unless the flags or the C contract
// ask for failure.
//
// The sys:: functions keep the contracts of the C library calls they stand in
// for (mbstowcs, wcstombs, mbtowc, wctomb), with the ANSI code page as the
// multibyte encoding; the Win32-named ones keep those of the Win32 calls.
// None of them writes past the room it is given.
//
// Bytes that a single-byte code page leaves undefined read as the code point of
// the same number (0x81 -> U+0081) and write back, so no byte is lost. Wide
// characters a code page cannot represent become the default character ('?'
// unless one is given).

#include <cstddef>
#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

inline constexpr uint32_t CP_ACP = 0;
inline constexpr uint32_t CP_OEMCP = 1;
inline constexpr uint32_t CP_MACCP = 2;
inline constexpr uint32_t CP_THREAD_ACP = 3;
inline constexpr uint32_t CP_UTF8 = 65001;

// Flags: fail on invalid input instead of putting U+FFFD (MultiByteToWideChar)
// or the default character (WideCharToMultiByte, UTF-8 only).
inline constexpr uint32_t MB_ERR_INVALID_CHARS = 0x08;
inline constexpr uint32_t WC_ERR_INVALID_CHARS = 0x80;

namespace sys {

// Converts up to n wide characters (the terminator included when there is
// room); returns the characters written without the terminator, or
// (size_t)-1 on an invalid sequence. dst null: returns the length needed.
QUILLET_EXPORT size_t mbstowcs(wchar_t* dst, const char* src, size_t n);
// Converts into at most n bytes; returns the bytes written without the
// terminator, or (size_t)-1 when a character has no representation.
QUILLET_EXPORT size_t wcstombs(char* dst, const wchar_t* src, size_t n);
// One character: returns the bytes used (0 for the terminator) or -1.
QUILLET_EXPORT int mbtowc(wchar_t* dst, const char* src, size_t n);
// One character into dst (room for 8 bytes): returns the bytes written or -1.
QUILLET_EXPORT int wctomb(char* dst, wchar_t ch);

}  // namespace sys

// codePage: CP_ACP, CP_OEMCP, CP_UTF8 or a code page number. srcLength -1
// means "through the terminator, which is converted too". dstSize 0 asks for
// the size needed. Returns the units written (or needed), 0 on failure with the
// thread's last error: ERROR_INSUFFICIENT_BUFFER when dst is too small,
// ERROR_NO_UNICODE_TRANSLATION for invalid input under the flags above,
// ERROR_INVALID_PARAMETER for bad arguments or a code page the system lacks.
QUILLET_EXPORT int MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* src,
                                       int srcLength, wchar_t* dst, int dstSize);
QUILLET_EXPORT int WideCharToMultiByte(uint32_t codePage, uint32_t flags, const wchar_t* src,
                                       int srcLength, char* dst, int dstSize,
                                       const char* defaultChar, int* usedDefault);
// OEM code page to wide and back, `length` units each way; true on success.
QUILLET_EXPORT int OemToCharBuffW(const char* src, wchar_t* dst, uint32_t length);
QUILLET_EXPORT int CharToOemBuffW(const wchar_t* src, char* dst, uint32_t length);

}  // namespace quillet
