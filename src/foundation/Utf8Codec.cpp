#include "foundation/Utf8Codec.h"

#include <cstring>

#include "foundation/Utf8.h"

namespace quillet::codec {

namespace {

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

}  // namespace

std::unique_ptr<Codec> MakeUtf8Codec() {
    return std::make_unique<Utf8Codec>();
}

}  // namespace quillet::codec
