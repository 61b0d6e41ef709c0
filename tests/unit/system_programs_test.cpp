// The command forms of tsShell against a fake launcher; files are real, in a temporary folder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/launcher.h"
#include "system/programs.h"

namespace tessel::system {
namespace {

namespace fs = std::filesystem;

struct RecordingLauncher : platform::LauncherService {
  std::vector<std::string> shells;
  std::vector<std::pair<std::string, std::vector<std::string>>> spawned, desktop;
  std::vector<std::string> documents, urls;
  int shellStatus = 0;

  std::optional<int32_t> spawn(const std::string& p, const std::vector<std::string>& a,
                               bool) override {
    spawned.emplace_back(p, a);
    return 4242;
  }
  std::optional<int32_t> launchDesktopFile(const std::string& p, const std::vector<std::string>& a,
                                           bool) override {
    desktop.emplace_back(p, a);
    return 0;
  }
  int runShell(const std::string& c) override {
    shells.push_back(c);
    return shellStatus;
  }
  std::string contentTypeForExtension(const std::string&) override { return ""; }
  std::string defaultApplication(const std::string&) override { return ""; }
  bool openDocument(const std::string& p) override {
    documents.push_back(p);
    return true;
  }
  bool openURL(const std::string& u) override {
    urls.push_back(u);
    return true;
  }
  int32_t printFile(const std::string&, const std::string&) override { return 0; }
};

class Programs : public ::testing::Test {
 protected:
  void SetUp() override {
    auto l = std::make_unique<RecordingLauncher>();
    launcher = l.get();
    saved = platform::setLauncherService(std::move(l));
    char pattern[] = "/tmp/tessel-programs-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    tool = dir + "/tool";
    std::ofstream(tool) << "#!/bin/sh\n";
    fs::permissions(tool, fs::perms::owner_all);
  }
  void TearDown() override {
    platform::setLauncherService(std::move(saved));
    fs::remove_all(dir);
  }
  RecordingLauncher* launcher = nullptr;
  std::unique_ptr<platform::LauncherService> saved;
  std::string dir, tool;
};

TEST(ShellQuote, QuotesEveryCharacterLiterally) {
  EXPECT_EQ(shellQuote(""), "''");
  EXPECT_EQ(shellQuote("a b"), "'a b'");
  EXPECT_EQ(shellQuote("it's"), "'it'\\''s'");
  EXPECT_EQ(shellQuote("$(rm -rf ~)`x`\"\\"), "'$(rm -rf ~)`x`\"\\'");
}

TEST_F(Programs, ShellTerminalRunsTheLineAndTheFolderChangeSeparately) {
  EXPECT_EQ(shell("TERMINAL", "ls -l", "ignored", "", ""), 33);
  ASSERT_EQ(launcher->shells.size(), 1u);
  EXPECT_EQ(launcher->shells[0], "ls -l");
  EXPECT_TRUE(launcher->spawned.empty());

  launcher->shells.clear();
  launcher->shellStatus = 1;
  EXPECT_EQ(shell("system", "false", "", "/tmp/a b/it's", ""), 0);
  ASSERT_EQ(launcher->shells.size(), 2u);
  EXPECT_EQ(launcher->shells[0], "cd '/tmp/a b/it'\\''s'");
  EXPECT_EQ(launcher->shells[1], "false");

  // The command line is cut to the 2,048-byte buffer.
  launcher->shells.clear();
  launcher->shellStatus = 0;
  EXPECT_EQ(shell("terminal", std::string(3000, 'x'), "", "", ""), 33);
  EXPECT_EQ(launcher->shells.back().size(), 2047u);

  launcher->shells.clear();
  EXPECT_EQ(shell("terminal", "", "", "/tmp", ""), 0);
  EXPECT_TRUE(launcher->shells.empty());
}

TEST_F(Programs, ShellOpenWithArgsStartsTheProgramWithoutAShell) {
  EXPECT_EQ(shell("open", tool, "one 'two three' \"a;b\" $(x)", "", ""), 33);
  ASSERT_EQ(launcher->spawned.size(), 1u);
  EXPECT_EQ(launcher->spawned[0].first, tool);
  EXPECT_EQ(launcher->spawned[0].second,
            (std::vector<std::string>{"one", "two three", "a;b", "$(x)"}));
  EXPECT_TRUE(launcher->shells.empty());

  // Without Args the file is opened as a document; a missing one is not.
  EXPECT_EQ(shell("Open", tool, "", "", ""), 33);
  EXPECT_EQ(launcher->documents, std::vector<std::string>{tool});
  EXPECT_EQ(shell("open", dir + "/missing", "", "", ""), 0);
  EXPECT_EQ(shell("open", dir + "/missing", "x", "", ""), 0);

  // A .desktop file gets the arguments as its documents.
  std::string app = dir + "/viewer.desktop";
  std::ofstream(app) << "[Desktop Entry]\n";
  EXPECT_EQ(shell("anything", app, "/tmp/a.txt", "", ""), 33);
  ASSERT_EQ(launcher->desktop.size(), 1u);
  EXPECT_EQ(launcher->desktop[0].second, std::vector<std::string>{"/tmp/a.txt"});

  // Args that do not parse start the program without them.
  launcher->spawned.clear();
  EXPECT_EQ(shell("open", tool, "'unterminated", "", ""), 33);
  ASSERT_EQ(launcher->spawned.size(), 1u);
  EXPECT_TRUE(launcher->spawned[0].second.empty());
}

}  // namespace
}  // namespace tessel::system
