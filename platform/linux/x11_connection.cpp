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
// (Never destroyed: connections kept in other objects' statics close during the process's exit,
// in any order.)
std::set<Display*>& deadConnections() {
  static auto* dead = new std::set<Display*>;
  return *dead;
}

// The module's own connections. Errors on any other connection (GTK's, once a dialog started it)
// go to the handler that was installed before ours.
std::set<Display*>& moduleConnections() {
  static auto* ours = new std::set<Display*>;
  return *ours;
}

int ioError(Display* display);

// Xlib keeps one error handler and one I/O error handler for the whole process, and GTK installs
// its own when it starts, which ignore errors on connections it did not open and exit on any
// lost connection. So ours are put back before every trap and every new connection, and the
// one found in their place is kept for the connections that are not ours. Xlib's defaults (print
// and exit) are never chained to.
struct Handlers {
  XErrorHandler defaultError = nullptr;
  XIOErrorHandler defaultIo = nullptr;
  XErrorHandler otherError = nullptr;
  XIOErrorHandler otherIo = nullptr;
  bool known = false;
};

Handlers& handlers() {
  static Handlers h;
  return h;
}

void installHandlers() {
  Handlers& h = handlers();
  if (!h.known) {
    // Installing null puts Xlib's default back and answers what was there; installing ours
    // then answers the default itself.
    XErrorHandler before = XSetErrorHandler(nullptr);
    h.defaultError = XSetErrorHandler(recordError);
    h.otherError = before == h.defaultError ? nullptr : before;
    XIOErrorHandler beforeIo = XSetIOErrorHandler(nullptr);
    h.defaultIo = XSetIOErrorHandler(ioError);
    h.otherIo = beforeIo == h.defaultIo ? nullptr : beforeIo;
    h.known = true;
    return;
  }
  if (XErrorHandler found = XSetErrorHandler(recordError); found != recordError)
    h.otherError = found == h.defaultError ? nullptr : found;
  if (XIOErrorHandler found = XSetIOErrorHandler(ioError); found != ioError)
    h.otherIo = found == h.defaultIo ? nullptr : found;
}

int ioError(Display* display) {
  // Ours: return, and Xlib calls the connection's exit handler, which marks it dead.
  if (moduleConnections().count(display) == 0 && handlers().otherIo != nullptr)
    return handlers().otherIo(display);
  return 0;
}

void ioErrorExit(Display* display, void*) { deadConnections().insert(display); }

}  // namespace

int recordError(Display* display, XErrorEvent* event) {
  if (moduleConnections().count(display) == 0) {
    XErrorHandler other = handlers().otherError;
    return other != nullptr ? other(display, event) : 0;
  }
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
  moduleConnections().insert(display);
  return std::unique_ptr<X11Connection>(new X11Connection(display));
}

X11Connection::~X11Connection() {
  moduleConnections().erase(display_);
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
