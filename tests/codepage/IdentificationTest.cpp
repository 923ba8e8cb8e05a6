// Choosing a code page and naming it back, the system code pages by locale,
// and the LDID tables with their files.

#include <gtest/gtest.h>

#include <cwchar>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"

namespace quillet {
namespace {

using test::ScopedEnv;
using test::ScopedLocale;
using test::ScopedTableHome;
using Kind = CodePage::qovaCodePageEnum;

TEST(CodePageHash, KeepsChainsInHashOrderAndCountsInsertionsOnly) {
    Hash<uint32_t, uint32_t, int, int> map;
    EXPECT_EQ(map.GetBucketCount(), 17u);
    // 0x10 and 0x120 share bucket 1 (hashes 1 and 18); 0x11 shares hash 1.
    map.SetAt(0x120, 3);
    map.SetAt(0x10, 1);
    map.SetAt(0x11, 2);
    map.SetAt(0x10, 4);
    EXPECT_EQ(map.GetCount(), 3);
    std::vector<uint32_t> order;
    map.ForEach([&](uint32_t key, int) { order.push_back(key); });
    EXPECT_EQ(order, (std::vector<uint32_t>{0x10, 0x11, 0x120}));
    int value = 0;
    EXPECT_TRUE(map.Lookup(0x10, value));
    EXPECT_EQ(value, 4);
    EXPECT_FALSE(map.Lookup(0x12, value));
    EXPECT_FALSE(map.Lookup(0x230, value));  // bucket 1 too, beyond the chain
}

TEST(CodePageKind, FollowsTheNumericBoundaries) {
    const std::pair<uint32_t, Kind> cases[] = {
        {0, CodePage::qovaCodePageDefault}, {1, CodePage::qovaCodePageOEM},
        {874, CodePage::qovaCodePageOEM},   {932, CodePage::qovaCodePageOEM},
        {950, CodePage::qovaCodePageOEM},   {1249, CodePage::qovaCodePageOEM},
        {1250, CodePage::qovaCodePageANSI}, {65000, CodePage::qovaCodePageANSI},
        {65001, CodePage::qovaCodePageUTF8}, {65002, CodePage::qovaCodePageANSI},
        {88590, CodePage::qovaCodePageANSI}, {88591, CodePage::qovaCodePageISO},
    };
    for (auto [number, kind] : cases) EXPECT_EQ(CodePage::FindCodePageType(number), kind) << number;
}

TEST(CodePageId, ParsesDigitsThenNames) {
    auto locale = test::English();
    const std::pair<const wchar_t*, uint32_t> cases[] = {
        {L"ANSI 1252", 1252},  {L"ISO 8859-1", 88591}, {L"ISO 8859-15", 885915},
        {L"OEM 850", 850},     {L"ASMO 449", 449},     {L"1252", 1252},
        {L"437", 437},         {L"436", 0},            {L"UTF-8", 65001},
        {L"utf8", 65001},      {L"big5", 950},         {L"SJIS", 932},
        {L"Alarabi", 448},     {L"OEM", 437},          {L"ansi", 1252},
        {L"EUC", 88591},       {L"iso", 88591},        {L"", 0},
        {L"000000012520", 1252},  // only the first 11 digits count
        {L"99999999999999", 0},   {L"885951", 0},       {L"BIG5 OEM", 950},
    };
    for (auto [text, id] : cases) EXPECT_EQ(CodePage::FindCodePageId(text), id) << text;
}

TEST(CodePageName, ReadsBackToTheSameNumber) {
    auto locale = test::English();
    for (uint32_t id : {437u, 850u, 448u, 449u, 1250u, 1252u, 88592u, 885915u, 65001u}) {
        CodePage page(id);
        EXPECT_EQ(CodePage::FindCodePageId(page.GetCodePageName()), id) << id;
    }
    EXPECT_EQ(CodePage(448u).GetCodePageName(), L"ALARABI");
    EXPECT_EQ(CodePage(449u).GetCodePageName(), L"ASMO 449");
    EXPECT_EQ(CodePage(850u).GetCodePageName(), L"OEM 850");
    EXPECT_EQ(CodePage(885915u).GetCodePageName(), L"ISO 885915");
    EXPECT_EQ(CodePage(65001u).GetCodePageName(), L"UTF-8");
}

TEST(CodePageName, IsEucInFarEastLocales) {
    ScopedLocale japanese(17, 81, 932, 932);
    CodePage page(CodePage::qovaCodePageISO);
    EXPECT_EQ(page.GetCodePageId(), 885932u);
    EXPECT_EQ(page.GetCodePageName(), L"EUC");
    EXPECT_EQ(CodePage::FindCodePageId(L"EUC"), 885932u);
}

TEST(CodePageSet, ByLdid) {
    ScopedLocale locale(9, 1, 1250, 852);
    CodePage page((unsigned char)0x57);
    EXPECT_EQ(page.GetCodePageId(), 1250u);
    EXPECT_TRUE(page.SetCodePage((unsigned char)19));
    EXPECT_EQ(page.GetCodePageId(), 932u);
    EXPECT_EQ(page.GetCodePageType(), CodePage::qovaCodePageOEM);
    EXPECT_FALSE(page.SetCodePage((unsigned char)200));
    EXPECT_EQ(page.GetCodePageId(), 932u);
    EXPECT_TRUE(page.SetCodePage((unsigned char)0));
    EXPECT_EQ(page.GetCodePageId(), 1250u);
    EXPECT_EQ(CodePage((unsigned char)200).GetCodePageId(), 1250u);  // falls back to the default
}

TEST(CodePageSet, ByKind) {
    ScopedLocale locale(9, 1, 1251, 866);
    CodePage page(CodePage::qovaCodePageUTF8);
    EXPECT_EQ(page.GetCodePageId(), 65001u);
    EXPECT_TRUE(page.SetCodePage(CodePage::qovaCodePageOEM));
    EXPECT_EQ(page.GetCodePageId(), 866u);
    EXPECT_TRUE(page.SetCodePage(CodePage::qovaCodePageISO));
    EXPECT_EQ(page.GetCodePageId(), 88595u);
    EXPECT_TRUE(page.SetCodePage(CodePage::qovaCodePageANSI));
    EXPECT_EQ(page.GetCodePageId(), 1251u);
    EXPECT_TRUE(page.SetCodePage(CodePage::qovaCodePageDefault));
    EXPECT_EQ(page.GetCodePageType(), CodePage::qovaCodePageANSI);
    EXPECT_FALSE(page.SetCodePage(static_cast<Kind>(5)));
}

TEST(CodePageSet, ByNumberAndText) {
    auto locale = test::English();
    CodePage page(850u);
    EXPECT_FALSE(page.SetCodePage(0u));
    EXPECT_FALSE(page.SetCodePage(String(L"nothing known")));
    EXPECT_EQ(page.GetCodePageId(), 850u);
    EXPECT_TRUE(page.SetCodePage(String(L"ISO 8859-15")));
    EXPECT_EQ(page.GetCodePageType(), CodePage::qovaCodePageISO);
    EXPECT_EQ(CodePage(String(L"rubbish")).GetCodePageId(), 1252u);
}

TEST(CodePageSystem, IsoCodePageFollowsTheAnsiCodePage) {
    const struct {
        int language, ansi;
        uint32_t iso;
    } cases[] = {{9, 1252, 88591},   {10, 1252, 885915}, {9, 1250, 88592},  {9, 1251, 88595},
                 {9, 1253, 88597},   {9, 1254, 88593},   {9, 1255, 88598},  {9, 1256, 88596},
                 {9, 1257, 885913},  {9, 874, 885911},   {17, 932, 885932}, {4, 950, 885950},
                 {4, 936, 936}};
    for (const auto& c : cases) {
        ScopedLocale locale(c.language, 1, c.ansi, 437);
        EXPECT_EQ(CodePage::GetIsoCP(), c.iso) << c.ansi;
    }
}

TEST(CodePageSystem, FarEastLanguages) {
    for (int language : {4, 17, 18, 9, 10}) {
        ScopedLocale locale(language, 1, 1252, 437);
        EXPECT_EQ(CodePage::IsFarEast(), language == 4 || language == 17 || language == 18);
    }
}

TEST(CodePageSystem, DefaultComesFromTheSettings) {
    auto locale = test::English();
    test::TempDir dir;
    ScopedEnv config("QUILLET_CONFIG", (dir / "settings").c_str());
    auto settings = [&](const std::string& value) {
        const std::string text = "SOFTWARE\\QOVA\\Common\\CodePage\\dbfDefault = " + value + "\n";
        test::WriteBytes(dir / "settings", {text.begin(), text.end()});
    };
    EXPECT_EQ(CodePage::GetDefaultCP(), 1252u);  // no settings file
    settings("UTF-8");
    EXPECT_EQ(CodePage::GetDefaultCP(), 65001u);
    EXPECT_EQ(CodePage((unsigned char)0).GetCodePageId(), 65001u);
    settings("nonsense");
    EXPECT_EQ(CodePage::GetDefaultCP(), 1252u);
}

TEST(CodePageLdid, DependsOnTheLanguage) {
    const struct {
        int language, country, ansi, oem;
        uint32_t page;
        int ldid;
    } cases[] = {
        {9, 1, 1252, 437, 1252, 0x57}, {9, 1, 1252, 437, 850, 55},
        {9, 1, 1252, 437, 437, 27},    {9, 1, 1252, 437, 1250, 0x57},
        {9, 1, 1252, 437, 88591, 0},   {9, 1, 1252, 437, 65001, 0},
        {9, 1, 1252, 437, 860, 0},     {10, 34, 1252, 850, 1252, 89},
        {12, 33, 1252, 850, 850, 29},  // the later of two rows wins
        {17, 81, 932, 932, 950, 19},   {4, 4, 936, 936, 936, 77},
    };
    for (const auto& c : cases) {
        ScopedLocale locale(c.language, c.country, c.ansi, c.oem);
        EXPECT_EQ(CodePage(c.page).GetDBaseLDId(), c.ldid) << c.language << " " << c.page;
    }
}

// The shipped files hold the rows built in for when they are missing.
TEST(CodePageLdid, BuiltInRowsWhenTheFilesAreMissing) {
    auto locale = test::English();
    EXPECT_EQ(CodePage(1252u).LoadDBase2CPG(), 39);
    EXPECT_EQ(CodePage(1252u).LoadCPG2DBase(), 37);
    ScopedTableHome home;
    CodePage page(1252u);
    EXPECT_EQ(page.LoadDBase2CPG(), 39);
    EXPECT_EQ(page.LoadCPG2DBase(), 37);
    EXPECT_TRUE(page.SetCodePage((unsigned char)136));
    EXPECT_EQ(page.GetCodePageId(), 857u);
}

TEST(CodePageLdid, MalformedLineEndsTheReadingWithoutBuiltInRows) {
    auto locale = test::English();
    ScopedTableHome home;
    home.Write("dbasecpg.txt", "8 865\n9 437\n9 850\nxx\n10 850\n");
    home.Write("cpgdbase.txt", "9001252 44\n9000437 x\n");
    CodePage page(1252u);
    EXPECT_EQ(page.LoadDBase2CPG(), 2);
    EXPECT_TRUE(page.SetCodePage((unsigned char)9));
    EXPECT_EQ(page.GetCodePageId(), 850u);
    EXPECT_FALSE(page.SetCodePage((unsigned char)10));
    EXPECT_TRUE(page.SetCodePage(1252u));
    EXPECT_EQ(page.GetDBaseLDId(), 44);
    EXPECT_TRUE(page.SetCodePage(437u));
    EXPECT_EQ(page.GetDBaseLDId(), 0);
}

TEST(CodePagePath, FollowsTheInstallFolderAndNeverOverruns) {
    ScopedEnv home("QUILLET_HOME", "/opt/quillet");
    wchar_t buffer[64];
    CodePage::GetDefaultPath(buffer, 64);
    EXPECT_STREQ(buffer, L"/opt/quillet/locale/codepage");
    std::wmemset(buffer, L'#', 64);
    CodePage::GetDefaultPath(buffer, 8);
    EXPECT_EQ(std::wcslen(buffer), 7u);
    EXPECT_EQ(buffer[8], L'#');
}

}  // namespace
}  // namespace quillet
