// Displays, the clipboard and the desktop picture on a headless sway, through the host loading the
// built module, each checked against the compositor's own view: swaymsg for the outputs, wl-copy
// and wl-paste for the clipboard, a grim screenshot for the picture.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"

namespace tessel::testing {
namespace {

using host::Value;

// "NAME WIDTHxHEIGHT X,Y" per output, as sway reports them.
std::string swayOutputs() {
  return run("swaymsg -p -t get_outputs | awk '/^Output/ {n = $2} /Current mode/ {m = $3} "
             "/Position/ {print n, m, $2}'")
      .value_or("?");
}

std::vector<std::string> strings(const Value& list) {
  std::vector<std::string> out;
  if (list.isList())
    for (const Value& v : list.listPtr()->items) out.push_back(v.isString() ? v.string() : "?");
  return out;
}

class Wayland : public XtraTest {
 protected:
  void SetUp() override {
    const char* socket = std::getenv("WAYLAND_DISPLAY");
    if (socket == nullptr || *socket == '\0' || std::getenv("SWAYSOCK") == nullptr)
      GTEST_SKIP() << "not inside scripts/with-wayland";
    XtraTest::SetUp();
  }
  std::string info(const std::string& display, const std::string& what) {
    return text("tsMultiDisplayInfo", {Value(display), Value(what)});
  }
};

TEST_F(Wayland, DisplaysListedSwitchedAndTestedAsSwayShowsThem) {
  // A second output beside the first (1280x1024, from with-wayland).
  const std::string before = "HEADLESS-1 1280x1024 0,0\nHEADLESS-2 1024x768 1280,0\n";
  ASSERT_TRUE(
      run("swaymsg -q create_output && swaymsg -q -- output HEADLESS-2 mode --custom "
          "1024x768 pos 1280 0 && swaymsg -q -- output HEADLESS-1 pos 0 0"));
  ASSERT_TRUE(eventually([&] { return swayOutputs() == before; })) << swayOutputs();

  std::vector<std::string> list = strings(call("tsMultiDisplayList"));
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(info("", "number"), "2");
  EXPECT_EQ(info("", "primary"), list[0]);
  EXPECT_EQ(info("", "second"), list[2]);
  EXPECT_EQ(info("primary", "width") + "x" + info("primary", "height"), "1280x1024");
  EXPECT_EQ(info("second", "width") + "x" + info("second", "height") + " at " +
                info("second", "xpos") + "," + info("second", "ypos"),
            "1024x768 at 1280,0");
  EXPECT_EQ(info("primary", "depth"), "32");
  EXPECT_EQ(info("primary", "refresh"), "60");
  // Outputs that take any size offer the common sizes besides their own.
  std::vector<std::string> modes =
      strings(call("tsMultiDisplayInfo", {Value(list[2]), Value("modes")}));
  ASSERT_GE(modes.size(), 8u);
  EXPECT_EQ(std::vector<std::string>(modes.begin(), modes.begin() + 4),
            (std::vector<std::string>{"1024", "768", "32", "60"}));

  // "test" asks the compositor and changes nothing.
  EXPECT_EQ(integer("tsSetDisplay", {Value(800), Value(600), Value(32), Value("test"), Value(0)}),
            0);
  EXPECT_EQ(integer("tsSetDisplay", {Value(9000), Value(600), Value(32), Value("test"), Value(0)}),
            -1);
  EXPECT_EQ(swayOutputs(), before);

  // A switch shows in the output's mode; the other output keeps its mode and place.
  EXPECT_EQ(integer("tsSetMultiDisplay", {Value("second"), Value(800), Value(600), Value(32),
                                          Value(60), Value(""), Value(0)}),
            0);
  EXPECT_EQ(swayOutputs(), "HEADLESS-1 1280x1024 0,0\nHEADLESS-2 800x600 1280,0\n");
  EXPECT_EQ(info("second", "width"), "800");
  EXPECT_EQ(integer("tsSetMultiDisplay", {Value("second"), Value(801), Value(600), Value(32),
                                          Value(0), Value(""), Value(0)}),
            -1);
  // tsSetDisplay switches the main display, to the smallest size holding the request.
  EXPECT_EQ(integer("tsSetDisplay", {Value(1000), Value(700), Value(32), Value(""), Value(0)}), 0);
  EXPECT_EQ(swayOutputs(), "HEADLESS-1 1024x768 0,0\nHEADLESS-2 800x600 1280,0\n");
}

TEST_F(Wayland, ClipboardRoundTripsWithWlClipboard) {
  const std::string copied = "h\xC3\xA9llo \xE2\x82\xAC";  // "héllo €"
  EXPECT_EQ(integer("tsCopyText", {Value(copied)}), 1);
  EXPECT_EQ(run("timeout 5 wl-paste -n"), copied);
  EXPECT_EQ(run("timeout 5 wl-paste -n -t UTF8_STRING"), copied);
  EXPECT_EQ(text("tsPasteText"), copied);

  // Large texts are served whole to a reader; beyond the paste limit they paste as "".
  std::string big;
  for (int i = 0; big.size() < 3'000'000; ++i) big += "line " + std::to_string(i) + "\n";
  EXPECT_EQ(integer("tsCopyText", {Value(big)}), 1);
  std::optional<std::string> read = run("timeout 5 wl-paste -n");
  ASSERT_TRUE(read);
  EXPECT_TRUE(*read == big) << read->size();
  EXPECT_EQ(text("tsPasteText"), "");

  // What another client copied; a text at the limit pastes whole, a picture as "".
  TempDir dir;
  ASSERT_TRUE(run("timeout 5 wl-copy 'from wl-copy \xC3\xA9'"));
  EXPECT_EQ(text("tsPasteText"), "from wl-copy \xC3\xA9");
  std::string limit(63999, 'x');
  ASSERT_TRUE(run("timeout 5 wl-copy < '" + dir.file("limit.txt", limit).string() + "'"));
  EXPECT_EQ(text("tsPasteText"), limit);
  ASSERT_TRUE(run("timeout 5 wl-copy -t image/png < '" +
                  dir.file("p.png", "\x89PNG\r\n\x1a\n").string() + "'"));
  EXPECT_EQ(text("tsPasteText"), "");

  // The copy outlives the host that made it, and leaves no child behind in it.
  std::string runner = TESSEL_RUNNER;
  ASSERT_TRUE(run("'" + runner + "' --xtras '" + xtrasFolder() +
                  "' -e 'put tsCopyText(\"after the host\")' >/dev/null 2>&1"));
  EXPECT_EQ(run("timeout 5 wl-paste -n"), "after the host");
  EXPECT_EQ(integer("tsCopyText", {Value("")}), 1);
  EXPECT_EQ(run("timeout 5 wl-paste -n"), "");
  EXPECT_EQ(run("ps -o pid= --ppid " + std::to_string(getpid()) + " | wc -l").value_or(""), "1\n");
}

// The colour grim sees at (x, y) of an output, as "R G B".
std::string screenColour(const TempDir& dir, int x, int y,
                         const std::string& output = "HEADLESS-1") {
  std::string shot = dir.str() + "/shot.ppm";
  if (!run("grim -t ppm -o " + output + " '" + shot + "'")) return "no screenshot";
  std::ifstream in(shot, std::ios::binary);
  std::string magic;
  int width = 0, height = 0, depth = 0;
  in >> magic >> width >> height >> depth;
  in.get();
  if (magic != "P6" || x >= width || y >= height) return "bad screenshot";
  in.seekg(static_cast<std::streamoff>((static_cast<int64_t>(y) * width + x) * 3), std::ios::cur);
  unsigned char rgb[3] = {};
  in.read(reinterpret_cast<char*>(rgb), 3);
  return std::to_string(rgb[0]) + " " + std::to_string(rgb[1]) + " " + std::to_string(rgb[2]);
}

TEST_F(Wayland, PictureCoversTheOutputAndIsReplaced) {
  TempDir dir;
  // The left half red, the right half blue.
  std::string data = "P6 4 2 255\n";
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x)
      data += x < 2 ? std::string("\xff\x00\x00", 3) : std::string("\x00\x00\xff", 3);
  std::string picture = dir.file("red-blue.ppm", data).string();

  std::string runner = TESSEL_RUNNER;
  ASSERT_EQ(run("'" + runner + "' --xtras '" + xtrasFolder() + "' -e 'put tsSetWallpaper(\"" +
                picture + "\", 0)' 2>&1"),
            "-- 0\n");
  // Shown after the host is gone, scaled to cover the output.
  EXPECT_TRUE(eventually([&] { return screenColour(dir, 5, 512) == "255 0 0"; }))
      << screenColour(dir, 5, 512);
  EXPECT_EQ(screenColour(dir, 1274, 512), "0 0 255");
  // The picture's process, recorded for the next picture to end.
  auto recorded = [] {
    long pid = 0;
    std::ifstream(std::string(std::getenv("XDG_RUNTIME_DIR")) + "/tessel-picture-" +
                  std::getenv("WAYLAND_DISPLAY") + ".pid") >>
        pid;
    return static_cast<pid_t>(pid);
  };
  pid_t first = recorded();
  ASSERT_GT(first, 0);
  // Running, or gone (a zombie where nothing reaps orphans counts as gone).
  auto running = [](pid_t pid) {
    std::string stat = run("cat /proc/" + std::to_string(pid) + "/stat 2>/dev/null").value_or("");
    size_t close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] != 'Z';
  };
  EXPECT_TRUE(running(first));

  // The next picture takes the place of the first, whose process ends.
  std::string blue = dir.file("blue.ppm", std::string("P6 1 1 255\n\x00\x00\xff", 14)).string();
  EXPECT_EQ(integer("tsSetWallpaper", {Value(blue), Value(0)}), 0);
  EXPECT_TRUE(eventually([&] { return screenColour(dir, 5, 512) == "0 0 255"; }));
  EXPECT_NE(recorded(), first);
  EXPECT_TRUE(eventually([&] { return !running(first); }));
  // An output plugged in later shows it too.
  ASSERT_TRUE(run("swaymsg -q create_output"));
  EXPECT_TRUE(eventually([&] { return screenColour(dir, 5, 5, "HEADLESS-2") == "0 0 255"; }))
      << screenColour(dir, 5, 5, "HEADLESS-2");

  EXPECT_EQ(integer("tsSetWallpaper", {Value(dir.str() + "/missing.png"), Value(0)}), -43);
  EXPECT_EQ(
      integer("tsSetWallpaper", {Value(dir.file("t.png", "not a picture").string()), Value(0)}),
      -1);
}

// sway's fullscreen mode of the window with app_id "tessel" ("" when there is none): a view has no
// children, so the nearest "fullscreen_mode" before its app_id is its own.
std::string stageFullscreen() {
  std::string tree = run("swaymsg -r -t get_tree").value_or("");
  size_t app = tree.find("\"app_id\": \"tessel\"");
  if (app == std::string::npos) return "";
  size_t key = tree.rfind("\"fullscreen_mode\": ", app);
  return key == std::string::npos ? "?" : tree.substr(key + 19, 1);
}

// The message window's stage is a native window; the kiosk makes it fullscreen through the
// compositor and the stage holds the keyboard by inhibiting sway's shortcuts (a binding typed by
// the module's virtual keyboard does nothing while held); 0 puts both back.
TEST_F(Wayland, StageFullscreenAndShortcutsHeldAsSwaySeesThem) {
  TempDir dir;
  std::string go = dir.str() + "/go", again = dir.str() + "/again";
  // Where sway (running as nobody under root) may write.
  std::string bound = std::string(std::getenv("XDG_RUNTIME_DIR")) + "/bound";
  ASSERT_TRUE(run("swaymsg -q -- bindsym ctrl+x exec touch '" + bound + "'"));
  auto waitFor = [](const std::string& file) {
    return "repeat while not tsFileExists(\"" + file + "\")\nend repeat\n";
  };
  std::string script = dir.file("kiosk.ls", "put tsDisableSwitching(1)\nput tsHideTaskBar(2)\n" +
                                                waitFor(go) +
                                                "put tsDisableSwitching(0)\nput tsHideTaskBar(0)\n" +
                                                waitFor(again))
                           .string();
  std::string runner = TESSEL_RUNNER;
  FILE* tessel = popen(
      ("'" + runner + "' --xtras '" + xtrasFolder() + "' --stage 320x200 '" + script + "' 2>&1")
          .c_str(),
      "r");
  ASSERT_NE(tessel, nullptr);
  EXPECT_TRUE(eventually([] { return stageFullscreen() == "1"; }, std::chrono::seconds(10)))
      << stageFullscreen();
  integer("tsSendKeys", {Value("^x")});
  usleep(300'000);
  EXPECT_FALSE(std::filesystem::exists(bound));
  std::ofstream(go) << "";
  EXPECT_TRUE(eventually([] { return stageFullscreen() == "0"; })) << stageFullscreen();
  integer("tsSendKeys", {Value("^x")});
  EXPECT_TRUE(eventually([&] { return std::filesystem::exists(bound); }));
  std::ofstream(again) << "";
  std::string output;
  char buffer[256];
  while (fgets(buffer, sizeof buffer, tessel) != nullptr) output += buffer;
  EXPECT_EQ(pclose(tessel), 0) << output;
  EXPECT_EQ(output, "-- 0\n-- 0\n-- 0\n-- 0\n");
}

// A message box is a native window (GTK's Wayland backend); the compositor's close request
// answers Cancel, as the close button does.
TEST_F(Wayland, MessageBoxIsANativeWindow) {
  std::string runner = TESSEL_RUNNER;
  FILE* tessel = popen(("'" + runner + "' --xtras '" + xtrasFolder() +
                        "' -e 'put tsMsgBox(\"Hello\", \"Greeting\", \"OKCancel\", \"Note\", 1)' "
                        "2>&1")
                           .c_str(),
                       "r");
  ASSERT_NE(tessel, nullptr);
  auto shown = [] {
    std::string tree = run("swaymsg -r -t get_tree").value_or("");
    size_t name = tree.find("\"name\": \"Greeting\"");
    return name != std::string::npos &&
           tree.find("\"shell\": \"xdg_shell\"", name) != std::string::npos;
  };
  EXPECT_TRUE(eventually(shown, std::chrono::seconds(10)));
  run("swaymsg -q '[title=\"^Greeting$\"] kill'");
  std::string output;
  char buffer[256];
  while (fgets(buffer, sizeof buffer, tessel) != nullptr) output += buffer;
  EXPECT_EQ(pclose(tessel), 0);
  EXPECT_EQ(output, "-- \"Cancel\"\n");
}

// cage, a kiosk compositor: one application, shown fullscreen, and no toplevel manager, output
// manager or clipboard protocol. The message window runs under it with a stage: the kiosk calls
// answer at once, and displays and the clipboard work through cage's XWayland.
TEST(Cage, KioskScriptRunsUnderCage) {
  if (!haveProgram("cage") || !haveProgram("Xwayland")) GTEST_SKIP() << "cage or Xwayland missing";
  TempDir dir;
  std::filesystem::permissions(dir.path(), std::filesystem::perms::all);  // for nobody
  std::string runtime = dir.str() + "/runtime";
  std::filesystem::create_directory(runtime);
  std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
  std::string script = dir.file("kiosk.ls",
                                "put tsHideTaskBar(2)\nput tsDisableSwitching(1)\n"
                                "put tsMultiDisplayInfo(\"primary\", \"number\")\n"
                                "put tsCopyText(\"in cage\")\nput tsPasteText()\n"
                                "put tsHideTaskBar(0)\n")
                           .string();
  std::filesystem::permissions(script, std::filesystem::perms::all);
  // cage, like sway, refuses to run as root.
  std::string as = getuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
  if (getuid() == 0) run("chown 65534:65534 '" + runtime + "'");
  std::string runner = TESSEL_RUNNER;
  std::optional<std::string> out =
      run("env -u WAYLAND_DISPLAY -u DISPLAY -u SWAYSOCK HOME='" + runtime + "' XDG_RUNTIME_DIR='" +
          runtime + "' WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1 " + as +
          "timeout 60 cage -- '" + runner + "' --xtras '" + xtrasFolder() + "' --stage 320x200 '" +
          script + "' 2>/dev/null");
  EXPECT_EQ(out, "-- 0\n-- 0\n-- \"1\"\n-- 1\n-- \"in cage\"\n-- 0\n");
}

}  // namespace
}  // namespace tessel::testing
