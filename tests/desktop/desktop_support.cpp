#include "tests/desktop/desktop_support.h"

#include <X11/Xlib.h>

#include <cstdlib>
#include <thread>

namespace tessel::testing {

bool haveProgram(const std::string& name) {
  return run("command -v " + name + " >/dev/null 2>&1").has_value();
}

bool haveDisplay() {
  const char* name = std::getenv("DISPLAY");
  return name != nullptr && *name != '\0';
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    if (condition()) return true;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

TestDisplay::TestDisplay() {
  if (haveDisplay()) display_ = XOpenDisplay(nullptr);
}

TestDisplay::~TestDisplay() {
  if (display_ != nullptr) XCloseDisplay(display_);
}

}  // namespace tessel::testing
