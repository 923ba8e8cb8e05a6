#include "foundation/SqlParse.h"

#include <gtest/gtest.h>

#include <string>

namespace quillet {
namespace {

bool Like(const wchar_t* text, const wchar_t* pattern) {
    return SqlParse::PatternMatch(text, pattern);
}

TEST(PatternMatch, LiteralPatternsMatchTheWholeTextOnly) {
    EXPECT_TRUE(Like(L"abc", L"abc"));
    EXPECT_FALSE(Like(L"abc", L"ab"));
    EXPECT_FALSE(Like(L"ab", L"abc"));
    EXPECT_FALSE(Like(L"ABC", L"abc"));  // no case folding
    EXPECT_TRUE(Like(L"", L""));
    EXPECT_TRUE(Like(nullptr, L"%"));
    EXPECT_FALSE(Like(nullptr, L"_"));
    EXPECT_TRUE(Like(L"", nullptr) && !Like(L"x", nullptr));
}

TEST(PatternMatch, PercentMatchesAnyRunAtEveryPosition) {
    EXPECT_TRUE(Like(L"abc", L"%"));
    EXPECT_TRUE(Like(L"", L"%"));
    EXPECT_TRUE(Like(L"", L"%%"));
    EXPECT_TRUE(Like(L"abc", L"%abc"));
    EXPECT_TRUE(Like(L"xxabc", L"%abc"));
    EXPECT_FALSE(Like(L"abcx", L"%abc"));
    EXPECT_TRUE(Like(L"abc", L"abc%"));
    EXPECT_TRUE(Like(L"abcxx", L"abc%"));
    EXPECT_FALSE(Like(L"xabc", L"abc%"));
    EXPECT_TRUE(Like(L"abc", L"a%c"));
    EXPECT_TRUE(Like(L"ac", L"a%c"));
    EXPECT_TRUE(Like(L"abcbc", L"a%bc"));  // needs a retry after a false start
    EXPECT_FALSE(Like(L"abcb", L"a%bc"));
    EXPECT_TRUE(Like(L"mississippi", L"%iss%ppi"));
    EXPECT_TRUE(Like(L"a%b", L"a%b"));
}

TEST(PatternMatch, UnderscoreMatchesExactlyOneAtEveryPosition) {
    EXPECT_TRUE(Like(L"abc", L"_bc"));
    EXPECT_TRUE(Like(L"abc", L"a_c"));
    EXPECT_TRUE(Like(L"abc", L"ab_"));
    EXPECT_TRUE(Like(L"abc", L"___"));
    EXPECT_FALSE(Like(L"abc", L"____"));
    EXPECT_FALSE(Like(L"abc", L"__"));
    EXPECT_FALSE(Like(L"", L"_"));
    EXPECT_TRUE(Like(L"\u00e9t\u00e9", L"_t_"));
}

TEST(PatternMatch, BothWildcardsTogether) {
    EXPECT_TRUE(Like(L"abxc", L"ab_c%"));
    EXPECT_TRUE(Like(L"abxcyyy", L"ab_c%"));
    EXPECT_FALSE(Like(L"abc", L"ab_c%"));
    EXPECT_TRUE(Like(L"aXXbYc", L"a%b_c"));
    EXPECT_FALSE(Like(L"aXXbc", L"a%b_c"));
    EXPECT_TRUE(Like(L"xab", L"_%b"));
    EXPECT_TRUE(Like(L"xb", L"%_b"));
    EXPECT_FALSE(Like(L"b", L"%_b"));
    EXPECT_TRUE(Like(L"abc", L"%_%"));
    EXPECT_FALSE(Like(L"", L"%_%"));
    EXPECT_TRUE(Like(L"abcd", L"_%_"));
    EXPECT_TRUE(Like(L"ab", L"_%_"));
    EXPECT_FALSE(Like(L"a", L"_%_"));
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
