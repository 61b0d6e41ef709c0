// The module's X connections with GTK in the same process. GTK installs process-wide Xlib
// handlers of its own when the first dialog starts it: ones that ignore errors on connections
// it did not open and exit the process when any connection is lost.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// After the test framework's headers: Xlib defines macros (None, Bool) that they use as names.
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include "platform/linux/x11_connection.h"

namespace tessel::platform::x11 {
namespace {

// An X server of the test's own; its display name, "" when it did not start.
std::string startServer(pid_t* pid) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return {};
  *pid = fork();
  if (*pid == 0) {
    int null = open("/dev/null", O_RDWR);
    dup2(null, 1);
    dup2(null, 2);
    fcntl(report[1], F_SETFD, 0);
    std::string fd = std::to_string(report[1]);
    execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-nolisten", "tcp", nullptr);
    _exit(127);
  }
  close(report[1]);
  std::string number;
  char c;
  while (read(report[0], &c, 1) == 1 && c != '\n') number += c;
  close(report[0]);
  return number.empty() ? std::string() : ":" + number;
}

TEST(X11Connections, ErrorsAndLostServersStayTheModulesOnceGtkRuns) {
  if (!displayConfigured()) GTEST_SKIP() << "needs an X display";
  auto connection = X11Connection::open();
  ASSERT_NE(connection, nullptr);
  ASSERT_TRUE(gtk_init_check(nullptr, nullptr));

  // A request that fails on the module's connection is still seen by its trap.
  {
    X11ErrorTrap trap(connection->display());
    XMapWindow(connection->display(), 0x1);
    EXPECT_EQ(trap.sync(), BadWindow);
  }
  // And GTK still sees the errors on its own connection.
  GdkDisplay* gdk = gdk_display_get_default();
  {
    X11ErrorTrap trap(connection->display());  // puts the module's handlers back in front
    gdk_x11_display_error_trap_push(gdk);
    XMapWindow(GDK_DISPLAY_XDISPLAY(gdk), 0x1);
    EXPECT_EQ(gdk_x11_display_error_trap_pop(gdk), BadWindow);
  }

  // A server that goes away ends the module's connection to it, not the process.
  pid_t server = 0;
  std::string name = startServer(&server);
  ASSERT_FALSE(name.empty()) << "Xvfb did not start";
  std::string saved = std::getenv("DISPLAY");
  setenv("DISPLAY", name.c_str(), 1);
  auto lost = X11Connection::open();
  setenv("DISPLAY", saved.c_str(), 1);
  ASSERT_NE(lost, nullptr);
  kill(server, SIGKILL);
  waitpid(server, nullptr, 0);
  {
    X11ErrorTrap trap(lost->display());
    XNoOp(lost->display());
    trap.sync();
  }
  EXPECT_FALSE(lost->alive());
  EXPECT_TRUE(connection->alive());
}

}  // namespace
}  // namespace tessel::platform::x11
