#include "foundation/SystemCodePage.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/AsciiRun.h"
#include "foundation/ByteToWide.h"
#include "foundation/CodePointPages.h"
#include "foundation/Locale.h"
#include "foundation/Utf8.h"
#include "foundation/Win32Error.h"

namespace quillet {

namespace {

enum class Status { kOk, kInvalid, kNoRoom };

// How far a conversion got: source units consumed and destination units
// written (or, when there is no destination, needed).
struct Progress {
    Status status = Status::kOk;
    size_t in = 0;
    size_t out = 0;
};

// Puts the character decoded from `used` source units, or for used == 0 an
// invalid unit, which becomes U+FFFD unless `strict` refuses it (false, with
// the status set). The caller has checked the room.
bool PutDecoded(Progress& p, wchar_t* dst, char32_t cp, size_t used, bool strict) {
    if (used == 0) {
        if (strict) {
            p.status = Status::kInvalid;
            return false;
        }
        cp = utf8::kReplacement;
        used = 1;
    }
    if (dst) dst[p.out] = static_cast<wchar_t>(cp);
    ++p.out;
    p.in += used;
    return true;
}

// What to do with a wide character the code page cannot represent.
struct Fallback {
    bool strict = false;  // stop with kInvalid
    char byte = '?';      // otherwise write this
    bool used = false;    // set when `byte` was written
};

// A conversion between one code page and wide characters. Decode stops at the
// first invalid sequence when `strict`, else puts U+FFFD for it. A null
// destination only counts.
class Codec {
public:
    virtual ~Codec() = default;
    virtual Progress Decode(const char* src, size_t n, wchar_t* dst, size_t room,
                            bool strict) const = 0;
    virtual Progress Encode(const wchar_t* src, size_t n, char* dst, size_t room,
                            Fallback& fallback) const = 0;
};

// A single-byte code page as two tables: byte -> wide, and wide -> byte (the
// lowest byte of a character that several bytes stand for).
class SingleByteCodec final : public Codec {
public:
    explicit SingleByteCodec(const std::array<wchar_t, 256>& toWide) : toWide_(toWide) {
        for (int b = 0; b < 256; ++b) {
            auto cp = static_cast<uint32_t>(toWide_[b]);
            if (cp <= 0xFFFF && toByte_.Find(cp) < 0) toByte_.Set(static_cast<uint16_t>(cp), static_cast<int16_t>(b));
        }
    }

    Progress Decode(const char* src, size_t n, wchar_t* dst, size_t room,
                    bool) const override {
        if (!dst) return {Status::kOk, n, n};
        size_t count = n < room ? n : room;
        MapBytesToWide(reinterpret_cast<const unsigned char*>(src), count, dst,
                       [this](unsigned char byte) { return toWide_[byte]; }, IsLargeWideOutput(count, room));
        return {count < n ? Status::kNoRoom : Status::kOk, count, count};
    }

    Progress Encode(const wchar_t* src, size_t n, char* dst, size_t room,
                    Fallback& fallback) const override {
        Progress p;
        for (; p.in < n; ++p.in) {
            if (dst && p.out == room) return {Status::kNoRoom, p.in, p.out};
            int byte = toByte_.Find(static_cast<uint32_t>(src[p.in]));
            if (byte < 0) {
                if (fallback.strict) return {Status::kInvalid, p.in, p.out};
                fallback.used = true;
                byte = static_cast<unsigned char>(fallback.byte);
            }
            if (dst) dst[p.out] = static_cast<char>(byte);
            ++p.out;
        }
        return p;
    }

private:
    std::array<wchar_t, 256> toWide_;
    CodePointPages<int16_t, -1> toByte_;
};

class Utf8Codec final : public Codec {
public:
    Progress Decode(const char* src, size_t n, wchar_t* dst, size_t room,
                    bool strict) const override {
        const auto* s = reinterpret_cast<const unsigned char*>(src);
        Progress p;
        while (p.in < n) {
            if (dst && p.out == room) return {Status::kNoRoom, p.in, p.out};
            char32_t cp = s[p.in];
            size_t used = cp < 0x80 ? 1 : utf8::DecodeOne(s + p.in, n - p.in, cp);
            if (!PutDecoded(p, dst, cp, used, strict)) return p;
        }
        return p;
    }

    Progress Encode(const wchar_t* src, size_t n, char* dst, size_t room,
                    Fallback& fallback) const override {
        Progress p;
        char bytes[4];
        for (; p.in < n; ++p.in) {
            if (dst && p.out == room) return {Status::kNoRoom, p.in, p.out};
            auto cp = static_cast<char32_t>(src[p.in]);
            if (!utf8::IsScalar(cp)) {
                if (fallback.strict) return {Status::kInvalid, p.in, p.out};
                fallback.used = true;
                cp = utf8::kReplacement;
            }
            size_t length = utf8::EncodeOne(cp, bytes);
            if (dst) {
                if (room - p.out < length) return {Status::kNoRoom, p.in, p.out};
                std::memcpy(dst + p.out, bytes, length);
            }
            p.out += length;
        }
        return p;
    }
};

// iconv_open's failure value.
const iconv_t kNoDescriptor = reinterpret_cast<iconv_t>(-1);

// One iconv descriptor, closed with the object.
class IconvHandle {
public:
    IconvHandle(const char* to, const char* from) : cd_(iconv_open(to, from)) {}
    ~IconvHandle() {
        if (cd_ != kNoDescriptor) iconv_close(cd_);
    }
    IconvHandle(const IconvHandle&) = delete;
    IconvHandle& operator=(const IconvHandle&) = delete;

    bool ok() const { return cd_ != kNoDescriptor; }
    void ResetState() const { iconv(cd_, nullptr, nullptr, nullptr, nullptr); }
    // Converts as much as fits; returns iconv's result.
    size_t Convert(const char*& in, size_t& inLeft, char*& out, size_t& outLeft) const {
        return iconv(cd_, const_cast<char**>(&in), &inLeft, &out, &outLeft);
    }
    // Writes what returns the output to its initial shift state.
    size_t Unshift(char*& out, size_t& outLeft) const {
        return iconv(cd_, nullptr, nullptr, &out, &outLeft);
    }

private:
    iconv_t cd_;
};

// A multi-byte code page through iconv. Descriptors carry conversion state, so
// each thread gets its own pair.
class IconvCodec final : public Codec {
public:
    explicit IconvCodec(std::string name) : name_(std::move(name)) {}

    Progress Decode(const char* src, size_t n, wchar_t* dst, size_t room,
                    bool strict) const override {
        const IconvHandle& cd = Descriptors().toWide;
        cd.ResetState();
        wchar_t scratch[256];
        Progress p;
        const char* in = src;
        size_t inLeft = n;
        while (inLeft > 0) {
            wchar_t* start = dst ? dst + p.out : scratch;
            size_t roomLeft = dst ? room - p.out : std::size(scratch);
            char* out = reinterpret_cast<char*>(start);
            size_t outLeft = roomLeft * sizeof(wchar_t);
            size_t result = cd.Convert(in, inLeft, out, outLeft);
            int err = errno;
            p.out += roomLeft - outLeft / sizeof(wchar_t);
            p.in = n - inLeft;
            if (result != static_cast<size_t>(-1)) break;
            if (err == E2BIG) {
                if (dst) return {Status::kNoRoom, p.in, p.out};
                continue;
            }
            // EILSEQ, or EINVAL for a sequence cut short at the end.
            if (strict) return {Status::kInvalid, p.in, p.out};
            if (dst) {
                if (p.out == room) return {Status::kNoRoom, p.in, p.out};
                dst[p.out] = static_cast<wchar_t>(utf8::kReplacement);
            }
            ++p.out;
            ++in;
            --inLeft;
            cd.ResetState();
        }
        return p;
    }

    Progress Encode(const wchar_t* src, size_t n, char* dst, size_t room,
                    Fallback& fallback) const override {
        const IconvHandle& cd = Descriptors().fromWide;
        cd.ResetState();
        char scratch[1024];
        Progress p;
        const char* in = reinterpret_cast<const char*>(src);
        size_t inLeft = n * sizeof(wchar_t);
        // After the input, iconv returns a stateful encoding to its initial
        // shift state, which may write bytes too.
        bool unshifted = false;
        while (!unshifted) {
            char* start = dst ? dst + p.out : scratch;
            size_t roomLeft = dst ? room - p.out : sizeof(scratch);
            char* out = start;
            size_t outLeft = roomLeft;
            size_t result;
            if (inLeft > 0) {
                result = cd.Convert(in, inLeft, out, outLeft);
            } else {
                result = cd.Unshift(out, outLeft);
                unshifted = result != static_cast<size_t>(-1);
            }
            int err = errno;
            p.out += roomLeft - outLeft;
            p.in = n - inLeft / sizeof(wchar_t);
            if (result != static_cast<size_t>(-1)) continue;
            if (err == E2BIG) {
                if (dst) return {Status::kNoRoom, p.in, p.out};
                continue;
            }
            if (fallback.strict) return {Status::kInvalid, p.in, p.out};
            fallback.used = true;
            if (dst) {
                if (p.out == room) return {Status::kNoRoom, p.in, p.out};
                dst[p.out] = fallback.byte;
            }
            ++p.out;
            in += sizeof(wchar_t);
            inLeft -= sizeof(wchar_t);
        }
        return p;
    }

private:
    struct Pair {
        explicit Pair(const std::string& name)
            : toWide("WCHAR_T", name.c_str()), fromWide(name.c_str(), "WCHAR_T") {}
        IconvHandle toWide;
        IconvHandle fromWide;
    };

    const Pair& Descriptors() const {
        thread_local std::unordered_map<const IconvCodec*, std::unique_ptr<Pair>> perThread;
        std::unique_ptr<Pair>& pair = perThread[this];
        if (!pair) pair = std::make_unique<Pair>(name_);
        return *pair;
    }

    std::string name_;
};

// A stateless code page of one- and two-byte characters in which bytes below
// 0x80 are ASCII (932, 936, 949, 950), converted through tables that iconv
// filled once, so that the results are exactly iconv's: a lead byte whose
// trail iconv rejects, or that ends the text, is one invalid byte. Characters
// the tables lack when encoding go through iconv one at a time.
class DoubleByteCodec final : public Codec {
public:
    // Null when some byte, or pair of a lead byte and any byte, converts
    // otherwise: into no or several characters, or needing a third byte.
    static std::unique_ptr<Codec> Build(const std::string& name) {
        IconvHandle toWide("WCHAR_T", name.c_str());
        IconvHandle fromWide(name.c_str(), "WCHAR_T");
        if (!toWide.ok() || !fromWide.ok()) return nullptr;
        std::unique_ptr<DoubleByteCodec> codec(new DoubleByteCodec(name));
        for (int b = 0; b < 256; ++b) {
            const unsigned char alone[1] = {static_cast<unsigned char>(b)};
            std::optional<wchar_t> single = DecodeAlone(toWide, alone, 1);
            if (!single) return nullptr;
            if (b < 0x80 && (*single != b || EncodeAlone(fromWide, *single) != b)) return nullptr;
            codec->single_[b] = *single;
            if (*single != kLead) continue;
            codec->rowOf_[b] = static_cast<uint8_t>(codec->rows_.size());
            auto& row = codec->rows_.emplace_back();
            for (int t = 0; t < 256; ++t) {
                const unsigned char pair[2] = {static_cast<unsigned char>(b), static_cast<unsigned char>(t)};
                std::optional<wchar_t> wc = DecodeAlone(toWide, pair, 2);
                if (!wc || *wc == kLead) return nullptr;
                row[t] = *wc;
            }
        }
        codec->FillEncodings(fromWide);
        return codec;
    }

    Progress Decode(const char* src, size_t n, wchar_t* dst, size_t room,
                    bool strict) const override {
        const auto* s = reinterpret_cast<const unsigned char*>(src);
        Progress p;
        while (p.in < n) {
            if (dst) {
                size_t run = WidenAscii(s + p.in, std::min(n - p.in, room - p.out), dst + p.out);
                p.in += run;
                p.out += run;
                if (p.in == n) break;
                if (p.out == room) return {Status::kNoRoom, p.in, p.out};
            }
            wchar_t wc = single_[s[p.in]];
            size_t used = 1;
            if (wc == kLead) {
                wc = p.in + 1 < n ? rows_[rowOf_[s[p.in]]][s[p.in + 1]] : kInvalid;
                used = 2;
            }
            if (!PutDecoded(p, dst, static_cast<char32_t>(wc), wc == kInvalid ? 0 : used, strict)) return p;
        }
        return p;
    }

    Progress Encode(const wchar_t* src, size_t n, char* dst, size_t room,
                    Fallback& fallback) const override {
        Progress p;
        while (p.in < n) {
            if (dst) {
                size_t run = NarrowAscii(src + p.in, std::min(n - p.in, room - p.out),
                                         reinterpret_cast<unsigned char*>(dst + p.out));
                p.in += run;
                p.out += run;
                if (p.in == n) break;
            }
            uint16_t bytes = toBytes_.Find(static_cast<uint32_t>(src[p.in]));
            size_t length = bytes > 0xFF ? 2 : 1;
            // iconv also decides what a character that does not fit leaves in
            // the room (a lead byte, for some code pages).
            if (bytes == kUnknown || (dst && room - p.out < length)) {
                Progress one = iconv_.Encode(src + p.in, 1, dst ? dst + p.out : nullptr,
                                             dst ? room - p.out : 0, fallback);
                p.out += one.out;
                if (one.status != Status::kOk) return {one.status, p.in, p.out};
            } else if (dst) {
                if (length == 2) dst[p.out++] = static_cast<char>(bytes >> 8);
                dst[p.out++] = static_cast<char>(bytes);
            } else {
                p.out += length;
            }
            ++p.in;
        }
        return p;
    }

private:
    static constexpr wchar_t kInvalid = -1;  // iconv rejects the byte
    static constexpr wchar_t kLead = -2;     // iconv waits for a second byte
    static constexpr uint16_t kUnknown = 0;  // not in the tables: ask iconv

    explicit DoubleByteCodec(const std::string& name) : iconv_(name) { rowOf_.fill(0); }

    // What iconv makes of `bytes` alone: one character, kInvalid, kLead, or
    // nothing when it does anything else.
    static std::optional<wchar_t> DecodeAlone(const IconvHandle& cd, const unsigned char* bytes,
                                              size_t n) {
        cd.ResetState();
        const char* in = reinterpret_cast<const char*>(bytes);
        size_t inLeft = n;
        wchar_t wide[2];
        char* out = reinterpret_cast<char*>(wide);
        size_t outLeft = sizeof wide;
        size_t result = cd.Convert(in, inLeft, out, outLeft);
        int err = errno;
        size_t produced = std::size(wide) - outLeft / sizeof(wchar_t);
        if (result != static_cast<size_t>(-1)) {
            if (produced == 1 && cd.Unshift(out, outLeft) == 0 && outLeft == sizeof(wchar_t)) return wide[0];
            return std::nullopt;
        }
        if (inLeft != n || produced != 0) return std::nullopt;
        if (err == EILSEQ) return kInvalid;
        if (err == EINVAL) return kLead;
        return std::nullopt;
    }

    // The bytes iconv writes for `wc` alone, as a lead byte and its trail or
    // as one byte; -1 when it writes none or something else.
    static int EncodeAlone(const IconvHandle& cd, wchar_t wc) {
        cd.ResetState();
        const char* in = reinterpret_cast<const char*>(&wc);
        size_t inLeft = sizeof wc;
        unsigned char bytes[4];
        char* out = reinterpret_cast<char*>(bytes);
        size_t outLeft = sizeof bytes;
        if (cd.Convert(in, inLeft, out, outLeft) == static_cast<size_t>(-1)) return -1;
        size_t written = sizeof bytes - outLeft;
        if (cd.Unshift(out, outLeft) != 0 || sizeof bytes - outLeft != written) return -1;
        if (written == 1) return bytes[0];
        if (written == 2 && bytes[0] >= 0x80) return bytes[0] << 8 | bytes[1];
        return -1;
    }

    // Every character the tables decode to as iconv encodes it (U+0000,
    // whose byte is kUnknown's value, is left to iconv).
    void FillEncodings(const IconvHandle& fromWide) {
        auto fill = [&](wchar_t wc) {
            auto cp = static_cast<uint32_t>(wc);
            if (cp > 0xFFFF || toBytes_.Find(cp) != kUnknown) return;
            int bytes = EncodeAlone(fromWide, wc);
            if (bytes > 0) toBytes_.Set(static_cast<uint16_t>(cp), static_cast<uint16_t>(bytes));
        };
        for (wchar_t wc : single_) fill(wc);
        for (const auto& row : rows_) {
            for (wchar_t wc : row) fill(wc);
        }
    }

    std::array<wchar_t, 256> single_;
    std::array<uint8_t, 256> rowOf_;                 // the row of a lead byte's pairs
    std::vector<std::array<wchar_t, 256>> rows_;     // by trail byte
    CodePointPages<uint16_t, kUnknown> toBytes_;
    IconvCodec iconv_;
};

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
    if (codePage == CP_UTF8) return std::make_unique<Utf8Codec>();
    std::string name = IconvName(codePage);
    IconvHandle cd("WCHAR_T", name.c_str());
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
            if (auto tables = DoubleByteCodec::Build(name)) return tables;
            return std::make_unique<IconvCodec>(std::move(name));
        }
        // Code pages with combining marks (1255, 1258) hold a letter back
        // until they see what follows it.
        if (result != static_cast<size_t>(-1) && outLeft != 0) result = cd.Unshift(out, outLeft);
        bool converted = result != static_cast<size_t>(-1) && outLeft == 0;
        toWide[b] = converted ? wc : static_cast<wchar_t>(b);
    }
    return std::make_unique<SingleByteCodec>(toWide);
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
