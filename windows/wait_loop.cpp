// A first form of the wait loop that knows only "closed": rounds of a 10-tick poll on the
// process's pidfd. Frontmost states answer 0 until the window service can tell them.
#include "windows/wait_loop.h"

#include <poll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

namespace tessel::windows {
namespace {

// A zombie has ended, although kill(pid, 0) still reaches it.
bool ended(int32_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  size_t close = line.rfind(')');
  return close == std::string::npos || close + 2 >= line.size() || line[close + 2] == 'Z' ||
         line[close + 2] == 'X';
}

uint32_t microseconds() {
  timespec now {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000000u +
                               static_cast<uint64_t>(now.tv_nsec) / 1000u);
}

}  // namespace

int32_t waitForProcess(int32_t pid, WaitState state, int32_t timeoutTicks) {
  if (pid <= 0 || ended(pid) || state != WaitState::Closed) return 0;
  int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  // The deadline in 32-bit microseconds, from the signed 32-bit product of the ticks.
  const bool limited = timeoutTicks > 0;
  const uint32_t deadline =
      microseconds() + static_cast<uint32_t>(static_cast<int32_t>(
                           static_cast<uint32_t>(timeoutTicks) * 16667u));
  int32_t result = 0;
  for (;;) {
    if (fd >= 0) {
      pollfd p{fd, POLLIN, 0};
      ::poll(&p, 1, 10 * 1000 / 60);
    } else {
      ::usleep(10 * 1000000 / 60);
    }
    if (ended(pid)) {
      result = 1;
      break;
    }
    if (limited && static_cast<uint32_t>(microseconds()) >= deadline) break;
  }
  if (fd >= 0) ::close(fd);
  return result;
}

}  // namespace tessel::windows
