// Choosing the converter of a code page's kind, and the conversions that go
// through the system's code pages (ANSI, OEM) or pick a path by locale (ISO,
// which stands for EUC in Far East locales).

#include <algorithm>
#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>

#include "codepage/CodePage.h"
#include "codepage/EucTw.h"
#include "foundation/Locale.h"
#include "foundation/SystemCodePage.h"

namespace quillet {

namespace {

constexpr size_t kConversionFailed = static_cast<size_t>(-1);
constexpr uint16_t kChinese = 4;
constexpr uint16_t kJapanese = 17;
constexpr size_t kByteLengthStackRoom = 512;

bool S_IsArabic7(uint32_t codePage) { return codePage == 448 || codePage == 449; }

// The units a converter may touch: `size`, or less when the terminator comes
// first.
uint32_t S_Bounded(const char* src, uint32_t size) {
    return size == 0 ? 0 : static_cast<uint32_t>(strnlen(src, size - 1) + 1);
}
uint32_t S_Bounded(const wchar_t* src, uint32_t size) {
    return size == 0 ? 0 : static_cast<uint32_t>(wcsnlen(src, size - 1) + 1);
}

// Room for the system's multibyte form of `src` where `size` bytes are the
// most the caller takes: no code page needs more than 4 bytes a character.
uint32_t S_MultiByteRoom(const wchar_t* src, uint32_t size) {
    return static_cast<uint32_t>(std::min<size_t>(size, 4 * std::wcslen(src) + 1));
}

int S_ClampToInt(uint32_t size) { return static_cast<int>(std::min<uint32_t>(size, INT_MAX)); }

// The system's OEM conversions take a long text piece by piece, so that its
// terminator is found in the piece about to be converted rather than in a
// pass of its own over the whole text. Pieces end between characters: after a
// byte below 0x30, which no multi-byte code page uses within a character
// (GB18030's four-byte characters hold bytes from 0x30, the others' trail
// bytes start at 0x40), or anywhere in wide text. `size` bounds the source as
// the single call MultiByteToWideChar(CP_OEMCP, 0, src, n, dst, n) /
// CharToOemBuffW(src, dst, n) with n = min(size, length + 1) would, and the
// output never passes it.
constexpr uint32_t kPiece = 16384;

// The units of the next piece of the `rest` units that `size` still allows.
uint32_t S_PieceLength(const char* piece, uint32_t rest) {
    uint32_t limit = std::min(kPiece, rest);
    if (const void* zero = std::memchr(piece, 0, limit)) {
        return static_cast<uint32_t>(static_cast<const char*>(zero) - piece) + 1;
    }
    if (limit == rest) return limit;
    uint32_t take = limit;
    while (take > 0 && static_cast<unsigned char>(piece[take - 1]) >= 0x30) --take;
    return take > 0 ? take : S_Bounded(piece, rest);  // nowhere to cut: the rest at once
}

uint32_t S_PieceLength(const wchar_t* piece, uint32_t rest) {
    uint32_t limit = std::min(kPiece, rest);
    const wchar_t* zero = std::wmemchr(piece, L'\0', limit);
    return zero ? static_cast<uint32_t>(zero - piece) + 1 : limit;
}

int S_SystemOem(const char* src, uint32_t srcLength, wchar_t* dst, uint32_t room) {
    return MultiByteToWideChar(CP_OEMCP, 0, src, S_ClampToInt(srcLength), dst, S_ClampToInt(room));
}

int S_SystemOem(const wchar_t* src, uint32_t srcLength, char* dst, uint32_t room) {
    return WideCharToMultiByte(CP_OEMCP, 0, src, S_ClampToInt(srcLength), dst, S_ClampToInt(room),
                               nullptr, nullptr);
}

template <class In, class Out>
bool S_SystemOemPieces(const In* src, Out* dst, uint32_t size) {
    uint32_t in = 0;
    uint32_t out = 0;
    while (in < size) {
        if (out == size) return false;  // room gone with text left
        uint32_t take = S_PieceLength(src + in, size - in);
        int written = S_SystemOem(src + in, take, dst + out, size - out);
        if (written <= 0) return false;
        out += static_cast<uint32_t>(written);
        in += take;
        if (src[in - 1] == 0) break;
    }
    return in > 0;
}

// The source unchanged, unit for unit, for code pages whose tables are missing.
void S_CopyUnchanged(const char* src, wchar_t* dst, uint32_t size) {
    uint32_t n = S_Bounded(src, size);
    for (uint32_t i = 0; i < n; ++i) dst[i] = static_cast<unsigned char>(src[i]);
}
void S_CopyUnchanged(const wchar_t* src, char* dst, uint32_t size) {
    uint32_t n = S_Bounded(src, size);
    for (uint32_t i = 0; i < n; ++i) dst[i] = static_cast<char>(src[i]);
}

// A temporary byte buffer for the conversions that pass through one.
std::unique_ptr<char[]> S_TempBytes(size_t size) {
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[size]);
    if (buffer) buffer[0] = '\0';
    return buffer;
}

bool S_UseAnsiInFarEast() {
    uint16_t language = QovaLocale::GetLangID();
    if (language == kChinese) {
        uint16_t country = QovaLocale::GetCountryID();
        return country == 4 || country == 2;
    }
    return language != kJapanese;
}

}  // namespace

bool CodePage::Source2Native(const char* src, wchar_t* dst, uint32_t size) {
    switch (codePageType_) {
        case qovaCodePageDefault:
        case qovaCodePageANSI: return Ansi2CharBuff(src, dst, size);
        case qovaCodePageOEM: return Oem2CharBuff(src, dst, size);
        case qovaCodePageISO: return Iso2CharBuff(src, dst, size);
        case qovaCodePageUTF8: return Utf82CharBuff(src, dst, size);
    }
    return false;
}

bool CodePage::Native2Source(const wchar_t* src, char* dst, uint32_t size) {
    switch (codePageType_) {
        case qovaCodePageDefault:
        case qovaCodePageANSI: return Char2AnsiBuff(src, dst, size);
        case qovaCodePageOEM: return Char2OemBuff(src, dst, size);
        case qovaCodePageISO: return Char2IsoBuff(src, dst, size);
        case qovaCodePageUTF8: return Char2Utf8Buff(src, dst, size);
    }
    return false;
}

uint32_t CodePage::GetByteLength(const wchar_t* src) {
    size_t room = 4 * std::wcslen(src) + 1;
    char local[kByteLengthStackRoom];
    std::unique_ptr<char[]> heap;
    char* buffer = local;
    if (room > kByteLengthStackRoom) {
        heap = S_TempBytes(room);
        if (!heap) return 0;
        buffer = heap.get();
    }
    auto size = static_cast<uint32_t>(std::min<size_t>(room, UINT32_MAX));
    buffer[0] = '\0';
    Native2Source(src, buffer, size);
    return static_cast<uint32_t>(strnlen(buffer, size));
}

bool CodePage::Ansi2CharBuff(const char* src, wchar_t* dst, uint32_t size) {
    if (forwardTable_) {
        Src2Ntv8Bit(src, dst, size);
        return true;
    }
    return sys::mbstowcs(dst, src, size) != kConversionFailed;
}

bool CodePage::Char2AnsiBuff(const wchar_t* src, char* dst, uint32_t size) {
    if (reverseMap_) {
        Ntv2Src8Bit(src, dst, size);
        return true;
    }
    return sys::wcstombs(dst, src, size) != kConversionFailed;
}

bool CodePage::Oem2CharBuff(const char* src, wchar_t* dst, uint32_t size) {
    // `size` is bounded by the text's length + 1: here at once, and in the
    // converters below as they meet the terminator.
    if (S_IsArabic7(codePageId_)) {
        size = S_Bounded(src, size);
        if (!HasArabicTables()) {
            S_CopyUnchanged(src, dst, size);
            return false;
        }
        auto windows = S_TempBytes(size_t{size} + 1);
        if (!windows) return false;
        From_Arab7_To_Wincode(src, windows.get(), size);
        return sys::mbstowcs(dst, windows.get(), size) != kConversionFailed;
    }
    if (forwardTable_) {
        Src2Ntv8Bit(src, dst, size);
        return true;
    }
    return S_SystemOemPieces(src, dst, size);
}

bool CodePage::Char2OemBuff(const wchar_t* src, char* dst, uint32_t size) {
    if (S_IsArabic7(codePageId_)) {
        if (!HasArabicTables()) {
            S_CopyUnchanged(src, dst, size);
            return false;
        }
        uint32_t room = S_MultiByteRoom(src, size);
        auto windows = S_TempBytes(size_t{room} + 1);
        if (!windows) return false;
        size_t written = sys::wcstombs(windows.get(), src, room);
        if (written == kConversionFailed) {
            if (size > 0) dst[0] = '\0';
            return false;
        }
        windows[written] = '\0';
        From_Wincode_To_Arab7(windows.get(), dst, size);
        return true;
    }
    // Bounding `size` by the text's length changes nothing for the 8-bit
    // tables, which stop after the terminator anyway.
    if (reverseMap_) {
        Ntv2Src8Bit(src, dst, size);
        return true;
    }
    // As CharToOemBuffW with the caller's room for the bytes: a double-byte
    // OEM code page takes more bytes than characters, which the call writes
    // beyond the characters' count but never beyond `size`.
    return size == 0 || S_SystemOemPieces(src, dst, size);
}

bool CodePage::Iso2CharBuff(const char* src, wchar_t* dst, uint32_t size) {
    if (codePageId_ == 88591) return Ansi2CharBuff(src, dst, size);
    // The text is bounded by min(length + 1, size); the 8-bit converter
    // finds the terminator itself.
    if (!IsFarEast()) {
        if (!forwardTable_) {
            S_CopyUnchanged(src, dst, size);
            return false;
        }
        Src2Ntv8Bit(src, dst, size);
        return true;
    }
    if (S_UseAnsiInFarEast()) return Ansi2CharBuff(src, dst, size);
    if (QovaLocale::GetLangID() == kChinese) {
        DecodeEucTw(src, dst, size);
        return true;
    }
    // Japanese: EUC through the system's Shift-JIS.
    uint32_t n = S_Bounded(src, size);
    auto sjis = S_TempBytes(n + 1);
    if (!sjis) return false;
    EUC2SJIS(src, sjis.get(), n + 1);
    return sys::mbstowcs(dst, sjis.get(), size) != kConversionFailed;
}

bool CodePage::Char2IsoBuff(const wchar_t* src, char* dst, uint32_t size) {
    if (codePageId_ == 88591) return Char2AnsiBuff(src, dst, size);
    if (!IsFarEast()) {
        if (!reverseMap_) {
            S_CopyUnchanged(src, dst, size);
            return false;
        }
        Ntv2Src8Bit(src, dst, size);
        return true;
    }
    if (S_UseAnsiInFarEast()) return Char2AnsiBuff(src, dst, size);
    if (QovaLocale::GetLangID() == kChinese) {
        EncodeEucTw(src, dst, size);
        return true;
    }
    // Japanese: the system's Shift-JIS, then EUC. EUC never takes fewer bytes
    // than Shift-JIS, so `size` bytes of Shift-JIS are all that can fit.
    uint32_t room = S_MultiByteRoom(src, size);
    auto sjis = S_TempBytes(size_t{room} + 1);
    if (!sjis) return false;
    size_t written = sys::wcstombs(sjis.get(), src, room);
    if (written == kConversionFailed) {
        if (size > 0) dst[0] = '\0';
        return false;
    }
    sjis[written] = '\0';
    SJIS2EUC(sjis.get(), dst, size);
    return true;
}

}  // namespace quillet
