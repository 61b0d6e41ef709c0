// The module's connections to a Wayland compositor.
//
// Every wait on the compositor has a deadline: a compositor that accepts the connection and then
// stays silent (stopped, busy, wedged) must not hang a method. The waits poll the connection's
// socket themselves instead of calling libwayland's blocking round trip, so no thread is left
// behind. A connection that broke (hang-up, protocol error) stays broken: drop it and open another.
//
// The connection goes straight to the socket $WAYLAND_DISPLAY names (in $XDG_RUNTIME_DIR unless
// it is a path); it never takes $WAYLAND_SOCKET, which belongs to the host's own toolkit.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct wl_display;
struct wl_registry;
struct wl_interface;

namespace tessel::platform::wayland {

using std::chrono::milliseconds;

// A global object the compositor announces (an interface it offers, an output, a seat).
struct Global {
  uint32_t name = 0;  // the registry's name for it, what a bind names
  std::string interface;
  uint32_t version = 0;
};

class WaylandConnection {
 public:
  // Connects and lists the compositor's globals within `limit`; null when no compositor is
  // configured, it cannot be reached or it does not answer in time.
  static std::unique_ptr<WaylandConnection> open(milliseconds limit);
  // Disconnects after a bounded round trip, so that the compositor has handled every request
  // sent before the hang-up (requests still queued at a hang-up are lost); none when the last
  // round trip went unanswered.
  ~WaylandConnection();
  WaylandConnection(const WaylandConnection&) = delete;
  WaylandConnection& operator=(const WaylandConnection&) = delete;

  wl_display* display() const { return display_; }
  // The socket, for a caller's own poll (wake on events); dispatch with dispatchPending() after.
  int fd() const;
  // False once the connection broke (the compositor hung up or reported a protocol error).
  bool alive() const;

  // The globals announced so far, kept up to date by every dispatch.
  const std::vector<Global>& globals() const { return globals_; }
  // The highest version of `interface` the compositor offers; 0 when it offers none.
  uint32_t offered(std::string_view interface) const;
  // Binds the first global of `interface` at the lower of the offered version and `version`; null
  // when the compositor offers none, or only below `minVersion`.
  void* bind(const wl_interface& interface, uint32_t minVersion, uint32_t version);
  template <typename Proxy>
  Proxy* bind(const wl_interface& interface, uint32_t minVersion, uint32_t version) {
    return static_cast<Proxy*>(bind(interface, minVersion, version));
  }
  // Binds global `name` (one of globals()) as `interface` at `version` (at most the offered one).
  void* bindName(uint32_t name, const wl_interface& interface, uint32_t version);
  // Called with each global announced after open() (an output plugged in); set it before the
  // next dispatch. Globals removed leave globals() at once.
  void onGlobalAdded(std::function<void(const Global&)> added) { added_ = std::move(added); }

  // Sends what is queued and waits until the compositor has handled it and every event it sent
  // before has been dispatched. False on time-out or a broken connection.
  bool roundtrip(milliseconds limit);
  // Dispatches events until `done()` answers true (asked first, and after every batch). False
  // when `limit` passes first or the connection breaks.
  bool dispatchUntil(const std::function<bool()>& done, milliseconds limit);
  // Dispatches whatever has arrived, without waiting; false when the connection is broken.
  bool dispatchPending();
  // Sends what is queued, waiting up to `limit` while the socket is full.
  bool flush(milliseconds limit);

 private:
  explicit WaylandConnection(wl_display* display) : display_(display) {}
  static void global(void* data, wl_registry* registry, uint32_t name, const char* interface,
                     uint32_t version);
  static void globalRemove(void* data, wl_registry* registry, uint32_t name);

  wl_display* display_;
  wl_registry* registry_ = nullptr;
  std::vector<Global> globals_;
  std::function<void(const Global&)> added_;
  bool answering_ = false;  // the last round trip was answered in time
};

// The socket path $WAYLAND_DISPLAY names ("" when it is unset, empty or too long for a socket
// address): a path as it is, a name inside $XDG_RUNTIME_DIR.
std::string socketPath();

}  // namespace tessel::platform::wayland
