#include "platform/linux/wayland_seat.h"

#include <time.h>
#include <wayland-client.h>

namespace tessel::platform::wayland {

uint32_t eventTimeMs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<uint32_t>(t.tv_sec * 1000 + t.tv_nsec / 1000000);
}

using namespace std::chrono_literals;

void Seat::onCapabilities(void* data, wl_seat*, uint32_t capabilities) {
  static_cast<Seat*>(data)->capabilities_ = capabilities;
}

std::unique_ptr<Seat> Seat::bind(WaylandConnection& connection) {
  std::unique_ptr<Seat> seat(new Seat(connection));
  seat->seat_ = connection.bind<wl_seat>(wl_seat_interface, 1, 1);
  if (seat->seat_ == nullptr) return nullptr;
  static const wl_seat_listener listener = {.capabilities = onCapabilities, .name = nullptr};
  wl_seat_add_listener(seat->seat_, &listener, seat.get());
  if (!connection.roundtrip(1s)) return nullptr;
  return seat;
}

Seat::~Seat() {
  if (seat_ != nullptr) wl_seat_destroy(seat_);
}

bool Seat::settleNewDevice(uint32_t capability, bool hadIt) {
  if (hadIt) return true;
  if (!connection_.dispatchUntil([&] { return (capabilities_ & capability) != 0; }, 1s)) return false;
  // Clients bind their device in answer to the same announcement; nothing tells when they have.
  timespec pause{0, 200 * 1000000L};
  nanosleep(&pause, nullptr);
  return true;
}

}  // namespace tessel::platform::wayland
