// Printing through the host to a private print server: a cupsd of the test's own, listening on a
// socket in a temporary folder, with a backend that copies each job into a folder, two raw
// queues, and ~/.cups/client.conf in the test's home pointing at it.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;
namespace fs = std::filesystem;

// The first job file that appears in `folder` within five seconds.
std::string awaitJob(const fs::path& folder) {
  for (int i = 0; i < 500; ++i) {
    for (const auto& e : fs::directory_iterator(folder))
      if (e.path().filename().string().rfind("job-", 0) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return slurp(e.path());
      }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return "(no job)";
}

class Printing : public XtraTest {
 protected:
  void SetUp() override {
    if (!fs::exists("/usr/sbin/cupsd")) GTEST_SKIP() << "cupsd is not installed";
    const fs::path& d = dir_.path();
    for (const char* sub : {"root", "bin/backend", "spool", "tmp", "cache", "state", "log",
                            "first", "second", "home/.cups"})
      fs::create_directories(d / sub);
    fs::create_directory_symlink("/usr/lib/cups/daemon", d / "bin/daemon");
    fs::path backend = dir_.file("bin/backend/copy",
                                 "#!/bin/sh\n"
                                 "[ $# -eq 0 ] && { echo 'direct copy \"Unknown\" \"Copy\"'; exit 0; }\n"
                                 "dest=${DEVICE_URI#copy:}\n"
                                 "if [ $# -ge 6 ]; then cat \"$6\"; else cat; fi > \"$dest/.job\"\n"
                                 "mv \"$dest/.job\" \"$dest/job-$1\"\n");
    // Owner-only: cupsd runs such a backend as its owner and accepts it as safe.
    fs::permissions(backend, fs::perms::owner_all);
    socket_ = d / "cups.sock";
    dir_.file("cupsd.conf", "Listen " + socket_.string() +
                                "\nLogLevel warn\nBrowsing No\nWebInterface No\n"
                                "DefaultAuthType None\n<Location />\nOrder allow,deny\n"
                                "Allow all\n</Location>\n");
    std::string files = "ServerRoot " + (d / "root").string() + "\nServerBin " +
                        (d / "bin").string() + "\nDataDir /usr/share/cups\n";
    for (const char* key : {"RequestRoot spool", "TempDir tmp", "CacheDir cache",
                            "StateDir state", "ErrorLog log/error_log",
                            "AccessLog log/access_log", "PageLog log/page_log"}) {
      std::string k(key);
      files += k.substr(0, k.find(' ')) + " " + (d / k.substr(k.find(' ') + 1)).string() + "\n";
    }
    dir_.file("cups-files.conf", files);
    dir_.file("root/printers.conf",
              "<DefaultPrinter first>\nDeviceURI copy:" + (d / "first").string() +
                  "\nState Idle\nAccepting Yes\nShared No\n</DefaultPrinter>\n"
                  "<Printer second>\nDeviceURI copy:" + (d / "second").string() +
                  "\nState Idle\nAccepting Yes\nShared No\n</Printer>\n");
    dir_.file("home/.cups/client.conf", "ServerName " + socket_.string() + "\n");
    env_.set("HOME", (d / "home").string());
    for (const char* name : {"CUPS_SERVER", "PRINTER", "LPDEST"}) env_.unset(name);

    cupsd_ = fork();
    ASSERT_GE(cupsd_, 0);
    if (cupsd_ == 0) {
      freopen((d / "log/stderr").c_str(), "w", stderr);
      freopen("/dev/null", "w", stdout);
      execl("/usr/sbin/cupsd", "cupsd", "-f", "-c", (d / "cupsd.conf").c_str(), "-s",
            (d / "cups-files.conf").c_str(), nullptr);
      _exit(127);
    }
    ASSERT_TRUE(eventually([&] { return fs::exists(socket_); }))
        << slurp(d / "log/stderr") << slurp(d / "log/error_log");
    XtraTest::SetUp();
  }
  void TearDown() override {
    stopServer();
    if (host_) XtraTest::TearDown();
  }
  void stopServer() {
    if (cupsd_ <= 0) return;
    kill(cupsd_, SIGTERM);
    waitpid(cupsd_, nullptr, 0);
    cupsd_ = 0;
  }
  int32_t print(const std::string& file) { return integer("tsPrintFile", {Value(file)}); }

  TempDir dir_;
  fs::path socket_;
  pid_t cupsd_ = 0;
  ScopedEnvironment env_;
};

TEST_F(Printing, JobsGoToTheDefaultQueueTheUserChose) {
  fs::path doc = dir_.file("page one.txt", "first page\n");
  EXPECT_EQ(print(doc.string()), 33);
  EXPECT_EQ(awaitJob(dir_.path() / "first"), "first page\n");

  // The user's own default (lpoptions) wins over the server's; host-style paths work too.
  dir_.file("home/.cups/lpoptions", "Default second\n");
  std::string hfs = dir_.file("two.txt", "second page\n").string();
  std::replace(hfs.begin(), hfs.end(), '/', ':');
  EXPECT_EQ(print(startupVolumeName(*host_) + hfs), 33);
  EXPECT_EQ(awaitJob(dir_.path() / "second"), "second page\n");

  EXPECT_EQ(print(dir_.str()), 0);
  EXPECT_EQ(print(dir_.str() + "/missing.txt"), 0);
  EXPECT_EQ(print(""), 0);

  // The server gone: no job, and no waiting for it.
  stopServer();
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(print(doc.string()), 0);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.0);
}

}  // namespace
}  // namespace tessel::testing
