// The desktop: other programs' windows as the window manager keeps them, the processes behind
// them, synthetic keys and clicks, and the keyboard state.
//
// windows/ reaches X only through this service, so the matching rules, the key language and the
// wait loop's arithmetic run against a fake in unit tests. The Linux backend talks to the X server
// (EWMH, XTest, XKB, X-Resource) through one X11Connection and reads /proc for processes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tessel::platform {

using WindowId = uint64_t;

// A top-level window that the window manager manages.
struct ManagedWindow {
  WindowId id = 0;
  int32_t pid = 0;         // the owning process on this machine; 0 when unknown or remote
  std::string wmClass;     // the class part of WM_CLASS; "" when the window has none
  std::string title;       // _NET_WM_NAME, else WM_NAME
  bool acceptsDelete = false;  // WM_DELETE_WINDOW is listed in WM_PROTOCOLS
};

enum class KeyAction : uint8_t { Down, Up, Tap };

// One key event by keysym: the backend finds the key and level that give it on the current
// layout and presses that level's modifiers around a Tap.
struct KeyEvent {
  uint32_t keysym = 0;
  KeyAction action = KeyAction::Tap;
  bool operator==(const KeyEvent&) const = default;
};

class DesktopService {
 public:
  virtual ~DesktopService() = default;

  // ---- Processes (no display needed) ------------------------------------------------------------
  virtual int32_t ownPid() = 0;
  // Running and not yet ended (a zombie has ended).
  virtual bool processAlive(int32_t pid) = 0;
  // The executable (/proc/PID/exe); "" when it cannot be read.
  virtual std::string executablePath(int32_t pid) = 0;
  // The process's own short name (/proc/PID/comm), for when the executable cannot be read.
  virtual std::string commandName(int32_t pid) = 0;
  // SIGTERM, only to a live process of the calling user.
  virtual bool terminate(int32_t pid) = 0;
  // Low 32 bits of the monotonic clock in microseconds.
  virtual uint32_t microseconds() = 0;
  // Sleeps up to `milliseconds`, woken early by X notifications the service asked for
  // (active-window changes) and by the end of process `pid` (0: none).
  virtual void waitRound(int32_t pid, int milliseconds) = 0;

  // ---- Windows (false / empty without a display) -------------------------------------------------
  virtual bool displayAvailable() = 0;
  // The managed windows, in the order they were first managed.
  virtual std::vector<ManagedWindow> clientWindows() = 0;
  // The managed windows bottom to top.
  virtual std::vector<WindowId> stackingOrder() = 0;
  // The window the manager reports active (it may no longer be managed); 0 when none.
  virtual WindowId activeWindow() = 0;
  // Asks the manager to activate (and de-iconify) `window`, then waits up to `waitMs` until it
  // reports it active. False when the request could not be sent.
  virtual bool activate(WindowId window, int waitMs) = 0;
  // Asks `window` to close through WM_DELETE_WINDOW.
  virtual bool requestClose(WindowId window) = 0;

  // ---- Input ----------------------------------------------------------------------------------------
  // Posts the events in order, with no delays, and releases everything still held at the end.
  virtual bool postKeys(const std::vector<KeyEvent>& events) = 0;
  // Whether any key that gives one of `keysyms` on the current layout is down.
  virtual bool anyKeyDown(const std::vector<uint32_t>& keysyms) = 0;
  // Button 1, 2 or 3 pressed and released where the pointer is; the other two of them are
  // released first when they are down.
  virtual bool click(int button) = 0;
};

// The service in use: the Linux backend unless a test installed another.
DesktopService& desktopService();
// Installs `service` (nullptr restores the Linux backend) and returns the one it replaces.
std::unique_ptr<DesktopService> setDesktopService(std::unique_ptr<DesktopService> service);
std::unique_ptr<DesktopService> makeLinuxDesktopService();

}  // namespace tessel::platform
