// Services that can hang: a session bus, a sound server or a Wayland compositor that accepts the
// connection and never answers. Each call gives up after its deadline with its failure value, and the next call of
// the same kind gives up at once while the first is stuck; a server that is missing altogether
// fails at once. Each row runs in a fresh message window, so its libraries meet that server
// first, and times itself in Lingo.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"

namespace tessel::testing {
namespace {

TEST(Deadlines, SilentServersCostOneDeadlineThenNothing) {
  if (!haveDisplay()) GTEST_SKIP() << "no X display";
  TempDir dir;
  const std::string silent = dir.str() + "/silent";
  int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  silent.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener, 16), 0);
  const std::string bus = "DBUS_SESSION_BUS_ADDRESS='unix:path=" + silent + "' ";
  std::string picture = "P6 2 1 255\n";
  picture += std::string("\xff\x00\x00\x00\x00\xff", 6);
  const std::string ppm = dir.file("picture.ppm", picture).string();
  const std::string app =
      dir.file("share/applications/app.desktop",
               "[Desktop Entry]\nType=Application\nName=app\nExec=/bin/true\n").string();

  // `timed(call, least)` prints the call's answer, then 1 when it took at least `least` ms; a
  // least of 0 asks for an answer within half a second instead.
  auto timed = [](const std::string& call, int least) {
    const std::string check = least > 0 ? ">= " + std::to_string(least) : "< 500";
    return " -e 't = the milliseconds' -e 'put " + call + "' -e 'put the milliseconds - t " +
           check + "'";
  };
  const std::string hostFirst = "tsWindowList(\"\", \"\", 0)[1] = tsWinHandle()";
  struct Row {
    const char* name;
    std::string environment, code, expected;
  };
  const Row rows[] = {
      {"sound, no server", "PULSE_SERVER='unix:" + dir.str() + "/none' ",
       timed("tsGetVolume(\"\")", 0) + timed("tsSetVolume(\"mute\", 1)", 0),
       "-- -1\n-- 1\n-- 0\n-- 1\n"},
      {"sound, silent server", "PULSE_SERVER='unix:" + silent + "' ",
       timed("tsGetVolume(\"\")", 1500), "-- -1\n-- 1\n"},
      {"launch, silent bus",
       bus + "HOME='" + dir.str() + "' XDG_DATA_HOME='" + dir.str() + "/share' ",
       timed("tsRunProgram(\"" + app + "\", \"\", 0)", 2500) +
           timed("tsOpenURL(\"http://example.org/\", \"\")", 0) +
           timed("tsRunProgram(\"/bin/true\", \"\", 1)", 0),
       "-- 0\n-- 1\n-- 0\n-- 1\n-- 33\n-- 1\n"},
      {"GNOME wallpaper, silent bus",
       bus + "GSETTINGS_BACKEND=dconf XDG_CURRENT_DESKTOP=GNOME HOME='" + dir.str() + "' ",
       timed("tsSetWallpaper(\"" + ppm + "\", 0)", 2500) +
           timed("tsSetWallpaper(\"" + ppm + "\", 0)", 0),
       "-- -1\n-- 1\n-- -1\n-- 1\n"},
      // The backend choice gives a compositor a second to list its globals, then takes X11.
      {"windows, silent compositor", "TESSEL_BACKEND= WAYLAND_DISPLAY='" + silent + "' ",
       timed(hostFirst, 1000) + timed(hostFirst, 0), "-- 1\n-- 1\n-- 1\n-- 1\n"},
      {"windows, no compositor", "TESSEL_BACKEND= WAYLAND_DISPLAY='" + dir.str() + "/none' ",
       timed(hostFirst, 0), "-- 1\n-- 1\n"},
  };
  for (const Row& row : rows) {
    // The deadlines are 2 and 3 seconds; a minute means the call hung.
    const auto start = std::chrono::steady_clock::now();
    auto out = run(row.environment + "timeout 60 '" + TESSEL_RUNNER + "' --xtras '" +
                   xtrasFolder() + "'" + row.code + " 2>/dev/null");
    EXPECT_EQ(out.value_or("(hung or failed)"), row.expected) << row.name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60)) << row.name;
  }
  ::close(listener);
}

}  // namespace
}  // namespace tessel::testing
