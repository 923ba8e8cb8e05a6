#include "attrindex/KeyTextCodec.h"

#include <algorithm>
#include <cstring>

#include "attrindex/MultiByteText.h"
#include "foundation/SystemCodePage.h"

namespace quillet {

namespace {

// Room for the bytes of MTKey::kMaxChars characters in any code page.
constexpr int kNarrowRoom = MTKey::kMaxChars * 8;

bool IsAscii(const wchar_t* text, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        if (static_cast<uint32_t>(text[i]) >= 0x80) return false;
    }
    return true;
}

}  // namespace

void KeyTextCodec::Setup(MTDataType type, int32_t width, uint32_t codePage) {
    type_ = type;
    width_ = width;
    codePage_ = codePage;
    asciiAsIs_ = type == MTString && WritesAsciiAsIs(codePage);
}

HRESULT KeyTextCodec::Encode(const wchar_t* text, unsigned char* out) const {
    if (type_ == MTString) return EncodeNarrow(text, out);
    int32_t units = width_ / 2;
    bool ended = !text;
    for (int32_t i = 0; i < units; ++i) {
        ended = ended || text[i] == L'\0';
        auto unit = static_cast<uint16_t>(ended ? 0x20 : text[i]);
        std::memcpy(out + 2 * i, &unit, 2);
    }
    if (width_ % 2) out[width_ - 1] = 0;
    return S_OK;
}

HRESULT KeyTextCodec::EncodeNarrow(const wchar_t* text, unsigned char* out) const {
    // A character takes at least one byte, so the first `width` characters
    // are all that can reach the key.
    int32_t n = 0;
    while (text && n < width_ && text[n]) ++n;
    int32_t bytes = n;
    if (asciiAsIs_ && IsAscii(text, n)) {
        for (int32_t i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(text[i]);
    } else if (n > 0) {
        char narrow[kNarrowRoom];
        bytes = WideCharToMultiByte(codePage_, 0, text, n, narrow, kNarrowRoom, nullptr, nullptr);
        if (bytes <= 0) return E_INVALIDARG;
        bytes = std::min(bytes, width_);
        std::memcpy(out, narrow, static_cast<size_t>(bytes));
    }
    std::memset(out + bytes, ' ', static_cast<size_t>(width_ - bytes));
    return S_OK;
}

int32_t KeyTextCodec::Decode(const unsigned char* in, wchar_t* out) const {
    if (type_ == MTString) return DecodeNarrow(in, out);
    int32_t units = std::min(width_ / 2, kDecodedChars - 1);
    while (units > 0) {
        uint16_t unit;
        std::memcpy(&unit, in + 2 * (units - 1), 2);
        if (unit != 0x20 && unit != 0) break;
        --units;
    }
    for (int32_t i = 0; i < units; ++i) {
        uint16_t unit;
        std::memcpy(&unit, in + 2 * i, 2);
        out[i] = unit;
    }
    out[units] = L'\0';
    return units;
}

int32_t KeyTextCodec::DecodeNarrow(const unsigned char* in, wchar_t* out) const {
    int32_t n = std::min(width_, kDecodedChars - 1);
    while (n > 0 && (in[n - 1] == ' ' || in[n - 1] == 0)) --n;
    int32_t i = 0;
    if (asciiAsIs_) {
        while (i < n && in[i] < 0x80) {
            out[i] = in[i];
            ++i;
        }
    }
    if (i < n) {
        i = MultiByteToWideChar(codePage_, 0, reinterpret_cast<const char*>(in), n, out,
                                kDecodedChars - 1);
    }
    out[std::max(i, 0)] = L'\0';
    return std::max(i, 0);
}

}  // namespace quillet
