// The desktop service on a wlroots compositor: processes through /proc and pidfds as on X11
// (linux_processes.cpp), the compositor's toplevels (wayland_windows.cpp), keys and buttons of
// the module's own virtual devices (wayland_keyboard.cpp, wayland_pointer.cpp). This file holds
// the one connection they share and the wait loop that sleeps on both it and a process.
//
// No Wayland protocol lets a client read the global key state: anyKeyDown answers false.
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/desktop.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/linux_processes.h"
#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_keyboard.h"
#include "platform/linux/wayland_pointer.h"
#include "platform/linux/wayland_windows.h"

namespace tessel::platform {
namespace {

using namespace std::chrono_literals;
using processes::monotonicMicroseconds;
using wayland::WaylandConnection;

class WaylandDesktop final : public processes::ProcessDesktop {
 public:
  ~WaylandDesktop() override { closeConnection(); }

  // ---- Waits (a round polls the display connection and the process's pidfd) ------------------
  void waitRound(int32_t pid, int milliseconds) override {
    WaylandConnection* wl = connection();
    // A change already read (by a call between rounds) wakes the loop at once.
    if (wl != nullptr && toplevels_ && (!wl->dispatchPending() || toplevels_->takeChanged())) return;
    const int watchedFd = watchedPidfd(pid);
    std::array<pollfd, 2> fds{};
    nfds_t count = 0;
    if (wl != nullptr) fds[count++] = {wl->fd(), POLLIN, 0};
    if (watchedFd >= 0) fds[count++] = {watchedFd, POLLIN, 0};
    if (count == 0) {
      timespec pause{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
      nanosleep(&pause, nullptr);
      return;
    }
    // Events that are not toplevel changes (a seat's capabilities) end a poll but not the round.
    const uint32_t start = monotonicMicroseconds();
    for (;;) {
      const int64_t left = milliseconds - static_cast<int64_t>(monotonicMicroseconds() - start) / 1000;
      if (left <= 0 || ::poll(fds.data(), count, static_cast<int>(left)) <= 0) return;
      if (watchedFd >= 0 && (fds[count - 1].revents & POLLIN)) return;
      if (wl == nullptr || !wl->dispatchPending() || !toplevels_ || toplevels_->takeChanged()) return;
    }
  }

  // ---- Windows --------------------------------------------------------------------------------
  bool displayAvailable() override { return connection() != nullptr; }
  std::vector<ManagedWindow> clientWindows() override {
    return refreshed() ? toplevels_->windows() : std::vector<ManagedWindow>{};
  }
  std::vector<WindowId> stackingOrder() override {
    return refreshed() ? toplevels_->stackingOrder() : std::vector<WindowId>{};
  }
  WindowId activeWindow() override { return refreshed() ? toplevels_->active() : 0; }
  bool activate(WindowId window, int waitMs) override {
    if (!refreshed() || !toplevels_->activate(window)) return false;
    connection_->dispatchUntil([&] { return toplevels_->active() == window; },
                               std::chrono::milliseconds(std::max(waitMs, 0)));
    return true;
  }
  bool requestClose(WindowId window) override { return refreshed() && toplevels_->close(window); }

  // ---- Input ----------------------------------------------------------------------------------
  bool postKeys(const std::vector<KeyEvent>& events) override {
    if (connection() == nullptr) return false;
    // Made once and kept for the session: a fresh device loses its first keys.
    if (!keyboard_) keyboard_ = wayland::VirtualKeyboard::create(*connection_);
    return keyboard_ && keyboard_->post(events);
  }
  bool anyKeyDown(const std::vector<uint32_t>&) override { return false; }
  bool click(int button) override {
    if (button < 1 || button > 3 || connection() == nullptr) return false;
    if (!pointer_) pointer_ = wayland::VirtualPointer::create(*connection_);
    return pointer_ && pointer_->click(button);
  }

 private:
  // The connection, opened on first use and again after it broke; null without a compositor.
  WaylandConnection* connection() {
    if (connection_ && !connection_->alive()) closeConnection();
    if (!connection_) {
      // Not retried within the same second: a missing compositor would cost a connect per call.
      const uint32_t now = monotonicMicroseconds();
      if (triedOpen_ && now - lastOpenAttempt_ < 1000000) return nullptr;
      triedOpen_ = true;
      lastOpenAttempt_ = now;
      connection_ = WaylandConnection::open(1s);
      if (!connection_) return nullptr;
      toplevels_ = wayland::Toplevels::create(*connection_);
      // The toplevels that exist already are announced in reply to the bind.
      if (toplevels_) connection_->roundtrip(1s);
    }
    return connection_.get();
  }

  // The toplevels as the compositor has them now. The changes this reads are seen by the caller,
  // so they wake no later wait round.
  // A compositor that stopped answering is dropped: later calls fail at once until the next
  // connection attempt (at most one a second).
  bool refreshed() {
    if (connection() == nullptr || !toplevels_) return false;
    if (!connection_->roundtrip(1s)) {
      closeConnection();
      return false;
    }
    toplevels_->takeChanged();
    return true;
  }

  void closeConnection() {
    keyboard_.reset();
    pointer_.reset();
    toplevels_.reset();
    connection_.reset();
  }

  std::unique_ptr<WaylandConnection> connection_;
  std::unique_ptr<wayland::Toplevels> toplevels_;         // while connection_ is open
  std::unique_ptr<wayland::VirtualKeyboard> keyboard_;    // likewise, made on the first keys
  std::unique_ptr<wayland::VirtualPointer> pointer_;      // likewise, made on the first click
  bool triedOpen_ = false;
  uint32_t lastOpenAttempt_ = 0;
};

}  // namespace

std::unique_ptr<DesktopService> backends::makeWaylandDesktopService() {
  return std::make_unique<WaylandDesktop>();
}

}  // namespace tessel::platform
