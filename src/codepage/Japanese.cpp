// EUC-JP and Shift-JIS. Japanese locales keep their system code page in
// Shift-JIS, so EUC text goes through it on the way to and from wide text.
// Both forms code the JIS X 0208 rows and cells; the transform between them
// is the standard one.

#include <cstring>

#include "codepage/CodePage.h"

namespace quillet {

namespace {

constexpr unsigned char kSingleShift2 = 0x8E;

bool S_IsSjisLead(unsigned char byte) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xEA);
}

// JIS row and cell bytes (0x21-0x7E) to the two Shift-JIS bytes.
void S_JisToSjis(unsigned char row, unsigned char cell, unsigned char* out) {
    out[0] = static_cast<unsigned char>(((row + 1) >> 1) + (row <= 0x5E ? 0x70 : 0xB0));
    if (row & 1) {
        out[1] = static_cast<unsigned char>(cell + (cell >= 0x60 ? 0x20 : 0x1F));
    } else {
        out[1] = static_cast<unsigned char>(cell + 0x7E);
    }
}

// The two Shift-JIS bytes to JIS row and cell bytes.
void S_SjisToJis(unsigned char lead, unsigned char trail, unsigned char* out) {
    unsigned row = (lead <= 0x9F ? lead - 0x70u : lead - 0xB0u) * 2;
    unsigned cell = trail;
    if (cell >= 0x9F) {
        cell -= 0x7E;
    } else {
        --row;
        cell -= cell >= 0x80 ? 0x20 : 0x1F;
    }
    out[0] = static_cast<unsigned char>(row);
    out[1] = static_cast<unsigned char>(cell);
}

// Runs `step` over a zero-terminated source into `size` bytes that always end
// in a terminator. A step writes one or two bytes and returns false when the
// room left cannot take the next character.
template <class Step>
void S_Transform(const char* src, char* dst, uint32_t size, Step step) {
    if (size == 0) return;
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    auto* out = reinterpret_cast<unsigned char*>(dst);
    const uint32_t room = size - 1;
    uint32_t j = 0;
    while (*s && j < room && step(s, out, j, room - j)) {
    }
    out[j] = 0;
}

}  // namespace

void CodePage::EUC2SJIS(const char* src, char* dst, uint32_t size) {
    S_Transform(src, dst, size, [](const unsigned char*& s, unsigned char* out, uint32_t& j, uint32_t left) {
        if (s[0] >= 0xA1 && s[0] <= 0xF4 && s[1]) {
            if (left < 2) return false;
            S_JisToSjis(s[0] & 0x7F, s[1] & 0x7F, out + j);
            j += 2;
            s += 2;
        } else if (s[0] == kSingleShift2 && s[1]) {
            out[j++] = s[1];  // half-width katakana stand alone in Shift-JIS
            s += 2;
        } else {
            out[j++] = *s++;
        }
        return true;
    });
}

void CodePage::SJIS2EUC(const char* src, char* dst, uint32_t size) {
    S_Transform(src, dst, size, [](const unsigned char*& s, unsigned char* out, uint32_t& j, uint32_t left) {
        if (S_IsSjisLead(s[0]) && s[1]) {
            if (left < 2) return false;
            S_SjisToJis(s[0], s[1], out + j);
            out[j++] |= 0x80;
            out[j++] |= 0x80;
            s += 2;
        } else if (s[0] >= 0xA0 && s[0] <= 0xDF) {
            if (left < 2) return false;
            out[j++] = kSingleShift2;
            out[j++] = *s++;
        } else {
            out[j++] = *s++;
        }
        return true;
    });
}

}  // namespace quillet
