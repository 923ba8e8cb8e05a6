#include "foundation/Utf8.h"

namespace quillet::utf8 {

size_t DecodeOne(const unsigned char* s, size_t n, char32_t& cp) {
    if (n == 0) return 0;
    unsigned char lead = s[0];
    if (lead < 0x80) {
        cp = lead;
        return 1;
    }
    size_t length;
    char32_t min;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, min = 0x80, cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, min = 0x800, cp = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, min = 0x10000, cp = lead & 0x07;
    } else {
        return 0;
    }
    if (n < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((s[i] & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (s[i] & 0x3F);
    }
    return cp >= min && IsScalar(cp) ? length : 0;
}

size_t EncodeOne(char32_t cp, char* out) {
    size_t length = EncodedLength(cp);
    if (length == 1) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    static constexpr unsigned char kLeadMarks[5] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (size_t i = length - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (cp & 0x3F));
        cp >>= 6;
    }
    out[0] = static_cast<char>(kLeadMarks[length] | cp);
    return length;
}

std::string Encode(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    char bytes[4];
    for (wchar_t wc : text) {
        auto cp = static_cast<char32_t>(wc);
        out.append(bytes, EncodeOne(IsScalar(cp) ? cp : kReplacement, bytes));
    }
    return out;
}

std::wstring Decode(std::string_view bytes) {
    std::wstring out;
    out.reserve(bytes.size());
    const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
    for (size_t i = 0; i < bytes.size();) {
        char32_t cp = 0;
        size_t used = DecodeOne(s + i, bytes.size() - i, cp);
        out += static_cast<wchar_t>(used ? cp : kReplacement);
        i += used ? used : 1;
    }
    return out;
}

}  // namespace quillet::utf8
