#include "platform/linux/x11_connection.h"

#include <cstdlib>
#include <set>

namespace tessel::platform::x11 {

int recordError(Display* display, XErrorEvent* event);

namespace {

// The innermost trap; errors outside any trap are ignored (a window that vanished between two
// requests is normal life for a client looking at other programs' windows).
X11ErrorTrap* currentTrap = nullptr;

// Connections whose transport broke. Xlib calls the exit handler instead of exiting when one is
// set; from then on the Display answers every request with an error, so it is only marked here.
std::set<Display*>& deadConnections() {
  static std::set<Display*> dead;
  return dead;
}

int ioError(Display*) { return 0; }

void ioErrorExit(Display* display, void*) { deadConnections().insert(display); }

void installHandlers() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  XSetErrorHandler(recordError);
  XSetIOErrorHandler(ioError);
}

}  // namespace

int recordError(Display* display, XErrorEvent* event) {
  for (X11ErrorTrap* trap = currentTrap; trap != nullptr; trap = trap->outer_) {
    // Only errors of requests made while the trap lives: an error of an earlier request that
    // arrives late belongs to no trap.
    if (trap->display_ == display && event->serial >= trap->firstSerial_) {
      if (trap->error_ == 0) trap->error_ = event->error_code;
      break;
    }
  }
  return 0;
}

bool displayConfigured() {
  const char* name = std::getenv("DISPLAY");
  return name != nullptr && *name != '\0';
}

std::unique_ptr<X11Connection> X11Connection::open() {
  if (!displayConfigured()) return nullptr;
  installHandlers();
  Display* display = XOpenDisplay(nullptr);
  if (display == nullptr) return nullptr;
  XSetIOErrorExitHandler(display, ioErrorExit, nullptr);
  return std::unique_ptr<X11Connection>(new X11Connection(display));
}

X11Connection::~X11Connection() {
  bool dead = deadConnections().erase(display_) > 0;
  // A broken connection is still closed: XCloseDisplay frees the Display without talking to the
  // server once the transport is gone.
  (void)dead;
  XCloseDisplay(display_);
}

bool X11Connection::alive() const { return deadConnections().count(display_) == 0; }

X11ErrorTrap::X11ErrorTrap(Display* display)
    : display_(display), outer_(currentTrap), firstSerial_(display != nullptr ? NextRequest(display) : 0) {
  installHandlers();
  currentTrap = this;
}

X11ErrorTrap::~X11ErrorTrap() {
  if (display_ != nullptr && deadConnections().count(display_) == 0) XSync(display_, False);
  currentTrap = outer_;
}

int X11ErrorTrap::sync() {
  if (deadConnections().count(display_) == 0) XSync(display_, False);
  return error_;
}

}  // namespace tessel::platform::x11
