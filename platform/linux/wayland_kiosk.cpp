// The kiosk service on a Wayland compositor. Only a window's own client may ask xdg-shell for
// fullscreen, so the host's presentation window (the toplevel whose process is the host's) is
// made fullscreen through wlr-foreign-toplevel-management, which passes the request on to that
// client as xdg-shell's fullscreen state. No Wayland protocol keeps one window above the others
// ("above" is fullscreen alone) or lets another client take the keyboard: the keyboard is held
// by the host, for its own window.
//
// A kiosk compositor (cage) shows its one application fullscreen and offers no toplevel manager:
// there the fullscreen levels are already what they ask for.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>

#include "platform/kiosk.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_windows.h"

namespace tessel::platform {
namespace {

using wayland::WaylandConnection;

constexpr auto kDeadline = std::chrono::milliseconds(2000);

// The program name of the compositor at the other end of the connection.
std::string compositorName(const WaylandConnection& connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(connection.fd(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0)
    return "";
  std::string name;
  std::getline(std::ifstream("/proc/" + std::to_string(peer.pid) + "/comm"), name);
  return name;
}

class WaylandKioskService : public KioskService {
 public:
  bool setStageLayer(StageLayer layer) override {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    auto left = [&] {
      return std::max(std::chrono::milliseconds(0),
                      std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now()));
    };
    auto connection = WaylandConnection::open(left());
    if (!connection) return false;
    auto toplevels = wayland::Toplevels::create(*connection);
    if (!toplevels) return compositorName(*connection) == "cage";
    if (!connection->roundtrip(left())) return false;
    const int32_t self = static_cast<int32_t>(getpid());
    for (const ManagedWindow& w : toplevels->windows()) {
      if (w.pid != self) continue;
      bool done = toplevels->setFullscreen(w.id, layer != StageLayer::Normal);
      return done && connection->roundtrip(left());
    }
    return false;
  }

  bool holdKeyboard(bool hold) override { return holdKeyboardThroughHost(hold); }
};

}  // namespace

std::unique_ptr<KioskService> backends::makeWaylandKioskService() {
  return std::make_unique<WaylandKioskService>();
}

}  // namespace tessel::platform
