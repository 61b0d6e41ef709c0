// The message window as an author meets it: where errors are reported (script, line, handler,
// and a method argument the module refused), and the prompt on a terminal (Ctrl-C clears a
// half-typed line, stops a running statement, and the session's handlers survive both).
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

namespace fs = std::filesystem;

std::string runner() { return (fs::path(xtrasFolder()).parent_path() / "tessel").string(); }

// Runs the message window with `args`; its standard error, and the exit status (its standard
// output goes to `out` when given).
std::pair<std::string, int> runWindow(const TempDir& dir, const std::vector<std::string>& args,
                                      std::string* out = nullptr) {
  fs::path err = dir.path() / "stderr";
  fs::path outFile = dir.path() / "stdout";
  pid_t pid = fork();
  if (pid == 0) {
    if (!std::freopen(err.c_str(), "w", stderr) || !std::freopen(outFile.c_str(), "w", stdout))
      _exit(126);
    std::string r = runner(), x = xtrasFolder();
    std::vector<const char*> argv{r.c_str(), "--xtras", x.c_str()};
    for (const auto& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    execv(r.c_str(), const_cast<char* const*>(argv.data()));
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (out) *out = slurp(outFile);
  return {slurp(err), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

TEST(MessageWindow, ErrorsSayWhere) {
  TempDir dir;
  fs::path script = dir.file("kiosk.ls",
                             "on readSettings\n"
                             "  put 1\n"
                             "  return 10 / 0\n"
                             "end\n");
  // A handler keeps the name of the script that defined it, wherever it is called from.
  auto [err, status] = runWindow(dir, {script.string(), "-e", "readSettings()"});
  EXPECT_EQ(err, "error: " + script.string() + ":3 in handler readSettings: Division by zero\n");
  EXPECT_EQ(status, 1);
  // Each -e has its number; a refused argument is named from the method table.
  std::tie(err, status) = runWindow(dir, {"-e", "put 1", "-e", "x = 2\nput 1/0"});
  EXPECT_EQ(err, "error: -e 2:2: Division by zero\n");
  std::tie(err, status) = runWindow(dir, {"-e", "put tsReadIni(\"a\")"});
  EXPECT_EQ(err, "error: -e 1:1: tsReadIni: argument 2 (Keyname): string expected, got VOID\n");
  std::tie(err, status) = runWindow(dir, {"-e", "put tsFileExists([1])"});
  EXPECT_EQ(err, "error: -e 1:1: tsFileExists: argument 1 (Filename): string expected, got [1]\n");
}

// A file name that is not UTF-8 comes back from the module as it is: it counts one character per
// stray byte, keeps its neighbours whole, and shows as U+FFFD.
TEST(MessageWindow, TextThatIsNotUtf8IsShownNotSplit) {
  TempDir dir;
  fs::create_directory(dir.path() / "media");
  dir.file("media/caf\xE9 cr\xC3\xA8me.txt", "");
  std::string out;
  auto [err, status] = runWindow(
      dir, {"-e", "tsReturnUnixNames(1)\nf = tsFileList(\"" + dir.str() + "/media/\", \"\")[1]\n"
                  "put f, length(f), charToNum(char 4 of f), char 8 of f, word 2 of f"},
      &out);
  EXPECT_EQ(err, "");
  EXPECT_EQ(out, "-- \"caf\xEF\xBF\xBD cr\xC3\xA8me.txt\" 14 233 \"\xC3\xA8\" \"cr\xC3\xA8me.txt\"\n");
  EXPECT_EQ(status, 0);
}

// A session on a terminal: reads what the window writes until `want` shows (or 5 s pass).
class Terminal {
 public:
  Terminal() {
    pid_ = forkpty(&fd_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      std::string r = runner(), x = xtrasFolder();
      execl(r.c_str(), r.c_str(), "--xtras", x.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~Terminal() {
    if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (fd_ >= 0) close(fd_);
  }
  void type(const std::string& keys) {
    ASSERT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  // Everything read until `want` appears; the whole text read so far otherwise.
  std::string until(const std::string& want) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (seen_.find(want) == std::string::npos && std::chrono::steady_clock::now() < end) {
      pollfd p{fd_, POLLIN, 0};
      if (poll(&p, 1, 50) <= 0) continue;
      char buf[512];
      ssize_t n = read(fd_, buf, sizeof buf);
      if (n <= 0) break;
      seen_.append(buf, static_cast<size_t>(n));
    }
    size_t at = seen_.find(want);
    std::string out = seen_;
    if (at != std::string::npos) seen_.erase(0, at + want.size());
    return out;
  }
  int exitStatus() {
    int status = 0;
    for (int i = 0; i < 500 && waitpid(pid_, &status, WNOHANG) == 0; ++i) usleep(10000);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int fd_ = -1;
  pid_t pid_ = -1;
  std::string seen_;
};

TEST(MessageWindow, CtrlCClearsTheLineAndStopsAStatementCtrlDEnds) {
  Terminal t;
  t.until("> ");
  t.type("on twice n\r  return n * 2\rend\r");
  t.until("> ");
  // Half a line, then Ctrl-C: the line goes, the window stays.
  t.type("put twice(");
  t.until("twice(");
  t.type("\x03");
  EXPECT_NE(t.until("^C").find("^C"), std::string::npos);
  t.type("put twice(21)\r");
  EXPECT_NE(t.until("-- 42").find("-- 42"), std::string::npos);
  // Ctrl-C during a runaway loop stops it; the handler is still there.
  t.type("repeat while 1\rend repeat\r");
  usleep(300000);
  t.type("\x03");
  EXPECT_NE(t.until("Interrupted").find("error: 5: Interrupted"), std::string::npos);
  t.type("put twice(4) & \"!\"\r");
  EXPECT_NE(t.until("-- \"8!\"").find("-- \"8!\""), std::string::npos);
  // Ctrl-D on an empty line ends the session normally.
  t.until("> ");
  t.type("\x04");
  EXPECT_EQ(t.exitStatus(), 0);
}

}  // namespace
}  // namespace tessel::testing
