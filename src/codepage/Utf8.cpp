// UTF-8 in the form of RFC 2279: sequences of up to 6 bytes and code points of
// up to 31 bits. Surrogate code points are not rejected. A rejected byte is
// reported on the debug output, skipped, and leaves one output position
// unwritten, so that output positions count the decoded or rejected units.

#include <algorithm>
#include <cwchar>

#include "codepage/CodePage.h"
#include "foundation/AsciiRun.h"
#include "foundation/DebugOutput.h"

namespace quillet {

namespace {

bool S_IsContinuation(unsigned char byte) { return (byte ^ 0x80) < 0x40; }

struct LeadRule {
    int length;           // bytes of the sequence
    unsigned char least;  // the lead byte above which any second byte is fine
    unsigned char floor;  // else the least second byte (no overlong forms)
    const wchar_t* message;
};

// The rule of a lead byte of 0xC2 and above; null for 0xFE and 0xFF.
const LeadRule* S_RuleOf(unsigned char lead) {
    static const LeadRule kRules[] = {
        {2, 0x00, 0x80, L"Wrong character code: (!((pFromStr[i + 1] ^ 0x80) < 0x40))\n"},
        {3, 0xE0, 0xA0, L"Wrong character code: (c >= 0xe1 || pFromStr[i + 1] >= 0xa0)\n"},
        {4, 0xF0, 0x90, L"Wrong character code: (c >= 0xf1 || pFromStr[i + 1] >= 0x90)\n"},
        {5, 0xF8, 0x88, L"Wrong character code: (c >= 0xf9 || pFromStr[i+1] >= 0x88)\n"},
        {6, 0xFC, 0x84, L"Wrong character code: (c >= 0xfd || pFromStr[i+1] >= 0x84)\n"},
    };
    if (lead < 0xE0) return &kRules[0];
    if (lead < 0xF0) return &kRules[1];
    if (lead < 0xF8) return &kRules[2];
    if (lead < 0xFC) return &kRules[3];
    if (lead < 0xFE) return &kRules[4];
    return nullptr;
}

// True when `s` starts a well-formed sequence of `rule`. Stops at the first
// byte that is not a continuation, so the terminator is never passed.
bool S_Accepts(const unsigned char* s, const LeadRule& rule) {
    for (int k = 1; k < rule.length; ++k) {
        if (!S_IsContinuation(s[k])) return false;
    }
    return s[0] > rule.least || s[1] >= rule.floor;
}

int S_EncodedLength(uint32_t ch) {
    if (ch < 0x80) return 1;
    if (ch < 0x800) return 2;
    if (ch < 0x10000) return 3;
    if (ch < 0x200000) return 4;
    if (ch < 0x4000000) return 5;
    return 6;
}

void S_Encode(uint32_t ch, int length, unsigned char* out) {
    static const unsigned char kLeadMarks[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    if (length == 1) {
        out[0] = static_cast<unsigned char>(ch);
        return;
    }
    for (int k = length - 1; k > 0; --k) {
        out[k] = static_cast<unsigned char>(0x80 | (ch & 0x3F));
        ch >>= 6;
    }
    out[0] = static_cast<unsigned char>(kLeadMarks[length] | (ch & (0x7Fu >> length)));
}

}  // namespace

bool CodePage::Utf82CharBuff(const char* src, wchar_t* dst, uint32_t size) {
    if (size == 0) return true;
    // The input ends at its terminator; no sequence check reads past it,
    // since the terminator is not a continuation byte.
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    const uint32_t limit = size - 1;
    uint32_t j = 0;
    const unsigned char* stretchEnd = s;  // the bytes before it are not the terminator
    while (*s && j < limit) {
        unsigned char lead = *s;
        if (lead < 0x80) {
            // Runs of ASCII are the common case.
            if (s >= stretchEnd) stretchEnd = s + StretchBeforeTerminator(s, limit - j);
            size_t run = WidenAscii(s, std::min<size_t>(stretchEnd - s, limit - j), dst + j);
            s += run;
            j += static_cast<uint32_t>(run);
            continue;
        }
        // The two- and three-byte forms, nearly all of the text beyond ASCII,
        // are checked as their rules below would check them, without the rule
        // table and its loops (which measurably slow the common case). A
        // byte is read only after a continuation byte, so never past the
        // terminator.
        if (lead >= 0xC2 && lead < 0xE0 && S_IsContinuation(s[1])) {
            dst[j++] = static_cast<wchar_t>((lead & 0x1Fu) << 6 | (s[1] & 0x3Fu));
            s += 2;
            continue;
        }
        if (lead >= 0xE0 && lead < 0xF0 && S_IsContinuation(s[1]) && S_IsContinuation(s[2]) &&
            (lead > 0xE0 || s[1] >= 0xA0)) {
            dst[j++] = static_cast<wchar_t>((lead & 0x0Fu) << 12 | (s[1] & 0x3Fu) << 6 | (s[2] & 0x3Fu));
            s += 3;
            continue;
        }
        const LeadRule* rule = lead < 0xC2 ? nullptr : S_RuleOf(lead);
        if (lead < 0xC2) {
            OutputDebugStringW(L"Wrong character code: (c < 0xc2)\n");
        } else if (rule && S_Accepts(s, *rule)) {
            uint32_t ch = lead & (0x7Fu >> rule->length);
            for (int k = 1; k < rule->length; ++k) ch = (ch << 6) | (s[k] & 0x3Fu);
            dst[j++] = static_cast<wchar_t>(ch);
            s += rule->length;
            continue;
        } else if (rule) {
            OutputDebugStringW(rule->message);
        }
        ++s;
        ++j;
    }
    dst[j] = L'\0';
    return true;
}

bool CodePage::Char2Utf8Buff(const wchar_t* src, char* dst, uint32_t size) {
    // The text ends at its terminator (n = wcslen(src)); it is not measured
    // first, so that it is read once.
    if (src[0] == 0 || size < 2) {
        if (size > 0) dst[0] = '\0';
        return true;
    }
    auto* out = reinterpret_cast<unsigned char*>(dst);
    uint32_t room = size - 1;
    uint32_t j = 0;
    for (size_t i = 0; src[i] != 0 && j < room; ++i) {
        auto ch = static_cast<uint32_t>(src[i]);
        int length = S_EncodedLength(ch);
        if (static_cast<uint32_t>(length) <= room - j) {
            S_Encode(ch, length, out + j);
            j += static_cast<uint32_t>(length);
        } else {
            // Cuts the text here; the loop goes on while room remains.
            out[j++] = 0;
        }
    }
    out[j] = 0;
    return true;
}

}  // namespace quillet
