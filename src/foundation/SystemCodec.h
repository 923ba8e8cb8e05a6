#pragma once

// The converters behind the system code page calls (SystemCodePage.h): one
// Codec per code page, chosen by what iconv says of the code page's bytes.
// Internal to the library.

#include <cstddef>

#include "foundation/Utf8.h"

namespace quillet::codec {

// Whether a conversion ran to the end, met an invalid unit it was told to
// stop at, or ran out of room.
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
inline bool PutDecoded(Progress& p, wchar_t* dst, char32_t cp, size_t used, bool strict) {
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

}  // namespace quillet::codec
