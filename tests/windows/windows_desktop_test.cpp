// Windows, keys and clicks through the host, against real X clients: the GTK test application,
// xterm and xmessage under the session's window manager.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <tuple>
#include <thread>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"
#include "tests/windows/windows_support.h"

// After the test framework's headers: Xlib defines macros (None, Bool) that they use as names.
#include <X11/Xlib.h>

namespace tessel::testing {
namespace {

using host::Value;

bool isModifierLine(const std::string& line) {
  for (const char* name : {"Shift_", "Control_", "Alt_", "Super_", "ISO_Level3_Shift", "Meta_"})
    if (line.rfind(std::string("key ") + name, 0) == 0) return true;
  return false;
}

// The recorded key lines, without the presses of modifier keys themselves.
std::vector<std::string> keyLines(const std::string& path) {
  std::vector<std::string> keys;
  for (const std::string& line : readLines(path))
    if (line.rfind("key ", 0) == 0 && !isModifierLine(line)) keys.push_back(line);
  return keys;
}

// The ids of a process's mapped windows, as xdotool finds them.
std::vector<std::string> visibleWindows(pid_t pid) {
  std::istringstream found(
      run("xdotool search --onlyvisible --pid " + std::to_string(pid) + " 2>/dev/null").value_or(""));
  return {std::istream_iterator<std::string>(found), {}};
}

class Desktop : public XtraTest {
 protected:
  void SetUp() override {
    if (!haveDisplay()) GTEST_SKIP() << "needs an X display";
    XtraTest::SetUp();
    dpy_ = XOpenDisplay(nullptr);
    ASSERT_NE(dpy_, nullptr);
  }

  void TearDown() override {
    if (dpy_ != nullptr) {
      // Nothing the Xtra pressed may still be down.
      char keys[32];
      XQueryKeymap(dpy_, keys);
      for (int i = 0; i < 256; ++i) EXPECT_FALSE(keys[i / 8] & (1 << (i % 8))) << "keycode " << i << " held";
      Window root = 0, child = 0;
      int x = 0, y = 0, wx = 0, wy = 0;
      unsigned int mask = 0;
      XQueryPointer(dpy_, DefaultRootWindow(dpy_), &root, &child, &x, &y, &wx, &wy, &mask);
      EXPECT_EQ(mask & (Button1Mask | Button2Mask | Button3Mask), 0u) << "a button held";
      XCloseDisplay(dpy_);
    }
    if (layoutChanged_) std::system("setxkbmap us");
    for (pid_t pid : children_) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    XtraTest::TearDown();
  }

  pid_t launch(const std::vector<std::string>& args) {
    pid_t pid = startProcess(args);
    children_.push_back(pid);
    return pid;
  }

  // The test application, once its window is managed; its record file in *record.
  pid_t app(const std::string& cls, std::vector<std::string> extra = {}, std::string* record = nullptr) {
    std::string path = (dir_.path() / (cls + ".log")).string();
    std::vector<std::string> args = {TESSEL_TEST_APP, "--class", cls, "--title", cls + " title", "--record", path};
    args.insert(args.end(), extra.begin(), extra.end());
    pid_t pid = launch(args);
    EXPECT_TRUE(eventually([&] { return findByName(cls) == pid; })) << cls << " never appeared";
    EXPECT_TRUE(eventually([&] {
      auto lines = readLines(path);
      return std::find(lines.begin(), lines.end(), "ready") != lines.end();
    })) << cls << " never mapped its window";
    if (record != nullptr) *record = path;
    return pid;
  }

  int32_t findByName(const std::string& name) {
    return integer("tsFindWindow", {Value(""), Value(name)});
  }

  std::vector<int32_t> windowList(const std::string& cls, const std::string& caption, int32_t match) {
    Value list = call("tsWindowList", {Value(cls), Value(caption), Value(match)});
    std::vector<int32_t> out;
    for (const Value& v : list.listPtr()->items) out.push_back(v.integer());
    return out;
  }

  // Activates the process and makes sure its window has the keyboard focus.
  void bringToFront(pid_t pid) {
    ASSERT_EQ(integer("tsActivateWindow", {Value(pid)}), 1);
    // The method waits up to 500 ms for the manager; a loaded machine may need longer.
    ASSERT_TRUE(eventually([&] { return integer("tsActiveWindow") == pid; })) << "never active";
  }

  void typeAndExpect(const std::string& record, const std::string& keys,
                     const std::vector<std::string>& expected) {
    const size_t before = keyLines(record).size();
    EXPECT_EQ(integer("tsSendKeys", {Value(keys)}), 0);
    eventually([&] { return keyLines(record).size() >= before + expected.size(); }, 2000ms);
    std::this_thread::sleep_for(100ms);  // and nothing more arrives
    auto lines = keyLines(record);
    std::vector<std::string> got(lines.begin() + static_cast<long>(std::min(before, lines.size())), lines.end());
    EXPECT_EQ(got, expected) << "typing \"" << keys << "\"";
  }

  void setLayout(const std::string& layout) {
    layoutChanged_ = true;
    ASSERT_EQ(std::system(("setxkbmap " + layout).c_str()), 0);
  }

  Display* dpy_ = nullptr;
  TempDir dir_;
  std::vector<pid_t> children_;
  bool layoutChanged_ = false;
};

TEST_F(Desktop, ProcessesAreFoundListedAndDescribed) {
  const int32_t self = integer("tsWinHandle");
  EXPECT_EQ(self, getpid());
  pid_t alpha = app("TesselAlpha", {"--windows", "2"});
  ASSERT_TRUE(eventually([&] { return visibleWindows(alpha).size() == 2; }));
  pid_t xmsg = launch({"xmessage", "-name", "tesselmsg", "hello"});
  pid_t term = launch({"xterm", "-T", "a shell", "-e", "sleep", "60"});
  ASSERT_TRUE(eventually([&] { return integer("tsFindWindow", {Value("Xmes"), Value("")}) == xmsg; }));
  // xterm is named by its class, whatever its title says.
  ASSERT_TRUE(eventually([&] { return windowList("", "xterm", 1) == std::vector<int32_t>{term}; }));
  EXPECT_EQ(text("tsWindowInfo", {Value(term), Value("caption")}), "XTerm");
  EXPECT_EQ(integer("tsFindWindow", {Value("XTer"), Value("XTERM")}), term);
  EXPECT_EQ(windowList("", "a shell", 0), (std::vector<int32_t>{}));

  // Each window owner once, however many windows it has (the host first: tsWinHandle's example).
  auto all = windowList("", "", 0);
  EXPECT_EQ(std::count(all.begin(), all.end(), alpha), 1);
  EXPECT_EQ(std::count(all.begin(), all.end(), xmsg), 1);  // found without _NET_WM_PID
  EXPECT_EQ(windowList("", "esselalph", 0), (std::vector<int32_t>{alpha}));
  EXPECT_EQ(windowList("", "tesselALPHA", 1), (std::vector<int32_t>{alpha}));
  EXPECT_EQ(windowList("", "", 1), (std::vector<int32_t>{}));

  // The name is the window class, not the title nor the GTK client leader's class. (The other
  // words, for xmessage, and a process that ended are tsWindowInfo's example.)
  EXPECT_EQ(text("tsWindowInfo", {Value(alpha), Value("TITLE")}), "TesselAlpha");
  EXPECT_EQ(text("tsWindowInfo", {Value(alpha), Value("class")}), "Tess");
  EXPECT_EQ(integer("tsWindowExists", {Value(self)}), 1);
  EXPECT_EQ(integer("tsCloseWindow", {Value(-1)}), 0);
}

// (Activating one program of two, and waiting for either state, are tsActivateWindow's and
// tsWaitForWindow's examples; tsNextActiveWindow's rounds are WindowFunctions'.)
TEST_F(Desktop, ActivationBringsAProcessToTheFrontAlsoFromIconified) {
  pid_t one = app("TesselOne");
  app("TesselTwo");
  bringToFront(one);
  // Iconified: openbox maps it again on activation.
  auto ids = visibleWindows(one);
  ASSERT_EQ(ids.size(), 1u);
  ASSERT_EQ(std::system(("xdotool windowminimize " + ids.front()).c_str()), 0);
  ASSERT_TRUE(eventually([&] { return visibleWindows(one).empty(); }));
  ASSERT_TRUE(eventually([&] { return integer("tsActiveWindow") != one; }));
  bringToFront(one);

  // A windowless process cannot be activated; it exists all the same.
  pid_t sleeper = launch({"sleep", "30"});
  EXPECT_EQ(integer("tsWindowExists", {Value(sleeper)}), 1);
  EXPECT_EQ(integer("tsActivateWindow", {Value(sleeper)}), 0);
}

// A program started "hidden" stays behind the window the user works in, which keeps the focus:
// an xterm (which says nothing about focus) and a GTK application alike, under openbox.
TEST_F(Desktop, HiddenProgramsStayBehindTheActiveWindow) {
  pid_t front = app("TesselFront");
  bringToFront(front);
  // The topmost place in the manager's stacking order of a process's windows (-1: none listed).
  auto stackPlace = [&](int32_t pid) {
    std::istringstream stack(
        run("xprop -root _NET_CLIENT_LIST_STACKING | cut -d# -f2 | tr , ' '").value_or(""));
    int place = -1, i = 0;
    for (std::string w; stack >> w; ++i)
      if (run("xprop -id " + w + " _NET_WM_PID").value_or("") ==
          "_NET_WM_PID(CARDINAL) = " + std::to_string(pid) + "\n")
        place = i;
    return place;
  };
  const std::string record = (dir_.path() / "hidden.log").string();
  const std::filesystem::path gtkApp = dir_.file("gtk-app.sh", std::string("#!/bin/sh\nexec ") + TESSEL_TEST_APP +
                                                     " --class TesselHidden --title hidden --record " +
                                                     record + "\n");
  std::filesystem::permissions(gtkApp, std::filesystem::perms::owner_all);
  struct Client {
    std::string program, name;
  };
  for (const Client& client : {Client{"/usr/bin/xterm", "xterm"},
                               Client{gtkApp.string(), "TesselHidden"}}) {
    ASSERT_EQ(integer("tsRunProgram", {Value(client.program), Value("hidden"), Value(0)}), 33);
    int32_t started = 0;
    ASSERT_TRUE(eventually([&] { return (started = findByName(client.name)) > 0; }))
        << client.name << " never appeared";
    ASSERT_TRUE(eventually([&] { return stackPlace(started) >= 0; }));
    // Long enough for the manager to have focused and raised it, had it been left alone.
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(integer("tsActiveWindow"), front) << client.name << " took the focus";
    EXPECT_LT(stackPlace(started), stackPlace(front)) << client.name << " went on top";
    kill(started, SIGKILL);
    ASSERT_TRUE(eventually([&] { return findByName(client.name) <= 0; }));
  }
}

TEST_F(Desktop, CloseAsksEveryWindowAndMayBeRefused) {
  pid_t pair = app("TesselPair", {"--windows", "2"});
  ASSERT_TRUE(eventually([&] { return visibleWindows(pair).size() == 2; }));
  EXPECT_EQ(integer("tsCloseWindow", {Value(pair)}), 1);
  // (It may be gone before a wait could start, which would then answer 0.)
  EXPECT_TRUE(eventually([&] { return integer("tsWindowExists", {Value(pair)}) == 0; }));

  std::string record;
  pid_t stubborn = app("TesselStubborn", {"--refuse-close"}, &record);
  EXPECT_EQ(integer("tsCloseWindow", {Value(stubborn)}), 1);
  EXPECT_TRUE(eventually([&] {
    auto lines = readLines(record);
    return std::find(lines.begin(), lines.end(), "close refused") != lines.end();
  }));
  EXPECT_EQ(integer("tsWaitForWindow", {Value(stubborn), Value("closed"), Value(20)}), 0);
  EXPECT_EQ(integer("tsWindowExists", {Value(stubborn)}), 1);
  // (xmessage, which sets no _NET_WM_PID, found and closed, and the host refusing to close itself
  // are tsCloseWindow's and tsWinHandle's examples.)
}

TEST_F(Desktop, WaitsEndOnZombiesAndEndedProcesses) {
  // A child that has exited but was never reaped has ended.
  pid_t zombie = fork();
  if (zombie == 0) _exit(0);
  children_.push_back(zombie);
  ASSERT_TRUE(eventually([&] {
    std::ifstream stat("/proc/" + std::to_string(zombie) + "/stat");
    std::string line;
    std::getline(stat, line);
    return line.find(") Z") != std::string::npos;
  }));
  EXPECT_EQ(integer("tsWindowExists", {Value(zombie)}), 0);
  EXPECT_EQ(integer("tsWaitForWindow", {Value(zombie), Value("closed"), Value(0)}), 0);
  // (A wait that ends with its process, long before its deadline, is tsWaitForWindow's example.)

  // (Time-outs and deadlines that wrap are WindowFunctions.WaitsTestTheStateEachRound...'s, on
  // a clock a test can move.)
}

// (Control and Shift for the next key, and {RETURN}, are tsSendKeys' example; characters that
// type nothing, KeyLanguage's rows.)
TEST_F(Desktop, KeysArriveWithTheirModifiersAndQuirks) {
  std::string record;
  pid_t typist = app("TesselKeys", {}, &record);
  bringToFront(typist);
  typeAndExpect(record, "#@k", {"key k alt+super"});
  typeAndExpect(record, "`", {"key asciitilde shift"});
  typeAndExpect(record, "{TAB}^", {});
  typeAndExpect(record, "x{tab}{RETURN}{F5}{left}", {"key x -", "key Tab -", "key Return -", "key F5 -", "key Left -"});
  typeAndExpect(record, "a{FOO}bcdefghijklmn", {"key a -", "key a -", "key k -", "key l -", "key m -", "key n -"});
  typeAndExpect(record, "^^^^^^^^^^~q", {"key q control"});  // the eleventh modifier is dropped
  // Every character of the language once, in order, with Shift where the US layout needs it.
  const std::string alphabet =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 !\"$%&'()*+,-./:;<=>?[\\]_|}";
  std::vector<std::string> expected;
  for (unsigned char c : alphabet)
    expected.push_back(std::string("key ") + XKeysymToString(c) +
                       (std::isupper(c) || std::strchr("!\"$%&()*+:<>?_|}", c) ? " shift" : " -"));
  typeAndExpect(record, alphabet, expected);

  // Activation waits for the manager itself: keys sent right after it reach the program.
  pid_t other = app("TesselOther");
  bringToFront(other);
  ASSERT_EQ(integer("tsActivateWindow", {Value(typist)}), 1);
  typeAndExpect(record, "q", {"key q -"});
}

TEST_F(Desktop, KeysFollowTheLayoutAndBindWhatItLacks) {
  std::string record;
  pid_t typist = app("TesselLayouts", {}, &record);
  bringToFront(typist);
  setLayout("de");
  // On a German keyboard "y" and "z" trade places and "[" is AltGr+8, all without Shift.
  typeAndExpect(record, "yz[]/", {"key y -", "key z -", "key bracketleft -", "key bracketright -", "key slash shift"});
  setLayout("ru");
  typeAndExpect(record, "Hi!", {"key H -", "key i -", "key exclam shift"});
  // More missing keysyms than spare keycodes: typed in batches, every one arrives in order.
  const std::string many = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJ";
  std::vector<std::string> expected;
  for (char c : many) expected.push_back(std::string("key ") + c + " -");
  typeAndExpect(record, many, expected);
  // Right after, keysyms bound by no key take over bindings that call used: the call waits
  // until those have rested a second, and nothing is lost.
  typeAndExpect(record, "KLMNOPQRSTUVWXYZ", {"key K -", "key L -", "key M -", "key N -", "key O -",
                                             "key P -", "key Q -", "key R -", "key S -", "key T -",
                                             "key U -", "key V -", "key W -", "key X -", "key Y -",
                                             "key Z -"});
  // On a Swedish keyboard "~" is only a dead key: "`" (which types "~") gets a binding of its own.
  setLayout("se");
  typeAndExpect(record, "a`b", {"key a -", "key asciitilde -", "key b -"});
}

// Rows: the key held with xdotool, the key number that sees it and one that does not. (Numbers
// outside the table are KeyNumbers'; nothing held is tsKeyIsDown's example.)
TEST_F(Desktop, KeyIsDownSeesKeysHeldElsewhere) {
  const std::tuple<const char*, int32_t, int32_t> rows[] = {
      {"a", 65, 66}, {"Super_L", 15, 65}, {"Shift_R", 16, -16}};
  for (const auto& [key, held, other] : rows) {
    ASSERT_EQ(std::system((std::string("xdotool keydown ") + key).c_str()), 0);
    EXPECT_EQ(integer("tsKeyIsDown", {Value(held)}), 1) << key;
    EXPECT_EQ(integer("tsKeyIsDown", {Value(other)}), 0) << key;
    ASSERT_EQ(std::system((std::string("xdotool keyup ") + key).c_str()), 0);
    EXPECT_EQ(integer("tsKeyIsDown", {Value(held)}), 0) << key;
  }
}

TEST_F(Desktop, ClicksPressAndReleaseWhereThePointerIs) {
  std::string record;
  pid_t target = app("TesselClicks", {}, &record);
  bringToFront(target);
  ASSERT_EQ(std::system("xdotool mousemove --window $(xdotool getactivewindow) 60 60"), 0);
  for (const char* type : {"LEFT", "right", "middle", "", "double"})
    EXPECT_EQ(integer("tsMouseClick", {Value(type)}), 0);
  auto buttons = [&] {
    std::vector<std::string> out;
    for (const std::string& line : readLines(record))
      if (line.rfind("press", 0) == 0 || line.rfind("release", 0) == 0) out.push_back(line);
    return out;
  };
  const std::vector<std::string> expected = {"press 1", "release 1", "press 3", "release 3", "press 2", "release 2"};
  eventually([&] { return buttons().size() >= expected.size(); }, 2000ms);
  EXPECT_EQ(buttons(), expected);
  // A left button held elsewhere is let go before a right click.
  ASSERT_EQ(std::system("xdotool mousedown 1"), 0);
  EXPECT_EQ(integer("tsMouseClick", {Value("right")}), 0);
  std::vector<std::string> more = expected;
  more.insert(more.end(), {"press 1", "release 1", "press 3", "release 3"});
  eventually([&] { return buttons().size() >= more.size(); }, 2000ms);
  EXPECT_EQ(buttons(), more);
}

TEST_F(Desktop, TheExecutablesCreatorIsTheSignature) {
  // A copy of the test application on a filesystem that keeps Finder information.
  char folder[] = "/var/tmp/tessel-signature-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  std::string exe = std::string(folder) + "/signed_app";
  ASSERT_EQ(std::system(("cp '" + std::string(TESSEL_TEST_APP) + "' '" + exe + "'").c_str()), 0);
  if (integer("tsSetFileInfo", {Value(exe), Value("APPL"), Value("TsAp")}) != 1) {
    std::system(("rm -rf '" + std::string(folder) + "'").c_str());
    GTEST_SKIP() << folder << " keeps no extended attributes";
  }
  pid_t pid = launch({exe, "--class", "Signed", "--title", "signed"});
  EXPECT_TRUE(eventually([&] { return findByName("Signed") == pid; }));
  EXPECT_EQ(text("tsWindowInfo", {Value(pid), Value("creator")}), "TsAp");
  EXPECT_EQ(integer("tsFindWindow", {Value("TsAp"), Value("")}), pid);
  EXPECT_EQ(integer("tsFindWindow", {Value("Sign"), Value("")}), 0);  // the class no longer counts
  EXPECT_EQ(windowList("TsAp", "", 0), (std::vector<int32_t>{pid}));
  std::system(("rm -rf '" + std::string(folder) + "'").c_str());
}

}  // namespace
}  // namespace tessel::testing
