#include "host/tessel/stage.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string_view>

#include "host/tessel/wayland_stage.h"

namespace tessel::runner {
namespace {

// Xlib's default handler would end the message window on a protocol error.
int ignoreError(Display*, XErrorEvent*) { return 0; }

using Clock = std::chrono::steady_clock;

bool listedByWindowManager(Display* d, Window w) {
  Atom clientList = XInternAtom(d, "_NET_CLIENT_LIST", False);
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  bool found = false;
  if (XGetWindowProperty(d, DefaultRootWindow(d), clientList, 0, 4096, False, XA_WINDOW, &type,
                         &format, &count, &after, &data) == Success &&
      data != nullptr) {
    auto* windows = reinterpret_cast<unsigned long*>(data);
    for (unsigned long i = 0; i < count; ++i) found = found || windows[i] == w;
  }
  if (data != nullptr) XFree(data);
  return found;
}

}  // namespace

struct Stage::Parts {
  std::unique_ptr<WaylandStage> wayland;
  Display* display = nullptr;
  Window window = None;
  bool held = false;
};

std::unique_ptr<Stage> Stage::open(int width, int height) {
  const char* socket = std::getenv("WAYLAND_DISPLAY");
  const char* forced = std::getenv("TESSEL_BACKEND");
  if (socket != nullptr && *socket != '\0' &&
      (forced == nullptr || std::string_view(forced) != "x11")) {
    if (auto wayland = WaylandStage::open(width, height)) {
      std::unique_ptr<Stage> stage(new Stage());
      stage->parts_ = std::make_unique<Parts>();
      stage->parts_->wayland = std::move(wayland);
      return stage;
    }
  }
  XSetErrorHandler(ignoreError);
  Display* d = XOpenDisplay(nullptr);
  if (d == nullptr) return nullptr;
  std::unique_ptr<Stage> stage(new Stage());
  stage->parts_ = std::make_unique<Parts>();
  stage->parts_->display = d;
  int screen = DefaultScreen(d);
  Window w = XCreateSimpleWindow(d, RootWindow(d, screen), 0, 0, static_cast<unsigned>(width),
                                 static_cast<unsigned>(height), 0, BlackPixel(d, screen),
                                 BlackPixel(d, screen));
  stage->parts_->window = w;
  XStoreName(d, w, "Tessel Stage");
  Atom utf8 = XInternAtom(d, "UTF8_STRING", False);
  const char title[] = "Tessel Stage";
  XChangeProperty(d, w, XInternAtom(d, "_NET_WM_NAME", False), utf8, 8, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(title), sizeof title - 1);
  XClassHint hint{const_cast<char*>("tessel"), const_cast<char*>("Tessel")};
  XSetClassHint(d, w, &hint);
  long pid = getpid();
  XChangeProperty(d, w, XInternAtom(d, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(&pid), 1);
  char host[256] = {};
  if (gethostname(host, sizeof host - 1) == 0) {
    XTextProperty machine{};
    char* list[] = {host};
    if (XStringListToTextProperty(list, 1, &machine)) {
      XSetWMClientMachine(d, w, &machine);
      XFree(machine.value);
    }
  }
  XSelectInput(d, w, KeyPressMask | KeyReleaseMask | StructureNotifyMask | ExposureMask);
  XMapWindow(d, w);
  XFlush(d);

  // Ready once mapped and, when a window manager runs, listed among its clients.
  bool wm = XInternAtom(d, "_NET_SUPPORTING_WM_CHECK", True) != None;
  bool mapped = false;
  auto deadline = Clock::now() + std::chrono::seconds(2);
  while (Clock::now() < deadline) {
    while (XPending(d) > 0) {
      XEvent event;
      XNextEvent(d, &event);
      if (event.type == MapNotify && event.xmap.window == w) mapped = true;
    }
    if (mapped && (!wm || listedByWindowManager(d, w))) break;
    pollfd pfd{ConnectionNumber(d), POLLIN, 0};
    poll(&pfd, 1, 20);
  }
  return stage;
}

Stage::~Stage() {
  if (!parts_ || parts_->display == nullptr) return;  // a Wayland stage closes by itself
  if (parts_->held) XUngrabKeyboard(parts_->display, CurrentTime);
  XDestroyWindow(parts_->display, parts_->window);
  XCloseDisplay(parts_->display);
}

void Stage::drainEvents() {
  Display* d = parts_->display;
  while (XPending(d) > 0) {
    XEvent event;
    XNextEvent(d, &event);
  }
}

bool Stage::holdKeyboard(bool hold) {
  if (parts_->wayland) return parts_->wayland->holdKeyboard(hold);
  Display* d = parts_->display;
  drainEvents();
  if (!hold) {
    XUngrabKeyboard(d, CurrentTime);
    XSync(d, False);
    parts_->held = false;
    return true;
  }
  int status = XGrabKeyboard(d, parts_->window, False, GrabModeAsync, GrabModeAsync, CurrentTime);
  parts_->held = status == GrabSuccess;
  return parts_->held;
}

}  // namespace tessel::runner
