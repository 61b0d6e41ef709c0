// Helpers of the desktop behaviour tests: running commands, environment changes undone at the
// end of a scope, and the test's own X connection.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

struct _XDisplay;

namespace tessel::testing {

// Runs a shell command line (tests build it from fixed words and temporary paths); its standard
// output, or nothing when it could not run or exited non-zero.
std::optional<std::string> run(const std::string& command);

// Whether a program is on PATH.
bool haveProgram(const std::string& name);

// Whether $DISPLAY names an X display.
bool haveDisplay();

// Sets (or unsets, with nullopt) an environment variable until the end of the scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, std::optional<std::string> value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> saved_;
};

// Polls `condition` every 20 ms until it holds or `limit` passes.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::milliseconds(5000));

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
