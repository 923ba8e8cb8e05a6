#include "foundation/SystemCodePage.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "foundation/DoubleByteCodec.h"
#include "foundation/IconvCodec.h"
#include "foundation/IconvHandle.h"
#include "foundation/Locale.h"
#include "foundation/SingleByteCodec.h"
#include "foundation/SystemCodec.h"
#include "foundation/Utf8Codec.h"
#include "foundation/Win32Error.h"

namespace quillet {

namespace {

using codec::Codec;
using codec::Fallback;
using codec::Progress;
using codec::Status;

// glibc's name of a Windows code page number.
std::string IconvName(uint32_t codePage) {
    switch (codePage) {
        case 20127: return "ASCII";
        case 20866: return "KOI8-R";
        case 21866: return "KOI8-U";
        case 10000: return "MACINTOSH";
        case 20932:
        case 51932: return "EUC-JP";
        case 51949: return "EUC-KR";
        case 54936: return "GB18030";
        case 50220:
        case 50221:
        case 50222: return "ISO-2022-JP";
        case 50225: return "ISO-2022-KR";
        case 65000: return "UTF-7";
        default: break;
    }
    if (codePage >= 28591 && codePage <= 28606) return "ISO-8859-" + std::to_string(codePage - 28590);
    return "CP" + std::to_string(codePage);
}

// Reads every byte through iconv. A code page in which some byte only starts
// a sequence is multi-byte, and gets no table.
std::unique_ptr<Codec> MakeCodec(uint32_t codePage) {
    if (codePage == CP_UTF8) return codec::MakeUtf8Codec();
    std::string name = IconvName(codePage);
    codec::IconvHandle cd("WCHAR_T", name.c_str());
    if (!cd.ok()) return nullptr;
    std::array<wchar_t, 256> toWide{};
    for (int b = 0; b < 256; ++b) {
        char byte = static_cast<char>(b);
        const char* in = &byte;
        size_t inLeft = 1;
        wchar_t wc = 0;
        char* out = reinterpret_cast<char*>(&wc);
        size_t outLeft = sizeof(wc);
        cd.ResetState();
        size_t result = cd.Convert(in, inLeft, out, outLeft);
        if (result == static_cast<size_t>(-1) && errno == EINVAL) {
            if (auto tables = codec::MakeDoubleByteCodec(name)) return tables;
            return codec::MakeIconvCodec(std::move(name));
        }
        // Code pages with combining marks (1255, 1258) hold a letter back
        // until they see what follows it.
        if (result != static_cast<size_t>(-1) && outLeft != 0) result = cd.Unshift(out, outLeft);
        bool converted = result != static_cast<size_t>(-1) && outLeft == 0;
        toWide[b] = converted ? wc : static_cast<wchar_t>(b);
    }
    return codec::MakeSingleByteCodec(toWide);
}

uint32_t ResolveCodePage(uint32_t codePage) {
    switch (codePage) {
        case CP_ACP:
        case CP_THREAD_ACP: return GetACP();
        case CP_OEMCP: return GetOEMCP();
        case CP_MACCP: return 10000;
        default: return codePage;
    }
}

// The codec of a code page, built once and kept for the life of the process
// (null for a code page the system lacks). The last one asked is remembered
// per thread, since conversions come in long runs of the same code page.
const Codec* CodecFor(uint32_t codePage) {
    thread_local uint32_t lastCodePage = UINT32_MAX;
    thread_local const Codec* last = nullptr;
    codePage = ResolveCodePage(codePage);
    if (codePage == lastCodePage) return last;

    static std::mutex mutex;
    // Never destroyed: conversions may still run while statics are torn down.
    static auto* codecs = new std::unordered_map<uint32_t, std::unique_ptr<Codec>>();
    std::lock_guard<std::mutex> lock(mutex);
    auto found = codecs->find(codePage);
    if (found == codecs->end()) found = codecs->emplace(codePage, MakeCodec(codePage)).first;
    lastCodePage = codePage;
    last = found->second.get();
    return last;
}

constexpr size_t kFailed = static_cast<size_t>(-1);

}  // namespace

namespace sys {

size_t mbstowcs(wchar_t* dst, const char* src, size_t n) {
    const Codec* codec = CodecFor(CP_ACP);
    if (!src || !codec) return kFailed;
    Progress p = codec->Decode(src, std::strlen(src), dst, n, true);
    if (p.status == Status::kInvalid) return kFailed;
    if (dst && p.out < n) dst[p.out] = L'\0';
    return p.out;
}

size_t wcstombs(char* dst, const wchar_t* src, size_t n) {
    const Codec* codec = CodecFor(CP_ACP);
    if (!src || !codec) return kFailed;
    Fallback strict{true};
    Progress p = codec->Encode(src, std::wcslen(src), dst, n, strict);
    if (p.status == Status::kInvalid) return kFailed;
    if (dst && p.out < n) dst[p.out] = '\0';
    return p.out;
}

int mbtowc(wchar_t* dst, const char* src, size_t n) {
    if (!src) return 0;
    if (n == 0) return -1;
    if (*src == '\0') {
        if (dst) *dst = L'\0';
        return 0;
    }
    const Codec* codec = CodecFor(CP_ACP);
    if (!codec) return -1;
    // The shortest prefix that makes one whole character is the character,
    // whatever follows it.
    constexpr size_t kLongestCharacter = 4;
    for (size_t length = 1; length <= n && length <= kLongestCharacter; ++length) {
        wchar_t wc = 0;
        Progress p = codec->Decode(src, length, &wc, 1, true);
        if (p.status == Status::kOk && p.out == 1) {
            if (dst) *dst = wc;
            return static_cast<int>(length);
        }
    }
    return -1;
}

int wctomb(char* dst, wchar_t ch) {
    if (!dst) return 0;
    const Codec* codec = CodecFor(CP_ACP);
    if (!codec) return -1;
    Fallback strict{true};
    Progress p = codec->Encode(&ch, 1, dst, 8, strict);
    return p.status == Status::kOk ? static_cast<int>(p.out) : -1;
}

}  // namespace sys

namespace {

// The Win32 result of a conversion: the units, or 0 and the last error.
int Finish(const Progress& p, uint32_t invalidError) {
    switch (p.status) {
        case Status::kOk:
            if (p.out <= INT_MAX) return static_cast<int>(p.out);
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return 0;
        case Status::kNoRoom: SetLastError(ERROR_INSUFFICIENT_BUFFER); return 0;
        case Status::kInvalid: SetLastError(invalidError); return 0;
    }
    return 0;
}

// The codec of a Win32-named call, or null (and the last error set) when the
// arguments are bad or the system lacks the code page.
const Codec* CodecForCall(uint32_t codePage, const void* src, int srcLength, const void* dst,
                          int dstSize) {
    bool valid = src && srcLength != 0 && srcLength >= -1 && dstSize >= 0 && (dstSize == 0 || dst);
    const Codec* codec = valid ? CodecFor(codePage) : nullptr;
    if (!codec) SetLastError(ERROR_INVALID_PARAMETER);
    return codec;
}

}  // namespace

int MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* src, int srcLength,
                        wchar_t* dst, int dstSize) {
    const Codec* codec = CodecForCall(codePage, src, srcLength, dst, dstSize);
    if (!codec) return 0;
    size_t n = srcLength == -1 ? std::strlen(src) + 1 : static_cast<size_t>(srcLength);
    Progress p = codec->Decode(src, n, dstSize ? dst : nullptr, static_cast<size_t>(dstSize),
                               (flags & MB_ERR_INVALID_CHARS) != 0);
    return Finish(p, ERROR_NO_UNICODE_TRANSLATION);
}

int WideCharToMultiByte(uint32_t codePage, uint32_t flags, const wchar_t* src, int srcLength,
                        char* dst, int dstSize, const char* defaultChar, int* usedDefault) {
    const Codec* codec = CodecForCall(codePage, src, srcLength, dst, dstSize);
    if (!codec) return 0;
    size_t n = srcLength == -1 ? std::wcslen(src) + 1 : static_cast<size_t>(srcLength);
    Fallback fallback;
    fallback.strict = (flags & WC_ERR_INVALID_CHARS) != 0;
    if (defaultChar) fallback.byte = *defaultChar;
    Progress p = codec->Encode(src, n, dstSize ? dst : nullptr, static_cast<size_t>(dstSize),
                               fallback);
    if (usedDefault) *usedDefault = fallback.used ? 1 : 0;
    return Finish(p, ERROR_NO_UNICODE_TRANSLATION);
}

int OemToCharBuffW(const char* src, wchar_t* dst, uint32_t length) {
    if (length == 0) return 1;
    if (length > INT_MAX) return 0;
    int n = static_cast<int>(length);
    return MultiByteToWideChar(CP_OEMCP, 0, src, n, dst, n) > 0;
}

int CharToOemBuffW(const wchar_t* src, char* dst, uint32_t length) {
    if (length == 0) return 1;
    if (length > INT_MAX) return 0;
    int n = static_cast<int>(length);
    return WideCharToMultiByte(CP_OEMCP, 0, src, n, dst, n, nullptr, nullptr) > 0;
}

}  // namespace quillet
