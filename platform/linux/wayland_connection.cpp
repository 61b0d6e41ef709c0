#include "platform/linux/wayland_connection.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tessel::platform::wayland {
namespace {

using Clock = std::chrono::steady_clock;

// Milliseconds left until `deadline`, for poll(); 0 once it has passed.
int remainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
}

// A socket connected to `path`, waiting at most until `deadline` when the compositor's queue of
// pending connections is full; -1 when it cannot be reached.
int connectSocket(const std::string& path, Clock::time_point deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  int result = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result < 0 && (errno == EINPROGRESS || errno == EAGAIN)) {
    pollfd p{fd, POLLOUT, 0};
    int error = 0;
    socklen_t length = sizeof error;
    if (::poll(&p, 1, remainingMs(deadline)) == 1 &&
        ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0)
      result = 0;
  }
  // libwayland expects a blocking socket and sends with MSG_DONTWAIT itself.
  if (result < 0 || ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) < 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

void syncDone(void* data, wl_callback*, uint32_t) { *static_cast<bool*>(data) = true; }
const wl_callback_listener kSyncListener = {.done = syncDone};

}  // namespace

std::string socketPath() {
  const char* name = std::getenv("WAYLAND_DISPLAY");
  if (name == nullptr || *name == '\0') return "";
  std::string path;
  if (name[0] == '/') {
    path = name;
  } else {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr || *runtime == '\0') return "";
    path = std::string(runtime) + "/" + name;
  }
  return path.size() < sizeof(sockaddr_un::sun_path) ? path : "";
}

std::unique_ptr<WaylandConnection> WaylandConnection::open(milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  const std::string path = socketPath();
  if (path.empty()) return nullptr;
  const int fd = connectSocket(path, deadline);
  if (fd < 0) return nullptr;
  wl_display* display = wl_display_connect_to_fd(fd);
  if (display == nullptr) {
    ::close(fd);
    return nullptr;
  }
  std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display));
  static const wl_registry_listener listener = {.global = global, .global_remove = globalRemove};
  connection->registry_ = wl_display_get_registry(display);
  if (connection->registry_ == nullptr) return nullptr;
  wl_registry_add_listener(connection->registry_, &listener, connection.get());
  if (!connection->roundtrip(std::max(milliseconds(1), std::chrono::ceil<milliseconds>(deadline - Clock::now()))))
    return nullptr;
  return connection;
}

WaylandConnection::~WaylandConnection() {
  // Not when the compositor has stopped answering: that would only add another wait.
  if (alive() && answering_) roundtrip(milliseconds(500));
  if (registry_ != nullptr) wl_registry_destroy(registry_);
  wl_display_disconnect(display_);
}

int WaylandConnection::fd() const { return wl_display_get_fd(display_); }

bool WaylandConnection::alive() const { return wl_display_get_error(display_) == 0; }

void WaylandConnection::global(void* data, wl_registry*, uint32_t name, const char* interface,
                               uint32_t version) {
  auto* self = static_cast<WaylandConnection*>(data);
  self->globals_.push_back({name, interface, version});
  if (self->added_) self->added_(self->globals_.back());
}

void WaylandConnection::globalRemove(void* data, wl_registry*, uint32_t name) {
  auto& globals = static_cast<WaylandConnection*>(data)->globals_;
  std::erase_if(globals, [name](const Global& g) { return g.name == name; });
}

uint32_t WaylandConnection::offered(std::string_view interface) const {
  uint32_t best = 0;
  for (const Global& g : globals_)
    if (g.interface == interface) best = std::max(best, g.version);
  return best;
}

void* WaylandConnection::bind(const wl_interface& interface, uint32_t minVersion, uint32_t version) {
  for (const Global& g : globals_) {
    if (g.interface != interface.name || g.version < minVersion) continue;
    return bindName(g.name, interface, version);
  }
  return nullptr;
}

void* WaylandConnection::bindName(uint32_t name, const wl_interface& interface, uint32_t version) {
  if (registry_ == nullptr || !alive()) return nullptr;
  uint32_t offeredVersion = 0;
  for (const Global& g : globals_)
    if (g.name == name) offeredVersion = g.version;
  if (offeredVersion == 0) return nullptr;
  return wl_registry_bind(registry_, name, &interface, std::min(offeredVersion, version));
}

bool WaylandConnection::roundtrip(milliseconds limit) {
  bool done = false;
  wl_callback* callback = wl_display_sync(display_);
  if (callback == nullptr) return false;
  wl_callback_add_listener(callback, &kSyncListener, &done);
  const bool answered = dispatchUntil([&] { return done; }, limit);
  answering_ = answered;
  // Destroyed either way: an answer arriving after a time-out then finds no proxy to call.
  wl_callback_destroy(callback);
  return answered;
}

bool WaylandConnection::dispatchPending() {
  if (!alive()) return false;
  while (wl_display_prepare_read(display_) != 0)
    if (wl_display_dispatch_pending(display_) < 0) return false;
  pollfd p{fd(), POLLIN, 0};
  if (::poll(&p, 1, 0) == 1 && (p.revents & POLLIN)) {
    if (wl_display_read_events(display_) < 0) return false;
  } else {
    wl_display_cancel_read(display_);
  }
  return wl_display_dispatch_pending(display_) >= 0;
}

bool WaylandConnection::flush(milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (alive()) {
    if (wl_display_flush(display_) >= 0) return true;
    if (errno != EAGAIN) return false;
    pollfd p{fd(), POLLOUT, 0};
    const int wait = remainingMs(deadline);
    if (wait == 0) return false;
    if (::poll(&p, 1, wait) < 0 && errno != EINTR) return false;
  }
  return false;
}

bool WaylandConnection::dispatchUntil(const std::function<bool()>& done, milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (!done()) {
    if (!alive()) return false;
    if (wl_display_dispatch_pending(display_) < 0) return false;
    if (done()) return true;
    while (wl_display_prepare_read(display_) != 0)
      if (wl_display_dispatch_pending(display_) < 0) return false;
    // A full socket is waited on below, beside the events.
    const bool flushed = wl_display_flush(display_) >= 0;
    if (!flushed && errno != EAGAIN) {
      wl_display_cancel_read(display_);
      return false;
    }
    const int wait = remainingMs(deadline);
    pollfd p{fd(), static_cast<short>(POLLIN | (flushed ? 0 : POLLOUT)), 0};
    const int ready = wait > 0 ? ::poll(&p, 1, wait) : 0;
    if (ready > 0 && (p.revents & POLLIN)) {
      if (wl_display_read_events(display_) < 0) return false;
      continue;
    }
    wl_display_cancel_read(display_);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;  // the deadline passed
    if (p.revents & (POLLERR | POLLHUP | POLLNVAL)) return false;
  }
  return true;
}

}  // namespace tessel::platform::wayland
