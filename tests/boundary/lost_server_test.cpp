// The X server lost in the middle of a method: on an X server of the test's own, killed while a
// window method waits on it, with GTK running in the process (its handlers exit the process when
// any connection is lost, unless the module's stay in front for the module's own connections).
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <gtk/gtk.h>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;

// An X server of the test's own; its display name, "" when it did not start.
std::string startServer(pid_t* pid) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return {};
  *pid = fork();
  if (*pid == 0) {
    int null = open("/dev/null", O_RDWR);
    dup2(null, 1);
    dup2(null, 2);
    fcntl(report[1], F_SETFD, 0);
    std::string fd = std::to_string(report[1]);
    execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-nolisten", "tcp", nullptr);
    _exit(127);
  }
  close(report[1]);
  std::string number;
  char c;
  while (read(report[0], &c, 1) == 1 && c != '\n') number += c;
  close(report[0]);
  return number.empty() ? std::string() : ":" + number;
}

// Runs, on a server of its own that dies under a wait, one call after another on one host: each
// answers its method's failure value. The exit status says whether all went as expected (the
// output says what did not).
int callsOutliveTheServer() {
  ::alarm(60);
  bool ok = gtk_init_check(nullptr, nullptr);  // GTK on the session's server
  pid_t server = 0;
  const std::string display = startServer(&server);
  ok = ok && !display.empty();
  setenv("DISPLAY", display.c_str(), 1);
  host::Host host;
  ok = ok && host.loadXtras(xtrasFolder()) == 1;
  auto call = [&](const char* method, std::vector<Value> args) {
    Value result;
    const moa::MoaError err = host.callMethod(method, args, result);
    if (err != 0) std::fprintf(stderr, "%s: host error %d\n", method, int(err));
    ok = ok && err == 0;
    return result;
  };
  // On the live server first: the module's connection is open.
  ok = ok && call("tsWindowList", {Value(""), Value(""), Value(0)}).isList();

  // The server killed a moment into a wait of up to 20 s.
  std::thread killer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
  });
  const auto start = std::chrono::steady_clock::now();
  Value waited = call("tsWaitForWindow", {Value(getpid()), Value("active"), Value(1200)});
  const double took =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  killer.join();
  std::fprintf(stderr, "tsWaitForWindow answered %s after %.2f s\n",
               waited.isInteger() ? std::to_string(waited.integer()).c_str() : "?", took);
  ok = ok && waited.isInteger() && waited.integer() == 0 && took < 10;

  // Every later call answers its failure value.
  struct Row {
    const char* method;
    std::vector<Value> args;
    bool emptyList;  // else the integer 0
  };
  const Row rows[] = {
      {"tsWindowList", {Value(""), Value(""), Value(0)}, true},
      {"tsSendKeys", {Value("abc{ENTER}")}, false},
      {"tsWindowExists", {Value(getpid())}, false},
      {"tsActiveWindow", {}, false},
      {"tsWaitForWindow", {Value(getpid()), Value("active"), Value(60)}, false},
  };
  for (const Row& row : rows) {
    Value v = call(row.method, row.args);
    const bool failed = row.emptyList ? v.isList() && v.listPtr()->items.empty()
                                      : v.isInteger() && v.integer() == 0;
    if (!failed) std::fprintf(stderr, "%s did not answer its failure value\n", row.method);
    ok = ok && failed;
  }
  return ok ? 0 : 1;
}

// In a fresh process (a re-executed death test), so that the module meets this server first.
TEST(LostServer, AWindowMethodAnswersItsFailureAndTheHostLives) {
  const char* session = std::getenv("DISPLAY");
  if (session == nullptr || *session == '\0') GTEST_SKIP() << "no X display";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(callsOutliveTheServer()), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tessel::testing
