#pragma once

// The system's multibyte conversions. They convert with the configured ANSI
// code page (GetACP) or OEM code page (GetOEMCP), through glibc's iconv, so that
// results never depend on the caller's setlocale. Single-byte code pages are
// served from a 256-entry table built once per code page, so a call costs no
// iconv round trip; multi-byte code pages (932, 936, 949, 950, 65001) go
// through a cached iconv descriptor.
//
// The sys:: functions keep the contracts of the C library calls they stand in
// for (mbstowcs, wcstombs, mbtowc, wctomb), with the ANSI code page as the
// multibyte encoding; the Win32-named ones keep those of the Win32 calls.
// None of them writes past the room it is given.

#include <cstddef>
#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

inline constexpr uint32_t CP_ACP = 0;
inline constexpr uint32_t CP_OEMCP = 1;
inline constexpr uint32_t CP_UTF8 = 65001;

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
// the size needed. Returns the units written (or needed), 0 on failure.
QUILLET_EXPORT int MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* src,
                                       int srcLength, wchar_t* dst, int dstSize);
QUILLET_EXPORT int WideCharToMultiByte(uint32_t codePage, uint32_t flags, const wchar_t* src,
                                       int srcLength, char* dst, int dstSize,
                                       const char* defaultChar, int* usedDefault);
// OEM code page to wide and back, `length` units each way; true on success.
QUILLET_EXPORT int OemToCharBuffW(const char* src, wchar_t* dst, uint32_t length);
QUILLET_EXPORT int CharToOemBuffW(const wchar_t* src, char* dst, uint32_t length);

}  // namespace quillet
