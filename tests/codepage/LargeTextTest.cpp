// Texts large enough that the single-byte decoders write them past the cache:
// the same characters as a short text gives, the terminator where the text
// ends, nothing past the room, whatever the destination's alignment.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"

namespace quillet {
namespace {

struct Case {
    const char* name;
    int language, country, ansi, oem;
    uint32_t codePage;
    bool fillsRoom;  // a text longer than the room fills it without a terminator
};

const Case kCases[] = {
    {"table", 9, 1, 1250, 437, 1252, true},
    {"oem_system", 9, 1, 1252, 437, 437, false},
};

class LargeText : public ::testing::TestWithParam<Case> {};

TEST_P(LargeText, DecodesAsShortTextsDo) {
    const Case& c = GetParam();
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

    constexpr wchar_t kUntouched = L'#';
    for (size_t offset = 0; offset < 4; ++offset) {
        for (size_t room : {bytes.size() + 1, bytes.size() + 64, bytes.size()}) {
            SCOPED_TRACE("offset " + std::to_string(offset) + ", room " + std::to_string(room));
            std::wstring dst(offset + room + 8, kUntouched);
            page.Source2Native(bytes.c_str(), dst.data() + offset, static_cast<uint32_t>(room));
            EXPECT_EQ(dst.substr(0, offset), std::wstring(offset, kUntouched));
            EXPECT_EQ(dst.substr(offset + room), std::wstring(8, kUntouched));
            if (room > bytes.size()) {
                EXPECT_TRUE(dst.compare(offset, expected.size(), expected) == 0);
                EXPECT_EQ(dst[offset + expected.size()], L'\0');
            } else if (c.fillsRoom) {
                EXPECT_TRUE(dst.compare(offset, room, expected, 0, room) == 0);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Decoders, LargeText, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillet
