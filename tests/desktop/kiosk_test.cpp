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

// Whether another client could take the keyboard now (it is given back at once).
bool keyboardFree(Display* d) {
  int status = XGrabKeyboard(d, DefaultRootWindow(d), False, GrabModeAsync, GrabModeAsync,
                             CurrentTime);
  if (status == GrabSuccess) XUngrabKeyboard(d, CurrentTime);
  XSync(d, False);
  return status == GrabSuccess;
}

using States = std::vector<std::string>;

std::string hex(unsigned long w) {
  char text[32];
  snprintf(text, sizeof text, "0x%lx", w);
  return text;
}

// The window's states the kiosk sets, as xprop shows them, in sorted order.
States windowStates(unsigned long w) {
  const std::string shown = run("xprop -id " + hex(w) + " _NET_WM_STATE").value_or("");
  States out;
  for (const char* state : {"ABOVE", "FULLSCREEN"})
    if (shown.find(std::string("_NET_WM_STATE_") + state) != std::string::npos) out.push_back(state);
  return out;
}

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
    if (!haveDisplay()) GTEST_SKIP() << "no X display";
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
  bool statesBecome(const States& expected) {
    return eventually([&] { return windowStates(stage.window) == expected; });
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
  EXPECT_EQ(windowStates(stage.window), States{"FULLSCREEN"});
  EXPECT_EQ(integer("tsHideTaskBar", {Value(0)}), 0);
  EXPECT_TRUE(statesBecome({}));
}

TEST_F(Kiosk, SwitchingKeysGoToTheStageAndUnloadingPutsEverythingBack) {
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

  // Unloading the module puts back what is still changed.
  EXPECT_EQ(integer("tsHideTaskBar", {Value(2)}), 0);
  EXPECT_EQ(integer("tsDisableSwitching", {Value(1)}), 0);
  EXPECT_TRUE(statesBecome({"ABOVE", "FULLSCREEN"}));
  host_.reset();  // unloads the module
  EXPECT_TRUE(statesBecome({}));
  EXPECT_TRUE(keyboardFree(other_->get()));
}

class KioskWithoutWindow : public XtraTest {};

TEST_F(KioskWithoutWindow, NothingToActOn) {
  if (!haveDisplay()) GTEST_SKIP() << "no X display";
  // This host has no window and offers no keyboard hold: 0, and nothing is grabbed.
  EXPECT_EQ(integer("tsHideTaskBar", {Value(2)}), 0);
  EXPECT_EQ(integer("tsDisableSwitching", {Value(1)}), 0);
  TestDisplay other;
  EXPECT_TRUE(keyboardFree(other.get()));
}

TEST(StageWindow, MessageWindowStageUnderXprop) {
  if (!haveDisplay() || !haveProgram("xprop") || !haveProgram("xdotool"))
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
    return !id.empty() && windowStates(std::stoul(id)) == States{"ABOVE", "FULLSCREEN"};
  }));
  EXPECT_NE(run("xprop -id " + id + " WM_CLASS").value_or("").find("\"tessel\", \"Tessel\""),
            std::string::npos);
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
