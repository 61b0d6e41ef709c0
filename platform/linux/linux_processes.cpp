#include "platform/linux/linux_processes.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <fstream>
#include <string_view>

namespace tessel::platform::processes {
namespace {

// The state letter of /proc/PID/stat; 0 when the process is gone.
char processState(int32_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return 0;
  size_t close = line.rfind(')');
  if (close == std::string::npos || close + 2 >= line.size()) return 0;
  return line[close + 2];
}

}  // namespace

int openPidfd(int32_t pid) {
  if (pid <= 0) return -1;
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

bool alive(int32_t pid) {
  if (pid <= 0) return false;
  int fd = openPidfd(pid);
  if (fd < 0 && errno == ESRCH) return false;
  if (fd >= 0) ::close(fd);
  char state = processState(pid);
  return state != 0 && state != 'Z' && state != 'X';
}

std::string executablePath(int32_t pid) {
  if (pid <= 0) return {};
  char buffer[PATH_MAX];
  ssize_t n = readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), buffer, sizeof buffer);
  if (n <= 0) return {};
  std::string path(buffer, static_cast<size_t>(n));
  constexpr std::string_view deleted = " (deleted)";
  if (path.size() > deleted.size() && path.ends_with(deleted))
    path.resize(path.size() - deleted.size());
  return path;
}

std::string commandName(int32_t pid) {
  if (pid <= 0) return {};
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

bool terminate(int32_t pid) {
  if (pid <= 0 || !alive(pid)) return false;
  struct stat info {};
  if (::stat(("/proc/" + std::to_string(pid)).c_str(), &info) != 0 || info.st_uid != getuid())
    return false;
  int fd = openPidfd(pid);
  if (fd < 0) return false;
  // Through the pidfd, so a PID reused since the check is never signalled.
  bool sent = syscall(SYS_pidfd_send_signal, fd, SIGTERM, nullptr, 0) == 0;
  ::close(fd);
  return sent;
}

uint32_t monotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000000u +
                               static_cast<uint64_t>(now.tv_nsec) / 1000u);
}

std::string hostName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  return name;
}

ProcessDesktop::~ProcessDesktop() {
  if (watchedFd_ >= 0) ::close(watchedFd_);
}

int32_t ProcessDesktop::ownPid() { return static_cast<int32_t>(getpid()); }

int ProcessDesktop::watchedPidfd(int32_t pid) {
  if (pid != watchedPid_) {
    if (watchedFd_ >= 0) ::close(watchedFd_);
    watchedFd_ = openPidfd(pid);
    watchedPid_ = pid;
  }
  return watchedFd_;
}

}  // namespace tessel::platform::processes
