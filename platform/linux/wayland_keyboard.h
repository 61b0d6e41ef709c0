// A keyboard of the module's own on a wlroots compositor (zwp_virtual_keyboard_v1), typing keysyms.
//
// Its keymap is the default layout (the XKB_DEFAULT_* variables, else "us", as compositors pick
// theirs) with each keysym the layout lacks bound to a key the layout leaves empty, as the X11
// path binds spare keycodes. A character on a shifted level is typed with that level's modifiers
// set around its key. The device is made once and kept: on a seat that had no keyboard, clients
// bind one only once the module's appears, and keys sent before they have are lost.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "platform/desktop.h"
#include "platform/linux/wayland_connection.h"

namespace tessel::platform::wayland {

class VirtualKeyboard {
 public:
  // A keyboard on the compositor's first seat; null when it offers no virtual keyboards or no seat,
  // or no keymap can be made. `connection` must outlive it.
  static std::unique_ptr<VirtualKeyboard> create(WaylandConnection& connection);
  ~VirtualKeyboard();
  VirtualKeyboard(const VirtualKeyboard&) = delete;
  VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

  // Posts the events in order and releases everything still held at the end, on every way out;
  // true once the compositor has handled them all.
  bool post(const std::vector<KeyEvent>& events);

 private:
  struct State;
  explicit VirtualKeyboard(std::unique_ptr<State> state);
  // post() without the final release and round trip; `held` counts the keys left down (by key).
  static bool postEvents(State& s, const std::vector<KeyEvent>& events, std::map<uint32_t, int>& held);
  std::unique_ptr<State> state_;
};

}  // namespace tessel::platform::wayland
