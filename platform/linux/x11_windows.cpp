#include "platform/linux/x11_windows.h"

#include <X11/Xlib-xcb.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>
#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <string>

#include "platform/linux/linux_processes.h"
#include "platform/linux/x11_connection.h"

namespace tessel::platform::x11 {
namespace {

using processes::monotonicMicroseconds;

// The properties clientWindows asks of every window, in this order.
enum { P_CLASS, P_NETNAME, P_NAME, P_PROTOCOLS, P_PID, P_MACHINE, kProps };
using WindowProperties = std::array<std::string, kProps>;

// One window's description from its properties; `serverPid` from X-Resource when known (0).
ManagedWindow describe(WindowId id, const WindowProperties& values, Atom deleteWindow,
                       int32_t serverPid, const std::string& host) {
  ManagedWindow window;
  window.id = id;
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
    if (atom == deleteWindow) window.acceptsDelete = true;
  }
  if (serverPid > 0) {
    window.pid = serverPid;
  } else if (values[P_PID].size() >= 4) {
    std::string machine = values[P_MACHINE].substr(0, values[P_MACHINE].find('\0'));
    uint32_t pid = 0;
    std::copy_n(values[P_PID].data(), 4, reinterpret_cast<char*>(&pid));
    if (!machine.empty() && machine == host && pid > 0 && pid <= INT32_MAX)
      window.pid = static_cast<int32_t>(pid);
  }
  return window;
}

}  // namespace

void drainEvents(Display* dpy) {
  while (XPending(dpy) > 0) {
    XEvent event;
    XNextEvent(dpy, &event);
  }
}

X11Windows::X11Windows(Display* dpy) : dpy_(dpy) {
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
  resourceMask_ = xcb_get_setup(XGetXCBConnection(dpy))->resource_id_mask;
}

std::vector<ManagedWindow> X11Windows::clientWindows() {
  std::vector<ManagedWindow> out;
  std::vector<WindowId> ids = ewmh() ? rootWindowList(atoms_[A_NET_CLIENT_LIST]) : icccmClients();
  if (ids.empty()) return out;
  xcb_connection_t* c = XGetXCBConnection(dpy_);
  // Every property of every window is asked for before the first answer is read.
  const xcb_atom_t props[kProps] = {XCB_ATOM_WM_CLASS, static_cast<xcb_atom_t>(atoms_[A_NET_WM_NAME]),
                                    XCB_ATOM_WM_NAME, static_cast<xcb_atom_t>(atoms_[A_WM_PROTOCOLS]),
                                    static_cast<xcb_atom_t>(atoms_[A_NET_WM_PID]),
                                    XCB_ATOM_WM_CLIENT_MACHINE};
  std::vector<xcb_get_property_cookie_t> cookies(ids.size() * kProps);
  for (size_t i = 0; i < ids.size(); ++i)
    for (int p = 0; p < kProps; ++p)
      cookies[i * kProps + static_cast<size_t>(p)] =
          xcb_get_property(c, 0, static_cast<xcb_window_t>(ids[i]), props[p], XCB_ATOM_ANY, 0, 4096);
  std::unordered_map<WindowId, int32_t> serverPids = pidsFromServer(ids);
  const std::string host = processes::hostName();
  out.reserve(ids.size());
  for (size_t i = 0; i < ids.size(); ++i) {
    WindowProperties values;
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
    auto serverPid = serverPids.find(ids[i]);
    out.push_back(describe(ids[i], values, atoms_[A_WM_DELETE_WINDOW],
                           serverPid != serverPids.end() ? serverPid->second : 0, host));
  }
  return out;
}

std::vector<WindowId> X11Windows::stackingOrder() {
  return ewmh() ? rootWindowList(atoms_[A_NET_CLIENT_LIST_STACKING]) : icccmClients();
}

WindowId X11Windows::activeWindow() {
  if (!ewmh()) return icccmFocus();
  auto list = rootWindowList(atoms_[A_NET_ACTIVE_WINDOW]);
  return list.empty() ? 0 : list.front();
}

bool X11Windows::activate(WindowId window, int waitMs) {
  if (window == 0) return false;
  X11ErrorTrap trap(dpy_);
  if (!ewmh()) {
    XRaiseWindow(dpy_, window);
    XSetInputFocus(dpy_, window, RevertToParent, CurrentTime);
    return trap.sync() == 0;
  }
  // Source 2: a request on the user's behalf (as a pager or task bar makes), which the
  // manager honours without focus-stealing prevention, with a real server time.
  sendToRoot(window, atoms_[A_NET_ACTIVE_WINDOW], {2, static_cast<long>(serverTime()), 0, 0, 0});
  if (trap.sync() != 0) return false;
  const uint32_t start = monotonicMicroseconds();
  for (;;) {
    if (activeWindow() == window) break;
    const uint32_t spent = (monotonicMicroseconds() - start) / 1000;
    if (spent >= static_cast<uint32_t>(waitMs)) break;
    pollfd p{ConnectionNumber(dpy_), POLLIN, 0};
    if (XPending(dpy_) == 0) ::poll(&p, 1, waitMs - static_cast<int>(spent));
    drainEvents(dpy_);
  }
  return true;
}

bool X11Windows::requestClose(WindowId window) {
  X11ErrorTrap trap(dpy_);
  if (ewmh()) {
    sendToRoot(window, atoms_[A_NET_CLOSE_WINDOW], {static_cast<long>(serverTime()), 2, 0, 0, 0});
  } else {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = atoms_[A_WM_PROTOCOLS];
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(atoms_[A_WM_DELETE_WINDOW]);
    event.xclient.data.l[1] = static_cast<long>(serverTime());
    XSendEvent(dpy_, window, False, NoEventMask, &event);
  }
  return trap.sync() == 0;
}

// Whether an EWMH manager runs: _NET_SUPPORTING_WM_CHECK names a window that names itself.
bool X11Windows::ewmh() {
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
std::vector<WindowId> X11Windows::windowProperty(Window window, Atom property, Atom type) {
  xcb_connection_t* c = XGetXCBConnection(dpy_);
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

// Without an EWMH manager: the top-level windows whose WM_STATE is normal or iconic, bottom to
// top (direct children of the root, or one level below them under a reparenting manager). With
// no manager at all (nobody redirects the root's children) nobody sets WM_STATE either: then the
// mapped top-levels that are not override-redirect (menus, tooltips) are the clients. Unmapped
// ones, such as GTK's client leader, never count.
std::vector<WindowId> X11Windows::icccmClients() {
  std::vector<WindowId> out;
  X11ErrorTrap trap(dpy_);
  Window rootReturn = 0, parent = 0, *children = nullptr;
  unsigned int count = 0;
  if (!XQueryTree(dpy_, root_, &rootReturn, &parent, &children, &count)) return out;
  if (!managerRuns()) {
    xcb_connection_t* c = XGetXCBConnection(dpy_);
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
      if (XQueryTree(dpy_, children[i], &r, &p, &inner, &n)) {
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
bool X11Windows::managerRuns() {
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(dpy_, root_, &attributes)) return false;
  return (attributes.all_event_masks & SubstructureRedirectMask) != 0;
}

bool X11Windows::hasWmState(Window window) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  // A window the manager withdrew (twm's icon manager, for one) keeps WM_STATE, saying so.
  bool has = XGetWindowProperty(dpy_, window, atoms_[A_WM_STATE], 0, 1, False, AnyPropertyType,
                                &type, &format, &count, &after, &data) == Success &&
             type != None && format == 32 && count == 1 &&
             *reinterpret_cast<const long*>(data) != WithdrawnState;
  if (data != nullptr) XFree(data);
  return has;
}

WindowId X11Windows::icccmFocus() {
  Window focus = 0;
  int revert = 0;
  XGetInputFocus(dpy_, &focus, &revert);
  if (focus == None || focus == PointerRoot) return 0;
  auto clients = icccmClients();
  // The focus may lie on a child of the client window.
  for (Window w = focus; w != 0 && w != root_;) {
    if (std::find(clients.begin(), clients.end(), w) != clients.end()) return w;
    Window r = 0, parent = 0, *children = nullptr;
    unsigned int n = 0;
    X11ErrorTrap trap(dpy_);
    if (!XQueryTree(dpy_, w, &r, &parent, &children, &n)) break;
    if (children != nullptr) XFree(children);
    w = parent;
  }
  return 0;
}

// The process of each window's client, asked of the server in one request (X-Resource).
std::unordered_map<WindowId, int32_t> X11Windows::pidsFromServer(const std::vector<WindowId>& ids) {
  std::unordered_map<WindowId, int32_t> out;
  if (!hasXRes_) return out;
  std::map<XID, std::vector<WindowId>> byClient;
  for (WindowId id : ids) byClient[static_cast<XID>(id) & ~static_cast<XID>(resourceMask_)].push_back(id);
  std::vector<XResClientIdSpec> specs;
  for (const auto& entry : byClient) specs.push_back({entry.first, XRES_CLIENT_ID_PID_MASK});
  long count = 0;
  XResClientIdValue* values = nullptr;
  // No trap: an error ends the request with failure, and errors outside traps are dropped.
  if (XResQueryClientIds(dpy_, static_cast<long>(specs.size()), specs.data(), &count, &values) !=
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
Time X11Windows::serverTime() {
  XEvent event;
  while (XCheckWindowEvent(dpy_, helper_, PropertyChangeMask, &event)) {
  }
  unsigned char nothing = 0;
  XChangeProperty(dpy_, helper_, atoms_[A_TESSEL_TIME], XA_STRING, 8, PropModeAppend, &nothing, 0);
  XWindowEvent(dpy_, helper_, PropertyChangeMask, &event);
  return event.xproperty.time;
}

void X11Windows::sendToRoot(WindowId window, Atom type, std::array<long, 5> data) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = window;
  event.xclient.message_type = type;
  event.xclient.format = 32;
  for (size_t i = 0; i < data.size(); ++i) event.xclient.data.l[i] = data[i];
  XSendEvent(dpy_, root_, False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
}

}  // namespace tessel::platform::x11
