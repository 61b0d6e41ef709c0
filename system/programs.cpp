#include "system/programs.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "files/file_queries.h"
#include "paths/ascii.h"
#include "paths/paths.h"
#include "platform/files.h"
#include "platform/launcher.h"
#include "windows/wait_loop.h"

namespace tessel::system {
namespace {

constexpr int32_t kLaunched = 33;
constexpr size_t kCommandLen = 2048;  // a command line with its terminating zero

bool sameWord(std::string_view a, std::string_view b) { return paths::equalsIgnoringCase(a, b); }

bool endsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

std::optional<platform::FileInfo> infoOf(const std::string& native) {
  if (native.empty()) return std::nullopt;
  return platform::fileService().info(native);
}

// What a program path starts: the executable inside a bundle, else the file itself.
std::string programToRun(std::string_view path, const std::string& native) {
  if (files::isBundle(path) != 0) {
    std::string app = files::bundleApp(path);
    return app.empty() ? std::string() : paths::nativePath(app);
  }
  return native;
}

// Starts a program file (a .desktop file through the desktop's launcher) with `args`, `hidden`
// without a launch timestamp; the process id, 0 when the launcher gave none, nothing on failure.
std::optional<int32_t> startProgram(std::string_view path, const std::vector<std::string>& args,
                                    bool hidden) {
  std::string native = paths::nativePath(path);
  auto info = infoOf(native);
  if (!info) return std::nullopt;
  platform::LauncherService& launcher = platform::launcherService();
  if (info->kind == platform::FileKind::File && endsWith(native, ".desktop"))
    return launcher.launchDesktopFile(native, args, hidden);
  std::string program = programToRun(path, native);
  auto target = infoOf(program);
  if (!target || target->kind != platform::FileKind::File) return std::nullopt;
  return launcher.spawn(program, args, hidden);
}

}  // namespace

std::string shellQuote(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'') out += "'\\''";
    else out += c;
  }
  return out + "'";
}

int32_t runProgram(std::string_view program, std::string_view state, int32_t wait) {
  auto pid = startProgram(program, {}, sameWord(state, "hidden"));
  if (!pid) return 0;
  if (wait != 0 && *pid > 0) windows::waitForProcess(*pid, windows::WaitState::Closed, 0);
  return kLaunched;
}

int32_t openFile(std::string_view file, std::string_view) {
  std::string native = paths::nativePath(file);
  if (!infoOf(native)) return 0;
  return platform::launcherService().openDocument(native) ? kLaunched : 0;
}

int32_t printFile(std::string_view file) {
  std::string native = paths::nativePath(file);
  auto info = infoOf(native);
  if (!info || info->kind != platform::FileKind::File) return 0;
  std::string title = native.substr(native.rfind('/') + 1);
  return platform::launcherService().printFile(native, title) > 0 ? kLaunched : 0;
}

int32_t openURL(std::string_view url, std::string_view) {
  if (url.empty()) return 0;
  return platform::launcherService().openURL(std::string(url)) ? 1 : 0;
}

int32_t shell(std::string_view operation, std::string_view file, std::string_view args,
              std::string_view workDir, std::string_view) {
  if (file.empty()) return 0;
  platform::LauncherService& launcher = platform::launcherService();
  if (!workDir.empty()) {
    // The change of folder runs in a shell of its own, so it does not reach the command below;
    // the folder is quoted, so no name can become a command.
    std::string dir = workDir[0] == '/' ? std::string(workDir) : paths::nativePath(workDir);
    if (!dir.empty()) launcher.runShell(("cd " + shellQuote(dir)).substr(0, kCommandLen - 1));
  }
  if (sameWord(operation, "terminal") || sameWord(operation, "system")) {
    std::string command(file.substr(0, kCommandLen - 1));
    return launcher.runShell(command) == 0 ? kLaunched : 0;
  }
  if (args.empty()) {
    std::string native = paths::nativePath(file);
    if (!infoOf(native)) return 0;
    return launcher.openDocument(native) ? kLaunched : 0;
  }
  // FileName opens Args: the arguments are cut where a command line "open -a 'FileName' Args"
  // would end, then split as a shell would split them, without a shell.
  size_t head = std::string("open -a ").size() + shellQuote(file).size() + 1;
  std::string cut(head < kCommandLen - 1 ? args.substr(0, kCommandLen - 1 - head) : "");
  return startProgram(file, platform::splitCommandLine(cut), false) ? kLaunched : 0;
}

int32_t makeShortcut(std::string_view file, std::string_view folder, std::string_view title) {
  if (title.empty() || title == "." || title == "..") return 0;
  platform::FileService& fs = platform::fileService();
  std::string target = paths::nativePath(file);
  std::string dir = paths::nativePath(folder);
  if (target.empty() || dir.empty() || !fs.info(target, false)) return 0;
  auto dirInfo = fs.info(dir);
  if (!dirInfo || dirInfo->kind != platform::FileKind::Folder) return 0;
  // "/" in a name stands for the ":" of a Linux name, as everywhere in host paths.
  std::string name(title);
  std::replace(name.begin(), name.end(), '/', ':');
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  std::string link = (dir == "/" ? "" : dir) + "/" + name;
  // An alias never takes the place of an existing item, not even of a dangling link.
  if (fs.info(link, false)) return 0;
  if (!fs.createLink(target, link)) return 0;
  fs.syncFolder(dir);
  return 1;
}

// File managers watch folders themselves (inotify): there is nothing to tell them.
void refreshFiles() {}

}  // namespace tessel::system
