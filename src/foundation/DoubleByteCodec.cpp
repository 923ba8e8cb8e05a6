#include "foundation/DoubleByteCodec.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <vector>

#include "foundation/AsciiRun.h"
#include "foundation/CodePointPages.h"
#include "foundation/IconvCodec.h"
#include "foundation/IconvHandle.h"

namespace quillet::codec {

namespace {

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
                const unsigned char pair[2] = {static_cast<unsigned char>(b),
                                               static_cast<unsigned char>(t)};
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
            if (!PutDecoded(p, dst, static_cast<char32_t>(wc), wc == kInvalid ? 0 : used, strict))
                return p;
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
                Progress one = iconv_->Encode(src + p.in, 1, dst ? dst + p.out : nullptr,
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

    explicit DoubleByteCodec(const std::string& name) : iconv_(MakeIconvCodec(name)) {
        rowOf_.fill(0);
    }

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
            if (produced == 1 && cd.Unshift(out, outLeft) == 0 && outLeft == sizeof(wchar_t))
                return wide[0];
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
    std::array<uint8_t, 256> rowOf_;              // the row of a lead byte's pairs
    std::vector<std::array<wchar_t, 256>> rows_;  // by trail byte
    CodePointPages<uint16_t, kUnknown> toBytes_;
    std::unique_ptr<Codec> iconv_;
};

}  // namespace

std::unique_ptr<Codec> MakeDoubleByteCodec(const std::string& name) {
    return DoubleByteCodec::Build(name);
}

}  // namespace quillet::codec
