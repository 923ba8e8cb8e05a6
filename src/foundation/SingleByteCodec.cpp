#include "foundation/SingleByteCodec.h"

#include <cstdint>

#include "foundation/ByteToWide.h"
#include "foundation/CodePointPages.h"

namespace quillet::codec {

namespace {

// A single-byte code page as two tables: byte -> wide, and wide -> byte (the
// lowest byte of a character that several bytes stand for).
class SingleByteCodec final : public Codec {
public:
    explicit SingleByteCodec(const std::array<wchar_t, 256>& toWide) : toWide_(toWide) {
        for (int b = 0; b < 256; ++b) {
            auto cp = static_cast<uint32_t>(toWide_[b]);
            if (cp <= 0xFFFF && toByte_.Find(cp) < 0)
                toByte_.Set(static_cast<uint16_t>(cp), static_cast<int16_t>(b));
        }
    }

    Progress Decode(const char* src, size_t n, wchar_t* dst, size_t room, bool) const override {
        if (!dst) return {Status::kOk, n, n};
        size_t count = n < room ? n : room;
        MapBytesToWide(
            reinterpret_cast<const unsigned char*>(src), count, dst,
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

}  // namespace

std::unique_ptr<Codec> MakeSingleByteCodec(const std::array<wchar_t, 256>& toWide) {
    return std::make_unique<SingleByteCodec>(toWide);
}

}  // namespace quillet::codec
