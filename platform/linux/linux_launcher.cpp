// The launcher service on Linux: posix_spawn for programs (no shell), GIO for applications,
// default handlers and content types, libcups for printing.
#include <cups/cups.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <X11/Xatom.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>

#include "platform/launcher.h"
#include "platform/linux/background_launch.h"
#include "platform/linux/deadline.h"
#include "platform/linux/x11_connection.h"

extern char** environ;

namespace tessel::platform {
namespace {

// The parts of a posix_spawn call every child of the module shares: /dev/null for its standard
// streams, no other descriptor, default signal dispositions and an empty signal mask whatever the
// host set for itself.
class SpawnSetup {
 public:
  explicit SpawnSetup(bool newSession) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions_, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, 1, 2);
    posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
    posix_spawnattr_init(&attributes_);
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    if (newSession) flags |= POSIX_SPAWN_SETSID;
    posix_spawnattr_setflags(&attributes_, flags);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  int spawn(pid_t* pid, const char* path, char* const argv[], char* const envp[] = environ) {
    return posix_spawn(pid, path, &actions_, &attributes_, argv, envp);
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// The X server's current time, the one clock window managers compare launch times with. The
// server stamps a property change on a window of our own and the event carries the time. The
// connection and the window are kept for later launches; a broken connection is opened again.
class ServerClock {
 public:
  ~ServerClock() { close(); }

  // 0 when there is no display or it does not answer within half a second.
  uint32_t now() {
    if (connection_ && !connection_->alive()) close();
    if (!connection_ && !open()) return 0;
    Display* d = connection_->display();
    XChangeProperty(d, window_, stamp_, XA_STRING, 8, PropModeAppend, nullptr, 0);
    XFlush(d);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    while (connection_->alive()) {
      while (XPending(d) > 0) {
        XEvent e;
        XNextEvent(d, &e);
        if (e.type == PropertyNotify && e.xproperty.window == window_)
          return static_cast<uint32_t>(e.xproperty.time);
      }
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      pollfd p{ConnectionNumber(d), POLLIN, 0};
      ::poll(&p, 1, static_cast<int>(left.count()));
    }
    return 0;
  }

 private:
  bool open() {
    connection_ = x11::X11Connection::open();
    if (!connection_) return false;
    Display* d = connection_->display();
    x11::X11ErrorTrap trap(d);
    XSetWindowAttributes attributes{};
    attributes.event_mask = PropertyChangeMask;
    window_ = XCreateWindow(d, DefaultRootWindow(d), -1, -1, 1, 1, 0, CopyFromParent, InputOnly,
                            CopyFromParent, CWEventMask, &attributes);
    stamp_ = XInternAtom(d, "_TESSEL_LAUNCH_TIME", False);
    if (trap.sync() != 0 || window_ == 0) {
      connection_.reset();
      return false;
    }
    return true;
  }
  void close() {
    if (connection_ && connection_->alive() && window_ != 0) {
      x11::X11ErrorTrap trap(connection_->display());
      XDestroyWindow(connection_->display(), window_);
      trap.sync();
    }
    connection_.reset();
    window_ = 0;
  }

  std::unique_ptr<x11::X11Connection> connection_;
  Window window_ = 0;
  Atom stamp_ = 0;
};

ServerClock& serverClock() {
  static ServerClock clock;
  return clock;
}

// The startup identifier of a launch, carrying its timestamp the way the desktop's startup
// notification writes it ("..._TIME<server time>"); "" for a hidden launch or without a display.
std::string startupId(bool hidden) {
  if (hidden) return {};
  uint32_t time = serverClock().now();
  if (time == 0) return {};
  static unsigned serial = 0;
  return "tessel-" + std::to_string(::getpid()) + "-" + std::to_string(++serial) + "_TIME" +
         std::to_string(time);
}

// The host's environment for a child, with the child's own startup identifier (or none).
std::vector<std::string> childEnvironment(const std::string& id) {
  std::vector<std::string> env;
  for (char** e = environ; *e != nullptr; ++e)
    if (std::strncmp(*e, "DESKTOP_STARTUP_ID=", 19) != 0) env.emplace_back(*e);
  if (!id.empty()) env.push_back("DESKTOP_STARTUP_ID=" + id);
  return env;
}

std::vector<char*> argvOf(const std::string& path, const std::vector<std::string>& args) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(path.c_str()));
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  return argv;
}

pid_t waitChild(pid_t pid, int* status) {
  pid_t r;
  do r = ::waitpid(pid, status, 0);
  while (r < 0 && errno == EINTR);
  return r;
}

// An open /dev/null for GIO's children, closed with the object.
struct DevNull {
  int fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  ~DevNull() {
    if (fd >= 0) ::close(fd);
  }
};

template <typename T>
struct GObjectRef {
  T* p = nullptr;
  ~GObjectRef() {
    if (p != nullptr) g_object_unref(p);
  }
};

void recordPid(GDesktopAppInfo*, GPid pid, gpointer data) { *static_cast<int32_t*>(data) = pid; }

// Launches a desktop application with URIs under a startup identifier; the process id (0 when
// none was reported).
std::optional<int32_t> launchNow(GDesktopAppInfo* app, const std::vector<std::string>& uris,
                                 const std::string& id) {
  DevNull null;
  if (null.fd < 0) return std::nullopt;
  GList* list = nullptr;
  for (const std::string& u : uris) list = g_list_append(list, const_cast<char*>(u.c_str()));
  GObjectRef<GAppLaunchContext> context{g_app_launch_context_new()};
  if (id.empty()) g_app_launch_context_unsetenv(context.p, "DESKTOP_STARTUP_ID");
  else g_app_launch_context_setenv(context.p, "DESKTOP_STARTUP_ID", id.c_str());
  int32_t pid = 0;
  GError* error = nullptr;
  // No G_SPAWN_DO_NOT_REAP_CHILD: GLib starts the application through an intermediate process
  // that it reaps at once, so no zombie is left behind in the host.
  gboolean ok = g_desktop_app_info_launch_uris_as_manager_with_fds(
      app, list, context.p, G_SPAWN_SEARCH_PATH, nullptr, nullptr, recordPid, &pid, null.fd,
      null.fd, null.fd, &error);
  g_list_free(list);
  if (error != nullptr) g_error_free(error);
  if (!ok) return std::nullopt;
  return pid;
}

// GIO reaches the session bus synchronously before every launch (to announce it, or to start the
// application over D-Bus), with no time-out of its own; each launch gets this long.
constexpr auto kLaunchDeadline = std::chrono::seconds(3);

DeadlineGate& launchGate() {
  static DeadlineGate gate;
  return gate;
}

// Launches a desktop application with URIs; the process id (0 when none was reported), nothing
// on failure or when GIO did not finish within the deadline.
std::optional<int32_t> launchWith(GDesktopAppInfo* app, const std::vector<std::string>& uris,
                                  bool hidden) {
  std::string id = startupId(hidden);
  g_object_ref(app);
  std::shared_ptr<GDesktopAppInfo> owned(app, g_object_unref);
  std::function<std::optional<int32_t>()> work = [owned, uris, id] {
    return launchNow(owned.get(), uris, id);
  };
  return launchGate().run(std::move(work), kLaunchDeadline).value_or(std::nullopt);
}

std::string uriOf(const std::string& item) {
  if (!item.empty() && item[0] == '/') {
    gchar* uri = g_filename_to_uri(item.c_str(), nullptr, nullptr);
    std::string out = uri != nullptr ? uri : "";
    g_free(uri);
    return out;
  }
  return item;
}

GDesktopAppInfo* defaultDesktopApp(const char* contentType) {
  GAppInfo* app = g_app_info_get_default_for_type(contentType, FALSE);
  if (app == nullptr) return nullptr;
  if (!G_IS_DESKTOP_APP_INFO(app)) {
    g_object_unref(app);
    return nullptr;
  }
  return G_DESKTOP_APP_INFO(app);
}

bool launchDefault(const char* contentType, const std::string& uri) {
  GObjectRef<GDesktopAppInfo> app{defaultDesktopApp(contentType)};
  if (app.p == nullptr) return false;
  return launchWith(app.p, {uri}, false).has_value();
}

// Gives up on a CUPS request that has had no answer for the connection's time-out.
int giveUp(http_t*, void*) { return 0; }

class LinuxLauncherService final : public LauncherService {
 public:
  std::optional<int32_t> spawn(const std::string& path, const std::vector<std::string>& args,
                               bool hidden) override {
    std::vector<char*> argv = argvOf(path, args);
    std::vector<std::string> environment = childEnvironment(startupId(hidden));
    std::vector<char*> envp;
    for (std::string& e : environment) envp.push_back(e.data());
    envp.push_back(nullptr);
    SpawnSetup setup(true);
    // The program is started by a short-lived intermediate process that ends at once and is
    // reaped here; the program itself then belongs to the system's reaper, so neither leaves a
    // zombie, whether or not anyone waits for it. The intermediate reports the new process id
    // (or the error) through a close-on-exec pipe.
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) return std::nullopt;
    pid_t middle = ::fork();
    if (middle < 0) {
      ::close(report[0]);
      ::close(report[1]);
      return std::nullopt;
    }
    if (middle == 0) {
      pid_t child = 0;
      int32_t message[2] = {setup.spawn(&child, path.c_str(), argv.data(), envp.data()), child};
      ssize_t written = ::write(report[1], message, sizeof message);
      ::_exit(written == static_cast<ssize_t>(sizeof message) ? 0 : 1);
    }
    ::close(report[1]);
    int32_t message[2] = {-1, 0};
    size_t got = 0;
    while (got < sizeof message) {
      ssize_t n = ::read(report[0], reinterpret_cast<char*>(message) + got, sizeof message - got);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    ::close(report[0]);
    int status = 0;
    waitChild(middle, &status);
    if (got != sizeof message || message[0] != 0 || message[1] <= 0) return std::nullopt;
    if (hidden) keepBehindActiveWindow(message[1]);
    return message[1];
  }

  std::optional<int32_t> launchDesktopFile(const std::string& desktopFile,
                                           const std::vector<std::string>& files,
                                           bool hidden) override {
    GObjectRef<GDesktopAppInfo> app{g_desktop_app_info_new_from_filename(desktopFile.c_str())};
    if (app.p == nullptr) return std::nullopt;
    std::vector<std::string> uris;
    for (const std::string& f : files) uris.push_back(uriOf(f));
    std::optional<int32_t> pid = launchWith(app.p, uris, hidden);
    if (hidden && pid.value_or(0) > 0) keepBehindActiveWindow(*pid);
    return pid;
  }

  int runShell(const std::string& command) override {
    static const std::string shell = "/bin/sh";
    std::vector<std::string> args = {"-c", command};
    std::vector<char*> argv = argvOf(shell, args);
    argv[0] = const_cast<char*>("sh");
    SpawnSetup setup(false);
    pid_t pid = 0;
    if (setup.spawn(&pid, shell.c_str(), argv.data()) != 0) return -1;
    int status = 0;
    if (waitChild(pid, &status) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string contentTypeForExtension(const std::string& extension) override {
    std::string name = "file." + extension;
    gboolean uncertain = FALSE;
    gchar* type = g_content_type_guess(name.c_str(), nullptr, 0, &uncertain);
    if (type == nullptr) return {};
    gchar* mime = g_content_type_get_mime_type(type);
    std::string out = mime != nullptr ? mime : "";
    g_free(mime);
    g_free(type);
    // An unknown extension comes back as an uncertain guess of raw data: no type at all.
    if (uncertain && out == "application/octet-stream") return {};
    return out;
  }

  std::string defaultApplication(const std::string& contentType) override {
    GObjectRef<GDesktopAppInfo> app{defaultDesktopApp(contentType.c_str())};
    if (app.p == nullptr) return {};
    const char* file = g_desktop_app_info_get_filename(app.p);
    return file != nullptr ? file : "";
  }

  bool openDocument(const std::string& path) override {
    GObjectRef<GFile> file{g_file_new_for_path(path.c_str())};
    GError* error = nullptr;
    GObjectRef<GFileInfo> info{g_file_query_info(file.p, G_FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE,
                                                 G_FILE_QUERY_INFO_NONE, nullptr, &error)};
    if (error != nullptr) g_error_free(error);
    if (info.p == nullptr) return false;
    const char* type = g_file_info_get_content_type(info.p);
    if (type == nullptr) return false;
    return launchDefault(type, uriOf(path));
  }

  bool openURL(const std::string& url) override {
    gchar* scheme = g_uri_parse_scheme(url.c_str());
    std::string s = scheme != nullptr ? scheme : "";
    g_free(scheme);
    if (g_ascii_strcasecmp(s.c_str(), "file") == 0) {
      gchar* path = g_filename_from_uri(url.c_str(), nullptr, nullptr);
      bool ok = path != nullptr && openDocument(path);
      g_free(path);
      return ok;
    }
    if (!s.empty()) {
      std::string handler = "x-scheme-handler/" + s;
      if (launchDefault(handler.c_str(), url)) return true;
    }
    // No handler of its own: the web browser takes it.
    for (const char* browser : {"x-scheme-handler/http", "x-scheme-handler/https", "text/html"})
      if (launchDefault(browser, url)) return true;
    return false;
  }

  int32_t printFile(const std::string& path, const std::string& title) override {
    // libcups keeps its settings per thread, freed only when the thread ends; it stays loaded
    // when the module is unloaded, so that the host's thread can still free them.
    dlopen("libcups.so.2", RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    // The server as the user configured it (CUPS_SERVER, ~/.cups/client.conf, the system's
    // client.conf); no server, no wait: the connection itself has a short deadline.
    http_t* http = httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1,
                                2000, nullptr);
    if (http == nullptr) return 0;
    httpSetTimeout(http, 10.0, giveUp, nullptr);
    cups_dest_t* dests = nullptr;
    int count = cupsGetDests2(http, &dests);
    // The default destination, honouring lpoptions and $PRINTER.
    cups_dest_t* dest = cupsGetDest(nullptr, nullptr, count, dests);
    int job = 0;
    if (dest != nullptr)
      job = cupsPrintFile2(http, dest->name, path.c_str(), title.c_str(), dest->num_options,
                           dest->options);
    cupsFreeDests(count, dests);
    httpClose(http);
    return job > 0 ? job : 0;
  }
};

}  // namespace

std::unique_ptr<LauncherService> makeLinuxLauncherService() {
  return std::make_unique<LinuxLauncherService>();
}

std::vector<std::string> splitCommandLine(const std::string& commandLine) {
  std::vector<std::string> argv;
  gchar** parsed = nullptr;
  if (!commandLine.empty() && g_shell_parse_argv(commandLine.c_str(), nullptr, &parsed, nullptr)) {
    for (gchar** p = parsed; *p != nullptr; ++p) argv.emplace_back(*p);
    g_strfreev(parsed);
  }
  return argv;
}

}  // namespace tessel::platform
