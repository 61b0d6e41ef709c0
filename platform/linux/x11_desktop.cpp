// The desktop service on X11: the window manager's client list (EWMH, with an ICCCM fallback
// when no EWMH manager runs), processes through X-Resource and /proc, keys and buttons through
// XTest with the current XKB layout.
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/desktop.h"
#include "platform/linux/x11_connection.h"

namespace tessel::platform {
namespace {

using x11::X11Connection;
using x11::X11ErrorTrap;

// ---- Processes ------------------------------------------------------------------------------------

int openPidfd(int32_t pid) {
  if (pid <= 0) return -1;
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

// The state letter of /proc/PID/stat; 0 when the process is gone.
char processState(int32_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return 0;
  size_t close = line.rfind(')');
  if (close == std::string::npos || close + 2 >= line.size()) return 0;
  return line[close + 2];
}

uint32_t monotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000000u +
                               static_cast<uint64_t>(now.tv_nsec) / 1000u);
}

std::string thisHost() {
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  return name;
}

// ---- Atoms ------------------------------------------------------------------------------------------

enum AtomIndex {
  A_NET_CLIENT_LIST,
  A_NET_CLIENT_LIST_STACKING,
  A_NET_ACTIVE_WINDOW,
  A_NET_CLOSE_WINDOW,
  A_NET_SUPPORTING_WM_CHECK,
  A_NET_WM_NAME,
  A_NET_WM_PID,
  A_UTF8_STRING,
  A_WM_PROTOCOLS,
  A_WM_DELETE_WINDOW,
  A_WM_STATE,
  A_TESSEL_TIME,
  kAtomCount
};

constexpr const char* kAtomNames[kAtomCount] = {
    "_NET_CLIENT_LIST", "_NET_CLIENT_LIST_STACKING", "_NET_ACTIVE_WINDOW", "_NET_CLOSE_WINDOW",
    "_NET_SUPPORTING_WM_CHECK", "_NET_WM_NAME", "_NET_WM_PID", "UTF8_STRING", "WM_PROTOCOLS",
    "WM_DELETE_WINDOW", "WM_STATE", "_TESSEL_TIME"};

// A property's value through xcb, so that many can be asked for before the first answer.
struct PropertyRequest {
  xcb_get_property_cookie_t cookie{};
};

class LinuxDesktop final : public DesktopService {
 public:
  ~LinuxDesktop() override { closeConnection(); }

  // ---- Processes ------------------------------------------------------------------------------
  int32_t ownPid() override { return static_cast<int32_t>(getpid()); }

  bool processAlive(int32_t pid) override {
    if (pid <= 0) return false;
    int fd = openPidfd(pid);
    if (fd < 0 && errno == ESRCH) return false;
    if (fd >= 0) ::close(fd);
    char state = processState(pid);
    return state != 0 && state != 'Z' && state != 'X';
  }

  std::string executablePath(int32_t pid) override {
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

  std::string commandName(int32_t pid) override {
    if (pid <= 0) return {};
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
  }

  bool terminate(int32_t pid) override {
    if (pid <= 0 || !processAlive(pid)) return false;
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

  uint32_t microseconds() override { return monotonicMicroseconds(); }

  void waitRound(int32_t pid, int milliseconds) override {
    Display* dpy = display();
    if (dpy != nullptr && XPending(dpy) > 0) {
      drainEvents(dpy);
      return;
    }
    if (pid != watchedPid_) {
      if (watchedFd_ >= 0) ::close(watchedFd_);
      watchedFd_ = openPidfd(pid);
      watchedPid_ = pid;
    }
    std::array<pollfd, 2> fds{};
    nfds_t count = 0;
    if (dpy != nullptr) fds[count++] = {ConnectionNumber(dpy), POLLIN, 0};
    if (watchedFd_ >= 0) fds[count++] = {watchedFd_, POLLIN, 0};
    if (count == 0) {
      timespec pause{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
      nanosleep(&pause, nullptr);
      return;
    }
    ::poll(fds.data(), count, milliseconds);
    if (dpy != nullptr) drainEvents(dpy);
  }

  // ---- Windows --------------------------------------------------------------------------------
  bool displayAvailable() override { return display() != nullptr; }

  std::vector<ManagedWindow> clientWindows() override {
    std::vector<ManagedWindow> out;
    Display* dpy = display();
    if (dpy == nullptr) return out;
    std::vector<WindowId> ids = ewmh() ? rootWindowList(atoms_[A_NET_CLIENT_LIST]) : icccmClients();
    if (ids.empty()) return out;
    xcb_connection_t* c = XGetXCBConnection(dpy);
    // Every property of every window is asked for before the first answer is read.
    enum { P_CLASS, P_NETNAME, P_NAME, P_PROTOCOLS, P_PID, P_MACHINE, kProps };
    const xcb_atom_t props[kProps] = {XCB_ATOM_WM_CLASS, static_cast<xcb_atom_t>(atoms_[A_NET_WM_NAME]),
                                      XCB_ATOM_WM_NAME, static_cast<xcb_atom_t>(atoms_[A_WM_PROTOCOLS]),
                                      static_cast<xcb_atom_t>(atoms_[A_NET_WM_PID]),
                                      XCB_ATOM_WM_CLIENT_MACHINE};
    std::vector<xcb_get_property_cookie_t> cookies(ids.size() * kProps);
    for (size_t i = 0; i < ids.size(); ++i)
      for (int p = 0; p < kProps; ++p)
        cookies[i * kProps + static_cast<size_t>(p)] =
            xcb_get_property(c, 0, static_cast<xcb_window_t>(ids[i]), props[p], XCB_ATOM_ANY, 0, 4096);
    std::unordered_map<WindowId, int32_t> serverPids = pidsFromServer(dpy, ids);
    const std::string host = thisHost();
    out.reserve(ids.size());
    for (size_t i = 0; i < ids.size(); ++i) {
      std::array<std::string, kProps> values;
      bool gone = false;
      for (int p = 0; p < kProps; ++p) {
        xcb_generic_error_t* error = nullptr;
        xcb_get_property_reply_t* reply =
            xcb_get_property_reply(c, cookies[i * kProps + static_cast<size_t>(p)], &error);
        if (error != nullptr) gone = true;
        free(error);
        if (reply == nullptr) continue;
        int length = xcb_get_property_value_length(reply);
        const char* data = static_cast<const char*>(xcb_get_property_value(reply));
        if (length > 0) values[static_cast<size_t>(p)].assign(data, static_cast<size_t>(length));
        if (p == P_PROTOCOLS && reply->format != 32) values[static_cast<size_t>(p)].clear();
        if (p == P_PID && (reply->format != 32 || length < 4)) values[static_cast<size_t>(p)].clear();
        free(reply);
      }
      if (gone) continue;  // destroyed while we asked
      ManagedWindow window;
      window.id = ids[i];
      // WM_CLASS is "instance\0class\0".
      const std::string& wmClass = values[P_CLASS];
      size_t nul = wmClass.find('\0');
      if (nul != std::string::npos) {
        std::string cls = wmClass.substr(nul + 1);
        window.wmClass = cls.substr(0, cls.find('\0'));
      }
      window.title = !values[P_NETNAME].empty() ? values[P_NETNAME] : values[P_NAME];
      window.title = window.title.substr(0, window.title.find('\0'));
      const std::string& protocols = values[P_PROTOCOLS];
      for (size_t k = 0; k + 4 <= protocols.size(); k += 4) {
        uint32_t atom = 0;
        std::copy_n(protocols.data() + k, 4, reinterpret_cast<char*>(&atom));
        if (atom == atoms_[A_WM_DELETE_WINDOW]) window.acceptsDelete = true;
      }
      if (auto found = serverPids.find(window.id); found != serverPids.end()) {
        window.pid = found->second;
      } else if (values[P_PID].size() >= 4) {
        std::string machine = values[P_MACHINE].substr(0, values[P_MACHINE].find('\0'));
        uint32_t pid = 0;
        std::copy_n(values[P_PID].data(), 4, reinterpret_cast<char*>(&pid));
        if (!machine.empty() && machine == host && pid > 0 && pid <= INT32_MAX)
          window.pid = static_cast<int32_t>(pid);
      }
      out.push_back(std::move(window));
    }
    return out;
  }

  std::vector<WindowId> stackingOrder() override {
    if (display() == nullptr) return {};
    return ewmh() ? rootWindowList(atoms_[A_NET_CLIENT_LIST_STACKING]) : icccmClients();
  }

  WindowId activeWindow() override {
    Display* dpy = display();
    if (dpy == nullptr) return 0;
    if (!ewmh()) return icccmFocus(dpy);
    auto list = rootWindowList(atoms_[A_NET_ACTIVE_WINDOW]);
    return list.empty() ? 0 : list.front();
  }

  bool activate(WindowId window, int waitMs) override {
    Display* dpy = display();
    if (dpy == nullptr || window == 0) return false;
    X11ErrorTrap trap(dpy);
    if (!ewmh()) {
      XRaiseWindow(dpy, window);
      XSetInputFocus(dpy, window, RevertToParent, CurrentTime);
      return trap.sync() == 0;
    }
    // Source 2: a request on the user's behalf (as a pager or task bar makes), which the
    // manager honours without focus-stealing prevention, with a real server time.
    sendToRoot(dpy, window, atoms_[A_NET_ACTIVE_WINDOW], {2, static_cast<long>(serverTime(dpy)), 0, 0, 0});
    if (trap.sync() != 0) return false;
    const uint32_t start = monotonicMicroseconds();
    for (;;) {
      if (activeWindow() == window) break;
      const uint32_t spent = (monotonicMicroseconds() - start) / 1000;
      if (spent >= static_cast<uint32_t>(waitMs)) break;
      pollfd p{ConnectionNumber(dpy), POLLIN, 0};
      if (XPending(dpy) == 0) ::poll(&p, 1, waitMs - static_cast<int>(spent));
      drainEvents(dpy);
    }
    return true;
  }

  bool requestClose(WindowId window) override {
    Display* dpy = display();
    if (dpy == nullptr) return false;
    X11ErrorTrap trap(dpy);
    if (ewmh()) {
      sendToRoot(dpy, window, atoms_[A_NET_CLOSE_WINDOW], {static_cast<long>(serverTime(dpy)), 2, 0, 0, 0});
    } else {
      XEvent event{};
      event.xclient.type = ClientMessage;
      event.xclient.window = window;
      event.xclient.message_type = atoms_[A_WM_PROTOCOLS];
      event.xclient.format = 32;
      event.xclient.data.l[0] = static_cast<long>(atoms_[A_WM_DELETE_WINDOW]);
      event.xclient.data.l[1] = static_cast<long>(serverTime(dpy));
      XSendEvent(dpy, window, False, NoEventMask, &event);
    }
    return trap.sync() == 0;
  }

  // ---- Input ----------------------------------------------------------------------------------
  bool postKeys(const std::vector<KeyEvent>& events) override;
  bool anyKeyDown(const std::vector<uint32_t>& keysyms) override;
  bool click(int button) override;

 private:
  // The connection, opened on first use and again after it broke; null without a display.
  Display* display() {
    if (connection_ && !connection_->alive()) closeConnection();
    if (!connection_) {
      // Not retried within the same second: a missing display would cost a connect per call.
      const uint32_t now = monotonicMicroseconds();
      if (triedOpen_ && now - lastOpenAttempt_ < 1000000) return nullptr;
      triedOpen_ = true;
      lastOpenAttempt_ = now;
      connection_ = X11Connection::open();
      if (!connection_) return nullptr;
      Display* dpy = connection_->display();
      XInternAtoms(dpy, const_cast<char**>(kAtomNames), kAtomCount, False, atoms_.data());
      root_ = DefaultRootWindow(dpy);
      XSelectInput(dpy, root_, PropertyChangeMask);
      XSetWindowAttributes attributes{};
      attributes.event_mask = PropertyChangeMask;
      helper_ = XCreateWindow(dpy, root_, -10, -10, 1, 1, 0, 0, InputOnly, CopyFromParent,
                              CWEventMask, &attributes);
      int major = 0, minor = 0, event = 0, error = 0;
      hasXRes_ = XResQueryExtension(dpy, &event, &error) &&
                 XResQueryVersion(dpy, &major, &minor) && (major > 1 || (major == 1 && minor >= 2));
      hasXTest_ = XTestQueryExtension(dpy, &event, &error, &major, &minor);
      resourceMask_ = xcb_get_setup(XGetXCBConnection(dpy))->resource_id_mask;
    }
    Display* dpy = connection_->display();
    // Notifications read in passing (the root's property changes) are only wake-ups for the
    // wait loop; they are dropped here so that the queue stays short between calls.
    while (XQLength(dpy) > 0) {
      XEvent event;
      XNextEvent(dpy, &event);
    }
    return dpy;
  }

  void closeConnection() {
    connection_.reset();
    helper_ = 0;
    ewmhKnown_ = false;
    bindings_.clear();
  }

  static void drainEvents(Display* dpy) {
    while (XPending(dpy) > 0) {
      XEvent event;
      XNextEvent(dpy, &event);
    }
  }

  // Whether an EWMH manager runs: _NET_SUPPORTING_WM_CHECK names a window that names itself.
  bool ewmh() {
    // Asked again at most once a second: a manager is rarely replaced.
    const uint32_t now = monotonicMicroseconds();
    if (ewmhKnown_ && now - ewmhCheckedAt_ < 1000000) return ewmh_;
    auto check = windowProperty(root_, atoms_[A_NET_SUPPORTING_WM_CHECK], XA_WINDOW);
    bool found = false;
    if (!check.empty()) {
      auto self = windowProperty(static_cast<Window>(check.front()),
                                 atoms_[A_NET_SUPPORTING_WM_CHECK], XA_WINDOW);
      found = !self.empty() && self.front() == check.front();
    }
    ewmh_ = found;
    ewmhKnown_ = true;
    ewmhCheckedAt_ = now;
    return ewmh_;
  }

  // A property of 32-bit items (windows), in one round trip; errors come back with the reply.
  std::vector<WindowId> windowProperty(Window window, Atom property, Atom type) {
    xcb_connection_t* c = XGetXCBConnection(connection_->display());
    xcb_get_property_cookie_t cookie =
        xcb_get_property(c, 0, static_cast<xcb_window_t>(window), static_cast<xcb_atom_t>(property),
                         static_cast<xcb_atom_t>(type), 0, 1 << 16);
    xcb_generic_error_t* error = nullptr;
    xcb_get_property_reply_t* reply = xcb_get_property_reply(c, cookie, &error);
    free(error);
    std::vector<WindowId> out;
    if (reply == nullptr) return out;
    if (reply->format == 32) {
      const auto* items = static_cast<const uint32_t*>(xcb_get_property_value(reply));
      const int count = xcb_get_property_value_length(reply) / 4;
      for (int i = 0; i < count; ++i)
        if (items[i] != 0) out.push_back(items[i]);
    }
    free(reply);
    return out;
  }

  std::vector<WindowId> rootWindowList(Atom property) {
    return windowProperty(root_, property, XA_WINDOW);
  }

  // Without an EWMH manager: the top-level windows whose WM_STATE is normal or iconic, bottom to top (direct
  // children of the root, or one level below them under a reparenting manager). With no manager
  // at all (nobody redirects the root's children) nobody sets WM_STATE either: then the mapped
  // top-levels that are not override-redirect (menus, tooltips) are the clients. Unmapped ones,
  // such as GTK's client leader, never count.
  std::vector<WindowId> icccmClients() {
    Display* dpy = connection_->display();
    std::vector<WindowId> out;
    X11ErrorTrap trap(dpy);
    Window rootReturn = 0, parent = 0, *children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(dpy, root_, &rootReturn, &parent, &children, &count)) return out;
    if (!managerRuns(dpy)) {
      xcb_connection_t* c = XGetXCBConnection(dpy);
      std::vector<xcb_get_window_attributes_cookie_t> cookies(count);
      for (unsigned int i = 0; i < count; ++i)
        cookies[i] = xcb_get_window_attributes(c, static_cast<xcb_window_t>(children[i]));
      for (unsigned int i = 0; i < count; ++i) {
        xcb_get_window_attributes_reply_t* a = xcb_get_window_attributes_reply(c, cookies[i], nullptr);
        if (a != nullptr && a->map_state == XCB_MAP_STATE_VIEWABLE && a->override_redirect == 0 &&
            a->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
          out.push_back(children[i]);
        free(a);
      }
    } else {
      for (unsigned int i = 0; i < count; ++i) {
        if (hasWmState(children[i])) {
          out.push_back(children[i]);
          continue;
        }
        Window r = 0, p = 0, *inner = nullptr;
        unsigned int n = 0;
        if (XQueryTree(dpy, children[i], &r, &p, &inner, &n)) {
          for (unsigned int k = 0; k < n; ++k)
            if (hasWmState(inner[k])) out.push_back(inner[k]);
          if (inner != nullptr) XFree(inner);
        }
      }
    }
    if (children != nullptr) XFree(children);
    return out;
  }

  // Whether some client manages the screen: a window manager selects SubstructureRedirect on
  // the root, and only one client can.
  bool managerRuns(Display* dpy) {
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(dpy, root_, &attributes)) return false;
    return (attributes.all_event_masks & SubstructureRedirectMask) != 0;
  }

  bool hasWmState(Window window) {
    Display* dpy = connection_->display();
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    // A window the manager withdrew (twm's icon manager, for one) keeps WM_STATE, saying so.
    bool has = XGetWindowProperty(dpy, window, atoms_[A_WM_STATE], 0, 1, False, AnyPropertyType,
                                  &type, &format, &count, &after, &data) == Success &&
               type != None && format == 32 && count == 1 &&
               *reinterpret_cast<const long*>(data) != WithdrawnState;
    if (data != nullptr) XFree(data);
    return has;
  }

  WindowId icccmFocus(Display* dpy) {
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(dpy, &focus, &revert);
    if (focus == None || focus == PointerRoot) return 0;
    auto clients = icccmClients();
    // The focus may lie on a child of the client window.
    for (Window w = focus; w != 0 && w != root_;) {
      if (std::find(clients.begin(), clients.end(), w) != clients.end()) return w;
      Window r = 0, parent = 0, *children = nullptr;
      unsigned int n = 0;
      X11ErrorTrap trap(dpy);
      if (!XQueryTree(dpy, w, &r, &parent, &children, &n)) break;
      if (children != nullptr) XFree(children);
      w = parent;
    }
    return 0;
  }

  // The process of each window's client, asked of the server in one request (X-Resource).
  std::unordered_map<WindowId, int32_t> pidsFromServer(Display* dpy, const std::vector<WindowId>& ids) {
    std::unordered_map<WindowId, int32_t> out;
    if (!hasXRes_) return out;
    std::map<XID, std::vector<WindowId>> byClient;
    for (WindowId id : ids) byClient[static_cast<XID>(id) & ~static_cast<XID>(resourceMask_)].push_back(id);
    std::vector<XResClientIdSpec> specs;
    for (const auto& entry : byClient) specs.push_back({entry.first, XRES_CLIENT_ID_PID_MASK});
    long count = 0;
    XResClientIdValue* values = nullptr;
    // No trap: an error ends the request with failure, and errors outside traps are dropped.
    if (XResQueryClientIds(dpy, static_cast<long>(specs.size()), specs.data(), &count, &values) !=
        Success)
      return out;
    for (long i = 0; i < count; ++i) {
      pid_t pid = XResGetClientPid(&values[i]);
      auto found = byClient.find(values[i].spec.client & ~static_cast<XID>(resourceMask_));
      if (pid > 0 && found != byClient.end())
        for (WindowId id : found->second) out[id] = static_cast<int32_t>(pid);
    }
    XResClientIdsDestroy(count, values);
    return out;
  }

  // A real server time: the time stamp of a property change on our own window.
  Time serverTime(Display* dpy) {
    XEvent event;
    while (XCheckWindowEvent(dpy, helper_, PropertyChangeMask, &event)) {
    }
    unsigned char nothing = 0;
    XChangeProperty(dpy, helper_, atoms_[A_TESSEL_TIME], XA_STRING, 8, PropModeAppend, &nothing, 0);
    XWindowEvent(dpy, helper_, PropertyChangeMask, &event);
    return event.xproperty.time;
  }

  void sendToRoot(Display* dpy, WindowId window, Atom type, std::array<long, 5> data) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = type;
    event.xclient.format = 32;
    for (size_t i = 0; i < data.size(); ++i) event.xclient.data.l[i] = data[i];
    XSendEvent(dpy, root_, False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
  }

  // ---- Key mapping ----------------------------------------------------------------------------
  struct Binding {
    KeyCode keycode = 0;
    uint32_t keysym = 0;
    uint32_t lastUse = 0;  // microseconds
  };
  struct Stroke {
    KeyCode keycode = 0;
    unsigned int mods = 0;  // the modifier mask of the level that gives the keysym
  };

  Stroke findKey(XkbDescPtr xkb, int group, uint32_t keysym);
  std::vector<KeyCode> modifierKeys(const XModifierKeymap* map, XkbDescPtr xkb, int group,
                                    unsigned int mask);
  bool bindMissing(Display* dpy, XkbDescPtr xkb, int group, const std::vector<KeyEvent>& events,
                   size_t from, uint32_t callStart, size_t* batchEnd);

  std::unique_ptr<X11Connection> connection_;
  std::array<Atom, kAtomCount> atoms_{};
  Window root_ = 0;
  Window helper_ = 0;
  bool hasXRes_ = false;
  bool hasXTest_ = false;
  uint32_t resourceMask_ = 0;
  bool triedOpen_ = false;
  bool ewmh_ = false;
  bool ewmhKnown_ = false;
  uint32_t ewmhCheckedAt_ = 0;
  uint32_t lastOpenAttempt_ = 0;
  int32_t watchedPid_ = 0;
  int watchedFd_ = -1;
  // Keysyms bound to spare keycodes so far (kept between calls).
  std::vector<Binding> bindings_;
};

// The keycode and level modifiers that give `keysym` in `group`; keycode 0 when none. Among
// several keys the lowest keycode reached plainly or with Shift wins ("(" is Shift+9, not the
// extra parenthesis key of some keyboards; "<" is Shift+comma), then the lowest other level.
LinuxDesktop::Stroke LinuxDesktop::findKey(XkbDescPtr xkb, int group, uint32_t keysym) {
  Stroke best;
  int bestRank = INT_MAX;
  for (int kc = xkb->min_key_code; kc <= xkb->max_key_code; ++kc) {
    const int groups = XkbKeyNumGroups(xkb, kc);
    if (groups == 0) continue;
    const int g = group < groups ? group : 0;
    XkbKeyTypePtr type = XkbKeyKeyType(xkb, kc, g);
    const int levels = std::min<int>(type->num_levels, XkbKeyGroupsWidth(xkb, kc));
    for (int level = 0; level < levels; ++level) {
      const int rank = level <= 1 ? 0 : level;
      if (rank >= bestRank) break;
      if (XkbKeySymEntry(xkb, kc, level, g) != keysym) continue;
      unsigned int mods = 0;
      bool reachable = level == 0;
      for (int e = 0; e < type->map_count && level > 0; ++e) {
        const XkbKTMapEntryRec& entry = type->map[e];
        if (!entry.active || entry.level != level || (entry.mods.mask & LockMask)) continue;
        // The plainest way to the level: Shift alone over Shift with another modifier.
        if (!reachable || __builtin_popcount(entry.mods.mask) < __builtin_popcount(mods)) {
          mods = entry.mods.mask;
          reachable = true;
        }
      }
      if (!reachable) continue;
      best = {static_cast<KeyCode>(kc), mods};
      bestRank = rank;
      break;
    }
    if (bestRank == 0) break;
  }
  return best;
}

// One key for each modifier bit of `mask` (Shift_L for Shift), from the modifier map and the
// keyboard description already read, so that no round trip falls between the keys of a call.
std::vector<KeyCode> LinuxDesktop::modifierKeys(const XModifierKeymap* map, XkbDescPtr xkb,
                                                int group, unsigned int mask) {
  std::vector<KeyCode> keys;
  if (mask == 0 || map == nullptr) return keys;
  for (int bit = 0; bit < 8; ++bit) {
    if (!(mask & (1u << bit))) continue;
    KeyCode chosen = 0;
    if (bit == ShiftMapIndex) {
      Stroke shift = findKey(xkb, group, XK_Shift_L);
      if (shift.mods == 0) chosen = shift.keycode;
    }
    for (int k = 0; k < map->max_keypermod && chosen == 0; ++k)
      chosen = map->modifiermap[bit * map->max_keypermod + k];
    if (chosen != 0) keys.push_back(chosen);
  }
  return keys;
}

// Binds the keysyms from events[from] on that the layout lacks to spare keycodes (keycodes
// without any keysym, or ones bound here before), all in one mapping change. A binding stays after the call
// and is reused; it is given to another keysym only after resting a second, since clients read
// the keymap lazily. With more missing keysyms than spares, binds what fits and sets *batchEnd to
// the first event that must wait for the next batch.
bool LinuxDesktop::bindMissing(Display* dpy, XkbDescPtr xkb, int group,
                               const std::vector<KeyEvent>& events, size_t from, uint32_t callStart,
                               size_t* batchEnd) {
  *batchEnd = events.size();
  std::vector<uint32_t> missing;
  for (size_t i = from; i < events.size(); ++i) {
    const uint32_t keysym = events[i].keysym;
    if (std::find(missing.begin(), missing.end(), keysym) == missing.end() &&
        findKey(xkb, group, keysym).keycode == 0)
      missing.push_back(keysym);
  }
  if (missing.empty()) {
    // Bindings typed with again are fresh again.
    const uint32_t now = monotonicMicroseconds();
    for (Binding& b : bindings_)
      for (size_t i = from; i < events.size(); ++i)
        if (events[i].keysym == b.keysym) {
          b.lastUse = now;
          break;
        }
    return false;
  }
  // The keymap as it is now: a layout switch may have replaced earlier bindings.
  int minKey = 0, maxKey = 0, perKey = 0;
  XDisplayKeycodes(dpy, &minKey, &maxKey);
  KeySym* map = XGetKeyboardMapping(dpy, static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey);
  if (map == nullptr) return false;
  auto symAt = [&](KeyCode kc) { return map[(kc - minKey) * perKey]; };
  auto emptyAt = [&](KeyCode kc) {
    for (int i = 0; i < perKey; ++i)
      if (map[(kc - minKey) * perKey + i] != NoSymbol) return false;
    return true;
  };
  std::erase_if(bindings_, [&](const Binding& b) { return symAt(b.keycode) != b.keysym; });
  const uint32_t now = monotonicMicroseconds();
  std::set<KeyCode> usedNow;
  for (Binding& b : bindings_)
    for (size_t i = from; i < events.size(); ++i)
      if (events[i].keysym == b.keysym) {
        usedNow.insert(b.keycode);
        b.lastUse = now;
        break;
      }
  std::vector<KeyCode> spares;
  for (int kc = minKey; kc <= maxKey; ++kc)
    if (emptyAt(static_cast<KeyCode>(kc))) spares.push_back(static_cast<KeyCode>(kc));
  XFree(map);

  std::vector<std::pair<KeyCode, uint32_t>> changes;
  size_t nextSpare = 0;
  for (uint32_t keysym : missing) {
    KeyCode keycode = 0;
    if (nextSpare < spares.size()) {
      keycode = spares[nextSpare++];
      bindings_.push_back({keycode, keysym, now});
    } else {
      // The binding unused for longest; one that has rested a second if there is one.
      Binding* reuse = nullptr;
      for (Binding& b : bindings_)
        if (!usedNow.count(b.keycode) && (reuse == nullptr || b.lastUse < reuse->lastUse)) reuse = &b;
      if (reuse == nullptr) {
        // Every spare holds a keysym of this batch: type it first.
        for (size_t i = from; i < events.size(); ++i)
          if (events[i].keysym == keysym) {
            *batchEnd = i;
            break;
          }
        break;
      }
      // A binding an earlier call typed with is never taken within a second of that use.
      const uint32_t rested = monotonicMicroseconds() - reuse->lastUse;
      if (reuse->lastUse < callStart && rested < 1000000) {
        XSync(dpy, False);
        timespec pause{0, static_cast<long>(1000000 - rested) * 1000L};
        nanosleep(&pause, nullptr);
      }
      keycode = reuse->keycode;
      *reuse = {keycode, keysym, now};
    }
    usedNow.insert(keycode);
    changes.push_back({keycode, keysym});
  }
  // The batch ends before the first event whose keysym is still unbound.
  for (size_t i = from; i < *batchEnd; ++i) {
    const uint32_t keysym = events[i].keysym;
    bool waiting = std::find(missing.begin(), missing.end(), keysym) != missing.end() &&
                   std::none_of(changes.begin(), changes.end(),
                                [&](const auto& c) { return c.second == keysym; });
    if (waiting) {
      *batchEnd = i;
      break;
    }
  }
  if (changes.empty()) return false;
  // One XKB map change over the keycodes from the first changed to the last: the keys between
  // go back exactly as the server described them, so clients see a single mapping change and
  // no real key is touched. Each spare gets one level holding its keysym.
  KeyCode low = changes.front().first, high = low;
  for (const auto& [keycode, keysym] : changes) {
    low = std::min(low, keycode);
    high = std::max(high, keycode);
    KeySym* syms = XkbResizeKeySyms(xkb, keycode, 1);
    if (syms == nullptr) return false;
    XkbSymMapPtr symMap = &xkb->map->key_sym_map[keycode];
    symMap->kt_index[0] = XkbOneLevelIndex;
    symMap->group_info = static_cast<unsigned char>(XkbSetNumGroups(0, 1));
    symMap->width = 1;
    syms[0] = static_cast<KeySym>(keysym);
  }
  XkbMapChangesRec mapChanges{};
  mapChanges.changed = XkbKeySymsMask;
  mapChanges.first_key_sym = low;
  mapChanges.num_key_syms = static_cast<unsigned char>(high - low + 1);
  if (!XkbChangeMap(dpy, xkb, &mapChanges)) return false;
  XSync(dpy, False);
  return true;
}

bool LinuxDesktop::postKeys(const std::vector<KeyEvent>& events) {
  Display* dpy = display();
  if (dpy == nullptr || !hasXTest_) return false;
  // Every key this call pressed and has not released, released again on every way out.
  struct Held {
    Display* dpy;
    std::map<KeyCode, int> keys;
    void down(KeyCode k) {
      XTestFakeKeyEvent(dpy, k, True, CurrentTime);
      ++keys[k];
    }
    void up(KeyCode k) {
      XTestFakeKeyEvent(dpy, k, False, CurrentTime);
      keys.erase(k);
    }
    ~Held() {
      for (const auto& entry : keys) XTestFakeKeyEvent(dpy, entry.first, False, CurrentTime);
      XFlush(dpy);
    }
  } held{dpy, {}};
  // No error trap and no sync: the call returns once the events are flushed, and the server
  // delivers them after.
  const uint32_t callStart = monotonicMicroseconds();
  size_t start = 0;
  while (start < events.size()) {
    XkbDescPtr xkb = XkbGetMap(dpy, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    if (xkb == nullptr) return false;
    XkbStateRec state{};
    XkbGetState(dpy, XkbUseCoreKbd, &state);
    const int group = state.group;
    size_t batchEnd = events.size();
    const bool rebound = bindMissing(dpy, xkb, group, events, start, callStart, &batchEnd);
    // A keysym no keycode can be found for is passed over.
    if (batchEnd <= start) batchEnd = start + 1;
    if (rebound) {
      XkbFreeKeyboard(xkb, 0, True);
      xkb = XkbGetMap(dpy, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
      if (xkb == nullptr) return false;
    }
    // Read before the first key of the batch: the events queue up until the one flush.
    XModifierKeymap* modifierMap = XGetModifierMapping(dpy);
    std::unordered_map<uint32_t, Stroke> strokes;
    std::unordered_map<unsigned int, std::vector<KeyCode>> modifiers;
    for (size_t i = start; i < batchEnd; ++i) {
      const KeyEvent& event = events[i];
      auto found = strokes.find(event.keysym);
      if (found == strokes.end())
        found = strokes.emplace(event.keysym, findKey(xkb, group, event.keysym)).first;
      const Stroke& stroke = found->second;
      if (stroke.keycode == 0) continue;
      if (event.action == KeyAction::Down) {
        held.down(stroke.keycode);
      } else if (event.action == KeyAction::Up) {
        held.up(stroke.keycode);
      } else {
        auto mods = modifiers.find(stroke.mods);
        if (mods == modifiers.end())
          mods = modifiers.emplace(stroke.mods, modifierKeys(modifierMap, xkb, group, stroke.mods)).first;
        for (KeyCode m : mods->second) held.down(m);
        held.down(stroke.keycode);
        held.up(stroke.keycode);
        for (KeyCode m : mods->second) held.up(m);
      }
    }
    if (modifierMap != nullptr) XFreeModifiermap(modifierMap);
    XkbFreeKeyboard(xkb, 0, True);
    start = batchEnd;
    if (start < events.size()) {
      // More keysyms than spare keycodes: let clients read this batch's keymap first.
      XSync(dpy, False);
      timespec pause{0, 50 * 1000000L};
      nanosleep(&pause, nullptr);
    }
  }
  return true;
}

bool LinuxDesktop::anyKeyDown(const std::vector<uint32_t>& keysyms) {
  Display* dpy = display();
  if (dpy == nullptr) return false;
  char keys[32] = {};
  XQueryKeymap(dpy, keys);
  int minKey = 0, maxKey = 0, perKey = 0;
  XDisplayKeycodes(dpy, &minKey, &maxKey);
  KeySym* syms = XGetKeyboardMapping(dpy, static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey);
  if (syms == nullptr) return false;
  bool down = false;
  for (int kc = minKey; kc <= maxKey && !down; ++kc) {
    if (!(keys[kc / 8] & (1 << (kc % 8)))) continue;
    for (int i = 0; i < perKey && !down; ++i) {
      KeySym sym = syms[(kc - minKey) * perKey + i];
      if (std::find(keysyms.begin(), keysyms.end(), static_cast<uint32_t>(sym)) != keysyms.end())
        down = true;
    }
  }
  XFree(syms);
  return down;
}

bool LinuxDesktop::click(int button) {
  Display* dpy = display();
  if (dpy == nullptr || !hasXTest_ || button < 1 || button > 3) return false;
  X11ErrorTrap trap(dpy);
  Window rootReturn = 0, child = 0;
  int rx = 0, ry = 0, wx = 0, wy = 0;
  unsigned int mask = 0;
  XQueryPointer(dpy, root_, &rootReturn, &child, &rx, &ry, &wx, &wy, &mask);
  // A right click releases the left button first, a middle click the left and right ones,
  // each only when it is down.
  const unsigned int buttonMasks[4] = {0, Button1Mask, Button2Mask, Button3Mask};
  std::vector<int> release;
  if (button == 3) release = {1};
  if (button == 2) release = {1, 3};
  for (int other : release)
    if (mask & buttonMasks[other])
      XTestFakeButtonEvent(dpy, static_cast<unsigned>(other), False, CurrentTime);
  XTestFakeButtonEvent(dpy, static_cast<unsigned>(button), True, CurrentTime);
  XTestFakeButtonEvent(dpy, static_cast<unsigned>(button), False, CurrentTime);
  XFlush(dpy);
  return trap.sync() == 0;
}

}  // namespace

std::unique_ptr<DesktopService> makeLinuxDesktopService() { return std::make_unique<LinuxDesktop>(); }

}  // namespace tessel::platform
