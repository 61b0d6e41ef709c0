// Driving the module's real windows from a test: the Lingo call runs on the test's main thread
// (where the module runs GTK) while a second thread finds the window with xdotool, looks inside
// it through GTK in-process, takes screenshots and types keys.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>
#include <vector>

#include "host/value.h"

namespace tessel::testing {

// Output of a shell command ("" when it fails).
std::string shell(const std::string& command);

// The first visible window of this process, polled until it appears (0 after the time-out).
unsigned long waitForWindow(int timeoutMs = 30000);
// Polls until the window is gone or no longer viewable.
bool waitWindowGone(unsigned long window, int timeoutMs = 5000);
// Whether the window is still viewable.
bool windowViewable(unsigned long window);
// Gives the window the focus when the window manager has not, then sends keys through XTest.
void focus(unsigned long window);
void keys(const std::string& keys);
void typeText(const std::string& text);

struct WindowGeometry {
  int x = 0, y = 0, width = 0, height = 0;
};
WindowGeometry geometryOf(unsigned long window);
// The client area (the child under the title bar) of this process's one visible GTK window, in
// screen pixels.
WindowGeometry clientAreaOnScreen();

// Runs `work` on the GTK thread, inside the dialog's own loop, and waits for it.
void onGtkThread(const std::function<void()>& work);

// What is inside the visible top-level windows: titles, buttons (label, place in the client area,
// sensitive, marked as the default action) and the texts of the labels on screen.
struct SeenButton {
  std::string label;
  int x = 0, y = 0;
  bool sensitive = true;
  bool suggested = false;
};
struct SeenWindow {
  std::string title;
  std::vector<SeenButton> buttons;
  std::vector<GtkEntry*> entries;
  std::vector<std::string> texts;
  int titleBarClose = -1;  // a title bar of GTK's own: its close button shown (1) or not (0)
};
std::vector<SeenWindow> visibleWindows();

// Records, from the moment it is made, each time a button of this process shows itself pressed
// and released again, with how long it stayed pressed.
class ButtonPresses {
 public:
  struct Press {
    std::string label;
    double heldMs = -1;  // -1 while still down
  };
  ButtonPresses();
  ~ButtonPresses();
  std::vector<Press> presses() const;

 private:
  unsigned long hook_ = 0;
};

// A PNG of the whole screen in the build's test-artifacts folder; prints its path.
void screenshot(const std::string& name);

// Standard error of this process, caught in a file from construction until `text` is read.
class StderrCapture {
 public:
  StderrCapture();
  ~StderrCapture();
  std::string text();

 private:
  void restore();
  std::string file_;
  int saved_;
};

// Calls `call` on this thread while `actions` drive the window from another one.
host::Value withWindow(const std::function<host::Value()>& call,
                       const std::function<void()>& actions);

}  // namespace tessel::testing
