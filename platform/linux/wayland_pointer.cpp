#include "platform/linux/wayland_pointer.h"

#include <linux/input-event-codes.h>
#include <time.h>
#include <wayland-client.h>

#include <algorithm>
#include <vector>

#include "platform/linux/wayland_seat.h"
#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"
#include "xdg-output-unstable-v1-client-protocol.h"

namespace tessel::platform::wayland {
namespace {

using namespace std::chrono_literals;

// One output's place as its events describe it.
struct OutputPlace {
  wl_output* output = nullptr;
  zxdg_output_v1* xdg = nullptr;
  int32_t x = 0, y = 0, width = 0, height = 0;  // wl_output: position and current mode
  int32_t lx = 0, ly = 0, lwidth = 0, lheight = 0;  // xdg-output: the logical rectangle
};

void outputGeometry(void* data, wl_output*, int32_t x, int32_t y, int32_t, int32_t, int32_t,
                    const char*, const char*, int32_t) {
  auto* place = static_cast<OutputPlace*>(data);
  place->x = x;
  place->y = y;
}
void outputMode(void* data, wl_output*, uint32_t flags, int32_t width, int32_t height, int32_t) {
  auto* place = static_cast<OutputPlace*>(data);
  if (!(flags & WL_OUTPUT_MODE_CURRENT)) return;
  place->width = width;
  place->height = height;
}
void outputDone(void*, wl_output*) {}
void outputScale(void*, wl_output*, int32_t) {}
const wl_output_listener kOutputListener = {
    .geometry = outputGeometry, .mode = outputMode, .done = outputDone, .scale = outputScale};

void logicalPosition(void* data, zxdg_output_v1*, int32_t x, int32_t y) {
  auto* place = static_cast<OutputPlace*>(data);
  place->lx = x;
  place->ly = y;
}
void logicalSize(void* data, zxdg_output_v1*, int32_t width, int32_t height) {
  auto* place = static_cast<OutputPlace*>(data);
  place->lwidth = width;
  place->lheight = height;
}
void xdgDone(void*, zxdg_output_v1*) {}
void xdgName(void*, zxdg_output_v1*, const char*) {}
void xdgDescription(void*, zxdg_output_v1*, const char*) {}
const zxdg_output_v1_listener kXdgOutputListener = {.logical_position = logicalPosition,
                                                    .logical_size = logicalSize,
                                                    .done = xdgDone,
                                                    .name = xdgName,
                                                    .description = xdgDescription};

}  // namespace

std::optional<LayoutBox> layoutBox(WaylandConnection& connection) {
  std::vector<OutputPlace> places;
  places.reserve(connection.globals().size());
  auto* manager = connection.bind<zxdg_output_manager_v1>(zxdg_output_manager_v1_interface, 1, 3);
  for (const Global& g : connection.globals()) {
    if (g.interface != "wl_output") continue;
    auto* output = static_cast<wl_output*>(connection.bindName(g.name, wl_output_interface, 2));
    if (output == nullptr) continue;
    places.push_back({output});
  }
  for (OutputPlace& place : places) {
    wl_output_add_listener(place.output, &kOutputListener, &place);
    if (manager != nullptr) {
      place.xdg = zxdg_output_manager_v1_get_xdg_output(manager, place.output);
      zxdg_output_v1_add_listener(place.xdg, &kXdgOutputListener, &place);
    }
  }
  const bool answered = connection.roundtrip(1s);
  std::optional<LayoutBox> box;
  int32_t right = 0, bottom = 0;
  for (OutputPlace& place : places) {
    const bool logical = place.lwidth > 0 && place.lheight > 0;
    const int32_t x = logical ? place.lx : place.x, y = logical ? place.ly : place.y;
    const int32_t w = logical ? place.lwidth : place.width, h = logical ? place.lheight : place.height;
    if (place.xdg != nullptr) zxdg_output_v1_destroy(place.xdg);
    wl_output_destroy(place.output);
    if (!answered || w <= 0 || h <= 0) continue;
    if (!box) {
      box = LayoutBox{x, y, 0, 0};
      right = x + w;
      bottom = y + h;
    }
    box->x = std::min(box->x, x);
    box->y = std::min(box->y, y);
    right = std::max(right, x + w);
    bottom = std::max(bottom, y + h);
  }
  if (manager != nullptr) zxdg_output_manager_v1_destroy(manager);
  if (box) {
    box->width = right - box->x;
    box->height = bottom - box->y;
  }
  return box;
}

std::unique_ptr<VirtualPointer> VirtualPointer::create(WaylandConnection& connection) {
  auto* manager = connection.bind<zwlr_virtual_pointer_manager_v1>(
      zwlr_virtual_pointer_manager_v1_interface, 1, 1);
  if (manager == nullptr) return nullptr;
  std::unique_ptr<Seat> seat = Seat::bind(connection);
  zwlr_virtual_pointer_v1* pointer =
      seat ? zwlr_virtual_pointer_manager_v1_create_virtual_pointer(manager, seat->proxy()) : nullptr;
  zwlr_virtual_pointer_manager_v1_destroy(manager);
  if (pointer == nullptr) return nullptr;
  std::unique_ptr<VirtualPointer> made(new VirtualPointer(connection, std::move(seat), pointer));
  const bool hadPointer = made->seat_->capabilities() & WL_SEAT_CAPABILITY_POINTER;
  if (!connection.roundtrip(1s) || !made->seat_->settleNewDevice(WL_SEAT_CAPABILITY_POINTER, hadPointer))
    return nullptr;
  return made;
}

VirtualPointer::VirtualPointer(WaylandConnection& connection, std::unique_ptr<Seat> seat,
                               zwlr_virtual_pointer_v1* pointer)
    : connection_(connection), seat_(std::move(seat)), pointer_(pointer) {}

VirtualPointer::~VirtualPointer() {
  zwlr_virtual_pointer_v1_destroy(pointer_);
  seat_.reset();
  connection_.flush(200ms);
}

bool VirtualPointer::moveTo(int32_t x, int32_t y) {
  const std::optional<LayoutBox> box = layoutBox(connection_);
  if (!box || x < box->x || y < box->y || x >= box->x + box->width || y >= box->y + box->height)
    return false;
  zwlr_virtual_pointer_v1_motion_absolute(pointer_, eventTimeMs(), static_cast<uint32_t>(x - box->x),
                                          static_cast<uint32_t>(y - box->y),
                                          static_cast<uint32_t>(box->width),
                                          static_cast<uint32_t>(box->height));
  zwlr_virtual_pointer_v1_frame(pointer_);
  return connection_.roundtrip(1s);
}

bool VirtualPointer::click(int button) {
  static constexpr uint32_t kCodes[4] = {0, BTN_LEFT, BTN_MIDDLE, BTN_RIGHT};
  if (button < 1 || button > 3) return false;
  // This pointer never leaves a button down between calls, so there is nothing of its own to
  // release first; buttons of other devices are theirs.
  const uint32_t time = eventTimeMs();
  zwlr_virtual_pointer_v1_button(pointer_, time, kCodes[button], WL_POINTER_BUTTON_STATE_PRESSED);
  zwlr_virtual_pointer_v1_frame(pointer_);
  zwlr_virtual_pointer_v1_button(pointer_, time, kCodes[button], WL_POINTER_BUTTON_STATE_RELEASED);
  zwlr_virtual_pointer_v1_frame(pointer_);
  return connection_.roundtrip(1s);
}

}  // namespace tessel::platform::wayland
