#include "foundation/SqlParse.h"

#include <gtest/gtest.h>

#include <string>

namespace quillet {
namespace {

bool Like(const wchar_t* text, const wchar_t* pattern) {
    return SqlParse::PatternMatch(text, pattern);
}

TEST(PatternMatch, WildcardsAtEveryPosition) {
    const struct {
        const wchar_t* text;
        const wchar_t* pattern;
        bool match;
    } cases[] = {
        // Literal patterns match the whole text only, without case folding.
        {L"abc", L"abc", true}, {L"abc", L"ab", false}, {L"ab", L"abc", false},
        {L"ABC", L"abc", false}, {L"", L"", true}, {L"a%b", L"a%b", true},
        {nullptr, L"%", true}, {nullptr, L"_", false}, {L"", nullptr, true}, {L"x", nullptr, false},
        // "%" matches any run, the empty one too.
        {L"", L"%%", true}, {L"xxabc", L"%abc", true}, {L"abcx", L"%abc", false},
        {L"abcxx", L"abc%", true}, {L"xabc", L"abc%", false}, {L"ac", L"a%c", true},
        {L"abcbc", L"a%bc", true},  // needs a retry after a false start
        {L"abcb", L"a%bc", false}, {L"mississippi", L"%iss%ppi", true},
        // "_" matches exactly one character.
        {L"abc", L"_bc", true}, {L"abc", L"a_c", true}, {L"abc", L"ab_", true},
        {L"abc", L"____", false}, {L"abc", L"__", false}, {L"", L"_", false},
        {L"\u00e9t\u00e9", L"_t_", true},
        // Both together.
        {L"abxcyyy", L"ab_c%", true}, {L"abc", L"ab_c%", false}, {L"aXXbYc", L"a%b_c", true},
        {L"aXXbc", L"a%b_c", false}, {L"xb", L"%_b", true}, {L"b", L"%_b", false},
        {L"", L"%_%", false}, {L"ab", L"_%_", true}, {L"a", L"_%_", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Like(c.text, c.pattern), c.match)
            << (c.text ? c.text : L"(null)") << " LIKE " << (c.pattern ? c.pattern : L"(null)");
    }
}

TEST(PatternMatch, FailsFastOnLongTextWithManyPercents) {
    std::wstring text(20000, L'a');
    EXPECT_FALSE(Like(text.c_str(), L"%a%a%a%a%a%a%a%a%b"));
    EXPECT_TRUE(Like((text + L"b").c_str(), L"%a%a%a%a%a%a%a%a%b"));
}

TEST(LstrncmpPad, ComparesAsIfPaddedWithSpaces) {
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"abc", L"abc  ", 5), 0);
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"abc  ", L"abc", 5), 0);
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"abc", L"abc", 10), 0);
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"ab", L"ab!", 3), -1);  // ' ' < '!'
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"ab", L"ab\t", 3), 1);  // ' ' > '\t'
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"abd", L"abc", 3), 1);
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"abd", L"abc", 2), 0);  // only n characters
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"B", L"a", 1), -1);     // code points, no folding
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"x", L"y", 0), 0);
    EXPECT_EQ(SqlParse::lstrncmp_pad(nullptr, L"   ", 3), 0);
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"a", nullptr, 3), 1);
    EXPECT_EQ(SqlParse::lstrncmp_pad(L"\U0001F600", L"\uFFFF", 1), 1);
}

}  // namespace
}  // namespace quillet
