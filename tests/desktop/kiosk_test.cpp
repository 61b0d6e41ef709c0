// Kiosk controls through the host: window states on the host's own window under openbox, the
// keyboard held through the host's connection, and `tessel --stage` observed with xprop.
#include <unistd.h>

#include <fstream>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"

// After gtest: Xlib defines None as a macro.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace tessel::testing {
namespace {

using host::Value;

bool displaySet() {
  const char* d = std::getenv("DISPLAY");
  return d != nullptr && *d != '\0';
}

// Whether another client could take the keyboard now (it is given back at once).
bool keyboardFree(Display* d) {
  int status = XGrabKeyboard(d, DefaultRootWindow(d), False, GrabModeAsync, GrabModeAsync,
                             CurrentTime);
  if (status == GrabSuccess) XUngrabKeyboard(d, CurrentTime);
  XSync(d, False);
  return status == GrabSuccess;
}

std::vector<std::string> windowStates(Display* d, Window w) {
  std::vector<std::string> out;
  Atom type;
  int format;
  unsigned long n, after;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(d, w, XInternAtom(d, "_NET_WM_STATE", False), 0, 64, False, XA_ATOM,
                         &type, &format, &n, &after, &data) == Success &&
      data != nullptr) {
    auto* atoms = reinterpret_cast<Atom*>(data);
    for (unsigned long i = 0; i < n; ++i) {
      char* name = XGetAtomName(d, atoms[i]);
      if (name != nullptr) {
        std::string s(name);
        if (s == "_NET_WM_STATE_FULLSCREEN" || s == "_NET_WM_STATE_ABOVE") out.push_back(s.substr(14));
        XFree(name);
      }
    }
    std::sort(out.begin(), out.end());
  }
  if (data != nullptr) XFree(data);
  return out;
}

using States = std::vector<std::string>;

// The test process is the host: its own window, with its PID, stands for the presentation, and
// the host's keyboard hold grabs on the test's connection.
struct Stage {
  Display* display = nullptr;
  Window window = 0;
  int holds = 0;
};
Stage stage;

host::HostOptions stageHost() {
  host::HostOptions options;
  options.holdKeyboard = [](bool hold) {
    ++stage.holds;
    if (!hold) {
      XUngrabKeyboard(stage.display, CurrentTime);
      XSync(stage.display, False);
      return true;
    }
    return XGrabKeyboard(stage.display, stage.window, False, GrabModeAsync, GrabModeAsync,
                         CurrentTime) == GrabSuccess;
  };
  return options;
}

class Kiosk : public XtraTest {
 protected:
  Kiosk() : XtraTest(stageHost()) {}
  void SetUp() override {
    if (!displaySet()) GTEST_SKIP() << "no X display";
    XtraTest::SetUp();
    integer("tsPlaceCursor", {Value(0), Value(0)});  // the module's X handlers first
    own_ = std::make_unique<TestDisplay>();
    other_ = std::make_unique<TestDisplay>();
    Display* d = own_->get();
    stage = Stage{d, XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 300, 200, 0, 0, 0), 0};
    long pid = getpid();
    XChangeProperty(d, stage.window, XInternAtom(d, "_NET_WM_PID", False), XA_CARDINAL, 32,
                    PropModeReplace, reinterpret_cast<unsigned char*>(&pid), 1);
    XSelectInput(d, stage.window, KeyPressMask);
    XMapWindow(d, stage.window);
    XSync(d, False);
    // Managed once the window manager lists it.
    ASSERT_TRUE(eventually([&] {
      return run("xprop -root _NET_CLIENT_LIST").value_or("").find(hex(stage.window)) !=
             std::string::npos;
    }));
  }
  void TearDown() override {
    XtraTest::TearDown();
    if (stage.display != nullptr) XDestroyWindow(stage.display, stage.window);
    other_.reset();
    own_.reset();
    stage = Stage{};
  }
  static std::string hex(unsigned long w) {
    char text[32];
    snprintf(text, sizeof text, "0x%lx", w);
    return text;
  }
  bool statesBecome(const States& expected) {
    return eventually([&] { return windowStates(other_->get(), stage.window) == expected; });
  }
  std::unique_ptr<TestDisplay> own_, other_;
};

TEST_F(Kiosk, HideLevelsSetWindowStates) {
  EXPECT_EQ(integer("tsHideTaskBar", {Value(1)}), 0);
  EXPECT_TRUE(statesBecome({"FULLSCREEN"}));
  EXPECT_EQ(integer("tsHideTaskBar", {Value(2)}), 0);
  EXPECT_TRUE(statesBecome({"ABOVE", "FULLSCREEN"}));
  EXPECT_EQ(integer("tsHideTaskBar", {Value(3)}), 0);
  EXPECT_TRUE(statesBecome({"FULLSCREEN"}));
  EXPECT_EQ(integer("tsHideTaskBar", {Value(5)}), 0);  // changes nothing
  usleep(200'000);
  EXPECT_EQ(windowStates(other_->get(), stage.window), States{"FULLSCREEN"});
  EXPECT_EQ(integer("tsHideTaskBar", {Value(0)}), 0);
  EXPECT_TRUE(statesBecome({}));
}

TEST_F(Kiosk, SwitchingKeysGoToTheStage) {
  Display* other = other_->get();
  ASSERT_TRUE(keyboardFree(other));
  EXPECT_EQ(integer("tsDisableSwitching", {Value(1)}), 0);
  EXPECT_EQ(stage.holds, 1);
  EXPECT_FALSE(keyboardFree(other));
  // Alt+Tab reaches the presentation instead of the window manager.
  ASSERT_TRUE(run("xdotool key alt+Tab"));
  XEvent event;
  EXPECT_TRUE(eventually([&] {
    return XCheckTypedWindowEvent(stage.display, stage.window, KeyPress, &event) == True;
  }));
  EXPECT_EQ(integer("tsDisableSwitching", {Value(0)}), 0);
  EXPECT_TRUE(keyboardFree(other));
}

TEST_F(Kiosk, UnloadingPutsEverythingBack) {
  EXPECT_EQ(integer("tsHideTaskBar", {Value(2)}), 0);
  EXPECT_EQ(integer("tsDisableSwitching", {Value(1)}), 0);
  EXPECT_TRUE(statesBecome({"ABOVE", "FULLSCREEN"}));
  EXPECT_FALSE(keyboardFree(other_->get()));
  host_.reset();  // unloads the module
  EXPECT_TRUE(statesBecome({}));
  EXPECT_TRUE(keyboardFree(other_->get()));
}

class KioskWithoutWindow : public XtraTest {};

TEST_F(KioskWithoutWindow, NothingToActOn) {
  if (!displaySet()) GTEST_SKIP() << "no X display";
  // This host has no window and offers no keyboard hold: 0, and nothing is grabbed.
  EXPECT_EQ(integer("tsHideTaskBar", {Value(2)}), 0);
  EXPECT_EQ(integer("tsDisableSwitching", {Value(1)}), 0);
  TestDisplay other;
  EXPECT_TRUE(keyboardFree(other.get()));
}

TEST(StageWindow, MessageWindowStageUnderXprop) {
  if (!displaySet() || !haveProgram("xprop") || !haveProgram("xdotool"))
    GTEST_SKIP() << "no X display or tools";
  TempDir dir;
  std::string go = dir.str() + "/go";
  std::string script = dir.file("kiosk.ls", "tsHideTaskBar(2)\ntsDisableSwitching(1)\n"
                                            "repeat while not tsFileExists(\"" + go + "\")\n"
                                            "end repeat\n").string();
  std::string runner = TESSEL_RUNNER;
  FILE* tessel = popen(("'" + runner + "' --xtras '" + xtrasFolder() + "' --stage 320x200 '" +
                        script + "' 2>&1").c_str(), "r");
  ASSERT_NE(tessel, nullptr);
  std::string id;
  EXPECT_TRUE(eventually([&] {
    id = run("xdotool search --name '^Tessel Stage$' 2>/dev/null | head -1").value_or("");
    if (!id.empty() && id.back() == '\n') id.pop_back();
    return !id.empty() && run("xprop -id " + id + " _NET_WM_STATE").value_or("").find("ABOVE") !=
                              std::string::npos;
  }));
  std::string props = run("xprop -id " + id + " _NET_WM_STATE _NET_WM_PID WM_CLASS").value_or("");
  EXPECT_NE(props.find("_NET_WM_STATE_FULLSCREEN"), std::string::npos) << props;
  EXPECT_NE(props.find("\"tessel\", \"Tessel\""), std::string::npos) << props;
  TestDisplay other;
  EXPECT_TRUE(eventually([&] { return !keyboardFree(other.get()); }));
  std::ofstream(go) << "";
  std::string output;
  char buffer[256];
  while (fgets(buffer, sizeof buffer, tessel) != nullptr) output += buffer;
  EXPECT_EQ(pclose(tessel), 0) << output;
  // At exit the keyboard is free again.
  EXPECT_TRUE(keyboardFree(other.get()));
}

}  // namespace
}  // namespace tessel::testing
