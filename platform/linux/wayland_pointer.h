// A pointer of the module's own on a wlroots compositor (zwlr_virtual_pointer_v1): moves to a place
// in the output layout and presses buttons there, as a mouse plugged into the first seat would.
//
// The compositor does not tell a client where the pointer is, so a click lands wherever the
// pointer was last put (by the user or by moveTo). Made once and kept, as a seat that had no
// pointer makes clients bind theirs only when this one appears.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_seat.h"

struct zwlr_virtual_pointer_v1;

namespace tessel::platform::wayland {

// The bounding box of the outputs in layout coordinates (their logical positions and sizes, as
// xdg-output reports them; wl_output's modes where it is not offered).
struct LayoutBox {
  int32_t x = 0, y = 0, width = 0, height = 0;
};
std::optional<LayoutBox> layoutBox(WaylandConnection& connection);

class VirtualPointer {
 public:
  // A pointer on the compositor's first seat; null when it offers no virtual pointers or no seat.
  // `connection` must outlive it.
  static std::unique_ptr<VirtualPointer> create(WaylandConnection& connection);
  ~VirtualPointer();
  VirtualPointer(const VirtualPointer&) = delete;
  VirtualPointer& operator=(const VirtualPointer&) = delete;

  // Puts the pointer at (x, y) of the layout; false outside every output or when not delivered.
  bool moveTo(int32_t x, int32_t y);
  // Presses and releases button 1 (left), 2 (middle) or 3 (right) where the pointer is (this
  // pointer never holds a button between calls). True once the compositor has handled them.
  bool click(int button);

 private:
  VirtualPointer(WaylandConnection& connection, std::unique_ptr<Seat> seat, zwlr_virtual_pointer_v1* pointer);
  WaylandConnection& connection_;
  std::unique_ptr<Seat> seat_;
  zwlr_virtual_pointer_v1* pointer_;
};

}  // namespace tessel::platform::wayland
