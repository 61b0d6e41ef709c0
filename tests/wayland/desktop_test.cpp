// Windows, keys and clicks through the host on a wlroots compositor, against native Wayland
// clients (foot, the GTK test application on GDK's Wayland backend), checked against sway's own
// view of its windows (`swaymsg -t get_tree`). Each test runs in a headless sway of its own.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_pointer.h"
#include "platform/linux/wayland_sway_ipc.h"
#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;
using namespace std::chrono_literals;

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = 10000ms) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(20ms);
  }
  return true;
}

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream out;
  out << in.rdbuf();
  return out.str();
}

std::vector<std::string> lines(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> out;
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// sway's views, as its IPC reports them.
std::vector<platform::wayland::SwayView> views() {
  return platform::wayland::swayViews().value_or(std::vector<platform::wayland::SwayView>{});
}

// Output of a shell command.
std::string shell(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
  }
  return out;
}

// The pid of the view sway has focused; 0 when none (in its tree a node's "focused" comes
// before its "pid").
int32_t focusedPid() {
  const std::string tree = shell("swaymsg -t get_tree");
  const size_t focused = tree.find("\"focused\": true");
  const size_t pid = tree.find("\"pid\": ", focused);
  if (focused == std::string::npos || pid == std::string::npos ||
      tree.find("\"focused\"", focused + 1) < pid)
    return 0;
  return std::atoi(tree.c_str() + pid + 7);
}

class WaylandDesktop : public XtraTest {
 protected:
  void SetUp() override {
    if (std::getenv("WAYLAND_DISPLAY") == nullptr || std::getenv("SWAYSOCK") == nullptr)
      GTEST_SKIP() << "run inside scripts/with-wayland";
    XtraTest::SetUp();
  }

  void TearDown() override {
    for (pid_t pid : children_) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    XtraTest::TearDown();
  }

  pid_t launch(const std::vector<std::string>& args) {
    const pid_t pid = fork();
    if (pid == 0) {
      setenv("GDK_BACKEND", "wayland", 1);
      setenv("NO_AT_BRIDGE", "1", 1);
      std::vector<char*> argv;
      for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execvp(argv[0], argv.data());
      _exit(127);
    }
    children_.push_back(pid);
    return pid;
  }

  // The GTK test application, once the module finds its window; its record file in *record.
  pid_t app(const std::string& cls, std::string* record = nullptr) {
    const std::string path = (dir_.path() / (cls + ".log")).string();
    const pid_t pid = launch({TESSEL_TEST_APP, "--class", cls, "--title", cls + " title", "--record", path});
    EXPECT_TRUE(waitUntil([&] { return findByName(cls) == pid; })) << cls << " never appeared";
    EXPECT_TRUE(waitUntil([&] { return !lines(path).empty(); })) << cls << " never mapped its window";
    if (record != nullptr) *record = path;
    return pid;
  }

  // foot running `cat` into a file, with the app_id `appId`; the file in *typed.
  pid_t terminal(const std::string& appId, std::string* typed) {
    *typed = (dir_.path() / (appId + ".txt")).string();
    const pid_t pid = launch({"foot", "-a", appId, "-T", appId + " title", "sh", "-c",
                              "stty -echo; exec cat > '" + *typed + "'"});
    EXPECT_TRUE(waitUntil([&] { return findByName(appId) == pid; })) << appId << " never appeared";
    return pid;
  }

  int32_t findByName(const std::string& name) { return integer("tsFindWindow", {Value(""), Value(name)}); }

  std::vector<int32_t> windowList() {
    std::vector<int32_t> out;
    const Value list = call("tsWindowList", {Value(""), Value(""), Value(0)});
    for (const Value& v : list.listPtr()->items) out.push_back(v.integer());
    return out;
  }

  void bringToFront(int32_t pid) {
    ASSERT_EQ(integer("tsActivateWindow", {Value(pid)}), 1);
    ASSERT_TRUE(waitUntil([&] { return focusedPid() == pid; })) << "sway never focused " << pid;
    EXPECT_EQ(integer("tsActiveWindow"), pid);
  }

  TempDir dir_;
  std::vector<pid_t> children_;
};

TEST_F(WaylandDesktop, WindowsAreListedActivatedAndClosedAsSwayReports) {
  const int32_t self = integer("tsWinHandle");
  std::string typed;
  const pid_t foot = terminal("tesselfoot", &typed);
  const pid_t gtk = app("TesselWl");
  // Every view sway has, each owner once, after the host.
  std::vector<int32_t> listed = windowList();
  ASSERT_EQ(listed.size(), 3u);
  EXPECT_EQ(listed.front(), self);
  std::vector<int32_t> viewPids;
  for (const auto& view : views()) viewPids.push_back(view.pid);
  std::sort(viewPids.begin(), viewPids.end());
  listed.erase(listed.begin());
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(listed, viewPids);
  EXPECT_EQ(text("tsWindowInfo", {Value(gtk), Value("title")}), "TesselWl");
  EXPECT_EQ(text("tsWindowInfo", {Value(foot), Value("filename")}), "foot");
  EXPECT_EQ(integer("tsKeyIsDown", {Value(56)}), 0);  // no global key state on Wayland

  bringToFront(foot);
  EXPECT_EQ(integer("tsWaitForWindow", {Value(gtk), Value("inactive"), Value(60)}), 1);
  bringToFront(gtk);
  EXPECT_EQ(integer("tsWaitForWindow", {Value(foot), Value("inactive"), Value(60)}), 1);
  // Woken by the compositor's event, not by the end of the wait.
  std::thread other([] { std::this_thread::sleep_for(300ms); std::system("swaymsg -q '[app_id=tesselfoot] focus'"); });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(integer("tsWaitForWindow", {Value(foot), Value("active"), Value(600)}), 1);
  other.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);

  EXPECT_EQ(integer("tsCloseWindow", {Value(gtk)}), 1);
  EXPECT_EQ(integer("tsWaitForWindow", {Value(gtk), Value("closed"), Value(600)}), 1);
  EXPECT_TRUE(waitUntil([&] { return views().size() == 1; }));
  EXPECT_EQ(windowList(), (std::vector<int32_t>{self, foot}));

  // Without sway's IPC the owner is the one process named as the app_id; a GTK app_id that
  // is not its program's name leaves its owner unknown, and it is not listed.
  unsetenv("SWAYSOCK");
  const pid_t unnamed = launch({TESSEL_TEST_APP, "--class", "NotItsName", "--title", "x"});
  const pid_t plain = launch({"foot", "-T", "plain", "sleep", "60"});
  kill(foot, SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return findByName("foot") == plain; }));
  EXPECT_EQ(windowList(), (std::vector<int32_t>{self, plain}));
  EXPECT_EQ(findByName("NotItsName"), 0);
  (void)unnamed;
}

TEST_F(WaylandDesktop, TypedTextArrivesExactlyAndNothingStaysHeld) {
  std::string typed;
  const pid_t foot = terminal("tesselkeys", &typed);
  bringToFront(foot);
  EXPECT_EQ(integer("tsSendKeys", {Value("Hello, World! (x+y)*[z] <a|b> ~q_`:\"?{RETURN}")}), 0);
  EXPECT_TRUE(waitUntil([&] { return fileText(typed).find('\n') != std::string::npos; }));
  EXPECT_EQ(fileText(typed), "Hello, World! (x+y)*[z] <a|b> Q_~:\"?\n");

  // Modifiers reach a GTK client with the key they hold, and only that key.
  std::string record;
  const pid_t gtk = app("TesselTyped", &record);
  bringToFront(gtk);
  EXPECT_EQ(integer("tsSendKeys", {Value("^c~a#@kb{TAB}")}), 0);
  const std::vector<std::string> expected{"key c control", "key A shift", "key k alt+super", "key b -",
                                          "key Tab -"};
  EXPECT_TRUE(waitUntil([&] {
    std::vector<std::string> keys;
    for (const std::string& line : lines(record))
      if (line.rfind("key ", 0) == 0 && line.find("_L ") == std::string::npos) keys.push_back(line);
    return keys == expected;
  })) << fileText(record);
}

TEST_F(WaylandDesktop, AStoppedCompositorCostsSecondsNotAHang) {
  const int32_t self = integer("tsWinHandle");
  ASSERT_EQ(windowList(), (std::vector<int32_t>{self}));  // connected
  const pid_t sway = std::atoi(
      shell(std::string("pgrep -xf 'sway -c ") + std::getenv("XDG_RUNTIME_DIR") + "/config'").c_str());
  ASSERT_GT(sway, 0);
  kill(sway, SIGSTOP);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(windowList(), (std::vector<int32_t>{self}));
  EXPECT_EQ(integer("tsActiveWindow"), 0);
  EXPECT_EQ(integer("tsSendKeys", {Value("abc")}), 0);
  EXPECT_EQ(integer("tsMouseClick", {Value("left")}), 0);
  const auto took = std::chrono::steady_clock::now() - start;
  kill(sway, SIGCONT);
  EXPECT_LT(took, 60s);  // a second or two per call at most: 4 s in all, measured
}

// The keymap follows the default layout (XKB_DEFAULT_LAYOUT), and what a layout lacks is bound
// to keys it leaves empty: the same text arrives on each.
class WaylandLayouts : public WaylandDesktop, public ::testing::WithParamInterface<const char*> {};

TEST_P(WaylandLayouts, TheSameTextArrivesOnEveryLayout) {
  setenv("XKB_DEFAULT_LAYOUT", GetParam(), 1);  // before the module's first key makes its keyboard
  std::string typed;
  const pid_t foot = terminal("tessellayout", &typed);
  bringToFront(foot);
  // On "de" y and z trade places and [ ] | ~ are AltGr levels; "ru" has none of these keys.
  EXPECT_EQ(integer("tsSendKeys", {Value("yz[]/|`Hello World;:'{RETURN}")}), 0);
  EXPECT_TRUE(waitUntil([&] { return fileText(typed).find('\n') != std::string::npos; }));
  EXPECT_EQ(fileText(typed), "yz[]/|~Hello World;:'\n");
}
INSTANTIATE_TEST_SUITE_P(Layouts, WaylandLayouts, ::testing::Values("us", "de", "ru"));

TEST_F(WaylandDesktop, ClicksLandWhereThePointerIs) {
  std::string leftRecord, rightRecord;
  app("TesselLeft", &leftRecord);
  const pid_t right = app("TesselRight", &rightRecord);
  bringToFront(right);
  // sway tiles the two side by side on the 1280x1024 output. The platform's own pointer puts the
  // pointer in the middle of each in turn (the display service's warp goes through it on Wayland).
  auto connection = platform::wayland::WaylandConnection::open(2s);
  ASSERT_NE(connection, nullptr);
  auto pointer = platform::wayland::VirtualPointer::create(*connection);
  ASSERT_NE(pointer, nullptr);
  const auto buttons = [&](const std::string& record) {
    std::vector<std::string> got;
    for (const std::string& line : lines(record))
      if (line.rfind("press", 0) == 0 || line.rfind("release", 0) == 0) got.push_back(line);
    return got;
  };
  ASSERT_TRUE(pointer->moveTo(960, 512));
  for (const char* button : {"left", "right", "middle", "other"})
    EXPECT_EQ(integer("tsMouseClick", {Value(button)}), 0);
  const std::vector<std::string> all{"press 1", "release 1", "press 3", "release 3", "press 2", "release 2"};
  EXPECT_TRUE(waitUntil([&] { return buttons(rightRecord) == all; })) << fileText(rightRecord);
  ASSERT_TRUE(pointer->moveTo(320, 512));
  EXPECT_EQ(integer("tsMouseClick", {Value("left")}), 0);
  EXPECT_TRUE(waitUntil([&] { return buttons(leftRecord) == std::vector<std::string>{"press 1", "release 1"}; }))
      << fileText(leftRecord);
  EXPECT_EQ(buttons(rightRecord), all);
  EXPECT_FALSE(pointer->moveTo(1280, 0));  // outside every output
}

}  // namespace
}  // namespace tessel::testing
