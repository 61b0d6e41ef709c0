#include "platform/linux/backend_choice.h"

#include <cstdlib>
#include <cstring>

#include "platform/clipboard.h"
#include "platform/desktop.h"
#include "platform/displays.h"
#include "platform/kiosk.h"

namespace tessel::platform {
namespace backends {

bool offers(const std::vector<wayland::Global>& globals, std::string_view interface, uint32_t version) {
  for (const wayland::Global& g : globals)
    if (g.interface == interface && g.version >= version) return true;
  return false;
}

Backend choose(const char* forced, std::string_view waylandSocket,
               const std::function<bool()>& compositorFits) {
  if (forced != nullptr && std::strcmp(forced, "x11") == 0) return Backend::X11;
  if (forced != nullptr && std::strcmp(forced, "wayland") == 0) return Backend::Wayland;
  if (waylandSocket.empty()) return Backend::X11;
  return compositorFits() ? Backend::Wayland : Backend::X11;
}

Backend chooseFor(const Needs& needs) {
  return choose(std::getenv("TESSEL_BACKEND"), wayland::socketPath(), [&] {
    auto connection = wayland::WaylandConnection::open(std::chrono::seconds(1));
    return connection && needs(connection->globals());
  });
}

}  // namespace backends

// The services' factories. A null Wayland factory: that service has no Wayland backend (yet).

std::unique_ptr<DesktopService> makeLinuxDesktopService() {
  // Windows, or at least keys: either makes the compositor's own view better than XWayland's.
  return backends::pick<DesktopService>(
      backends::makeX11DesktopService, backends::makeWaylandDesktopService, [](const auto& g) {
        return backends::offers(g, "zwlr_foreign_toplevel_manager_v1") ||
               backends::offers(g, "zwp_virtual_keyboard_manager_v1");
      });
}

std::unique_ptr<DisplayService> makeLinuxDisplayService() {
  return backends::pick<DisplayService>(
      backends::makeX11DisplayService, backends::makeWaylandDisplayService,
      [](const auto& g) { return backends::offers(g, "zwlr_output_manager_v1"); });
}

std::unique_ptr<ClipboardService> makeLinuxClipboardService() {
  return backends::pick<ClipboardService>(
      backends::makeX11ClipboardService, backends::makeWaylandClipboardService,
      [](const auto& g) { return backends::offers(g, "zwlr_data_control_manager_v1"); });
}

std::unique_ptr<KioskService> makeLinuxKioskService() {
  return backends::pick<KioskService>(
      backends::makeX11KioskService, backends::makeWaylandKioskService,
      [](const auto& g) { return backends::offers(g, "xdg_wm_base"); });
}

}  // namespace tessel::platform
