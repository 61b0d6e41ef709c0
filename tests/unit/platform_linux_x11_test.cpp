// The module's X connections with GTK in the same process. GTK installs process-wide Xlib
// handlers of its own when the first dialog starts it: ones that ignore errors on connections
// it did not open and exit the process when any connection is lost. (A lost server, through the
// methods: tests/boundary/lost_server_test.cpp.)
#include <gtest/gtest.h>

// After the test framework's headers: Xlib defines macros (None, Bool) that they use as names.
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include "platform/linux/x11_connection.h"

namespace tessel::platform::x11 {
namespace {

TEST(X11Connections, ErrorsStayTheModulesOnceGtkRuns) {
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
}

}  // namespace
}  // namespace tessel::platform::x11
