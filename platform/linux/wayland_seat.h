// The compositor's first seat, with the devices it reports (wl_seat capabilities), for the
// module's virtual keyboard and pointer.
//
// A seat without a keyboard (a headless compositor, a kiosk without one) gains one when the
// module's virtual keyboard appears; clients then bind their wl_keyboard in answer, and keys sent
// before they have are lost to them. The same holds for a pointer.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/linux/wayland_connection.h"

struct wl_seat;

namespace tessel::platform::wayland {

// The time stamp of a virtual device's event: CLOCK_MONOTONIC in milliseconds, as the
// compositor's own input events carry it.
uint32_t eventTimeMs();

class Seat {
 public:
  // The first seat with its capabilities read; null when there is none. `connection` must
  // outlive it.
  static std::unique_ptr<Seat> bind(WaylandConnection& connection);
  ~Seat();
  Seat(const Seat&) = delete;
  Seat& operator=(const Seat&) = delete;

  wl_seat* proxy() const { return seat_; }
  // WL_SEAT_CAPABILITY_* bits as last reported.
  uint32_t capabilities() const { return capabilities_; }
  // After the module added a device of `capability` (WL_SEAT_CAPABILITY_KEYBOARD, _POINTER):
  // when the seat had none before (`hadIt` false), waits until the seat reports one and then
  // gives clients a moment to bind theirs. False when the seat never reported it.
  bool settleNewDevice(uint32_t capability, bool hadIt);

 private:
  explicit Seat(WaylandConnection& connection) : connection_(connection) {}
  static void onCapabilities(void* data, wl_seat* seat, uint32_t capabilities);
  WaylandConnection& connection_;
  wl_seat* seat_ = nullptr;
  uint32_t capabilities_ = 0;
};

}  // namespace tessel::platform::wayland
