#include "dbase/NumericText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "foundation/Locale.h"

namespace quillet::numeric_text {

namespace {

constexpr int kMaxFieldText = 512;

// printf's "%*.*f" (fixed) or "%*.*e" (scientific) of `value`, with "." as
// the decimal point whatever the locale says; returns the length, which
// may exceed `width`. Finite values go through to_chars, whose output with
// a precision is defined as printf's and which does not need the locale or
// the C library's formatting machinery (most of the cost of appending
// records). `text` has kMaxFieldText bytes.
int PrintNumber(double value, std::chars_format format, int width, int precision, char* text) {
    // printf takes a negative precision as none given.
    if (precision < 0) precision = 6;
    // One byte short of `text`, so that the terminator always fits.
    char digits[kMaxFieldText - 1];
    auto [end, error] = std::isfinite(value)
                            ? std::to_chars(digits, digits + sizeof digits, value, format, precision)
                            : std::to_chars_result{digits, std::errc::value_too_large};
    if (error != std::errc()) {
        const char* pattern = format == std::chars_format::fixed ? "%*.*f" : "%*.*e";
        int length = std::snprintf(text, kMaxFieldText, pattern, width, precision, value);
        char point = LocaleDecimalPoint();
        for (char* c = text; *c; ++c) {
            if (*c == point) *c = '.';
        }
        return length;
    }
    auto length = static_cast<int>(end - digits);
    int pad = std::clamp(width - length, 0, kMaxFieldText - 1 - length);
    std::memset(text, ' ', static_cast<size_t>(pad));
    std::memcpy(text + pad, digits, static_cast<size_t>(length));
    text[pad + length] = '\0';
    return pad + length;
}

// Copies the first `width` bytes of the text into the field.
void CopyFixedWidth(const char* text, int width, char* out) {
    for (int i = 0; i < width; ++i) {
        if (text[i] == '\0') {
            // The text is padded to the width, so this only guards a failed
            // call.
            std::memset(out + i, ' ', static_cast<size_t>(width - i));
            return;
        }
        out[i] = text[i];
    }
}

// Writes into a field of fixed width, dropping whatever would run past it.
class FieldWriter {
public:
    FieldWriter(char* out, int width) : out_(out), width_(width) {}
    void Put(char c, int count = 1) {
        for (; count > 0 && used_ < width_; --count) out_[used_++] = c;
    }
    void Put(std::string_view text) {
        for (char c : text) Put(c);
    }

private:
    char* out_;
    int width_;
    int used_ = 0;
};

// Step 3 of the layout: "." at most once and never after the exponent mark,
// the exponent mark at most once. Nothing else is checked.
bool ScanNumber(std::string_view body, bool& hasExponent) {
    bool dot = false;
    hasExponent = false;
    for (char c : body) {
        if (c == '.') {
            if (dot || hasExponent) return false;
            dot = true;
        } else if (c == 'E' || c == 'e') {
            if (hasExponent) return false;
            hasExponent = true;
        }
    }
    return true;
}

}  // namespace

int Layout(const char* text, char type, int width, int decimals, char* out) {
    std::string_view all(text);
    // Every leading "-" counts as negative, "-0" included: the check meant to
    // exempt negative zero looked at the sign itself.
    bool negative = !all.empty() && all[0] == '-';
    bool reserveSign = static_cast<int>(all.size()) < width || negative;
    std::string_view digits = negative ? all.substr(1) : all;

    bool hasExponent;
    if (!ScanNumber(digits, hasExponent)) return 17;
    if (hasExponent) {
        if (static_cast<int>(all.size()) > width) return 17;
        FieldWriter writer(out, width);
        writer.Put(' ', width - static_cast<int>(all.size()));
        writer.Put(all);
        return 0;
    }

    if (!digits.empty() && digits.back() == '.') digits.remove_suffix(1);
    size_t dot = digits.find('.');
    if (type == 'N' && dot != std::string_view::npos) {
        // Cut, not rounded.
        digits = digits.substr(0, decimals > 0 ? dot + 1 + static_cast<size_t>(decimals) : dot);
        dot = digits.find('.');
    }
    bool addDot = false;
    int zeros = 0;
    if (decimals > 0) {
        if (dot == std::string_view::npos) {
            addDot = true;
            zeros = decimals;
        } else {
            int fraction = static_cast<int>(digits.size() - dot - 1);
            zeros = decimals > fraction ? decimals - fraction : 0;
        }
    }
    while (!digits.empty() && static_cast<int>(digits.size()) + zeros > width) {
        digits.remove_prefix(1);
    }

    int used = (reserveSign ? 1 : 0) + static_cast<int>(digits.size()) + (addDot ? 1 : 0) + zeros;
    FieldWriter writer(out, width);
    writer.Put(' ', width - used);
    if (reserveSign) writer.Put(negative ? '-' : ' ');
    writer.Put(digits);
    if (addDot) writer.Put('.');
    writer.Put('0', zeros);
    return 0;
}

void FormatDouble(double value, char type, int width, int decimals, char* out) {
    char text[kMaxFieldText];
    int length = -1;
    if (type == 'N') length = PrintNumber(value, std::chars_format::fixed, width, decimals, text);
    if (type != 'N' || length > width) {
        PrintNumber(value, std::chars_format::scientific, width, width - 8, text);
    }
    CopyFixedWidth(text, width, out);
}

void FormatInteger(int32_t value, int width, char* out) {
    char digits[16];
    auto length = static_cast<int>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits);
    // "%*d": right-aligned, and a wider number keeps its first characters.
    int pad = std::clamp(width - length, 0, width);
    std::memset(out, ' ', static_cast<size_t>(pad));
    std::memcpy(out + pad, digits, static_cast<size_t>(std::min(length, width - pad)));
}

// The decimal text most fields hold ("  -12.50", or "1.25000e+02" in "F"
// fields), read without the C library: with at most 15 significant digits
// and a net power of ten within 1e22 the digits and the power are exact
// doubles, so one multiplication or division rounds as strtod does. False
// for anything else.
bool ParseDecimal(const char* bytes, int length, double& value) {
    int i = 0;
    while (i < length && bytes[i] == ' ') ++i;
    bool negative = i < length && (bytes[i] == '-' || bytes[i] == '+') && bytes[i++] == '-';
    int64_t digits = 0;
    int significant = 0, fraction = 0, seen = 0;
    bool point = false;
    for (; i < length; ++i) {
        char c = bytes[i];
        if (c >= '0' && c <= '9') {
            ++seen;
            if (significant > 0 || c != '0') ++significant;
            // Past 15 digits the text goes to the C library: stop before
            // the sum could overflow.
            if (significant <= 15) digits = digits * 10 + (c - '0');
            if (point) ++fraction;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    int exponent = 0;
    if (i < length && (bytes[i] == 'e' || bytes[i] == 'E') && seen > 0) {
        ++i;
        bool negativeExponent = i < length && (bytes[i] == '-' || bytes[i] == '+') && bytes[i++] == '-';
        int exponentDigits = 0;
        for (; i < length && bytes[i] >= '0' && bytes[i] <= '9' && exponentDigits < 4; ++i, ++exponentDigits) {
            exponent = exponent * 10 + (bytes[i] - '0');
        }
        if (exponentDigits == 0) return false;
        if (negativeExponent) exponent = -exponent;
    }
    while (i < length && bytes[i] == ' ') ++i;
    int scale = exponent - fraction;
    if ((i < length && bytes[i] != '\0') || seen == 0 || significant > 15 || scale < -22 || scale > 22) {
        return false;
    }
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    value = scale < 0 ? static_cast<double>(digits) / kPowers[-scale] : static_cast<double>(digits) * kPowers[scale];
    if (negative) value = -value;
    return true;
}

double Parse(const char* bytes, int length) {
    double value;
    if (ParseDecimal(bytes, length, value)) return value;
    char text[kMaxFieldText];
    if (length >= kMaxFieldText) length = kMaxFieldText - 1;
    std::memcpy(text, bytes, static_cast<size_t>(length));
    text[length] = '\0';
    char point = LocaleDecimalPoint();
    if (point != '.') {
        for (int i = 0; i < length; ++i) {
            if (text[i] == '.') text[i] = point;
        }
    }
    return std::atof(text);
}

int32_t TruncateToInt32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

}  // namespace quillet::numeric_text
