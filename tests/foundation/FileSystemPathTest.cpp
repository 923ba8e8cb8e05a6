#include "foundation/FileSystemPath.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/TestSupport.h"

namespace quillet {
namespace {

std::wstring W(const String& s) {
    return s.str();
}

TEST(FileSystemPath, SplitsIntoFolderBaseNameAndExtension) {
    FileSystemPath p(L"/data/roads.shp");
    EXPECT_EQ(W(p.GetDirectory()), L"/data");
    EXPECT_EQ(W(p.GetFileName()), L"roads.shp");
    EXPECT_EQ(W(p.GetBaseName()), L"roads");
    EXPECT_EQ(W(p.GetExtension()), L"shp");
    EXPECT_EQ(W(p.GetPath()), L"/data/roads.shp");

    FileSystemPath twoDots(L"dir.v2/table.name.dbf");
    EXPECT_EQ(W(twoDots.GetBaseName()), L"table.name");
    EXPECT_EQ(W(twoDots.GetExtension()), L"dbf");
    EXPECT_EQ(W(twoDots.GetDirectory()), L"dir.v2");

    FileSystemPath dotInFolderOnly(L"dir.v2/table");
    EXPECT_EQ(W(dotInFolderOnly.GetBaseName()), L"table");
    EXPECT_EQ(W(dotInFolderOnly.GetExtension()), L"");

    FileSystemPath hidden(L"/home/.config");
    EXPECT_EQ(W(hidden.GetBaseName()), L".config");
    EXPECT_EQ(W(hidden.GetExtension()), L"");

    FileSystemPath bare(L"freelist");
    EXPECT_EQ(W(bare.GetDirectory()), L"");
    EXPECT_EQ(W(bare.GetBaseName()), L"freelist");

    EXPECT_EQ(W(FileSystemPath(L"/top.dbf").GetDirectory()), L"/");
    EXPECT_EQ(W(FileSystemPath(L"a.").GetExtension()), L"");
    EXPECT_EQ(W(FileSystemPath(L"a.").GetBaseName()), L"a");
}

TEST(FileSystemPath, EditsKeepTheOtherParts) {
    EXPECT_EQ(W(FileSystemPath(L"/data").GetPath(true)), L"/data/");
    EXPECT_EQ(W(FileSystemPath(L"/data/").GetPath(true)), L"/data/");
    EXPECT_EQ(W(FileSystemPath(L"").GetPath(true)), L"/");

    FileSystemPath p(L"/data/roads.shp");
    p.SetExtension(L"sbn");
    EXPECT_EQ(W(p.GetPath()), L"/data/roads.sbn");
    p.SetExtension(L".prj");
    EXPECT_EQ(W(p.GetPath()), L"/data/roads.prj");
    p.SetExtension(L"");
    EXPECT_EQ(W(p.GetPath()), L"/data/roads");
    p.SetExtension(L"cpg");
    EXPECT_EQ(W(p.GetPath()), L"/data/roads.cpg");
    FileSystemPath hidden(L"dir/.rc");
    hidden.SetExtension(L"bak");
    EXPECT_EQ(W(hidden.GetPath()), L"dir/.rc.bak");

    p.SetBaseName(L"roads.NAME");
    EXPECT_EQ(W(p.GetPath()), L"/data/roads.NAME.cpg");
    FileSystemPath bare(L"table");
    bare.SetBaseName(L"other");
    EXPECT_EQ(W(bare.GetPath()), L"other");

    FileSystemPath folder(L"/data");
    folder.AppendFile(L"roads.dbf");
    EXPECT_EQ(W(folder.GetPath()), L"/data/roads.dbf");
    FileSystemPath slash(L"/data/");
    slash.AppendFile(L"/x");
    EXPECT_EQ(W(slash.GetPath()), L"/data/x");
    FileSystemPath empty;
    empty.AppendFile(L"name");
    EXPECT_EQ(W(empty.GetPath()), L"name");
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

}  // namespace
}  // namespace quillet
