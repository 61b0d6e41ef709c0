// Processes on Linux, for the desktop service: /proc for what a process is, pidfds for signals
// and for waiting on a process's end without racing a reused PID.
#pragma once

#include <cstdint>
#include <string>

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

}  // namespace tessel::platform::processes
