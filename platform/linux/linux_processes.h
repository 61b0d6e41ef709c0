// Processes on Linux, for the desktop service: /proc for what a process is, pidfds for signals
// and for waiting on a process's end without racing a reused PID.
#pragma once

#include <cstdint>
#include <string>

#include "platform/desktop.h"

namespace tessel::platform::processes {

// A pidfd for `pid` (close it), or -1 with errno set (ESRCH: no such process).
int openPidfd(int32_t pid);
// Running and not yet ended (a zombie has ended).
bool alive(int32_t pid);
// The executable (/proc/PID/exe, without a " (deleted)" mark); "" when it cannot be read.
std::string executablePath(int32_t pid);
// /proc/PID/comm; "" when it cannot be read.
std::string commandName(int32_t pid);
// SIGTERM through a pidfd, only to a live process of the calling user.
bool terminate(int32_t pid);
// Low 32 bits of the monotonic clock in microseconds.
uint32_t monotonicMicroseconds();
// This machine's host name, as clients write it in WM_CLIENT_MACHINE.
std::string hostName();

// The process half of the desktop service, the same whatever shows the windows: what a process
// is, ending it, the clock, and the pidfd a wait polls beside the display's connection.
class ProcessDesktop : public DesktopService {
 public:
  ~ProcessDesktop() override;
  int32_t ownPid() override;
  bool processAlive(int32_t pid) override { return alive(pid); }
  std::string executablePath(int32_t pid) override { return processes::executablePath(pid); }
  std::string commandName(int32_t pid) override { return processes::commandName(pid); }
  bool terminate(int32_t pid) override { return processes::terminate(pid); }
  uint32_t microseconds() override { return monotonicMicroseconds(); }

 protected:
  // The pidfd of `pid` for a wait's poll (-1 when it has none), kept from round to round, as a
  // wait asks for the same process every round.
  int watchedPidfd(int32_t pid);

 private:
  int32_t watchedPid_ = 0;
  int watchedFd_ = -1;
};

}  // namespace tessel::platform::processes
