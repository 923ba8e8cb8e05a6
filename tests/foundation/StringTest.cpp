#include "foundation/String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace quillet {
namespace {

std::wstring W(const String& s) { return s.str(); }

TEST(String, PiecesClampToTheText) {
    String s(L"roads.dbf");
    EXPECT_EQ(W(s.Left(5)), L"roads");
    EXPECT_EQ(W(s.Left(99)), L"roads.dbf");
    EXPECT_EQ(W(s.Left(-1)), L"");
    EXPECT_EQ(W(s.Right(3)), L"dbf");
    EXPECT_EQ(W(s.Right(99)), L"roads.dbf");
    EXPECT_EQ(W(s.Mid(6)), L"dbf");
    EXPECT_EQ(W(s.Mid(2, 3)), L"ads");
    EXPECT_EQ(W(s.Mid(-3, 2)), L"ro");
    EXPECT_EQ(W(s.Mid(20)), L"");
    s.SetAt(0, L'R');
    s.SetAt(100, L'x');  // out of range: nothing
    EXPECT_EQ(W(s), L"Roads.dbf");
}

// Text moves between the object's own room and the heap as it grows; every
// length around that limit must survive copies, moves and appends that read
// from the string itself.
TEST(String, KeepsItsTextAcrossTheInlineLimit) {
    for (int length = String::kInlineCapacity - 2; length <= String::kInlineCapacity * 2 + 2; ++length) {
        SCOPED_TRACE(length);
        std::wstring expected;
        for (int i = 0; i < length; ++i) expected += static_cast<wchar_t>(L'a' + i % 26);
        String s;
        for (wchar_t c : expected) s += c;
        EXPECT_EQ(W(s), expected);
        EXPECT_EQ(s.c_str()[length], L'\0');

        String copy(s);
        String moved(std::move(s));
        EXPECT_EQ(W(moved), expected);
        EXPECT_TRUE(s.IsEmpty());  // NOLINT: the moved-from state is specified
        EXPECT_STREQ(s.c_str(), L"");
        s = moved;
        moved = std::move(copy);
        EXPECT_EQ(W(s), expected);
        EXPECT_EQ(W(moved), expected);

        s += s;
        EXPECT_EQ(W(s), expected + expected);
        s = s.c_str() + 1;
        EXPECT_EQ(W(s), (expected + expected).substr(1));
        s.TrimLeft();
        s.GetBufferSetLength(length)[0] = L'#';
        EXPECT_EQ(W(s), L"#" + (expected + expected).substr(2, static_cast<size_t>(length - 1)));
        std::wstring padded = W(s) + L"    ";
        wchar_t* grown = s.GetBufferSetLength(length + 4);
        std::fill(grown + length, grown + length + 4, L' ');
        EXPECT_EQ(W(s), padded);
        EXPECT_EQ(W(s.TrimRight()), padded.substr(0, static_cast<size_t>(length)));
    }
}

TEST(String, FindsCharactersAndText) {
    String s(L"a.b.c");
    EXPECT_EQ(s.Find(L'.'), 1);
    EXPECT_EQ(s.Find(L'.', 2), 3);
    EXPECT_EQ(s.Find(L'x'), -1);
    EXPECT_EQ(s.ReverseFind(L'.'), 3);
    EXPECT_EQ(s.Find(L"b.c"), 2);
    EXPECT_EQ(s.Find(static_cast<const wchar_t*>(nullptr)), -1);
    EXPECT_EQ(String(L"Crème BRÛLÉE").FindNoCase(L"brûlée"), 6);
    EXPECT_EQ(String(L"ΑΒΓ").FindNoCase(L"βγ"), 1);
    EXPECT_EQ(String(L"abc").FindNoCase(L"x"), -1);
}

TEST(String, TrimsWhiteSpaceAndMapsCase) {
    String s(L" \t name \r\n");
    EXPECT_EQ(W(String(s).TrimLeft()), L"name \r\n");
    EXPECT_EQ(W(String(s).TrimRight()), L" \t name");
    EXPECT_EQ(W(s.Trim()), L"name");
    EXPECT_EQ(W(String(L"Straße Ÿ ю").MakeUpper()), L"STRAßE Ÿ Ю");
    EXPECT_EQ(W(String(L"ÀÉÎ Ł Ж").MakeLower()), L"àéî ł ж");
    EXPECT_EQ(String(L"abc").CompareNoCase(L"ABC"), 0);
    EXPECT_LT(String(L"abc").CompareNoCase(L"ABD"), 0);
    EXPECT_GT(String(L"abcd").CompareNoCase(L"ABC"), 0);
    EXPECT_LT(String(L"ABC").Compare(L"abc"), 0);
}

TEST(String, AppendsWideNarrowAndCharacters) {
    String s;
    s += L"a";
    s += 'b' == 'b' ? L'b' : L'?';
    s += "c";
    s += String(L"d");
    s += static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(W(s), L"abcd");
    EXPECT_EQ(W(String("") + String(L"x")), L"x");
    EXPECT_TRUE(String(static_cast<const char*>(nullptr)).IsEmpty());
}

TEST(String, NarrowTextIsInTheAnsiCodePage) {
    // The default ANSI code page is 1252: 0xE9 is é and 0x80 the euro sign.
    EXPECT_EQ(W(String("caf\xe9 \x80")), L"café €");
    EXPECT_EQ(String(L"café €").ToNarrow(), "caf\xe9 \x80");
}

TEST(String, Utf8RoundTripsAndReplacesBrokenSequences) {
    String s = String::FromUtf8("h\xc3\xa9llo \xe2\x82\xac \xf0\x9f\x98\x80");
    EXPECT_EQ(W(s), L"héllo € \U0001F600");
    EXPECT_EQ(s.ToUtf8(), "h\xc3\xa9llo \xe2\x82\xac \xf0\x9f\x98\x80");
    EXPECT_EQ(W(String::FromUtf8("a\xc3")), L"a\uFFFD");
    EXPECT_EQ(W(String::FromUtf8("\x80z")), L"\uFFFDz");
    EXPECT_EQ(W(String::FromUtf8("\xe2(z")), L"\uFFFD(z");
}

TEST(String, FormatsWideAndNarrowArgumentsOfAnyLength) {
    EXPECT_EQ(W(String::Formatted(L"%ls.%ls.atx", L"roads", L"NAME")), L"roads.NAME.atx");
    EXPECT_EQ(W(String::Formatted(L"%s=%d %X", "n", 42, 0x80004003u)), L"n=42 80004003");
    std::wstring longText(5000, L'x');
    EXPECT_EQ(W(String::Formatted(L"[%ls]", longText.c_str())), L"[" + longText + L"]");
    String s(L"old");
    s.Format(L"%04d", 7);
    EXPECT_EQ(W(s), L"0007");
}

TEST(String, FormatGivesUpAtOnceOnTextTheCLibraryCannotConvert) {
    // The C library converts a narrow %s through its own locale, which need
    // not know the byte; the result is empty rather than a runaway buffer.
    String s(L"old");
    s.Format(L"%s", "caf\xe9");
    EXPECT_TRUE(s.IsEmpty());
}

}  // namespace
}  // namespace quillet
