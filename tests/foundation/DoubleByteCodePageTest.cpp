// The double-byte code pages convert through tables filled from iconv; they
// must give what iconv gives converting the same text in one run: the same
// characters, the same invalid bytes replaced or refused, the same stop when
// the room runs out.

#include <errno.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <ostream>
#include <type_traits>
#include <string>
#include <vector>

#include "foundation/SystemCodePage.h"
#include "foundation/Win32Error.h"

namespace quillet {
namespace {

const std::vector<uint32_t> kCodePages = {932, 936, 949, 950};
constexpr size_t kFailed = static_cast<size_t>(-1);

// What a conversion call returned, its last error, and its whole destination.
template <class Out>
struct Outcome {
    int result;
    uint32_t error;
    std::basic_string<Out> dst;
    bool operator==(const Outcome&) const = default;
    friend std::ostream& operator<<(std::ostream& os, const Outcome& o) {
        os << o.result << " error " << o.error << " [" << std::hex;
        for (auto unit : o.dst) os << ' ' << static_cast<uint32_t>(static_cast<std::make_unsigned_t<Out>>(unit));
        return os << std::dec << " ]";
    }
};

// iconv over the whole text at once; an invalid or cut-short sequence is
// refused (`strict`) or becomes `replacement` and its first unit is skipped.
template <class In, class Out>
Outcome<Out> ThroughIconv(const char* to, const char* from, const std::basic_string<In>& text,
                          size_t room, bool strict, Out replacement) {
    iconv_t cd = iconv_open(to, from);
    std::basic_string<Out> dst(room, Out('#'));
    auto* in = reinterpret_cast<char*>(const_cast<In*>(text.data()));
    size_t inLeft = text.size() * sizeof(In);
    auto* out = reinterpret_cast<char*>(dst.data());
    size_t outLeft = room * sizeof(Out);
    Outcome<Out> outcome{0, 0, {}};
    while (inLeft > 0 || outcome.error == 0) {
        size_t result = inLeft > 0 ? iconv(cd, &in, &inLeft, &out, &outLeft) : iconv(cd, nullptr, nullptr, &out, &outLeft);
        if (result != kFailed && inLeft == 0) break;
        if (result != kFailed) continue;
        if (errno == E2BIG || (!strict && outLeft == 0)) {
            outcome.error = ERROR_INSUFFICIENT_BUFFER;
        } else if (strict) {
            outcome.error = ERROR_NO_UNICODE_TRANSLATION;
        } else {
            std::memcpy(out, &replacement, sizeof(Out));
            out += sizeof(Out);
            outLeft -= sizeof(Out);
            in += sizeof(In);
            inLeft -= sizeof(In);
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
            continue;
        }
        break;
    }
    iconv_close(cd);
    if (outcome.error == 0) outcome.result = static_cast<int>(room - outLeft / sizeof(Out));
    outcome.dst = dst;
    return outcome;
}

std::string IconvName(uint32_t codePage) { return "CP" + std::to_string(codePage); }

rc::Gen<std::string> MixedBytes() {
    // Mostly ASCII words, with lead bytes, trail bytes of either half and
    // zeros among them.
    return rc::gen::container<std::string>(rc::gen::weightedOneOf<char>({
        {6, rc::gen::inRange<char>('a', 'z' + 1)},
        {3, rc::gen::cast<char>(rc::gen::inRange(0x80, 0x100))},
        {1, rc::gen::cast<char>(rc::gen::inRange(0x40, 0x80))},
        {1, rc::gen::just('\0')},
    }));
}

RC_GTEST_PROP(DoubleByteCodePage, DecodesAsIconvInOneRun, ()) {
    uint32_t codePage = *rc::gen::elementOf(kCodePages);
    std::string bytes = *MixedBytes();
    RC_PRE(!bytes.empty());
    bool strict = *rc::gen::arbitrary<bool>();
    auto room = *rc::gen::inRange<size_t>(0, bytes.size() + 2);
    uint32_t flags = strict ? MB_ERR_INVALID_CHARS : 0;

    auto whole = ThroughIconv<char, wchar_t>("WCHAR_T", IconvName(codePage).c_str(), bytes, 4 * bytes.size(),
                                             strict, L'\uFFFD');
    int n = static_cast<int>(bytes.size());
    SetLastError(0);
    RC_ASSERT(MultiByteToWideChar(codePage, flags, bytes.data(), n, nullptr, 0) == whole.result);
    RC_ASSERT(GetLastError() == whole.error);

    Outcome<wchar_t> ours{0, 0, std::wstring(room, L'#')};
    SetLastError(0);
    ours.result = MultiByteToWideChar(codePage, flags, bytes.data(), n, room ? ours.dst.data() : nullptr,
                                      static_cast<int>(room));
    ours.error = GetLastError();
    if (room == 0) return;  // a count, as above
    RC_ASSERT(ours == (ThroughIconv<char, wchar_t>("WCHAR_T", IconvName(codePage).c_str(), bytes, room, strict,
                                                   L'\uFFFD')));
}

RC_GTEST_PROP(DoubleByteCodePage, EncodesAsIconvInOneRun, ()) {
    uint32_t codePage = *rc::gen::elementOf(kCodePages);
    // Characters of the code page come from decoding pairs of bytes.
    std::string pairs = *rc::gen::container<std::string>(rc::gen::cast<char>(rc::gen::inRange(0x81, 0xFF)));
    auto decoded = ThroughIconv<char, wchar_t>("WCHAR_T", IconvName(codePage).c_str(), pairs, 2 * pairs.size(),
                                               false, L'\uFFFD');
    std::vector<wchar_t> pool(decoded.dst.begin(), decoded.dst.begin() + decoded.result);
    pool.insert(pool.end(), {L'a', L'z', L'\0', L'\u00C5', L'\u20AC', static_cast<wchar_t>(0x1F600),
                             static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x7FFFFFFF)});
    std::wstring text = *rc::gen::container<std::wstring>(rc::gen::elementOf(pool));
    RC_PRE(!text.empty());
    auto room = *rc::gen::inRange<size_t>(0, 2 * text.size() + 2);
    bool strict = *rc::gen::arbitrary<bool>();

    Outcome<char> ours{0, 0, std::string(room, '#')};
    int usedDefault = -1;
    SetLastError(0);
    ours.result = WideCharToMultiByte(codePage, strict ? WC_ERR_INVALID_CHARS : 0, text.data(), static_cast<int>(text.size()),
                                      room ? ours.dst.data() : nullptr, static_cast<int>(room), nullptr,
                                      &usedDefault);
    ours.error = GetLastError();
    size_t iconvRoom = room ? room : 2 * text.size();
    auto expected = ThroughIconv<wchar_t, char>(IconvName(codePage).c_str(), "WCHAR_T", text, iconvRoom, strict, '?');
    if (room == 0) {
        RC_ASSERT(ours.result == expected.result);
        return;
    }
    RC_ASSERT(ours == expected);
}

}  // namespace
}  // namespace quillet
