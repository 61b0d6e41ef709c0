// The presentation window of `tessel --stage WxH` in a Wayland session: an xdg-shell toplevel
// ("Tessel Stage", app_id "tessel") on a connection of its own, kept answering the compositor
// (configures, pings) by a thread of its own, since the message window runs no event loop between
// statements. Kiosk controls find it among the compositor's toplevels by its process; holding the
// keyboard for it inhibits the compositor's own shortcuts while it has the focus.
#pragma once

#include <memory>

namespace tessel::runner {

class WaylandStage {
 public:
  // Opens and maps the window; null without a compositor that offers xdg-shell.
  static std::unique_ptr<WaylandStage> open(int width, int height);
  ~WaylandStage();
  WaylandStage(const WaylandStage&) = delete;
  WaylandStage& operator=(const WaylandStage&) = delete;

  // Inhibits (or gives back) the compositor's shortcuts for the window; false when the
  // compositor offers no such inhibition.
  bool holdKeyboard(bool hold);

  struct Parts;

 private:
  WaylandStage() = default;
  std::unique_ptr<Parts> parts_;
};

}  // namespace tessel::runner
