// String, and the path and pattern functions built on it.

#include "foundation/String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "foundation/FileSystemPath.h"
#include "foundation/SqlParse.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

std::wstring W(const String& s) { return s.str(); }

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

TEST(FileSystemPath, SplitsIntoFolderBaseNameAndExtension) {
    const struct {
        const wchar_t *path, *directory, *baseName, *extension;
    } cases[] = {
        {L"/data/roads.shp", L"/data", L"roads", L"shp"},
        {L"dir.v2/table.name.dbf", L"dir.v2", L"table.name", L"dbf"},
        {L"dir.v2/table", L"dir.v2", L"table", L""},    // a dot in the folder only
        {L"/home/.config", L"/home", L".config", L""},  // hidden
        {L"freelist", L"", L"freelist", L""},
        {L"/top.dbf", L"/", L"top", L"dbf"},
        {L"a.", L"", L"a", L""},
    };
    for (const auto& c : cases) {
        FileSystemPath p(c.path);
        EXPECT_EQ(W(p.GetDirectory()), c.directory) << c.path;
        EXPECT_EQ(W(p.GetBaseName()), c.baseName) << c.path;
        EXPECT_EQ(W(p.GetExtension()), c.extension) << c.path;
        EXPECT_EQ(W(p.GetPath()), c.path);
    }
    EXPECT_EQ(W(FileSystemPath(L"/data/roads.shp").GetFileName()), L"roads.shp");
}

TEST(FileSystemPath, EditsKeepTheOtherParts) {
    EXPECT_EQ(W(FileSystemPath(L"/data").GetPath(true)), L"/data/");
    EXPECT_EQ(W(FileSystemPath(L"/data/").GetPath(true)), L"/data/");
    EXPECT_EQ(W(FileSystemPath(L"").GetPath(true)), L"/");
    using Edit = void (FileSystemPath::*)(const String&);
    const Edit extension = &FileSystemPath::SetExtension, base = &FileSystemPath::SetBaseName,
               append = &FileSystemPath::AppendFile;
    const struct {
        const wchar_t* path;
        Edit edit;
        const wchar_t *text, *result;
    } cases[] = {
        {L"/data/roads.shp", extension, L"sbn", L"/data/roads.sbn"},
        {L"/data/roads.shp", extension, L".prj", L"/data/roads.prj"},
        {L"/data/roads.shp", extension, L"", L"/data/roads"},
        {L"/data/roads", extension, L"cpg", L"/data/roads.cpg"},
        {L"dir/.rc", extension, L"bak", L"dir/.rc.bak"},
        {L"/data/roads.cpg", base, L"roads.NAME", L"/data/roads.NAME.cpg"},
        {L"table", base, L"other", L"other"},
        {L"/data", append, L"roads.dbf", L"/data/roads.dbf"},
        {L"/data/", append, L"/x", L"/data/x"},
        {L"", append, L"name", L"name"},
    };
    for (const auto& c : cases) {
        FileSystemPath p(c.path);
        (p.*c.edit)(c.text);
        EXPECT_EQ(W(p.GetPath()), c.result) << c.path << " with " << c.text;
    }
}

TEST(FileSystemPath, ExistsForFilesAndFolders) {
    test::TempDir folder;
    EXPECT_TRUE(FileSystemPath(String(folder.Wide(""))).Exists());
    std::wstring file = folder.Wide("a.dbf");
    EXPECT_FALSE(FileSystemPath(file.c_str()).Exists());
    std::ofstream(folder / "a.dbf") << "x";
    EXPECT_TRUE(FileSystemPath(file.c_str()).Exists());
    EXPECT_FALSE(FileSystemPath().Exists());
}

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
        {L"abc", L"abc", true},
        {L"abc", L"ab", false},
        {L"ab", L"abc", false},
        {L"ABC", L"abc", false},
        {L"", L"", true},
        {L"a%b", L"a%b", true},
        {nullptr, L"%", true},
        {nullptr, L"_", false},
        {L"", nullptr, true},
        {L"x", nullptr, false},
        // "%" matches any run, the empty one too.
        {L"", L"%%", true},
        {L"xxabc", L"%abc", true},
        {L"abcx", L"%abc", false},
        {L"abcxx", L"abc%", true},
        {L"xabc", L"abc%", false},
        {L"ac", L"a%c", true},
        {L"abcbc", L"a%bc", true},  // needs a retry after a false start
        {L"abcb", L"a%bc", false},
        {L"mississippi", L"%iss%ppi", true},
        // "_" matches exactly one character.
        {L"abc", L"_bc", true},
        {L"abc", L"a_c", true},
        {L"abc", L"ab_", true},
        {L"abc", L"____", false},
        {L"abc", L"__", false},
        {L"", L"_", false},
        {L"\u00e9t\u00e9", L"_t_", true},
        // Both together.
        {L"abxcyyy", L"ab_c%", true},
        {L"abc", L"ab_c%", false},
        {L"aXXbYc", L"a%b_c", true},
        {L"aXXbc", L"a%b_c", false},
        {L"xb", L"%_b", true},
        {L"b", L"%_b", false},
        {L"", L"%_%", false},
        {L"ab", L"_%_", true},
        {L"a", L"_%_", false},
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
