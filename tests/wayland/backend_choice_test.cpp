// The backend rule against a real compositor (each test of this folder runs in a headless sway of
// its own, scripts/with-wayland).
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/linux/backend_choice.h"
#include "platform/linux/wayland_connection.h"

namespace tessel::platform::backends {
namespace {

using namespace std::chrono_literals;

TEST(WaylandBackendChoice, TheCompositorsGlobalsDecideUnlessForced) {
  ASSERT_NE(std::getenv("WAYLAND_DISPLAY"), nullptr) << "run inside scripts/with-wayland";
  auto connection = wayland::WaylandConnection::open(2s);
  ASSERT_NE(connection, nullptr);
  EXPECT_TRUE(offers(connection->globals(), "zwlr_foreign_toplevel_manager_v1"));
  EXPECT_TRUE(offers(connection->globals(), "zwp_virtual_keyboard_manager_v1"));
  EXPECT_TRUE(connection->roundtrip(2s));

  const auto toplevels = [](const auto& g) { return offers(g, "zwlr_foreign_toplevel_manager_v1"); };
  const auto missing = [](const auto& g) { return offers(g, "no_such_protocol_v1"); };
  // An XWayland-style DISPLAY beside the compositor changes nothing.
  setenv("DISPLAY", ":99", 1);
  unsetenv("TESSEL_BACKEND");
  EXPECT_EQ(chooseFor(toplevels), Backend::Wayland);
  EXPECT_EQ(chooseFor(missing), Backend::X11);
  setenv("TESSEL_BACKEND", "x11", 1);
  EXPECT_EQ(chooseFor(toplevels), Backend::X11);
  setenv("TESSEL_BACKEND", "wayland", 1);
  EXPECT_EQ(chooseFor(missing), Backend::Wayland);
  setenv("TESSEL_BACKEND", "other", 1);
  EXPECT_EQ(chooseFor(missing), Backend::X11);
  unsetenv("TESSEL_BACKEND");
}

}  // namespace
}  // namespace tessel::platform::backends
