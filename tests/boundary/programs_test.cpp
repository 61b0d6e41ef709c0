// Programs, shell commands, documents, URLs and aliases through the host: real children observed
// through the files they write and /proc, and the desktop's handlers from a private home.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

// Waits up to five seconds for a file that a detached child writes, and for the child to finish
// writing it (its last line is "end").
std::string awaitFile(const fs::path& p) {
  eventually([&] { return slurp(p).ends_with("end\n"); });
  return slurp(p);
}

// The host's children, whatever their state (a zombie included).
std::vector<int> childrenOfThisProcess() {
  std::vector<int> kids;
  DIR* proc = opendir("/proc");
  while (dirent* e = proc ? readdir(proc) : nullptr) {
    int pid = atoi(e->d_name);
    if (pid <= 0) continue;
    std::string stat = slurp("/proc/" + std::to_string(pid) + "/stat");
    size_t close = stat.rfind(')');
    if (close == std::string::npos) continue;
    int ppid = 0;
    char state = 0;
    if (sscanf(stat.c_str() + close + 1, " %c %d", &state, &ppid) == 2 && ppid == getpid())
      kids.push_back(pid);
  }
  if (proc) closedir(proc);
  return kids;
}

// Waits up to five seconds for every child of the host to be reaped.
bool childrenAllGone() {
  return eventually([] { return childrenOfThisProcess().empty(); });
}

double secondsSince(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

class Launching : public XtraTest {
 protected:
  fs::path script(const std::string& name, const std::string& body) {
    fs::path p = dir_.file(name, "#!/bin/sh\n" + body);
    fs::permissions(p, fs::perms::owner_all);
    return p;
  }
  int32_t run(const fs::path& p, const std::string& state, int wait) {
    return integer("tsRunProgram", {Value(p.string()), Value(state), Value(wait)});
  }
  int32_t shell(const std::string& op, const std::string& file, const std::string& args,
                const std::string& workDir) {
    return integer("tsShell",
                   {Value(op), Value(file), Value(args), Value(workDir), Value("")});
  }
  TempDir dir_;
};

TEST_F(Launching, ChildrenGetNullStreamsAndNoDescriptorOfTheHost) {
  // A descriptor the host left inheritable must still not reach the child.
  int marker = ::open((dir_.path() / "marker").c_str(), O_CREAT | O_RDWR, 0600);
  ASSERT_GE(marker, 0);
  fs::path out = dir_.path() / "fds";
  // The program lists its own descriptors: ls adds only the one it reads the listing through.
  fs::path p = script("fds.sh", "exec ls -l /proc/$$/fd/ > " + out.string() + "\n");
  EXPECT_EQ(run(p, "", 1), 33);
  std::string fds = slurp(out);
  ::close(marker);
  std::map<int, std::string> open;
  std::istringstream lines(fds);
  std::string line;
  while (std::getline(lines, line)) {
    size_t arrow = line.find(" -> ");
    if (arrow == std::string::npos) continue;
    size_t space = line.rfind(' ', arrow - 1);
    open[atoi(line.c_str() + space + 1)] = line.substr(arrow + 4);
  }
  EXPECT_EQ(open[0], "/dev/null") << fds;
  EXPECT_EQ(open[1], out.string()) << fds;
  EXPECT_EQ(open[2], "/dev/null") << fds;
  EXPECT_EQ(open[3].rfind("/proc/", 0), 0u) << fds;
  EXPECT_EQ(open.size(), 4u) << fds;
}

TEST_F(Launching, WaitEndsWithTheProcessNotItsChildren) {
  fs::path pidFile = dir_.path() / "sleeper";
  fs::path p = script("parent.sh", "sleep 20 &\necho $! > " + pidFile.string() + "\nsleep 0.5\n");
  auto start = Clock::now();
  EXPECT_EQ(run(p, "", 1), 33);
  double waited = secondsSince(start);
  EXPECT_GE(waited, 0.45);
  EXPECT_LT(waited, 5.0);
  int sleeper = atoi(slurp(pidFile).c_str());
  ASSERT_GT(sleeper, 0);
  EXPECT_EQ(kill(sleeper, 0), 0);  // the grandchild outlived the wait
  kill(sleeper, SIGKILL);

  // Without Wait (and "hidden" in any case) the call returns at once.
  fs::path slow = script("slow.sh", "sleep 1\n");
  start = Clock::now();
  EXPECT_EQ(run(slow, "HIDDEN", 0), 33);
  EXPECT_LT(secondsSince(start), 0.5);
}

TEST_F(Launching, OnlyHiddenLaunchesGoWithoutATimestamp) {
  ScopedEnvironment env;
  env.set("DESKTOP_STARTUP_ID", "inherited_TIME1");  // the host's own is never passed on
  fs::path out = dir_.path() / "id";
  fs::path p = script("id.sh", "echo \"$DESKTOP_STARTUP_ID\" > " + out.string() + "\n");
  EXPECT_EQ(run(p, "Hidden", 1), 33);
  EXPECT_EQ(slurp(out), "\n");
  EXPECT_EQ(run(p, "", 1), 33);
  std::string id = slurp(out);
  if (getenv("DISPLAY") == nullptr) {
    EXPECT_EQ(id, "\n");  // no display, no server time
  } else {
    size_t time = id.find("_TIME");
    ASSERT_NE(time, std::string::npos) << id;
    EXPECT_GT(std::stoul(id.substr(time + 5)), 0u) << id;
    EXPECT_EQ(id.find("inherited"), std::string::npos);
  }
}

// Ctrl-C in the message window ends a Wait at once, and the script stops there.
TEST_F(Launching, CtrlCEndsAWaitInTheMessageWindow) {
  fs::path pidFile = dir_.path() / "pid";
  fs::path p = script("long.sh", "echo $$ > " + pidFile.string() + "\nexec sleep 20\n");
  const std::string runner = fs::path(xtrasFolder()).parent_path() / "tessel";
  fs::path out = dir_.path() / "out";
  pid_t tessel = fork();
  if (tessel == 0) {
    int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fd, 1);
    dup2(fd, 2);
    const std::string code =
        "put tsRunProgram(\"" + p.string() + "\", \"\", 1)\nput \"after\"\n";
    execl(runner.c_str(), runner.c_str(), "--xtras", xtrasFolder().c_str(), "-e", code.c_str(),
          static_cast<char*>(nullptr));
    _exit(127);
  }
  ASSERT_GT(tessel, 0);
  eventually([&] { return !slurp(pidFile).empty(); });
  int program = atoi(slurp(pidFile).c_str());
  ASSERT_GT(program, 0) << slurp(out);
  auto start = Clock::now();
  kill(tessel, SIGINT);
  int status = 0;
  for (int i = 0; i < 300 && waitpid(tessel, &status, WNOHANG) == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  double took = secondsSince(start);
  if (took >= 3.0) {
    kill(tessel, SIGKILL);
    waitpid(tessel, &status, 0);
  }
  EXPECT_LT(took, 1.0) << slurp(out);
  EXPECT_EQ(slurp(out).find("after"), std::string::npos) << slurp(out);
  EXPECT_EQ(kill(program, 0), 0);  // the program itself goes on
  kill(program, SIGKILL);
}

TEST_F(Launching, NoChildIsLeftBehind) {
  EXPECT_EQ(run("/bin/true", "", 0), 33);
  EXPECT_EQ(run("/bin/true", "hidden", 0), 33);
  EXPECT_EQ(run("/bin/false", "", 1), 33);  // a program that fails later is not noticed
  EXPECT_EQ(shell("terminal", "true", "", ""), 33);
  fs::path p = script("quick.sh", "exit 0\n");
  EXPECT_EQ(shell("open", p.string(), "x", ""), 33);
  EXPECT_TRUE(childrenAllGone());
}

TEST_F(Launching, ProgramsThatCannotStartGiveZero) {
  // (A plain file is the reference's example.)
  for (const fs::path& p : {dir_.path(), dir_.path() / "missing", fs::path()})
    EXPECT_EQ(run(p, "", 1), 0) << p;
  // Host-style paths name the same program.
  fs::path out = dir_.path() / "ran";
  fs::path p = script("hfs.sh", "echo end > " + out.string() + "\n");
  std::string hfs = p.string();
  std::replace(hfs.begin(), hfs.end(), '/', ':');
  EXPECT_EQ(integer("tsRunProgram",
                    {Value(startupVolumeName(*host_) + hfs), Value(""), Value(1)}),
            33);
  EXPECT_EQ(slurp(out), "end\n");
}

TEST_F(Launching, BundlesRunTheirExecutable) {
  fs::path app = dir_.path() / "Player.app";
  dir_.file("Player.app/Contents/Info.plist",
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
            "<key>CFBundleExecutable</key><string>Player</string></dict></plist>\n");
  fs::path out = dir_.path() / "ran";
  fs::path exe = script("Player.app/Contents/MacOS/Player",
                        "sleep 0.4\n{ echo \"$0\"; for a; do echo \"$a\"; done; echo end; } > " +
                            out.string() + "\n");
  auto start = Clock::now();
  EXPECT_EQ(run(app, "", 1), 33);
  EXPECT_GE(secondsSince(start), 0.35);  // the wait follows the executable inside
  EXPECT_EQ(slurp(out), exe.string() + "\nend\n");
  // With Args the bundle's executable gets them split as a shell would, by no shell.
  fs::remove(out);
  EXPECT_EQ(shell("open", app.string(), "one 'two three' $HOME;", ""), 33);
  EXPECT_EQ(awaitFile(out), exe.string() + "\none\ntwo three\n$HOME;\nend\n");
  // A bundle without its executable starts nothing.
  fs::remove(exe);
  EXPECT_EQ(run(app, "", 0), 0);
  EXPECT_TRUE(childrenAllGone());
}

TEST_F(Launching, ShellCommandsAndTheirSeparateFolderChange) {
  EXPECT_EQ(shell("Terminal", "", "", ""), 0);  // (exit codes are the reference's example)
  // A command line is no path: a leading "/" and its ":" stay as written.
  fs::path colon = dir_.path() / "a:b";
  EXPECT_EQ(shell("terminal", "/bin/echo 12:30 > '" + colon.string() + "'", "", ""), 33);
  EXPECT_EQ(slurp(colon), "12:30\n");
  // The command line is cut to its 2,048-byte buffer.
  fs::path cut = dir_.path() / "cut";
  const std::string head = ">'" + cut.string() + "' echo ";
  EXPECT_EQ(shell("terminal", head + std::string(3000, 'x'), "", ""), 33);
  EXPECT_EQ(slurp(cut), std::string(2047 - head.size(), 'x') + "\n");

  // The change of folder has no effect on the command, and a folder name is never a command.
  fs::create_directories(dir_.path() / "sub");
  fs::path out = dir_.path() / "pwd";
  EXPECT_EQ(shell("terminal", "pwd > '" + out.string() + "'", "", (dir_.path() / "sub").string()),
            33);
  EXPECT_EQ(slurp(out), fs::current_path().string() + "\n");
  fs::path pwned = dir_.path() / "pwned";
  std::string evil = dir_.str() + "/it's'; touch '" + pwned.string() + "'; '";
  EXPECT_EQ(shell("terminal", "true", "", evil), 33);
  EXPECT_FALSE(fs::exists(pwned));
}

TEST_F(Launching, ShellOpenGivesArgsToTheProgramWithoutAShell) {
  fs::path out = dir_.path() / "args";
  fs::path p = script("args.sh", "printf '%s\\n' \"$@\" end > " + out.string() + "\n");
  fs::path pwned = dir_.path() / "pwned";
  EXPECT_EQ(shell("open", p.string(), "a 'b c' ';touch " + pwned.string() + "' $(x)", ""), 33);
  EXPECT_EQ(awaitFile(out), "a\nb c\n;touch " + pwned.string() + "\n$(x)\nend\n");
  EXPECT_FALSE(fs::exists(pwned));
  EXPECT_EQ(shell("open", (dir_.path() / "missing").string(), "a", ""), 0);
  // Args that do not split start the program without them.
  fs::remove(out);
  EXPECT_EQ(shell("open", p.string(), "'unterminated", ""), 33);
  EXPECT_EQ(awaitFile(out), "end\n");
}

// (A new alias and a second one of the same name are the reference's example.)
TEST_F(Launching, ShortcutsAreSymbolicLinksThatReplaceNothing) {
  fs::path target = dir_.file("doc.txt", "x");
  std::string links = dir_.str() + "/links";
  fs::create_directories(links);
  EXPECT_EQ(integer("tsMakeShortcut", {Value(target.string()), Value(links), Value("Doc")}), 1);
  EXPECT_EQ(fs::read_symlink(dir_.path() / "links" / "Doc"), target);
  // Not even a dangling link is replaced; a missing target makes no alias.
  fs::create_symlink(dir_.path() / "gone", dir_.path() / "links" / "Old");
  EXPECT_EQ(integer("tsMakeShortcut", {Value(target.string()), Value(links), Value("Old")}), 0);
  EXPECT_EQ(fs::read_symlink(dir_.path() / "links" / "Old"), dir_.path() / "gone");
  EXPECT_EQ(integer("tsMakeShortcut", {Value(dir_.str() + "/none"), Value(links), Value("N")}), 0);
}

// The desktop's default handlers, from a home of the test's own: a recorder application for text
// files and mail, a browser for the web.
class Handlers : public Launching {
 protected:
  Handlers() {
    env_.set("HOME", dir_.str());
    env_.set("XDG_DATA_HOME", dir_.str() + "/share");
    env_.set("XDG_CONFIG_HOME", dir_.str() + "/config");
    env_.set("XDG_DATA_DIRS", "/usr/share");  // the MIME database
    env_.set("XDG_CONFIG_DIRS", dir_.str() + "/etc");
    env_.unset("XDG_CURRENT_DESKTOP");
    for (const char* app : {"recorder", "browser"}) {
      fs::path log = dir_.path() / (std::string(app) + ".log");
      fs::path exe = script(std::string(app) + ".sh",
                            "{ printf '%s\\n' \"$@\"; readlink /proc/$$/fd/0 /proc/$$/fd/2; "
                            "echo end; } >> " + log.string() + "\n");
      dir_.file(std::string("share/applications/") + app + ".desktop",
                "[Desktop Entry]\nType=Application\nName=" + std::string(app) +
                    "\nExec=" + exe.string() + " %U\n");
    }
    dir_.file("config/mimeapps.list",
              "[Default Applications]\ntext/plain=recorder.desktop\n"
              "x-scheme-handler/mailto=recorder.desktop\n"
              "x-scheme-handler/http=browser.desktop\nx-scheme-handler/https=browser.desktop\n");
  }
  fs::path log(const char* app) { return dir_.path() / (std::string(app) + ".log"); }

  ScopedEnvironment env_;
};

TEST_F(Handlers, DocumentsOpenWithTheirDefaultApplication) {
  fs::path doc = dir_.file("read me.txt", "text");
  EXPECT_EQ(integer("tsOpenFile", {Value(doc.string()), Value("hidden")}), 33);
  EXPECT_EQ(awaitFile(log("recorder")), dir_.str() + "/read me.txt\n/dev/null\n/dev/null\nend\n");
  // A type nobody handles.
  fs::path odd = dir_.file("data.tesselodd", std::string("\x00\x01\x02\x03", 4));
  EXPECT_EQ(integer("tsOpenFile", {Value(odd.string()), Value("")}), 0);
  // tsShell's document route is the same.
  fs::remove(log("recorder"));
  EXPECT_EQ(shell("open", doc.string(), "", ""), 33);
  EXPECT_NE(awaitFile(log("recorder")).find("read me.txt"), std::string::npos);
  EXPECT_TRUE(childrenAllGone());
}

TEST_F(Handlers, URLsGoToTheirSchemesHandlerElseTheBrowser) {
  EXPECT_EQ(integer("tsOpenURL", {Value("http://example.org/a b"), Value("")}), 1);
  EXPECT_EQ(awaitFile(log("browser")), "http://example.org/a b\n/dev/null\n/dev/null\nend\n");
  fs::remove(log("browser"));
  EXPECT_EQ(integer("tsOpenURL", {Value("tessel-nothing:thing"), Value("")}), 1);
  EXPECT_EQ(awaitFile(log("browser")), "tessel-nothing:thing\n/dev/null\n/dev/null\nend\n");
  EXPECT_EQ(integer("tsOpenURL", {Value("mailto:someone@example.org"), Value("")}), 1);
  EXPECT_EQ(awaitFile(log("recorder")), "mailto:someone@example.org\n/dev/null\n/dev/null\nend\n");
}

// (Which codes stand for which types is the unit tests' table, the desktop file tsFindApp
// answers the reference's example.) A desktop file runs as the application it describes, here
// with no documents.
TEST_F(Handlers, DesktopFilesRunAsTheirApplication) {
  EXPECT_EQ(text("tsFindApp", {Value(".")}), "");  // a code, not an empty extension
  EXPECT_EQ(run(dir_.path() / "share/applications/recorder.desktop", "", 0), 33);
  EXPECT_EQ(awaitFile(log("recorder")), "\n/dev/null\n/dev/null\nend\n");
}

}  // namespace
}  // namespace tessel::testing
