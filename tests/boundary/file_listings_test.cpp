// Listings and the file-spec methods through the host, on real temporary trees.
#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;

class FileListings : public FileTreeTest {};

TEST_F(FileListings, FileListHasALanguageOfItsOwn) {
  for (const char* name : {"a.TXT", "b.txt", ".hidden.txt", "notes", "old.txt.bak", "x.tx"})
    make(std::string("list/") + name);
  folder("list/sub.txt");
  std::filesystem::create_symlink(at("list/b.txt"), at("list/alias.txt"));
  std::string list = at("list");

  // "*.ext": names that end in it, any letter case, dot-files left out; folders never listed.
  EXPECT_EQ(sorted(call("tsFileList", {Value(list), Value("*.txt")})),
            (Strings{"a.TXT", "alias.txt", "b.txt"}));
  Strings everything{"a.TXT", "alias.txt", "b.txt", "notes", "old.txt.bak", "x.tx"};
  for (const char* all : {"*.*", "*", "", "ab", "abc"})
    EXPECT_EQ(sorted(call("tsFileList", {Value(list), Value(all)})), everything) << all;
  // A file is no folder to list. (A missing folder, and type codes, are the reference's example.)
  EXPECT_EQ(sorted(call("tsFileList", {Value(at("list/notes")), Value("")})), Strings{});
}

// (That an invisible file is left out of tsFileList is the reference's example.) Type codes
// compare exactly, and the general spec ignores visibility: the invisible file is deleted.
TEST_F(FileListings, TypeCodesMatchExactlyAndDeletesTakeInvisibleFiles) {
  make("typed/doc.txt");
  make("typed/secret.txt");
  ASSERT_EQ(integer("tsSetFileInfo", {Value(at("typed/doc.txt")), Value("TEXT"), Value("ttxt")}), 1);
  EXPECT_EQ(sorted(call("tsFileList", {Value(at("typed")), Value("text")})), Strings{});
  ASSERT_TRUE(setAttributes("typed/secret.txt", "h"));
  EXPECT_EQ(integer("tsDeleteXFiles", {Value(at("typed")), Value(".txt")}), 1);
  EXPECT_EQ(tree("typed"), Strings{});
}

TEST_F(FileListings, FolderListListsDotlessSubfoldersAndNoFiles) {
  folder("f/one");
  folder("f/Two");
  folder("f/.git");
  folder("f/App.app/Contents/MacOS");
  make("f/file");
  std::filesystem::create_directory_symlink(at("f/one"), at("f/link"));
  EXPECT_EQ(sorted(call("tsFolderList", {Value(at("f"))})), (Strings{"App.app", "Two", "one"}));
}

// A listed name appended to its folder's path in the current style names the item again; the
// search names it the same way.
TEST_F(FileListings, NamesWithAColonComeInTheCurrentStyle) {
  make("c/a:b");
  folder("c/x:y");
  EXPECT_EQ(sorted(call("tsFileList", {Value(hfs("c")), Value("")})), Strings{"a/b"});
  EXPECT_EQ(sorted(call("tsFolderList", {Value(hfs("c"))})), Strings{"x/y"});
  EXPECT_EQ(integer("tsFileExists", {Value(hfs("c") + ":a/b")}), 1);
  EXPECT_EQ(integer("tsFolderExists", {Value(hfs("c") + ":x/y")}), 1);
  EXPECT_EQ(text("tsFindFirstFile", {Value(hfs("c")), Value("a/b")}), hfs("c") + ":a/b");
  EXPECT_EQ(text("tsFindNextFile"), "");  // run to its end, so the next search starts afresh
  unixNames(true);
  EXPECT_EQ(sorted(call("tsFileList", {Value(at("c")), Value("")})), Strings{"a:b"});
  EXPECT_EQ(sorted(call("tsFolderList", {Value(at("c"))})), Strings{"x:y"});
  EXPECT_EQ(text("tsFindFirstFile", {Value(at("c")), Value("a:b")}), at("c/a:b"));
  EXPECT_EQ(text("tsFindNextFile"), "");
}

// (A type code such as "*.jpg", a name ending in any letter case, and subfolders left alone are
// the reference's example; the path forms are PathForms'.) Dot-files match too, a run of sixty
// matches goes whole, "" and "*.*" take every file, and a missing folder is no failure.
TEST_F(FileListings, DeleteXFilesTakesTheGeneralSpec) {
  for (int i = 0; i < 60; ++i) make("d/f" + std::to_string(i) + ".tmp");
  for (const char* name : {"d/.h.TMP", "d/keep.doc", "d/sub/e.tmp"}) make(name);
  EXPECT_EQ(integer("tsDeleteXFiles", {Value(at("d")), Value(".tmp")}), 1);
  EXPECT_EQ(tree("d"), (Strings{"keep.doc", "sub", "sub/e.tmp"}));
  for (const char* all : {"", "*.*"}) {
    make("d/again.doc");
    EXPECT_EQ(integer("tsDeleteXFiles", {Value(at("d") + "/"), Value(all)}), 1);
    EXPECT_EQ(tree("d"), (Strings{"sub", "sub/e.tmp"})) << all;
  }
  EXPECT_EQ(integer("tsDeleteXFiles", {Value(at("none")), Value("")}), 1);
}

TEST_F(FileListings, DeletingALockedFileFails) {
  make("locked/a.tmp");
  make("locked/b.tmp");
  if (!setAttributes("locked/a.tmp", "r")) GTEST_SKIP() << "no locks here";
  EXPECT_EQ(integer("tsDeleteXFiles", {Value(at("locked")), Value(".tmp")}), 0);
  EXPECT_EQ(tree("locked"), Strings{"a.tmp"});  // the others still went
  setAttributes("locked/a.tmp", "");
}

TEST_F(FileListings, XDeleteEmptiesTheTreeAndRemovesEmptiedFolders) {
  make("x/a.tmp");
  make("x/keep.doc");
  make("x/only/b.TMP");
  make("x/only/deeper/c.tmp");
  make("x/mixed/d.tmp");
  make("x/mixed/e.doc");
  make("outside/precious.tmp");
  std::filesystem::create_directory_symlink(at("outside"), at("x/link"));
  EXPECT_EQ(integer("tsXDelete", {Value(at("x")), Value(".tmp")}), 1);
  // The link is a file that does not match; what it points to is not entered.
  EXPECT_EQ(tree("x"), (Strings{"keep.doc", "link", "mixed", "mixed/e.doc"}));
  EXPECT_TRUE(exists("outside/precious.tmp"));
  // Everything matches: the start folder goes too, the link with it, never its target.
  EXPECT_EQ(integer("tsXDelete", {Value(hfs("x") + ":"), Value("")}), 1);
  EXPECT_FALSE(exists("x"));
  EXPECT_TRUE(exists("outside/precious.tmp"));
  EXPECT_EQ(integer("tsXDelete", {Value(at("x")), Value("")}), 1);
}

TEST_F(FileListings, FolderSizeCountsDecimalKilobytes) {
  make("s/a.dat", std::string(1500, 'a'));
  make("s/b.dat", std::string(600, 'b'));
  make("s/c.txt", std::string(999, 'c'));
  make("s/.hidden/d.dat", std::string(3000, 'd'));
  make("s/App.app/Contents/MacOS/app", std::string(4000, 'e'));
  make("outside/big.dat", std::string(100000, 'f'));
  std::filesystem::create_directory_symlink(at("outside"), at("s/link"));
  // (One folder's files are the reference's example.) The whole tree: hidden folders and bundles count, links are not followed.
  int32_t linkBytes = static_cast<int32_t>(at("outside").size());
  EXPECT_EQ(integer("tsFolderSize", {Value(hfs("s")), Value(""), Value(1)}),
            (3099 + 3000 + 4000 + linkBytes) / 1000);
  EXPECT_EQ(integer("tsFolderSize", {Value(at("s")), Value(".dat"), Value(1)}), 5);
  folder("empty");
  EXPECT_EQ(integer("tsFolderSize", {Value(at("empty")), Value(""), Value(1)}), 0);
}

}  // namespace
}  // namespace tessel::testing
