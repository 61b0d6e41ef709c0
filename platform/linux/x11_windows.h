// Other programs' top-level windows on one X connection: the window manager's client list
// (EWMH, with an ICCCM fallback when no EWMH manager runs), their owners through X-Resource and
// _NET_WM_PID, activation and closing.
#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <array>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "platform/desktop.h"

namespace tessel::platform::x11 {

// Reads and drops every event the server has sent (the root's property changes are only
// wake-ups for the wait loops).
void drainEvents(Display* dpy);

class X11Windows {
 public:
  // Interns the atoms and makes a hidden helper window for server times, on an open connection
  // that outlives this object.
  explicit X11Windows(Display* dpy);

  Window root() const { return root_; }
  std::vector<ManagedWindow> clientWindows();
  std::vector<WindowId> stackingOrder();
  WindowId activeWindow();
  bool activate(WindowId window, int waitMs);
  bool requestClose(WindowId window);

 private:
  enum AtomIndex {
    A_NET_CLIENT_LIST,
    A_NET_CLIENT_LIST_STACKING,
    A_NET_ACTIVE_WINDOW,
    A_NET_CLOSE_WINDOW,
    A_NET_SUPPORTING_WM_CHECK,
    A_NET_WM_NAME,
    A_NET_WM_PID,
    A_UTF8_STRING,
    A_WM_PROTOCOLS,
    A_WM_DELETE_WINDOW,
    A_WM_STATE,
    A_TESSEL_TIME,
    kAtomCount
  };
  static constexpr const char* kAtomNames[kAtomCount] = {
      "_NET_CLIENT_LIST", "_NET_CLIENT_LIST_STACKING", "_NET_ACTIVE_WINDOW", "_NET_CLOSE_WINDOW",
      "_NET_SUPPORTING_WM_CHECK", "_NET_WM_NAME", "_NET_WM_PID", "UTF8_STRING", "WM_PROTOCOLS",
      "WM_DELETE_WINDOW", "WM_STATE", "_TESSEL_TIME"};

  bool ewmh();
  std::vector<WindowId> windowProperty(Window window, Atom property, Atom type);
  std::vector<WindowId> rootWindowList(Atom property) { return windowProperty(root_, property, XA_WINDOW); }
  std::vector<WindowId> icccmClients();
  bool managerRuns();
  bool hasWmState(Window window);
  WindowId icccmFocus();
  std::unordered_map<WindowId, int32_t> pidsFromServer(const std::vector<WindowId>& ids);
  Time serverTime();
  void sendToRoot(WindowId window, Atom type, std::array<long, 5> data);

  Display* dpy_;
  std::array<Atom, kAtomCount> atoms_{};
  Window root_ = 0;
  Window helper_ = 0;
  bool hasXRes_ = false;
  uint32_t resourceMask_ = 0;
  bool ewmh_ = false;
  bool ewmhKnown_ = false;
  uint32_t ewmhCheckedAt_ = 0;
};

}  // namespace tessel::platform::x11
