#include "tests/desktop/desktop_support.h"

#include <X11/Xlib.h>

#include <cstdlib>

namespace tessel::testing {

bool haveProgram(const std::string& name) {
  return run("command -v " + name + " >/dev/null 2>&1").has_value();
}

bool haveDisplay() {
  const char* name = std::getenv("DISPLAY");
  return name != nullptr && *name != '\0';
}

TestDisplay::TestDisplay() {
  if (haveDisplay()) display_ = XOpenDisplay(nullptr);
}

TestDisplay::~TestDisplay() {
  if (display_ != nullptr) XCloseDisplay(display_);
}

}  // namespace tessel::testing
