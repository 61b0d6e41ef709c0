// The kiosk service: EWMH window states on the host's own top-level window (the client whose
// _NET_WM_PID is this process), and the keyboard held through the host's X connection.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <unistd.h>

#include "platform/kiosk.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/x11_connection.h"

namespace tessel::platform {
namespace {

using x11::X11Connection;
using x11::X11ErrorTrap;

std::function<bool(bool)>& keyboardHolder() {
  static std::function<bool(bool)> holder;
  return holder;
}

// The host's presentation window: the first managed client that belongs to this process.
Window hostWindow(Display* d) {
  Window root = DefaultRootWindow(d);
  Atom clientList = XInternAtom(d, "_NET_CLIENT_LIST", False);
  Atom pidAtom = XInternAtom(d, "_NET_WM_PID", False);
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  X11ErrorTrap trap(d);
  if (XGetWindowProperty(d, root, clientList, 0, 4096, False, XA_WINDOW, &type, &format, &count,
                         &after, &data) != Success ||
      data == nullptr)
    return None;
  Window found = None;
  auto* windows = reinterpret_cast<unsigned long*>(data);
  auto self = static_cast<unsigned long>(getpid());
  for (unsigned long i = 0; i < count && found == None; ++i) {
    unsigned char* pid = nullptr;
    unsigned long n = 0;
    if (XGetWindowProperty(d, windows[i], pidAtom, 0, 1, False, XA_CARDINAL, &type, &format, &n,
                           &after, &pid) == Success &&
        pid != nullptr && n == 1 && *reinterpret_cast<unsigned long*>(pid) == self)
      found = windows[i];
    if (pid != nullptr) XFree(pid);
  }
  XFree(data);
  return found;
}

void changeState(Display* d, Window w, bool add, Atom first, Atom second) {
  Atom wmState = XInternAtom(d, "_NET_WM_STATE", False);
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = w;
  event.xclient.message_type = wmState;
  event.xclient.format = 32;
  event.xclient.data.l[0] = add ? 1 : 0;  // _NET_WM_STATE_ADD / _REMOVE
  event.xclient.data.l[1] = static_cast<long>(first);
  event.xclient.data.l[2] = static_cast<long>(second);
  event.xclient.data.l[3] = 1;  // from a normal application
  XSendEvent(d, DefaultRootWindow(d), False, SubstructureRedirectMask | SubstructureNotifyMask,
             &event);
}

class LinuxKioskService : public KioskService {
 public:
  bool setStageLayer(StageLayer layer) override {
    auto conn = X11Connection::open();
    if (!conn) return false;
    Display* d = conn->display();
    Window w = hostWindow(d);
    if (w == None) return false;
    Atom fullscreen = XInternAtom(d, "_NET_WM_STATE_FULLSCREEN", False);
    Atom above = XInternAtom(d, "_NET_WM_STATE_ABOVE", False);
    X11ErrorTrap trap(d);
    switch (layer) {
      case StageLayer::Normal: changeState(d, w, false, fullscreen, above); break;
      case StageLayer::Fullscreen:
        changeState(d, w, false, above, None);
        changeState(d, w, true, fullscreen, None);
        break;
      case StageLayer::OnTop: changeState(d, w, true, fullscreen, above); break;
    }
    return trap.sync() == 0;
  }

  bool holdKeyboard(bool hold) override { return holdKeyboardThroughHost(hold); }
};

}  // namespace

void setKeyboardHolder(std::function<bool(bool)> holder) { keyboardHolder() = std::move(holder); }

bool holdKeyboardThroughHost(bool hold) {
  auto& holder = keyboardHolder();
  return holder && holder(hold);
}

std::unique_ptr<KioskService> backends::makeX11KioskService() {
  return std::make_unique<LinuxKioskService>();
}

}  // namespace tessel::platform
