// Concurrency and re-entrancy: the deadline gate on its own, a progress handler that calls back
// into the module, two scripting instances sharing the one module, and a stuck thread that
// outlives the module's unload.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>

#include "platform/linux/deadline.h"
#include "tests/boundary/boundary_support.h"
#include "tests/boundary/desktop_driver.h"
#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using namespace std::chrono_literals;
using host::Value;
using platform::DeadlineGate;

// The threads of this process that carry its own name (GLib's helpers name theirs).
int unnamedThreads() {
  auto comm = [](const std::filesystem::path& file) {
    std::ifstream in(file);
    std::string name;
    std::getline(in, name);
    return name;
  };
  const std::string own = comm("/proc/self/comm");
  int n = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    n += comm(task.path() / "comm") == own;
  return n;
}

// Work that blocks until released; `owned` counts the references the work itself holds.
struct Blocker {
  std::shared_ptr<std::promise<void>> release = std::make_shared<std::promise<void>>();
  std::shared_future<void> released = release->get_future().share();
  std::shared_ptr<int> owned = std::make_shared<int>(0);
  std::function<int()> work() const {
    return [released = released, owned = owned] {
      released.wait();
      return 1;
    };
  }
};

TEST(DeadlineGate, ThrowingStuckAndOutlivedWork) {
  // An exception in the work is a default result, and the gate stays open.
  DeadlineGate gate;
  EXPECT_EQ(gate.run<int>([]() -> int { throw std::runtime_error("out of memory"); }, 10s), 0);
  EXPECT_EQ(gate.run<int>([] { return 7; }, 10s), 7);

  // Work past its deadline is abandoned; while it runs, the gate refuses new work without
  // starting it; once it ends, the gate opens again.
  Blocker stuck;
  EXPECT_EQ(gate.run<int>(stuck.work(), 20ms), std::nullopt);
  auto started = std::make_shared<std::atomic<bool>>(false);
  EXPECT_EQ(gate.run<int>([started] { return started->exchange(true), 2; }, 10s), std::nullopt);
  EXPECT_FALSE(started->load());
  stuck.release->set_value();
  EXPECT_TRUE(eventually([&] { return gate.run<int>([] { return 3; }, 10s) == 3; }, 10s));

  // The gate destroyed while its abandoned work still runs: the work ends later and lets go of
  // what it owns without touching the gate (the sanitizer build would see a stale access).
  auto outlived = std::make_unique<DeadlineGate>();
  Blocker orphan;
  EXPECT_EQ(outlived->run<int>(orphan.work(), 20ms), std::nullopt);
  outlived.reset();
  orphan.release->set_value();
  EXPECT_TRUE(eventually([&] { return orphan.owned.use_count() == 1; }, 10s));
}

class Reentrancy : public FileTreeTest {};

// A progress handler that calls the module again, a copy and a listing among others, from inside
// a copy: each inner call answers as it would alone, and the outer copy goes on to its end.
TEST_F(Reentrancy, AProgressHandlerCallsBackIntoTheModule) {
  dir_.file("src/big.bin", std::string(300'000, 'b'));
  dir_.file("src/sub/small.txt", "s");
  dir_.file("other.txt", "o");
  unixNames(true);
  struct Inner {
    std::string method;
    std::vector<Value> args;
    Value expected;
  };
  const std::vector<Inner> inner = {
      {"tsCopyFile", {Value(at("other.txt")), Value(at("inner.txt")), Value("always")}, Value(0)},
      {"tsFileList", {Value(at("src")), Value("")}, Value()},
      {"tsFolderExists", {Value(at("src/sub"))}, Value(1)},
      {"tsFindFirstFile", {Value(at("src")), Value("small.txt")}, Value(at("src/sub/small.txt"))},
  };
  for (const char* outer : {"tsCopyFileProgress", "tsXCopyProgress"}) {
    SCOPED_TRACE(outer);
    std::filesystem::remove_all(at("dst"));
    std::filesystem::remove(at("inner.txt"));
    int heard = 0;
    movie_.handlers["tsCopyProgressUpdate"] = [&](const std::vector<Value>&) {
      if (heard++ == 0) {
        for (const Inner& c : inner) {
          Value got = call(c.method, c.args);
          if (c.method == "tsFileList") {
            EXPECT_EQ(got.isList() ? got.listPtr()->items.size() : 0u, 1u);  // big.bin
          } else if (c.expected.isString()) {
            EXPECT_EQ(got.isString() ? got.string() : "", c.expected.string()) << c.method;
          } else {
            EXPECT_EQ(got.isInteger() ? got.integer() : -1, c.expected.integer()) << c.method;
          }
        }
        call("tsFindClose");
      }
      return Value();
    };
    const int32_t answer =
        std::string(outer) == "tsCopyFileProgress"
            ? integer(outer, {Value(at("src/big.bin")), Value(at("dst/big.bin")), Value("always"),
                              Value(""), Value(""), Value(8 + 16)})
            : integer(outer, {Value(at("src")), Value(at("dst")), Value(""), Value(""), Value(1),
                              Value(""), Value(""), Value(8 + 16)});
    EXPECT_EQ(answer, 0);
    EXPECT_GT(heard, 1);
    EXPECT_EQ(read("dst/big.bin"), std::string(300'000, 'b'));
    EXPECT_EQ(read("inner.txt"), "o");
    // The style is still the session's.
    EXPECT_EQ(text("tsSysFolder", {Value("temp")}).front(), '/');
  }
  movie_.handlers.erase("tsCopyProgressUpdate");
}

// Two scripting instances of the module in one process (two hosts here; in the authoring tool,
// the Xtra's instances): they share the module's one session, so what one sets the other sees;
// each call answers through the host it came from; the session lasts until the last instance ends,
// whichever ends first, and a host that loads the module meanwhile (registration makes and ends
// an instance of its own) ends nothing.
TEST_F(Reentrancy, TwoInstancesShareTheModulesSession) {
  dir_.file("one.txt", "1");
  dir_.file("two.txt", "2");
  for (bool firstEndsFirst : {true, false}) {
    SCOPED_TRACE(firstEndsFirst ? "the first host ends first" : "the second host ends first");
    TestMovie movieB;
    movieB.folder = dir_.str() + "/";
    auto hostB = std::make_unique<host::Host>(options_);
    hostB->setMovie(&movieB);
    ASSERT_EQ(hostB->loadXtras(xtrasFolder()), 1);
    auto callB = [&](const std::string& method, std::vector<Value> args) {
      Value result;
      EXPECT_EQ(hostB->callMethod(method, args, result), 0) << method;
      return result;
    };

    // One style switch: set through A, seen through B, and back.
    unixNames(true);
    EXPECT_EQ(callB("tsSysFolder", {Value("temp")}).string().front(), '/');
    callB("tsReturnUnixNames", {Value(0)});
    EXPECT_NE(text("tsSysFolder", {Value("temp")}).front(), '/');

    // One open search, stepped through either host in turn.
    std::set<std::string> hits{text("tsFindFirstFile", {Value(dir_.str()), Value("*.txt")})};
    hits.insert(callB("tsFindNextFile", {}).string());
    EXPECT_EQ(hits.size(), 2u);
    EXPECT_EQ(text("tsFindNextFile"), "");

    // One set of button captions: set through B, shown by A's box (with a display to show it).
    callB("tsMsgBoxButtons", {Value("Bien"), Value(""), Value(""), Value(""), Value(""),
                              Value(""), Value("")});
    const char* display = std::getenv("DISPLAY");
    if (display != nullptr && *display != '\0') {
      std::vector<std::string> labels;
      Value pressed = withWindow([&] { return call("tsMsgBox", {"m", "", "OK", "", 1}); },
                                 [&] {
                                   const unsigned long window = waitForWindow();
                                   for (const SeenWindow& w : visibleWindows())
                                     for (const SeenButton& b : w.buttons) labels.push_back(b.label);
                                   focus(window);
                                   keys("Return");
                                 });
      EXPECT_EQ(labels, std::vector<std::string>{"Bien"});
      EXPECT_EQ(pressed.string(), "OK");
    }

    // A third host loading the module (and ending its registration instance) ends nothing.
    unixNames(true);
    EXPECT_FALSE(callB("tsFindFirstFile", {Value(dir_.str()), Value("*.txt")}).string().empty());
    {
      host::Host third(options_);
      ASSERT_EQ(third.loadXtras(xtrasFolder()), 1);
    }
    EXPECT_EQ(text("tsSysFolder", {Value("temp")}).front(), '/');

    // One host ends: the other still answers, through its own host, with the same session.
    std::unique_ptr<host::Host> ending = firstEndsFirst ? std::move(host_) : std::move(hostB);
    ending.reset();
    auto& survivor = firstEndsFirst ? *hostB : *host_;
    Value result;
    ASSERT_EQ(survivor.callMethod("tsSysFolder", {Value("temp")}, result), 0);
    EXPECT_EQ(result.string().front(), '/');
    ASSERT_EQ(survivor.callMethod("tsFindNextFile", {}, result), 0);
    EXPECT_EQ(result.string().front(), '/');  // the second hit of the search B opened
    EXPECT_EQ(survivor.liveValues(), 0u);

    // The last one ends: the next session starts from the defaults.
    if (firstEndsFirst) {
      hostB.reset();
    } else {
      host_.reset();
    }
    host_ = std::make_unique<host::Host>(options_);
    host_->setMovie(&movie_);
    ASSERT_EQ(host_->loadXtras(xtrasFolder()), 1);
    EXPECT_NE(text("tsSysFolder", {Value("temp")}).front(), '/');
  }
}

// A listening socket whose pending connections the test can close: a session bus that accepts
// and never answers until told to hang up.
class SilentBus {
 public:
  explicit SilentBus(const std::filesystem::path& folder) {
    const std::filesystem::path bus = folder / "bus";
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, bus.c_str(), sizeof address.sun_path - 1);
    listening_ = listener_ >= 0 &&
                 ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                 ::listen(listener_, 16) == 0;
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + bus.string()).c_str(), 1);
  }
  bool listening() const { return listening_; }
  // Takes every waiting connection and closes it: the waiting client reads the end.
  void hangUp() {
    int fd;
    while ((fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0 || errno == EINTR)
      if (fd >= 0) ::close(fd);
  }

 private:
  int listener_ = -1;
  bool listening_ = false;
};

// A document launch stuck on a silent session bus is abandoned at its deadline; the host then
// unloads the module while that thread still waits inside it, the bus hangs up, and the thread
// returns into the module's code (which stays mapped) and ends. The host lives, loads the module
// again and launches. The exit status says whether all went so; the output, how far it got.
int stuckWorkOutlivesTheUnload() {
  ::alarm(30);
  TempDir dir;
  SilentBus bus(dir.path());
  // A handler of the test's own for text documents, so that nothing else starts.
  setenv("HOME", dir.str().c_str(), 1);
  setenv("XDG_DATA_HOME", (dir.str() + "/share").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (dir.str() + "/config").c_str(), 1);
  setenv("XDG_DATA_DIRS", "/usr/share", 1);  // the MIME database
  setenv("XDG_CONFIG_DIRS", (dir.str() + "/etc").c_str(), 1);
  unsetenv("XDG_CURRENT_DESKTOP");
  dir.file("share/applications/reader.desktop",
           "[Desktop Entry]\nType=Application\nName=reader\nExec=/bin/true %U\n");
  dir.file("config/mimeapps.list", "[Default Applications]\ntext/plain=reader.desktop\n");
  const std::string doc = dir.file("a.txt", "a").string();
  const int threads = unnamedThreads();
  auto step = [](const char* what, bool ok) {
    std::fprintf(stderr, "%s: %s\n", what, ok ? "yes" : "no");
    return ok;
  };
  bool ok = step("the bus listens", bus.listening());
  {
    host::Host host;
    ok = ok && step("loaded", host.loadXtras(xtrasFolder()) == 1);
    Value result;
    ok = ok && step("launched", host.callMethod("tsOpenFile", {Value(doc), Value("")}, result) == 0);
    ok = ok && step("a thread stays stuck", unnamedThreads() > threads);
    ok = ok && step("unloaded", host.unloadAll());
  }
  bus.hangUp();
  ok = ok && step("the stuck thread ended",
                  eventually([&] { return unnamedThreads() == threads; }, 10s));
  host::Host again;
  ok = ok && step("loaded again", again.loadXtras(xtrasFolder()) == 1);
  Value result;
  ok = ok && step("launched again",
                  again.callMethod("tsOpenFile", {Value(doc), Value("")}, result) == 0);
  return ok ? 0 : 1;
}

// In a fresh process (a re-executed death test), so that its GIO meets this bus first.
TEST(StuckWork, OutlivesTheModulesUnload) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(stuckWorkOutlivesTheUnload()), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tessel::testing
