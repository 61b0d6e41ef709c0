// The clipboard through the host against the session's X server, read and written with xclip.
#include <fstream>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"

namespace tessel::testing {
namespace {

using host::Value;

class Clipboard : public XtraTest {
 protected:
  void SetUp() override {
    if (!haveDisplay()) GTEST_SKIP() << "no X display";
    if (!haveProgram("xclip")) GTEST_SKIP() << "xclip is not installed";
    XtraTest::SetUp();
  }
  std::optional<std::string> xclipOut(const std::string& target = "") {
    return run("timeout 5 xclip -o -selection clipboard" +
               (target.empty() ? "" : " -t " + target) + " 2>/dev/null");
  }
  // Puts bytes on the clipboard with xclip, which stays in the background serving them; returns
  // once xclip answers with them.
  void xclipIn(const std::string& name, const std::string& content,
               const std::string& target = "") {
    std::string file = dir_.file(name, content).string();
    ASSERT_TRUE(run("timeout 5 xclip -i -selection clipboard" +
                    (target.empty() ? "" : " -t " + target) + " '" + file +
                    "' >/dev/null 2>&1"));
    ASSERT_TRUE(eventually([&] { return xclipOut(target) == content; }));
  }
  TempDir dir_;
};

TEST_F(Clipboard, CopiedTextServesEveryTextTarget) {
  EXPECT_EQ(integer("tsCopyText", {Value("h\xC3\xA9llo \xE2\x82\xAC")}), 1);  // "héllo €"
  EXPECT_EQ(xclipOut(), "h\xC3\xA9llo \xE2\x82\xAC");
  EXPECT_EQ(xclipOut("UTF8_STRING"), "h\xC3\xA9llo \xE2\x82\xAC");
  EXPECT_EQ(xclipOut("STRING"), "h\xE9llo ?");  // Latin-1, the euro has no place in it
  std::string targets = xclipOut("TARGETS").value_or("");
  for (const char* t : {"TARGETS", "UTF8_STRING", "STRING", "TEXT"})
    EXPECT_NE(targets.find(t), std::string::npos) << t;
  // (The module reading back its own copy, an empty one too, is tsPasteText's example.)
}

TEST_F(Clipboard, LargeTextsTravelInSteps) {
  // A text beyond any single request travels in INCR steps; it is copied whole.
  std::string big;
  for (int i = 0; big.size() < 3'000'000; ++i) big += "line " + std::to_string(i) + "\n";
  EXPECT_EQ(integer("tsCopyText", {Value(big)}), 1);
  std::optional<std::string> read = xclipOut();
  ASSERT_TRUE(read);
  EXPECT_EQ(read->size(), big.size());
  EXPECT_TRUE(*read == big);
  EXPECT_EQ(text("tsPasteText"), "");  // too long to paste
  // (An empty text copied and pasted is tsPasteText's example.)
}

TEST_F(Clipboard, PastesWhatAnotherClientCopied) {
  xclipIn("a.txt", "from xclip \xC3\xA9");
  EXPECT_EQ(text("tsPasteText"), "from xclip \xC3\xA9");

  // 63,999 bytes paste whole (xclip serves them in INCR steps); 64,000 paste as "".
  std::string limit(63999, 'x');
  limit[0] = 'A';
  xclipIn("limit.txt", limit);
  EXPECT_EQ(text("tsPasteText"), limit);
  xclipIn("over.txt", limit + "y");
  EXPECT_EQ(text("tsPasteText"), "");

  // Latin-1 only owners are read as STRING and converted.
  xclipIn("latin.txt", "caf\xE9", "STRING");
  EXPECT_EQ(text("tsPasteText"), "caf\xC3\xA9");

  // Text ends at a zero byte.
  xclipIn("zero.txt", std::string("ab\0cd", 5));
  EXPECT_EQ(text("tsPasteText"), "ab");

  // A clipboard holding only a picture has no text.
  const char png[] = "\x89PNG\r\n\x1a\n";
  xclipIn("p.png", std::string(png, sizeof png - 1), "image/png");
  EXPECT_EQ(text("tsPasteText"), "");
}

TEST_F(Clipboard, CopyOutlivesTheHost) {
  std::string runner = TESSEL_RUNNER;
  ASSERT_TRUE(run("'" + runner + "' --xtras '" + xtrasFolder() +
                  "' -e 'put tsCopyText(\"after the host\")' >/dev/null 2>&1"));
  EXPECT_EQ(xclipOut(), "after the host");
  // The server left no zombie or stray child behind in the host: it belongs to init.
  EXPECT_EQ(integer("tsCopyText", {Value("mine")}), 1);
  EXPECT_EQ(run("ps -o pid= --ppid " + std::to_string(getpid()) + " | wc -l").value_or(""),
            "1\n");  // only the ps pipeline's own shell
}

class NoDisplay : public XtraTest {
 protected:
  NoDisplay() { display_.unset("DISPLAY"); }
  ScopedEnvironment display_;
};

TEST_F(NoDisplay, ClipboardCursorKioskAndDisplaysGiveFailureValues) {
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(integer("tsCopyText", {Value("x")}), 0);
  EXPECT_EQ(text("tsPasteText"), "");
  EXPECT_EQ(integer("tsPlaceCursor", {Value(10), Value(10)}), 0);
  EXPECT_EQ(integer("tsHideTaskBar", {Value(1)}), 0);
  EXPECT_EQ(integer("tsDisableSwitching", {Value(1)}), 0);
  EXPECT_EQ(integer("tsSetDisplay", {Value(800), Value(600), Value(32), Value(""), Value(0)}),
            -1);
  EXPECT_EQ(integer("tsSetMultiDisplay", {Value("primary"), Value(800), Value(600), Value(32),
                                          Value(0), Value(""), Value(0)}),
            -1);
  Value list = call("tsMultiDisplayList");
  EXPECT_TRUE(list.isList() && list.listPtr()->items.empty());
  EXPECT_EQ(text("tsMultiDisplayInfo", {Value("primary"), Value("width")}), "");
  EXPECT_EQ(text("tsMultiDisplayInfo", {Value("primary"), Value("number")}), "0");
  Value modes = call("tsMultiDisplayInfo", {Value("primary"), Value("modes")});
  EXPECT_TRUE(modes.isList() && modes.listPtr()->items.empty());
  TempDir dir;
  std::string ppm = dir.file("p.ppm", std::string("P6 1 1 255\n\xff\x00\x00", 14)).string();
  EXPECT_EQ(integer("tsSetWallpaper", {Value(ppm), Value(0)}), -1);
  EXPECT_EQ(integer("tsSetWallpaper", {Value(dir.str() + "/none.png"), Value(0)}), -43);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
}

}  // namespace
}  // namespace tessel::testing
