// Rounds of 10 ticks: each round sleeps in the desktop service until the round is over, a
// notification the loop asked for arrives (the active window changed) or the process ends; then
// the state is tested, then the deadline. The host has no window of its own yet, so there is no
// user input of its own to discard between rounds; a stop the user asked of the host (Ctrl-C in
// the message window) ends the wait with 0.
#include "windows/wait_loop.h"

#include "platform/desktop.h"
#include "platform/ui.h"
#include "windows/applications.h"

namespace tessel::windows {
namespace {

// `onDisplay`: the state is a window's, so a display lost during the wait ends it with 0, as no
// display at its start does (a process's end needs none).
template <typename Reached>
int32_t loop(int32_t pid, int32_t timeoutTicks, bool onDisplay, Reached reached) {
  auto& desktop = platform::desktopService();
  const bool limited = timeoutTicks > 0;
  const uint32_t deadline = tickDeadline(desktop.microseconds(), timeoutTicks);
  for (;;) {
    desktop.waitRound(pid, kRoundMilliseconds);
    // The user asked the running script to stop (a signal also cuts the round short).
    if (platform::hostHooks().interruptRequested()) return 0;
    if (onDisplay && !desktop.displayAvailable()) return 0;
    const int32_t result = reached();
    // A deadline that has passed wins, even over a state reached in this same round.
    if (limited && deadlinePassed(desktop.microseconds(), deadline)) return 0;
    if (result != 0) return result;
  }
}

}  // namespace

uint32_t tickDeadline(uint32_t nowMicroseconds, int32_t timeoutTicks) {
  const auto product =
      static_cast<int32_t>(static_cast<uint32_t>(timeoutTicks) * static_cast<uint32_t>(100000));
  return nowMicroseconds + static_cast<uint32_t>(product / 6);
}

int32_t waitForProcess(int32_t pid, WaitState state, int32_t timeoutTicks) {
  auto& desktop = platform::desktopService();
  if (pid <= 0 || !desktop.processAlive(pid)) return 0;
  switch (state) {
    case WaitState::Closed:
      return loop(pid, timeoutTicks, false, [&] { return desktop.processAlive(pid) ? 0 : 1; });
    case WaitState::Active:
      return loop(0, timeoutTicks, true, [&] { return frontmostProcess() == pid ? 1 : 0; });
    case WaitState::Inactive:
      // No active window at all leaves every process inactive.
      return loop(0, timeoutTicks, true, [&] {
        int32_t front = frontmostProcess();
        return front >= 0 && front != pid ? 1 : 0;
      });
  }
  return 0;
}

int32_t waitForOtherFrontmost(int32_t timeoutTicks) {
  const int32_t self = platform::desktopService().ownPid();
  return loop(0, timeoutTicks, true, [&] {
    int32_t front = frontmostProcess();
    return front > 0 && front != self ? front : 0;
  });
}

}  // namespace tessel::windows
