#include "foundation/IconvCodec.h"

#include <cerrno>
#include <unordered_map>

#include "foundation/IconvHandle.h"
#include "foundation/Utf8.h"

namespace quillet::codec {

namespace {

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

}  // namespace

std::unique_ptr<Codec> MakeIconvCodec(std::string name) {
    return std::make_unique<IconvCodec>(std::move(name));
}

}  // namespace quillet::codec
