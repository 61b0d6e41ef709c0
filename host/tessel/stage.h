// The presentation window of `tessel --stage WxH`: an X window of that size that stands for a
// projector's stage, on the host's own connection (in a Wayland session a native Wayland window,
// wayland_stage.h). Kiosk controls act on it, and holding the keyboard for it keeps the window
// manager's switching keys out of reach while the stage still gets every key.
#pragma once

#include <memory>

namespace tessel::runner {

class Stage {
 public:
  // Opens and maps the window, a Wayland one when $WAYLAND_DISPLAY is set (unless
  // TESSEL_BACKEND=x11), else an X one; null without a display.
  static std::unique_ptr<Stage> open(int width, int height);
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // Grabs (or releases) the keyboard for the window; false when another client holds it.
  bool holdKeyboard(bool hold);

 private:
  Stage() = default;
  void drainEvents();
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace tessel::runner
