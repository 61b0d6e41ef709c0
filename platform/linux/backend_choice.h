// Which Linux backend a desktop-facing service uses: X11 or a wlroots Wayland compositor.
//
// The rule, in one place: TESSEL_BACKEND=x11 or TESSEL_BACKEND=wayland forces one; otherwise the
// Wayland backend when $WAYLAND_DISPLAY is set and the compositor offers the globals the service
// needs (even when an XWayland $DISPLAY is set too: it shows only X clients); otherwise X11 as
// before. A Wayland desktop that offers none of these protocols (GNOME, KDE) gets the X11 backend,
// which answers failure values at once where no X display is reachable; a backend for another
// desktop's own protocols would be one more branch of `choose`.
//
// The services' factories (make<Service>Service in platform/) pick through `pick` here; each
// backend has its own factory below.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/linux/wayland_connection.h"

namespace tessel::platform {

class DesktopService;
class DisplayService;
class ClipboardService;
class KioskService;

namespace backends {

enum class Backend { X11, Wayland };

// What a service's Wayland backend needs of the compositor, judged on its globals.
using Needs = std::function<bool(const std::vector<wayland::Global>&)>;
// Whether `globals` hold `interface` at `version` or above.
bool offers(const std::vector<wayland::Global>& globals, std::string_view interface,
            uint32_t version = 1);

// The rule on its inputs: `forced` is $TESSEL_BACKEND (null when unset), `waylandSocket` the
// socket $WAYLAND_DISPLAY names ("" when none), `compositorFits` asked only when it matters.
Backend choose(const char* forced, std::string_view waylandSocket,
               const std::function<bool()>& compositorFits);
// The rule for this process: asks the compositor for its globals (a connection of its own, closed
// again; one that does not answer within a second offers nothing).
Backend chooseFor(const Needs& needs);

// Calls `wayland` when the rule picks Wayland for `needs` and there is such a backend (not null),
// else `x11`.
template <typename Service>
std::unique_ptr<Service> pick(std::unique_ptr<Service> (*x11)(), std::unique_ptr<Service> (*wayland)(),
                              const Needs& needs) {
  if (wayland != nullptr && chooseFor(needs) == Backend::Wayland) return wayland();
  return x11();
}

// ---- The backends' factories --------------------------------------------------------------------
std::unique_ptr<DesktopService> makeX11DesktopService();
std::unique_ptr<DisplayService> makeX11DisplayService();
std::unique_ptr<ClipboardService> makeX11ClipboardService();
std::unique_ptr<KioskService> makeX11KioskService();
// Each defined beside its Wayland backend, and named in backend_choice.cpp once it exists.
std::unique_ptr<DesktopService> makeWaylandDesktopService();
std::unique_ptr<DisplayService> makeWaylandDisplayService();
std::unique_ptr<ClipboardService> makeWaylandClipboardService();
std::unique_ptr<KioskService> makeWaylandKioskService();

}  // namespace backends
}  // namespace tessel::platform
