// Windows through the message window on a display of the test's own, under a window manager
// that knows no EWMH (twm) or under none at all.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"
#include "tests/windows/windows_support.h"

// After the test framework's headers: Xlib defines macros (None, Bool) that they use as names.
#include <X11/Xlib.h>

namespace tessel::testing {
namespace {

// A display of the test's own, with a window manager that knows no EWMH (twm) or with none at
// all, and two test applications on it; the message window runs the calls there.
class OtherManagers : public ::testing::Test {
 protected:
  void TearDown() override {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) {
      kill(*it, SIGKILL);
      waitpid(*it, nullptr, 0);
    }
  }

  pid_t start(const std::vector<std::string>& args, int keep = -1) {
    pid_t pid = startProcess(args, [&] {
      int null = open("/dev/null", O_RDWR);
      dup2(null, 0);
      dup2(null, 1);
      dup2(null, 2);
      if (keep >= 0) fcntl(keep, F_SETFD, 0);
      if (!display_.empty()) setenv("DISPLAY", display_.c_str(), 1);
    });
    children_.push_back(pid);
    return pid;
  }

  // Starts the X server; its display name ends up in display_.
  void startServer() {
    int report[2];
    ASSERT_EQ(pipe2(report, O_CLOEXEC), 0);
    start({"Xvfb", "-displayfd", std::to_string(report[1]), "-nolisten", "tcp", "-screen", "0",
           "800x600x24"},
          report[1]);
    close(report[1]);
    std::string number;
    char c;
    while (read(report[0], &c, 1) == 1 && c != '\n') number += c;
    close(report[0]);
    ASSERT_FALSE(number.empty()) << "Xvfb did not start";
    display_ = ":" + number;
  }

  pid_t startApp(const std::string& cls) {
    std::string record = (dir_.path() / (cls + ".log")).string();
    pid_t pid = start({TESSEL_TEST_APP, "--class", cls, "--title", cls + " title", "--record", record});
    EXPECT_TRUE(eventually([&] {
      auto lines = readLines(record);
      return std::find(lines.begin(), lines.end(), "ready") != lines.end();
    })) << cls << " never mapped its window";
    return pid;
  }

  // Runs the message window on the display with one statement per line; what it printed.
  std::vector<std::string> runner(const std::vector<std::string>& statements) {
    std::string command = "DISPLAY=" + display_ + " '" + std::string(TESSEL_RUNNER) + "' --xtras '" +
                          xtrasFolder() + "'";
    for (const std::string& s : statements) command += " -e '" + s + "'";
    std::istringstream out(run(command + " 2>&1; true").value_or(""));
    std::vector<std::string> lines;
    for (std::string line; std::getline(out, line);) lines.push_back(line);
    return lines;
  }

  // The same calls under either manager: listing, activation, the active window and closing.
  void listActivateAndClose() {
    pid_t alpha = startApp("Alpha");
    pid_t beta = startApp("Beta");
    const std::string a = std::to_string(alpha), b = std::to_string(beta);
    // twm maps its clients after a moment; wait until both are listed.
    std::vector<std::string> out;
    EXPECT_TRUE(eventually([&] {
      out = runner({"put tsFindWindow(\"\", \"Alpha\")", "put tsFindWindow(\"\", \"Beta\")"});
      return out == std::vector<std::string>{"-- " + a, "-- " + b};
    })) << ::testing::PrintToString(out);
    out = runner({"put tsWinHandle()", "put tsWindowList(\"\", \"\", 0)",
                  "put tsWindowInfo(" + b + ", \"caption\")",
                  "put tsActivateWindow(" + a + ")", "put tsActiveWindow()",
                  "put tsActivateWindow(" + b + ")", "put tsActiveWindow()",
                  "put tsCloseWindow(" + a + ")"});
    ASSERT_FALSE(out.empty());
    const std::string self = out[0].substr(3);
    EXPECT_EQ(out, (std::vector<std::string>{out[0], "-- [" + self + ", " + a + ", " + b + "]",
                                             "-- \"Beta\"", "-- 1", "-- " + a, "-- 1", "-- " + b,
                                             "-- 1"}));
    // Closing asked the application to quit, and it did.
    EXPECT_TRUE(eventually([&] { return waitpid(alpha, nullptr, WNOHANG) == alpha; }));
  }

  std::string display_;
  TempDir dir_;
  std::vector<pid_t> children_;
};

TEST_F(OtherManagers, AnIcccmManagerStandsInForEwmh) {
  startServer();
  std::string rc = dir_.file("twmrc", "RandomPlacement\nUsePPosition \"on\"\nNoTitle\n").string();
  start({"twm", "-f", rc});
  // The applications come once twm manages the screen.
  Display* dpy = XOpenDisplay(display_.c_str());
  ASSERT_NE(dpy, nullptr);
  EXPECT_TRUE(eventually([&] {
    XWindowAttributes root{};
    XGetWindowAttributes(dpy, DefaultRootWindow(dpy), &root);
    return (root.all_event_masks & SubstructureRedirectMask) != 0;
  })) << "twm never managed the screen";
  XCloseDisplay(dpy);
  listActivateAndClose();
}

TEST_F(OtherManagers, WithoutAManagerTheMappedTopLevelsAreTheClients) {
  startServer();
  listActivateAndClose();
}

}  // namespace
}  // namespace tessel::testing
