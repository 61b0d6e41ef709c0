// The desktop service on Linux: processes through /proc and pidfds (linux_processes.cpp), the
// window manager's clients on X (x11_windows.cpp), keys and buttons through XTest with the
// current XKB layout (x11_input.cpp). This file holds the one X connection they share and the
// wait loop that sleeps on both the connection and a process.
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <optional>

#include "platform/desktop.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/linux_processes.h"
#include "platform/linux/x11_connection.h"
#include "platform/linux/x11_input.h"
#include "platform/linux/x11_windows.h"

namespace tessel::platform {
namespace {

using processes::monotonicMicroseconds;
using x11::X11Connection;

class LinuxDesktop final : public processes::ProcessDesktop {
 public:
  ~LinuxDesktop() override { closeConnection(); }

  // ---- Waits (a round polls the display connection and the process's pidfd) ------------------
  void waitRound(int32_t pid, int milliseconds) override {
    Display* dpy = display();
    if (dpy != nullptr && XPending(dpy) > 0) {
      x11::drainEvents(dpy);
      return;
    }
    const int watchedFd = watchedPidfd(pid);
    std::array<pollfd, 2> fds{};
    nfds_t count = 0;
    if (dpy != nullptr) fds[count++] = {ConnectionNumber(dpy), POLLIN, 0};
    if (watchedFd >= 0) fds[count++] = {watchedFd, POLLIN, 0};
    if (count == 0) {
      timespec pause{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
      nanosleep(&pause, nullptr);
      return;
    }
    ::poll(fds.data(), count, milliseconds);
    if (dpy != nullptr) x11::drainEvents(dpy);
  }

  // ---- Windows --------------------------------------------------------------------------------
  bool displayAvailable() override { return display() != nullptr; }
  std::vector<ManagedWindow> clientWindows() override {
    return display() != nullptr ? windows_->clientWindows() : std::vector<ManagedWindow>{};
  }
  std::vector<WindowId> stackingOrder() override {
    return display() != nullptr ? windows_->stackingOrder() : std::vector<WindowId>{};
  }
  WindowId activeWindow() override { return display() != nullptr ? windows_->activeWindow() : 0; }
  bool activate(WindowId window, int waitMs) override {
    return display() != nullptr && windows_->activate(window, waitMs);
  }
  bool requestClose(WindowId window) override {
    return display() != nullptr && windows_->requestClose(window);
  }

  // ---- Input ----------------------------------------------------------------------------------
  bool postKeys(const std::vector<KeyEvent>& events) override {
    return display() != nullptr && input_->postKeys(events);
  }
  bool anyKeyDown(const std::vector<uint32_t>& keysyms) override {
    return display() != nullptr && input_->anyKeyDown(keysyms);
  }
  bool click(int button) override {
    return display() != nullptr && input_->click(windows_->root(), button);
  }

 private:
  // The connection, opened on first use and again after it broke; null without a display.
  Display* display() {
    if (connection_ && !connection_->alive()) closeConnection();
    if (!connection_) {
      // Not retried within the same second: a missing display would cost a connect per call.
      const uint32_t now = monotonicMicroseconds();
      if (triedOpen_ && now - lastOpenAttempt_ < 1000000) return nullptr;
      triedOpen_ = true;
      lastOpenAttempt_ = now;
      connection_ = X11Connection::open();
      if (!connection_) return nullptr;
      windows_.emplace(connection_->display());
      input_.emplace(connection_->display());
    }
    Display* dpy = connection_->display();
    // Notifications read in passing (the root's property changes) are only wake-ups for the
    // wait loop; they are dropped here so that the queue stays short between calls.
    while (XQLength(dpy) > 0) {
      XEvent event;
      XNextEvent(dpy, &event);
    }
    return dpy;
  }

  void closeConnection() {
    input_.reset();
    windows_.reset();
    connection_.reset();
  }

  std::unique_ptr<X11Connection> connection_;
  std::optional<x11::X11Windows> windows_;  // while connection_ is open
  std::optional<x11::X11Input> input_;      // likewise; its key bindings go with the connection
  bool triedOpen_ = false;
  uint32_t lastOpenAttempt_ = 0;
};

}  // namespace

std::unique_ptr<DesktopService> backends::makeX11DesktopService() { return std::make_unique<LinuxDesktop>(); }

}  // namespace tessel::platform
