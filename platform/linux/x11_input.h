// Synthetic keys and buttons on one X connection: XTest events for keysyms found on the current
// XKB layout, with keysyms the layout lacks bound to spare keycodes for the time they are typed
// (planned in key_binding_plan.h, applied here in one map change).
#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <vector>

#include "platform/desktop.h"
#include "platform/linux/key_binding_plan.h"

namespace tessel::platform::x11 {

class X11Input {
 public:
  // On an open connection that outlives this object.
  explicit X11Input(Display* dpy);

  bool postKeys(const std::vector<KeyEvent>& events);
  bool anyKeyDown(const std::vector<uint32_t>& keysyms);
  bool click(Window root, int button);

 private:
  Display* dpy_;
  bool hasXTest_ = false;
  // Keysyms bound to spare keycodes so far (kept between calls on this connection).
  std::vector<KeyBinding> bindings_;
};

}  // namespace tessel::platform::x11
