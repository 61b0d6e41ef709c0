// The path rule every path argument goes through: "@" is the movie's folder, Unix paths have
// their colons turned into slashes.

#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;

// A movie in <tmp>/Work/, on the start-up volume.
class PathRule : public FileTreeTest {
 protected:
  void SetUp() override {
    FileTreeTest::SetUp();
    folder("Work");
    movie_.folder = at("Work/");
    hfsBase_ = hfs("Work");
  }
  std::string hfsBase_;  // the movie's folder in HFS style, no trailing ':'
};

TEST_F(PathRule, AtIsTheMoviesFolderWithTheRestAppendedAsWritten) {
  ASSERT_FALSE(hfsBase_.empty());
  // tsHFSName hands an HFS path back unchanged, so it shows what the rule made.
  EXPECT_EQ(text("tsHFSName", {Value("@:Media:clip.mov")}), hfsBase_ + ":Media:clip.mov");
  EXPECT_EQ(text("tsHFSName", {Value("@Media:clip.mov")}), hfsBase_ + "Media:clip.mov");
  EXPECT_EQ(text("tsHFSName", {Value("@")}), hfsBase_);
  // The player had no meaning of its own for "@": the movie's path was asked for.
  EXPECT_GT(movie_.valueCalls, 0);
}

TEST_F(PathRule, WithoutAMoviePathTheApplicationsFolderIsTheBase) {
  movie_.folder = "";  // the test movie answers "/usr/bin/" for the application's path
  EXPECT_EQ(text("tsHFSName", {Value("@:tessel")}), startupVolumeName(*host_) + ":usr:bin:tessel");
  EXPECT_EQ(movie_.valueCalls, 2);
}

TEST_F(PathRule, WithUnixNamesTheBaseIsAUnixPathAndTheRestsColonsBecomeSlashes) {
  unixNames(true);
  EXPECT_EQ(text("tsUnixName", {Value("@")}), dir_.str() + "/Work/");  // an existing folder
  EXPECT_EQ(text("tsHFSName", {Value("@")}), hfsBase_ + ":");
}

TEST_F(PathRule, UnixPathsLoseTheirColonsAndEmptyPathsStayEmpty) {
  unixNames(true);
  EXPECT_EQ(text("tsUnixName", {Value("/Users/x:y")}), "/Users/x/y");
  unixNames(false);
  EXPECT_EQ(text("tsUnixName", {Value("/Users/x:y")}), "/Users/x/y");
  EXPECT_EQ(text("tsHFSName", {Value("")}), "");
  // The rule rewrites no backslashes and leaves HFS paths alone.
  EXPECT_EQ(text("tsHFSName", {Value("Disk:a\\b:c")}), "Disk:a\\b:c");
}

TEST_F(PathRule, ArgumentsLongerThanAPathAreCutNotRefused) {
  std::string longName = "/" + std::string(3000, 'a');
  std::string answer = text("tsUnixName", {Value(longName)});
  EXPECT_LE(answer.size(), 1024u);
  EXPECT_EQ(answer, longName.substr(0, 1024));
}

class PathRuleWithResolvingPlayer : public XtraTest {
 protected:
  PathRuleWithResolvingPlayer() : XtraTest(options()) {}
  static host::HostOptions options() {
    host::HostOptions o;
    o.playerResolvesAt = base().string() + "/";
    return o;
  }
  static std::filesystem::path base() {
    static TempDir dir;
    std::filesystem::create_directories(dir.path() / "Resolved");
    return dir.path() / "Resolved";
  }
};

TEST_F(PathRuleWithResolvingPlayer, APlayersOwnAnswerIsUsedAndTheMovieIsNotAsked) {
  movie_.folder = "/nonexistent/";
  unixNames(true);
  EXPECT_EQ(text("tsUnixName", {Value("@:clip.mov")}), base().string() + "/clip.mov");
  EXPECT_EQ(movie_.valueCalls, 0);
}

class PathRuleOutsideDirector : public XtraTest {
 protected:
  PathRuleOutsideDirector() : XtraTest(options()) {}
  static host::HostOptions options() {
    host::HostOptions o;
    o.productName = "Kiosk Player";
    return o;
  }
};

TEST_F(PathRuleOutsideDirector, AtPathsAreLeftAsGivenWhenTheHostIsNotDirector) {
  movie_.folder = "/tmp/";
  EXPECT_EQ(text("tsHFSName", {Value("@:Media:clip.mov")}), "@:Media:clip.mov");
  unixNames(true);
  EXPECT_EQ(text("tsHFSName", {Value("@")}), "@");
  EXPECT_EQ(movie_.valueCalls, 0);
  // Everything else still works without the player.
  EXPECT_EQ(integer("tsFolderExists", {Value("/tmp")}), 1);
}

}  // namespace
}  // namespace tessel::testing
