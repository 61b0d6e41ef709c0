// Helpers of the desktop behaviour tests: finding programs and the test's own X connection
// (running commands, waiting for a condition and environment changes for a scope are
// boundary_support's).
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "tests/boundary/boundary_support.h"

struct _XDisplay;

namespace tessel::testing {

// Whether a program is on PATH.
bool haveProgram(const std::string& name);

// Whether $DISPLAY names an X display.
bool haveDisplay();

// The test's own connection to $DISPLAY. Xlib's error handlers are process-wide: open it after
// the module has made a connection, so that the module's handlers (which record or ignore
// errors instead of exiting) are the ones installed.
class TestDisplay {
 public:
  TestDisplay();
  ~TestDisplay();
  _XDisplay* get() const { return display_; }
  explicit operator bool() const { return display_ != nullptr; }

 private:
  _XDisplay* display_ = nullptr;
};

}  // namespace tessel::testing
