#include "host/tessel/wayland_stage.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "keyboard-shortcuts-inhibit-unstable-v1-client-protocol.h"
#include "xdg-shell-client-protocol.h"

namespace tessel::runner {
namespace {

using Clock = std::chrono::steady_clock;

// A round trip that gives up at `deadline`, so that a compositor that stops answering cannot hold
// the message window.
bool roundtrip(wl_display* display, Clock::time_point deadline) {
  bool done = false;
  static const wl_callback_listener listener{
      [](void* data, wl_callback*, uint32_t) { *static_cast<bool*>(data) = true; }};
  wl_callback* callback = wl_display_sync(display);
  wl_callback_add_listener(callback, &listener, &done);
  bool ok = true;
  while (ok && !done) {
    while (wl_display_prepare_read(display) != 0) wl_display_dispatch_pending(display);
    wl_display_flush(display);
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd pfd{wl_display_get_fd(display), POLLIN, 0};
    if (left.count() <= 0 || poll(&pfd, 1, static_cast<int>(left.count())) <= 0) {
      wl_display_cancel_read(display);
      ok = false;
    } else {
      ok = wl_display_read_events(display) == 0 && wl_display_dispatch_pending(display) >= 0;
    }
  }
  wl_callback_destroy(callback);
  return ok;
}

}  // namespace

struct WaylandStage::Parts {
  wl_display* display = nullptr;
  wl_registry* registry = nullptr;
  wl_compositor* compositor = nullptr;
  wl_shm* shm = nullptr;
  wl_seat* seat = nullptr;
  xdg_wm_base* shell = nullptr;
  zwp_keyboard_shortcuts_inhibit_manager_v1* inhibitManager = nullptr;
  zwp_keyboard_shortcuts_inhibitor_v1* inhibitor = nullptr;
  wl_surface* surface = nullptr;
  xdg_surface* xdgSurface = nullptr;
  xdg_toplevel* toplevel = nullptr;
  wl_buffer* buffer = nullptr;
  int width = 0, height = 0;                // asked for at --stage
  int pendingWidth = 0, pendingHeight = 0;  // the compositor's last suggestion
  bool configured = false;
  int stop = -1;  // an eventfd that ends the thread
  std::thread thread;
  std::mutex mutex;  // the inhibitor, between the host's thread and the event thread

  ~Parts() {
    if (thread.joinable()) {
      uint64_t one = 1;
      (void)!write(stop, &one, sizeof one);
      thread.join();
    }
    if (stop >= 0) close(stop);
    if (display == nullptr) return;
    if (inhibitor != nullptr) zwp_keyboard_shortcuts_inhibitor_v1_destroy(inhibitor);
    if (toplevel != nullptr) xdg_toplevel_destroy(toplevel);
    if (xdgSurface != nullptr) xdg_surface_destroy(xdgSurface);
    if (surface != nullptr) wl_surface_destroy(surface);
    if (buffer != nullptr) wl_buffer_destroy(buffer);
    // The globals too: a proxy left at the disconnect is memory libwayland never frees.
    if (inhibitManager != nullptr) zwp_keyboard_shortcuts_inhibit_manager_v1_destroy(inhibitManager);
    if (shell != nullptr) xdg_wm_base_destroy(shell);
    if (seat != nullptr) wl_seat_destroy(seat);
    if (shm != nullptr) wl_shm_destroy(shm);
    if (compositor != nullptr) wl_compositor_destroy(compositor);
    if (registry != nullptr) wl_registry_destroy(registry);
    roundtrip(display, Clock::now() + std::chrono::seconds(1));
    wl_display_disconnect(display);
  }

  // A black buffer of the window's size (the compositor's when it chose one).
  void draw() {
    int w = pendingWidth > 0 ? pendingWidth : width, h = pendingHeight > 0 ? pendingHeight : height;
    if (w <= 0 || h <= 0 || w > 16384 || h > 16384) return;
    size_t stride = static_cast<size_t>(w) * 4, size = stride * static_cast<size_t>(h);
    int fd = memfd_create("tessel-stage", MFD_CLOEXEC);
    if (fd < 0) return;
    // A fresh memfd reads as zeros: black in XRGB8888.
    if (ftruncate(fd, static_cast<off_t>(size)) == 0) {
      wl_shm_pool* pool = wl_shm_create_pool(shm, fd, static_cast<int32_t>(size));
      if (buffer != nullptr) wl_buffer_destroy(buffer);
      buffer = wl_shm_pool_create_buffer(pool, 0, w, h, static_cast<int32_t>(stride),
                                         WL_SHM_FORMAT_XRGB8888);
      wl_shm_pool_destroy(pool);
      wl_surface_attach(surface, buffer, 0, 0);
      wl_surface_damage(surface, 0, 0, w, h);
    }
    close(fd);
  }

  void run() {
    while (true) {
      while (wl_display_prepare_read(display) != 0) wl_display_dispatch_pending(display);
      wl_display_flush(display);
      pollfd fds[2] = {{wl_display_get_fd(display), POLLIN, 0}, {stop, POLLIN, 0}};
      int n = poll(fds, 2, -1);
      if (n < 0 || (fds[1].revents & POLLIN) != 0 || (fds[0].revents & (POLLHUP | POLLERR)) != 0) {
        wl_display_cancel_read(display);
        return;
      }
      if ((fds[0].revents & POLLIN) != 0) {
        if (wl_display_read_events(display) < 0) return;
      } else {
        wl_display_cancel_read(display);
      }
      if (wl_display_dispatch_pending(display) < 0) return;
    }
  }
};

namespace {

using Parts = WaylandStage::Parts;

void onGlobal(void* data, wl_registry* registry, uint32_t name, const char* interface,
              uint32_t version) {
  auto* p = static_cast<Parts*>(data);
  auto is = [&](const wl_interface& i) { return std::strcmp(interface, i.name) == 0; };
  if (is(wl_compositor_interface) && p->compositor == nullptr)
    p->compositor = static_cast<wl_compositor*>(
        wl_registry_bind(registry, name, &wl_compositor_interface, std::min(version, 4u)));
  else if (is(wl_shm_interface) && p->shm == nullptr)
    p->shm = static_cast<wl_shm*>(wl_registry_bind(registry, name, &wl_shm_interface, 1));
  else if (is(wl_seat_interface) && p->seat == nullptr)
    p->seat = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
  else if (is(xdg_wm_base_interface) && p->shell == nullptr)
    p->shell =
        static_cast<xdg_wm_base*>(wl_registry_bind(registry, name, &xdg_wm_base_interface, 1));
  else if (is(zwp_keyboard_shortcuts_inhibit_manager_v1_interface) && p->inhibitManager == nullptr)
    p->inhibitManager = static_cast<zwp_keyboard_shortcuts_inhibit_manager_v1*>(
        wl_registry_bind(registry, name, &zwp_keyboard_shortcuts_inhibit_manager_v1_interface, 1));
}
void onGlobalRemove(void*, wl_registry*, uint32_t) {}
const wl_registry_listener kRegistry{onGlobal, onGlobalRemove};

const xdg_wm_base_listener kShell{
    [](void*, xdg_wm_base* shell, uint32_t serial) { xdg_wm_base_pong(shell, serial); }};

const xdg_surface_listener kXdgSurface{[](void* data, xdg_surface* surface, uint32_t serial) {
  auto* p = static_cast<Parts*>(data);
  xdg_surface_ack_configure(surface, serial);
  p->draw();
  wl_surface_commit(p->surface);
  p->configured = true;
}};

const xdg_toplevel_listener kToplevel{
    [](void* data, xdg_toplevel*, int32_t width, int32_t height, wl_array*) {
      auto* p = static_cast<Parts*>(data);
      p->pendingWidth = width;
      p->pendingHeight = height;
    },
    // Closing is the script's business: the window stays until tessel ends.
    [](void*, xdg_toplevel*) {}};

}  // namespace

std::unique_ptr<WaylandStage> WaylandStage::open(int width, int height) {
  wl_display* display = wl_display_connect(nullptr);
  if (display == nullptr) return nullptr;
  std::unique_ptr<WaylandStage> stage(new WaylandStage());
  stage->parts_ = std::make_unique<Parts>();
  Parts& p = *stage->parts_;
  p.display = display;
  p.width = width;
  p.height = height;
  p.registry = wl_display_get_registry(display);
  wl_registry_add_listener(p.registry, &kRegistry, &p);
  // Mapped once the first configure is answered with a buffer, within 2 seconds in all.
  const auto deadline = Clock::now() + std::chrono::seconds(2);
  if (!roundtrip(display, deadline) || p.compositor == nullptr || p.shm == nullptr ||
      p.shell == nullptr)
    return nullptr;
  xdg_wm_base_add_listener(p.shell, &kShell, &p);
  p.surface = wl_compositor_create_surface(p.compositor);
  p.xdgSurface = xdg_wm_base_get_xdg_surface(p.shell, p.surface);
  xdg_surface_add_listener(p.xdgSurface, &kXdgSurface, &p);
  p.toplevel = xdg_surface_get_toplevel(p.xdgSurface);
  xdg_toplevel_add_listener(p.toplevel, &kToplevel, &p);
  xdg_toplevel_set_title(p.toplevel, "Tessel Stage");
  xdg_toplevel_set_app_id(p.toplevel, "tessel");
  wl_surface_commit(p.surface);
  while (!p.configured)
    if (!roundtrip(display, deadline)) return nullptr;
  p.stop = eventfd(0, EFD_CLOEXEC);
  if (p.stop < 0) return nullptr;
  p.thread = std::thread([&p] { p.run(); });
  return stage;
}

WaylandStage::~WaylandStage() = default;

bool WaylandStage::holdKeyboard(bool hold) {
  Parts& p = *parts_;
  std::lock_guard<std::mutex> lock(p.mutex);
  if (p.inhibitManager == nullptr || p.seat == nullptr) return false;
  if (hold && p.inhibitor == nullptr)
    p.inhibitor = zwp_keyboard_shortcuts_inhibit_manager_v1_inhibit_shortcuts(p.inhibitManager,
                                                                              p.surface, p.seat);
  if (!hold && p.inhibitor != nullptr) {
    zwp_keyboard_shortcuts_inhibitor_v1_destroy(p.inhibitor);
    p.inhibitor = nullptr;
  }
  wl_display_flush(p.display);
  return true;
}

}  // namespace tessel::runner
