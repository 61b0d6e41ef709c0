// The disk search through the host: one search at a time, kept between calls.
#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;

class FileSearch : public FileTreeTest {
 protected:
  void TearDown() override {
    call("tsFindClose");
    FileTreeTest::TearDown();
  }
  // Every hit of a search, in the order found.
  Strings all(const std::string& disk, const std::string& name) {
    Strings hits;
    for (std::string hit = text("tsFindFirstFile", {Value(disk), Value(name)}); !hit.empty();
         hit = text("tsFindNextFile"))
      hits.push_back(hit);
    return hits;
  }
  Strings sortedHits(const std::string& disk, const std::string& name) {
    Strings hits = all(disk, name);
    std::sort(hits.begin(), hits.end());
    return hits;
  }
};

// (A search that finds nothing, and one closed early, are the reference's examples.)
TEST_F(FileSearch, WalksBreadthFirstPastDotFilesAndLinks) {
  make("d/top.txt");
  make("d/.profile");
  make("d/a/mid.txt");
  make("d/a/b/low.txt");
  make("d/.config/inside.txt");
  make("outside/far.txt");
  std::filesystem::create_directory_symlink(at("outside"), at("d/a/link"));
  unixNames(true);
  Strings hits = all(at("d"), "*.*");
  ASSERT_EQ(hits.size(), 5u);  // the link is a file of its own, its target is not entered
  EXPECT_EQ(hits[0], at("d/top.txt"));  // the start folder's files first, the deepest last
  EXPECT_EQ(hits[4], at("d/a/b/low.txt"));
  std::sort(hits.begin(), hits.end());
  EXPECT_EQ(hits, (Strings{at("d/.config/inside.txt"), at("d/a/b/low.txt"), at("d/a/link"),
                           at("d/a/mid.txt"), at("d/top.txt")}));
  // Without Unix names the hits are HFS paths.
  unixNames(false);
  EXPECT_EQ(all(hfs("d:a:b"), "*.*"), Strings{hfs("d:a:b:low.txt")});
}

TEST_F(FileSearch, LeadingStarMeansContainsOtherwiseTheWholeNameInAnyCase) {
  for (const char* name : {"report.txt", "Report.TXT", "old-report.doc", "a.txt.bak", "REPORT"})
    make(std::string("s/") + name);
  make("s/sub/report");
  unixNames(true);
  // Contains, case-sensitively.
  EXPECT_EQ(sortedHits(at("s"), "*report"),
            (Strings{at("s/old-report.doc"), at("s/report.txt"), at("s/sub/report")}));
  // The whole name, ignoring case.
  EXPECT_EQ(sortedHits(at("s"), "report"), (Strings{at("s/REPORT"), at("s/sub/report")}));
  EXPECT_EQ(sortedHits(at("s"), "*.*").size(), 6u);
}

TEST_F(FileSearch, ANewSearchStartsWhereAnAbandonedOneStopped) {
  for (const char* name : {"a", "b", "c", "d"}) make(std::string("first/") + name);
  for (const char* name : {"e", "f", "g", "h"}) make(std::string("second/") + name);
  unixNames(true);
  EXPECT_FALSE(text("tsFindFirstFile", {Value(at("first")), Value("*.*")}).empty());
  EXPECT_FALSE(text("tsFindNextFile").empty());
  // Two files were taken: the next search's first folder begins at its third item.
  EXPECT_EQ(all(at("second"), "*.*").size(), 2u);
  // That search ran to its end, so the one after it sees everything.
  EXPECT_EQ(all(at("second"), "*.*").size(), 4u);
}

TEST_F(FileSearch, ApplicationBundlesAreNotSearched) {
  make("apps/tool.txt");
  make("apps/Edit.app/Contents/Info.plist",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
       "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>Edit</string>"
       "</dict></plist>\n");
  make("apps/Edit.app/Contents/MacOS/Edit", "#!/bin/sh\n");
  std::filesystem::permissions(at("apps/Edit.app/Contents/MacOS/Edit"),
                               std::filesystem::perms::owner_all);
  make("apps/Edit.app/Contents/Resources/tool.txt");
  if (integer("tsIsBundle", {Value(at("apps/Edit.app"))}) != 1)
    GTEST_SKIP() << "the bundle test does not know application bundles here";
  unixNames(true);
  EXPECT_EQ(all(at("apps"), "tool.txt"), Strings{at("apps/tool.txt")});
  // The other walks do enter bundles.
  EXPECT_EQ(integer("tsXDelete", {Value(at("apps")), Value(".txt")}), 1);
  EXPECT_FALSE(exists("apps/Edit.app/Contents/Resources/tool.txt"));
}

}  // namespace
}  // namespace tessel::testing
