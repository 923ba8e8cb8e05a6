#pragma once

// The text forms of numbers in "N" and "F" fields. Numbers are ASCII,
// right-aligned in the field; the decimal separator on disk is always ".",
// whatever the locale's decimal point is.

#include <cstdint>

namespace quillet::numeric_text {

// Lays out caller text (leading blanks already stripped) for a field of the
// given type, width and decimals into `out` (exactly `width` bytes). Returns 0
// or 17 when the text is malformed; `out` is untouched then.
int Layout(const char* text, char type, int width, int decimals, char* out);

// The printf forms: "N" fields "%*.*f", falling back to "%*.*e" with precision
// width - 8 when too wide; every other type "%*.*e". Exactly `width` bytes.
void FormatDouble(double value, char type, int width, int decimals, char* out);
// "%*d", exactly `width` bytes (a wider number keeps its first characters).
void FormatInteger(int32_t value, int width, char* out);

// Parses `length` bytes of field text as the C library's atof does, with the
// on-disk "." read as the locale's decimal point.
double Parse(const char* bytes, int length);

// Truncates toward zero; values out of the 32-bit range (and NaN) give
// INT32_MIN, as the processor's conversion does.
int32_t TruncateToInt32(double value);

}  // namespace quillet::numeric_text
