// The module's connections to the X server.
//
// Xlib's default error handlers print and exit, which would end the host. Every connection the
// module opens goes through `X11Connection`, which installs handlers that record the error
// instead: protocol errors are collected by an `X11ErrorTrap` around the requests that may fail,
// and a lost connection marks the connection dead so that every later call fails at once.
#pragma once

#include <X11/Xlib.h>

#include <memory>
#include <string>

namespace tessel::platform::x11 {

class X11Connection {
 public:
  // Opens a connection to $DISPLAY; null when there is no display or it cannot be reached
  // (a Wayland-only session, a stopped server).
  static std::unique_ptr<X11Connection> open();
  ~X11Connection();
  X11Connection(const X11Connection&) = delete;
  X11Connection& operator=(const X11Connection&) = delete;

  Display* display() const { return display_; }
  // False once the server connection broke; the object must then be dropped.
  bool alive() const;

 private:
  explicit X11Connection(Display* display) : display_(display) {}
  Display* display_;
};

// Collects the protocol errors of the requests made while it lives, on one connection. Scopes nest.
class X11ErrorTrap {
 public:
  explicit X11ErrorTrap(Display* display);
  ~X11ErrorTrap();
  X11ErrorTrap(const X11ErrorTrap&) = delete;
  X11ErrorTrap& operator=(const X11ErrorTrap&) = delete;

  // Syncs with the server and answers the first error code seen (0 when none).
  int sync();

 private:
  Display* display_;
  X11ErrorTrap* outer_;
  unsigned long firstSerial_;
  int error_ = 0;
  friend int recordError(Display*, XErrorEvent*);
};

// Whether a display is configured at all ($DISPLAY set and not empty).
bool displayConfigured();

}  // namespace tessel::platform::x11
