// Every converter, through Source2Native and Native2Source, with destinations
// of 0, 1, 2 and exactly the needed units: nothing is written past `size`, and
// the needed length gives the whole text.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"

namespace quillet {
namespace {

constexpr size_t kGuard = 8;

struct Case {
    const char* name;
    int language, country, ansi, oem;
    uint32_t codePage;
    std::string bytes;
    // True where `size` also bounds the source (the OEM system path reads
    // `size` bytes), so that the needed characters cut multi-byte text.
    bool sizeBoundsSource = false;
};

const Case kCases[] = {
    {"ansi_system", 9, 1, 1252, 437, 1252, "caf\xE9"},
    {"ansi_table", 9, 1, 1252, 437, 1253, "\xE1\xE2x"},
    {"oem_system", 9, 1, 1252, 437, 437, "\x82t\xE9"},
    {"oem_table", 9, 1, 1252, 437, 850, "\x82t\xE9"},
    {"oem_multi_byte", 17, 81, 932, 932, 932, "\x82\xA0x", true},
    {"iso_table", 9, 1, 1252, 437, 88592, "\xB1x"},
    {"iso_without_table", 9, 1, 1252, 437, 885912, "ab\xB1"},
    {"utf_8", 9, 1, 1252, 437, 65001, "a\xC3\xA9\xE2\x82\xAC"},
    {"asmo_449", 1, 20, 1256, 720, 449, "ab}HG{c"},
    {"alarabi", 1, 20, 1256, 720, 448, "}HG"},
    {"euc_jp", 17, 81, 932, 932, 885932, "\xA4\xA2\x8E\xB1x"},
    {"euc_tw", 4, 886, 950, 950, 885950, "\xC4\xA1\x8E\xA2\xA1\xA1x"},
    {"chinese_ansi", 4, 4, 936, 936, 885950, "\xD6\xD0x"},
};

// Runs `convert` into a destination of `size` units followed by guard units,
// checks the guard, and returns the units before the terminator.
template <class Out, class Convert>
std::basic_string<Out> Bounded(uint32_t size, Convert convert) {
    std::vector<Out> dst(size + kGuard, Out('#'));
    convert(dst.data(), size);
    for (size_t i = size; i < dst.size(); ++i) EXPECT_EQ(dst[i], Out('#')) << "write past size " << size;
    size_t length = 0;
    while (length < size && dst[length] != 0) ++length;
    return {dst.data(), length};
}

class ConverterBounds : public ::testing::TestWithParam<Case> {};

TEST_P(ConverterBounds, NeverWritePastSize) {
    const Case& c = GetParam();
    test::ScopedLocale locale(c.language, c.country, c.ansi, c.oem);
    CodePage page(c.codePage);
    ASSERT_EQ(page.GetCodePageId(), c.codePage);

    auto decode = [&](uint32_t size) {
        return Bounded<wchar_t>(size, [&](wchar_t* dst, uint32_t n) { page.Source2Native(c.bytes.c_str(), dst, n); });
    };
    std::wstring text = decode(64);
    ASSERT_FALSE(text.empty());
    auto needed = static_cast<uint32_t>(text.size() + 1);
    for (uint32_t size : {0u, 1u, 2u}) decode(size);
    if (!c.sizeBoundsSource) {
        EXPECT_EQ(decode(needed), text);
    }

    auto encode = [&](uint32_t size) {
        return Bounded<char>(size, [&](char* dst, uint32_t n) { page.Native2Source(text.c_str(), dst, n); });
    };
    std::string bytes = encode(64);
    for (uint32_t size : {0u, 1u, 2u}) encode(size);
    EXPECT_EQ(encode(static_cast<uint32_t>(bytes.size() + 1)), bytes);
    EXPECT_EQ(bytes, c.bytes) << "round trip";
}

INSTANTIATE_TEST_SUITE_P(EveryKind, ConverterBounds, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ConverterBounds, JapaneseTransformsStayInSize) {
    const std::string euc = "\xA4\xA2\x8E\xB1x";
    for (uint32_t size : {0u, 1u, 2u, 3u, 5u}) {
        auto sjis = Bounded<char>(size, [&](char* dst, uint32_t n) { CodePage::EUC2SJIS(euc.c_str(), dst, n); });
        EXPECT_EQ(sjis, std::string("\x82\xA0\xB1x").substr(0, sjis.size()));
        auto back = Bounded<char>(size, [&](char* dst, uint32_t n) { CodePage::SJIS2EUC("\x82\xA0\xB1x", dst, n); });
        EXPECT_EQ(back, euc.substr(0, back.size()));
    }
}

TEST(ConverterBounds, ArabicTransformsStayInSize) {
    test::ScopedLocale arabic(1, 20, 1256, 720);
    CodePage page(449u);
    for (uint32_t size : {0u, 1u, 2u, 3u}) {
        Bounded<char>(size, [&](char* dst, uint32_t n) { page.From_Arab7_To_Wincode("a}HG", dst, n); });
        Bounded<char>(size, [&](char* dst, uint32_t n) { page.From_Wincode_To_Arab7("a\xC8\xC7", dst, n); });
    }
}

// The system's OEM conversions go in pieces of some thousands of units: texts
// longer than a piece, with and without places to cut, convert as one.
TEST(ConverterBounds, LongOemTextsConvertWhole) {
    test::ScopedLocale japan(17, 81, 932, 932);
    CodePage page(932u);
    for (const std::string& unit : {std::string("\x82\xA0"), std::string("\x82\xA0 x")}) {
        std::string bytes;
        while (bytes.size() < 70000) bytes += unit;
        std::wstring text(bytes.size() + 1, L'#');
        ASSERT_TRUE(page.Source2Native(bytes.c_str(), text.data(), static_cast<uint32_t>(text.size())));
        text.resize(std::wcslen(text.c_str()));
        EXPECT_EQ(text.size(), bytes.size() / unit.size() * (unit.size() == 2 ? 1 : 3));
        EXPECT_EQ(text.find(L'\uFFFD'), std::wstring::npos);
        std::string back(bytes.size() + 1, '#');
        ASSERT_TRUE(page.Native2Source(text.c_str(), back.data(), static_cast<uint32_t>(back.size())));
        EXPECT_EQ(std::string(back.c_str()), bytes);
        // Room for all but the last character: the write stops at size.
        std::string cut(bytes.size() + 8, '#');
        EXPECT_FALSE(page.Native2Source(text.c_str(), cut.data(), static_cast<uint32_t>(bytes.size() - 1)));
        EXPECT_EQ(cut.substr(bytes.size() - 1), std::string(9, '#'));
    }
}

// The decoders take runs of ASCII eight bytes at a time. Around those blocks:
// runs ending at every position within a block or exactly at its end, the
// terminator right after any of them (with nothing readable beyond it), and
// destinations whose room ends inside a block. Texts large enough that the
// single-byte decoders write them past the cache decode as short texts do,
// whatever the destination's alignment.

// Text whose terminator is the last readable byte before an inaccessible
// page, so that a read past the terminator ends the test.
class GuardedText {
public:
    explicit GuardedText(const std::string& bytes)
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        void* base =
            mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) throw std::runtime_error("mmap failed");
        base_ = static_cast<char*>(base);
        if (mprotect(base_ + page_, page_, PROT_NONE) != 0)
            throw std::runtime_error("mprotect failed");
        text_ = base_ + page_ - (bytes.size() + 1);
        std::memcpy(text_, bytes.c_str(), bytes.size() + 1);
    }
    ~GuardedText() { munmap(base_, 2 * page_); }
    GuardedText(const GuardedText&) = delete;
    GuardedText& operator=(const GuardedText&) = delete;

    const char* c_str() const { return text_; }

private:
    size_t page_;
    char* base_ = nullptr;
    char* text_ = nullptr;
};

// What a destination short of the text gets.
enum class ShortRoom {
    kTerminatedPrefix,  // the text's first room - 1 units and the terminator
    kPrefix,            // the text's first room units, no terminator
    kCutsSource,        // the room bounds the source too, which cuts it elsewhere
};

struct RunCase {
    const char* name;
    int language, country, ansi, oem;
    uint32_t codePage;
    std::string special;  // the bytes of one character beyond ASCII
    wchar_t wide;         // that character
    ShortRoom shortRoom;
};

const RunCase kRunCases[] = {
    {"utf8", 9, 1, 1252, 437, 65001, "\xC3\xA9", L'\u00E9', ShortRoom::kTerminatedPrefix},
    {"utf8_rejected", 9, 1, 1252, 437, 65001, "\xC3", 0, ShortRoom::kTerminatedPrefix},
    {"table", 9, 1, 1250, 437, 1252, "\x80", L'\u20AC', ShortRoom::kPrefix},
    {"oem_system", 9, 1, 1252, 437, 437, "\x82", L'\u00E9', ShortRoom::kCutsSource},
    {"oem_double_byte", 17, 81, 932, 932, 932, "\x82\xA0", L'\u3042', ShortRoom::kCutsSource},
};

constexpr wchar_t kUntouched = L'#';

class AsciiRuns : public ::testing::TestWithParam<RunCase> {
protected:
    // Decodes into `room` units followed by guard units that must stay as
    // they were; returns the whole destination.
    std::wstring Decode(CodePage& page, const char* text, uint32_t room) {
        std::wstring dst(room + kGuard, kUntouched);
        page.Source2Native(text, dst.data(), room);
        EXPECT_EQ(dst.substr(room), std::wstring(kGuard, kUntouched)) << "written past " << room;
        return dst.substr(0, room);
    }
};

TEST_P(AsciiRuns, EveryRunLengthAndPlaceOfTheCharacter) {
    const RunCase& c = GetParam();
    test::ScopedLocale locale(c.language, c.country, c.ansi, c.oem);
    CodePage page(c.codePage);
    // Two blocks and then some; `at` == length puts no character in.
    for (size_t length = 0; length <= 19; ++length) {
        for (size_t at = 0; at <= length; ++at) {
            std::string bytes;
            std::wstring text;
            for (size_t k = 0; k < length; ++k) {
                if (k == at) {
                    bytes += c.special;
                    text += c.wide ? c.wide : kUntouched;  // a rejected byte leaves its place
                }
                bytes += static_cast<char>('a' + k);
                text += static_cast<wchar_t>('a' + k);
            }
            GuardedText guarded(bytes);
            SCOPED_TRACE("length " + std::to_string(length) + ", character at " +
                         std::to_string(at));
            auto needed = static_cast<uint32_t>(text.size() + 1);
            auto plenty = static_cast<uint32_t>(bytes.size() + 1 + kGuard);
            EXPECT_EQ(Decode(page, guarded.c_str(), plenty).substr(0, needed), text + L'\0');
            if (c.shortRoom == ShortRoom::kCutsSource) continue;
            EXPECT_EQ(Decode(page, guarded.c_str(), needed), text + L'\0');
            for (uint32_t room = 1; room < needed; ++room) {
                std::wstring expected = c.shortRoom == ShortRoom::kPrefix
                                            ? text.substr(0, room)
                                            : text.substr(0, room - 1) + L'\0';
                EXPECT_EQ(Decode(page, guarded.c_str(), room), expected);
            }
        }
    }
}

TEST_P(AsciiRuns, LargeTextsDecodeAsShortTextsDo) {
    const RunCase& c = GetParam();
    if (c.special.size() != 1 || c.codePage == 65001) return;  // single-byte decoders only
    test::ScopedLocale locale(c.language, c.country, c.ansi, c.oem);
    CodePage page(c.codePage);
    // What each byte decodes to on its own.
    std::vector<wchar_t> single(256);
    for (int b = 1; b < 256; ++b) {
        const char text[2] = {static_cast<char>(b), '\0'};
        wchar_t wide[2];
        ASSERT_TRUE(page.Source2Native(text, wide, 2));
        single[b] = wide[0];
    }
    // Over 4 MiB of wide characters: words with every byte above 0x80 among them.
    std::string bytes;
    for (uint32_t k = 0; bytes.size() < (size_t{1} << 20) + 4097; ++k) {
        bytes += "word ";
        bytes += static_cast<char>(0x80 + k % 128);
    }
    bytes.resize(bytes.size() - 3);  // an end at no multiple of four
    std::wstring expected;
    for (unsigned char b : bytes) expected += single[b];

    for (size_t offset = 0; offset < 4; ++offset) {
        for (size_t room : {bytes.size() + 1, bytes.size() + 64, bytes.size()}) {
            SCOPED_TRACE("offset " + std::to_string(offset) + ", room " + std::to_string(room));
            std::wstring dst(offset + room + kGuard, kUntouched);
            page.Source2Native(bytes.c_str(), dst.data() + offset, static_cast<uint32_t>(room));
            EXPECT_EQ(dst.substr(0, offset), std::wstring(offset, kUntouched));
            EXPECT_EQ(dst.substr(offset + room), std::wstring(kGuard, kUntouched));
            if (room > bytes.size()) {
                EXPECT_TRUE(dst.compare(offset, expected.size(), expected) == 0);
                EXPECT_EQ(dst[offset + expected.size()], L'\0');
            } else if (c.shortRoom == ShortRoom::kPrefix) {
                EXPECT_TRUE(dst.compare(offset, room, expected, 0, room) == 0);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Decoders, AsciiRuns, ::testing::ValuesIn(kRunCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillet
