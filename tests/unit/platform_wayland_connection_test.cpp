// The module's Wayland connections when the compositor is silent or missing: every wait ends at
// its deadline, and the backend choice falls back to X11 instead of hanging.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/linux/backend_choice.h"
#include "platform/linux/wayland_connection.h"

namespace tessel::platform::wayland {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Sets an environment variable for the test's time (unsets it for nullopt).
class ScopedEnv {
 public:
  ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    if (value) setenv(name, value->c_str(), 1);
    else unsetenv(name);
  }
  ~ScopedEnv() {
    if (saved_) setenv(name_, saved_->c_str(), 1);
    else unsetenv(name_);
  }

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

TEST(WaylandConnection, ASilentOrMissingCompositorCostsAtMostTheDeadline) {
  // A socket that accepts connections (the kernel's backlog) and never answers.
  const auto folder = std::filesystem::temp_directory_path() / ("tessel-wl-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const std::string path = (folder / "wayland-silent").string();
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 8), 0);

  const ScopedEnv forced("TESSEL_BACKEND", std::nullopt);
  {
    const ScopedEnv display("WAYLAND_DISPLAY", path);
    auto start = Clock::now();
    EXPECT_EQ(WaylandConnection::open(200ms), nullptr);
    EXPECT_LT(Clock::now() - start, 2000ms);
    // The choice asks the compositor, hears nothing within its second, and takes X11.
    start = Clock::now();
    EXPECT_EQ(backends::chooseFor([](const auto&) { return true; }), backends::Backend::X11);
    EXPECT_LT(Clock::now() - start, 10s);
  }
  // No socket there, no name, a name without a runtime folder: nothing, at once.
  for (const auto& [name, runtime] : {std::pair<std::string, std::string>{(folder / "none").string(), "/tmp"},
                                      {"", "/tmp"},
                                      {"wayland-0", ""}}) {
    const ScopedEnv display("WAYLAND_DISPLAY", name);
    const ScopedEnv runtimeDir("XDG_RUNTIME_DIR", runtime);
    const auto start = Clock::now();
    EXPECT_EQ(WaylandConnection::open(5s), nullptr) << name;
    EXPECT_LT(Clock::now() - start, 1s) << name;
    EXPECT_EQ(backends::chooseFor([](const auto&) { return true; }), backends::Backend::X11) << name;
  }
  close(listener);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace tessel::platform::wayland
