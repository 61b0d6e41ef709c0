// A scripted desktop for the window and input tests: processes, managed windows, keys held and a
// clock that moves only when the wait loop sleeps.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/desktop.h"

namespace tessel::testing {

class FakeDesktop final : public platform::DesktopService {
 public:
  struct Process {
    std::string exe;
    std::string comm;
    bool alive = true;
    bool sameUser = true;
  };

  bool display = true;
  int32_t self = 100;
  std::map<int32_t, Process> processes;
  std::vector<platform::ManagedWindow> windows;
  std::vector<platform::WindowId> stacking;
  platform::WindowId active = 0;
  uint32_t clock = 0;
  int rounds = 0;
  std::function<void(FakeDesktop&)> onRound;  // runs after each round's sleep

  std::set<uint32_t> keysDown;
  std::vector<int32_t> terminated;

  int32_t ownPid() override { return self; }
  bool processAlive(int32_t pid) override {
    auto it = processes.find(pid);
    return pid > 0 && it != processes.end() && it->second.alive;
  }
  std::string executablePath(int32_t pid) override {
    auto it = processes.find(pid);
    return it == processes.end() ? "" : it->second.exe;
  }
  std::string commandName(int32_t pid) override {
    auto it = processes.find(pid);
    return it == processes.end() ? "" : it->second.comm;
  }
  bool terminate(int32_t pid) override {
    if (!processAlive(pid) || !processes[pid].sameUser) return false;
    terminated.push_back(pid);
    return true;
  }
  uint32_t microseconds() override { return clock; }
  void waitRound(int32_t, int milliseconds) override {
    clock += static_cast<uint32_t>(milliseconds) * 1000u;
    ++rounds;
    if (onRound) onRound(*this);
  }

  bool displayAvailable() override { return display; }
  std::vector<platform::ManagedWindow> clientWindows() override {
    return display ? windows : std::vector<platform::ManagedWindow>{};
  }
  std::vector<platform::WindowId> stackingOrder() override { return stacking; }
  platform::WindowId activeWindow() override { return display ? active : 0; }
  bool activate(platform::WindowId window, int) override {
    active = window;
    return true;
  }
  bool requestClose(platform::WindowId) override { return true; }

  // Keys and clicks are typed into real windows by the desktop tests.
  bool postKeys(const std::vector<platform::KeyEvent>&) override { return display; }
  bool anyKeyDown(const std::vector<uint32_t>& keysyms) override {
    return std::any_of(keysyms.begin(), keysyms.end(),
                       [&](uint32_t k) { return keysDown.count(k) > 0; });
  }
  bool click(int) override { return true; }

  // A managed window of `pid`.
  void addWindow(platform::WindowId id, int32_t pid, std::string wmClass, std::string title = "",
                 bool acceptsDelete = true) {
    windows.push_back({id, pid, std::move(wmClass), std::move(title), acceptsDelete});
    stacking.push_back(id);
  }
};

// Installs a FakeDesktop for the lifetime of the object and restores the previous service.
class DesktopFixture {
 public:
  DesktopFixture() {
    auto fake = std::make_unique<FakeDesktop>();
    fake_ = fake.get();
    previous_ = platform::setDesktopService(std::move(fake));
  }
  ~DesktopFixture() { platform::setDesktopService(std::move(previous_)); }
  FakeDesktop& desktop() { return *fake_; }

 private:
  FakeDesktop* fake_;
  std::unique_ptr<platform::DesktopService> previous_;
};

}  // namespace tessel::testing
