// Other programs' windows on a wlroots compositor, through zwlr_foreign_toplevel_manager_v1: each
// toplevel's title, app_id and activated state as the compositor announces them, activation and
// close requests.
//
// The protocol does not say which process a toplevel belongs to. The pid comes from sway's tree
// where its IPC answers (views matched by app_id and title, in the order they were mapped), else
// from the one running process whose name is the app_id among those whose environment does not
// name another compositor; otherwise it stays 0 (unknown).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/desktop.h"
#include "platform/linux/wayland_connection.h"

namespace tessel::platform::wayland {

class Toplevels {
 public:
  // Listening on `connection` (which must outlive it); null when the compositor offers no
  // toplevel manager.
  static std::unique_ptr<Toplevels> create(WaylandConnection& connection);
  ~Toplevels();
  Toplevels(const Toplevels&) = delete;
  Toplevels& operator=(const Toplevels&) = delete;

  // The toplevels the compositor has described, in the order they appeared, with their pids.
  // Call after a round trip for the latest state.
  std::vector<ManagedWindow> windows() const;
  // Bottom to top as far as known: never activated first, then by the time they were last active.
  std::vector<WindowId> stackingOrder() const;
  // The toplevel the compositor reports activated; 0 when none.
  WindowId active() const;
  // Asks for `window` to be activated on the first seat; false when it is unknown.
  bool activate(WindowId window);
  // Asks `window` to close; false when it is unknown.
  bool close(WindowId window);
  // Asks for `window` to be made fullscreen (on the output the compositor picks) or to leave
  // fullscreen; false when it is unknown or the compositor's manager is older than version 2.
  bool setFullscreen(WindowId window, bool fullscreen);
  // Whether the toplevel list changed (a title, a state, one opened or closed) since the last call.
  bool takeChanged();

  // What the protocol's events fill in (wayland_windows.cpp).
  struct Handle;
  struct Lists;

 private:
  explicit Toplevels(WaylandConnection& connection);
  WaylandConnection& connection_;
  std::unique_ptr<Lists> lists_;
};

// The pids of `windows` matched to sway views by app_id and title, in order (exposed for tests);
// 0 where no view matches.
struct SwayView;
std::vector<int32_t> matchViews(const std::vector<ManagedWindow>& windows, std::vector<SwayView> views);

}  // namespace tessel::platform::wayland
