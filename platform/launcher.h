// Starting programs and handing documents, URLs and print jobs to the desktop's handlers.
//
// Programs start without a shell (only `runShell` uses one, because its command line is a shell
// command by definition); every child gets /dev/null for its standard streams and no other
// descriptor of the host, and is never left as a zombie.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessel::platform {

class LauncherService {
 public:
  virtual ~LauncherService() = default;

  // Starts the executable `path` with `args` (argv[1...]); the new process's id, or nothing
  // when it could not be started. The process belongs to no one in the host: it is reaped by
  // the system when it ends. A `hidden` program gets no launch timestamp and its windows are kept
  // under the active window (keepBehindActiveWindow); any other gets the X server's current time.
  virtual std::optional<int32_t> spawn(const std::string& path,
                                       const std::vector<std::string>& args, bool hidden) = 0;
  // Launches the application a .desktop file describes, with `files` (paths or URLs) as its
  // documents, `hidden` as for `spawn`. The process id when the launcher reported one, 0 when it
  // started without one (an application started over D-Bus), nothing on failure.
  virtual std::optional<int32_t> launchDesktopFile(const std::string& desktopFile,
                                                   const std::vector<std::string>& files,
                                                   bool hidden) = 0;
  // Runs `command` with /bin/sh -c and waits for it; its exit status, or -1.
  virtual int runShell(const std::string& command) = 0;

  // The MIME type of files with this extension ("pdf"); "" when it is not known for sure.
  virtual std::string contentTypeForExtension(const std::string& extension) = 0;
  // The .desktop file of the default application for a MIME type or of the handler of a URL
  // scheme ("x-scheme-handler/http"); "" when there is none.
  virtual std::string defaultApplication(const std::string& contentType) = 0;
  // Opens an existing file or folder with its default application.
  virtual bool openDocument(const std::string& path) = 0;
  // Opens a URL with the handler of its scheme, or the web browser when the scheme has none.
  virtual bool openURL(const std::string& url) = 0;
  // Prints a file on the default printer; the job id, or 0 when no job was made.
  virtual int32_t printFile(const std::string& path, const std::string& title) = 0;
};

// The service in use: the Linux backend unless a test installed another.
LauncherService& launcherService();

// Installs `service` (nullptr restores the Linux backend) and returns the one it replaces.
std::unique_ptr<LauncherService> setLauncherService(std::unique_ptr<LauncherService> service);

std::unique_ptr<LauncherService> makeLinuxLauncherService();

// The arguments a shell would make of `commandLine` (quotes and backslashes honoured), without
// running a shell; empty when the line does not parse (an unclosed quote) or holds nothing.
std::vector<std::string> splitCommandLine(const std::string& commandLine);

}  // namespace tessel::platform
