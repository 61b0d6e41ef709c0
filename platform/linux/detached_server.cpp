#include "platform/linux/detached_server.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace tessel::platform {
namespace {

// In the server: stdio on /dev/null, the report pipe as descriptor 3, nothing else.
void detachDescriptors(int report) {
  if (report != 3) {
    dup2(report, 3);
    close(report);
  }
  int null = open("/dev/null", O_RDWR);
  if (null >= 0) {
    for (int fd = 0; fd < 3; ++fd) dup2(null, fd);
    if (null > 3) close(null);
  }
  if (syscall(SYS_close_range, 4U, ~0U, 0U) != 0) {
    for (int fd = 4; fd < 1024; ++fd) close(fd);
  }
}

}  // namespace

std::string startDetachedServer(const std::function<void()>& serve,
                                std::chrono::milliseconds limit) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return "";
  pid_t child = fork();
  if (child == 0) {
    close(report[0]);
    if (setsid() < 0) _exit(1);
    pid_t server = fork();
    if (server == 0) {
      detachDescriptors(report[1]);
      signal(SIGPIPE, SIG_IGN);  // a reader that goes early ends its transfer, not the server
      serve();
      _exit(0);
    }
    _exit(server < 0 ? 1 : 0);
  }
  close(report[1]);
  if (child < 0) {
    close(report[0]);
    return "";
  }
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + limit;
  std::string answer;
  char buffer[64];
  while (answer.size() < sizeof buffer) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) break;
    pollfd pfd{report[0], POLLIN, 0};
    int n = poll(&pfd, 1, static_cast<int>(left.count()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    ssize_t got = read(report[0], buffer, sizeof buffer - answer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    answer.append(buffer, static_cast<size_t>(got));
  }
  close(report[0]);
  return answer;
}

}  // namespace tessel::platform
