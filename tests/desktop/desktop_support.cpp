#include "tests/desktop/desktop_support.h"

#include <X11/Xlib.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

namespace tessel::testing {

std::optional<std::string> run(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return std::nullopt;
  std::string out;
  char buffer[65536];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  int status = pclose(pipe);
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return out;
}

bool haveProgram(const std::string& name) {
  return run("command -v " + name + " >/dev/null 2>&1").has_value();
}

bool haveDisplay() {
  const char* name = std::getenv("DISPLAY");
  return name != nullptr && *name != '\0';
}

ScopedEnv::ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
  if (const char* old = std::getenv(name)) saved_ = old;
  if (value) setenv(name, value->c_str(), 1);
  else unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
  if (saved_) setenv(name_.c_str(), saved_->c_str(), 1);
  else unsetenv(name_.c_str());
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
