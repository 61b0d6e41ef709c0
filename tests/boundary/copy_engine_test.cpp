// The copy engine and the folder operations through the host, on real temporary trees.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;
namespace fs = std::filesystem;

class CopyEngine : public FileTreeTest {
 protected:
  int32_t copy(const std::string& from, const std::string& to, const std::string& overwrite = "") {
    return integer("tsCopyFile", {Value(from), Value(to), Value(overwrite)});
  }
  void age(const std::string& relative, int seconds) {
    fs::last_write_time(at(relative), fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
  }
};

// Rows: the overwrite mode, the destination (missing, older or newer than the source), the
// answer and what the destination holds afterwards. Modes compare ignoring case; any other word,
// and "", always replace.
TEST_F(CopyEngine, OverwriteModes) {
  enum Destination { Missing, Older, Newer };
  struct Row {
    const char* mode;
    Destination destination;
    int32_t code;
    const char* holds;
  };
  const Row rows[] = {
      {"IfNotExist", Older, 6, "old"}, {"ifnotexist", Newer, 6, "old"},
      {"IFNOTEXIST+", Older, 6, "old"}, {"IfNotExist", Missing, 0, "new"},
      {"IfNewer", Newer, 7, "old"},    {"ifnewer", Older, 0, "new"},
      {"IfNewer+", Newer, 7, "old"},   {"Always", Newer, 0, "new"},
      {"", Newer, 0, "new"},           {"whatever", Older, 0, "new"},
  };
  for (const Row& row : rows) {
    make("src.txt", "new");
    age("src.txt", 100);
    fs::remove(at("dst.txt"));
    if (row.destination != Missing) {
      make("dst.txt", "old");
      age("dst.txt", row.destination == Older ? 200 : 0);
    }
    EXPECT_EQ(copy(at("src.txt"), at("dst.txt"), row.mode), row.code) << row.mode;
    EXPECT_EQ(read("dst.txt"), row.holds) << row.mode;
  }
  // The copy keeps the source's date, so the same copy again finds nothing newer.
  EXPECT_EQ(copy(at("src.txt"), at("dst.txt"), "IfNewer"), 7);
  EXPECT_EQ(tree(), (Strings{"dst.txt", "src.txt"}));  // no temporary left behind
}

TEST_F(CopyEngine, SourceAndDestinationRules) {
  // (A missing source, and a folder or a file's child as the destination, are the reference's
  // example.)
  make("src.txt", "data");
  folder("existing");
  EXPECT_EQ(copy(at("existing"), at("d.txt")), 1);
  EXPECT_EQ(copy(at("src.txt"), at("newfolder/")), 2);
  EXPECT_EQ(copy(at("src.txt"), hfs("newfolder:")), 2);
  EXPECT_EQ(copy(at("src.txt"), ""), 2);
  EXPECT_FALSE(exists("newfolder"));
  // A destination whose last two folders are missing gets them, whatever the style.
  EXPECT_EQ(copy(hfs("src.txt"), hfs("one:two:copy.txt")), 0);
  EXPECT_EQ(read("one/two/copy.txt"), "data");
  // A long HFS leaf ends under its full name.
  std::string longName(40, 'L');
  EXPECT_EQ(copy(at("src.txt"), hfs("one:" + longName)), 0);
  EXPECT_EQ(tree("one"), (Strings{longName, "two", "two/copy.txt"}));
  // A file copied onto itself survives.
  EXPECT_EQ(copy(at("src.txt"), at("src.txt")), 0);
  EXPECT_EQ(read("src.txt"), "data");
}

TEST_F(CopyEngine, CopiesKeepModeAndLinks) {
  make("tool.sh", "#!/bin/sh\n");
  ::chmod(at("tool.sh").c_str(), 0750);
  EXPECT_EQ(copy(at("tool.sh"), at("out/tool.sh")), 0);
  struct stat st {};
  ASSERT_EQ(::stat(at("out/tool.sh").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0750u);
  // A file nobody may write is copied as well, and its copy keeps the bits.
  ::chmod(at("tool.sh").c_str(), 0444);
  EXPECT_EQ(copy(at("tool.sh"), at("out/tool.sh")), 0);
  ASSERT_EQ(::stat(at("out/tool.sh").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0444u);
  // A link is copied as the link (an alias), not as what it points to.
  fs::create_symlink("tool.sh", at("alias"));
  EXPECT_EQ(copy(at("alias"), at("out/alias")), 0);
  EXPECT_TRUE(fs::is_symlink(at("out/alias")));
  EXPECT_EQ(fs::read_symlink(at("out/alias")), "tool.sh");
}

TEST_F(CopyEngine, CopyXFilesCopiesTheMatchingFilesOfOneFolder) {
  make("src/a.txt", "a");
  make("src/B.TXT", "b");
  make("src/.dot.txt", "d");
  make("src/c.doc", "c");
  make("src/sub/e.txt", "e");
  auto copyX = [&](const std::string& from, const std::string& to, const char* spec) {
    return integer("tsCopyXFiles", {Value(from), Value(to), Value(spec), Value("")});
  };
  // (Nothing matching, a missing source and files that exist are the reference's example.)
  EXPECT_EQ(copyX(at("src"), at("dst"), ".pdf"), 8);
  EXPECT_FALSE(exists("dst"));
  EXPECT_EQ(copyX(at("src"), hfs("dst"), ".txt"), 0);
  EXPECT_EQ(tree("dst"), (Strings{".dot.txt", "B.TXT", "a.txt"}));
  EXPECT_EQ(copyX(at("src") + "/", at("all"), "*.*"), 0);
  EXPECT_EQ(tree("all"), (Strings{".dot.txt", "B.TXT", "a.txt", "c.doc"}));
}

TEST_F(CopyEngine, XCopyReproducesTheTree) {
  make("src/a.txt", "a");
  make("src/empty/readme.doc", "r");
  make("src/one/b.txt", "b");
  make("src/one/two/c.txt", "c");
  make("src/.cache/d.txt", "d");
  make("outside/secret.txt", "s");
  fs::create_directory_symlink(at("outside"), at("src/one/link"));
  auto xcopy = [&](const std::string& from, const std::string& to, const char* spec, int dirs) {
    return integer("tsXCopy", {Value(from), Value(to), Value(spec), Value(""), Value(dirs)});
  };
  // Without MakeDirs folders that receive no file are left out.
  EXPECT_EQ(xcopy(at("src"), at("flat"), ".txt", 0), 0);
  EXPECT_EQ(tree("flat"), (Strings{".cache", ".cache/d.txt", "a.txt", "one", "one/b.txt", "one/two",
                                   "one/two/c.txt"}));
  // With it the whole tree is reproduced; the link is copied as a link, never entered.
  EXPECT_EQ(xcopy(hfs("src:"), at("full"), "", 1), 0);
  EXPECT_EQ(tree("full"), (Strings{".cache", ".cache/d.txt", "a.txt", "empty", "empty/readme.doc",
                                   "one", "one/b.txt", "one/link", "one/two", "one/two/c.txt"}));
  EXPECT_TRUE(fs::is_symlink(at("full/one/link")));
  // (Nothing matching, a missing source and the last failure's code are the reference's
  // example.)
}

// Each destination folder takes its source folder's attributes as read, "" included: tsXCopy
// after the folder's files, tsXCopyProgress before them.
TEST_F(CopyEngine, XCopyGivesEachFolderItsSourcesAttributes) {
  make("src/sub/a.txt", "a");
  folder("src/shown");
  folder("src/sub/veiled");
  folder("dst/shown");
  if (!setAttributes("src/sub/veiled", "h") || !setAttributes("dst/shown", "h") ||
      !setAttributes("dst", "rh"))
    GTEST_SKIP() << "no locks or invisible flags here";
  // The locked destination root (no file of the source root goes into it) is unlocked by its
  // source's "" before its subfolders are made.
  EXPECT_EQ(integer("tsXCopy", {Value(at("src")), Value(at("dst")), Value(""), Value(""), Value(1)}),
            0);
  EXPECT_EQ(read("dst/sub/a.txt"), "a");
  for (const char* plain : {"dst", "dst/shown", "dst/sub"})
    EXPECT_EQ(text("tsFileAttributes", {Value(at(plain))}), "") << plain;
  EXPECT_EQ(text("tsFileAttributes", {Value(at("dst/sub/veiled"))}), "h");

  // A locked destination holding files: tsXCopy copies the files first (and fails on them),
  // tsXCopyProgress unlocks first.
  make("top/t.txt", "t");
  folder("locked");
  ASSERT_TRUE(setAttributes("locked", "r"));
  EXPECT_EQ(integer("tsXCopy", {Value(at("top")), Value(at("locked")), Value(""), Value(""), Value(1)}),
            4);
  EXPECT_EQ(text("tsFileAttributes", {Value(at("locked"))}), "");
  ASSERT_TRUE(setAttributes("locked", "r"));
  EXPECT_EQ(integer("tsXCopyProgress", {Value(at("top")), Value(at("locked")), Value(""), Value(""),
                                        Value(1), Value(""), Value(""), Value(8)}),
            0);
  EXPECT_EQ(read("locked/t.txt"), "t");
}

// The handler hears every file as it starts, with the value reached so far (0 included); after
// each block only values that are new and not 0.
TEST_F(CopyEngine, ProgressHandlerHearsEveryFileAtItsStart) {
  make("p/small.txt", std::string(1600, 's'));
  make("p/sub/deep.txt", std::string(8400, 'd'));
  std::vector<std::pair<int32_t, std::string>> heard;
  movie_.handlers["tsCopyProgressUpdate"] = [&](const std::vector<Value>& args) {
    heard.emplace_back(args.at(0).integer(), args.at(1).string());
    return Value();
  };
  EXPECT_EQ(integer("tsXCopyProgress", {Value(at("p")), Value(at("q")), Value(""), Value(""),
                                        Value(1), Value(""), Value(""), Value(24)}),
            0);
  using Heard = std::vector<std::pair<int32_t, std::string>>;
  EXPECT_EQ(heard, (Heard{{0, "small.txt"}, {16, "small.txt"}, {16, "deep.txt"}, {100, "deep.txt"}}));
}

// The progress copies without a window (flags 8): the handler's answers, a missing handler or
// movie, and the folder copies' own answers before their walk.
TEST_F(CopyEngine, ProgressCopiesFollowTheirHandler) {
  const std::string big = make("big.bin", std::string(4 * 64512 + 100, 'x')).string();
  auto copyP = [&](const std::string& to) {
    return integer("tsCopyFileProgress", {Value(big), Value(at(to)), Value(""), Value("T"),
                                          Value("B"), Value(24)});
  };
  // A handler that answers 1 to the first block cancels there; the partial copy stays.
  movie_.handlers["tsCopyProgressUpdate"] = [](const std::vector<Value>& args) {
    return Value(args[0].integer() > 0 ? 1 : 0);
  };
  EXPECT_EQ(copyP("b.bin"), 9);
  EXPECT_EQ(fs::file_size(at("b.bin")), 64512u);
  // A movie without the handler is no error; no movie at all cancels.
  movie_.handlers.erase("tsCopyProgressUpdate");
  EXPECT_EQ(copyP("d.bin"), 0);
  host_->setMovie(nullptr);
  EXPECT_EQ(copyP("e.bin"), 9);
  host_->setMovie(&movie_);

  make("tree/a.txt", std::string(70000, 'a'));
  make("tree/one/b.txt", std::string(70000, 'b'));
  make("tree/two/c.txt", std::string(70000, 'c'));
  folder("out");
  auto xcopyP = [&](const std::string& from, const std::string& to, const char* spec, int flags) {
    return integer("tsXCopyProgress", {Value(at(from)), Value(at(to)), Value(spec), Value(""),
                                       Value(1), Value("T"), Value("B"), Value(flags)});
  };
  auto copyXP = [&](const char* spec) {
    return integer("tsCopyXFilesProgress", {Value(at("tree")), Value(at("out")), Value(spec),
                                            Value(""), Value("T"), Value("B"), Value(8)});
  };
  // (Nothing matching, 8, and a missing source, 1, are the reference's example.) Flat: only the folder's own files.
  EXPECT_EQ(copyXP(".txt"), 0);
  EXPECT_EQ(tree("out"), (Strings{"a.txt"}));
  // The tree, with its folders made; then a handler that cancels in the first file stops it all.
  EXPECT_EQ(xcopyP("tree", "out/all", "*.*", 8), 0);
  EXPECT_EQ(read("out/all/two/c.txt"), std::string(70000, 'c'));
  movie_.handlers["tsCopyProgressUpdate"] = [](const std::vector<Value>&) { return Value(1); };
  EXPECT_EQ(xcopyP("tree", "out/cut", "*.*", 24), 9);
  EXPECT_FALSE(exists("out/cut/one/b.txt"));
  EXPECT_FALSE(exists("out/cut/two/c.txt"));
  host::HostCounters c = host_->counters();
  EXPECT_EQ(c.resourcesBegun + c.modalDialogsBegun, 0);  // no window was shown
}

// (Nested folders, renames within and across folders and the delete answers are the
// reference's examples.)
TEST_F(CopyEngine, RenamesNeverReplaceAndKeepLongNamesWhereTheyAre) {
  make("file", "f");
  make("other", "o");
  EXPECT_EQ(integer("tsRenameFile", {Value(at("file")), Value(at("moved/renamed"))}), 1);
  EXPECT_EQ(read("moved/renamed"), "f");
  EXPECT_EQ(integer("tsRenameFile", {Value(at("other")), Value(at("moved/renamed"))}), 0);
  folder("h/i");
  EXPECT_EQ(integer("tsRenameFile", {Value(at("h") + "/"), Value(at("h2") + "/")}), 1);
  EXPECT_TRUE(fs::is_directory(at("h2/i")));
  // A long HFS name renames the item where it is.
  std::string longName(40, 'n');
  EXPECT_EQ(integer("tsRenameFile", {Value(hfs("other")), Value(hfs("elsewhere:" + longName))}), 1);
  EXPECT_EQ(read(longName), "o");
}

}  // namespace
}  // namespace tessel::testing
