// Every converter, through Source2Native and Native2Source, with destinations
// of 0, 1, 2 and exactly the needed units: nothing is written past `size`, and
// the needed length gives the whole text.

#include <gtest/gtest.h>

#include <cwchar>
#include <optional>
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
    {"ansi system", 9, 1, 1252, 437, 1252, "caf\xE9"},
    {"ansi table", 9, 1, 1252, 437, 1253, "\xE1\xE2x"},
    {"oem system", 9, 1, 1252, 437, 437, "\x82t\xE9"},
    {"oem table", 9, 1, 1252, 437, 850, "\x82t\xE9"},
    {"oem multi-byte", 17, 81, 932, 932, 932, "\x82\xA0x", true},
    {"iso table", 9, 1, 1252, 437, 88592, "\xB1x"},
    {"iso without table", 9, 1, 1252, 437, 885912, "ab\xB1"},
    {"utf-8", 9, 1, 1252, 437, 65001, "a\xC3\xA9\xE2\x82\xAC"},
    {"asmo 449", 1, 20, 1256, 720, 449, "ab}HG{c"},
    {"alarabi", 1, 20, 1256, 720, 448, "}HG"},
    {"euc-jp", 17, 81, 932, 932, 885932, "\xA4\xA2\x8E\xB1x"},
    {"euc-tw", 4, 886, 950, 950, 885950, "\xC4\xA1\x8E\xA2\xA1\xA1x"},
    {"chinese ansi", 4, 4, 936, 936, 885950, "\xD6\xD0x"},
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
                         [](const auto& info) {
                             std::string name = info.param.name;
                             for (char& ch : name) {
                                 if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
                             }
                             return name;
                         });

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

}  // namespace
}  // namespace quillet
