// Window managers give a new window the focus and the top of the stack unless the program says
// otherwise (openbox takes _NET_WM_USER_TIME 0 on a window as "do not focus", but programs such as
// xterm never set it and GTK only copies a non-zero launch time). So a "hidden" launch is kept in
// the background from outside: the new windows go under the active window, which keeps the focus.
//
// The watch uses xcb, which keeps no process-wide state: Xlib's error handlers belong to the whole
// process and are not to be raced with from a second thread.
#include "platform/linux/background_launch.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tessel::platform {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kWatchAtMost = 15s;          // from the launch
constexpr auto kAfterFirstWindow = 2s;      // programs that present themselves once mapped
constexpr uint32_t kSourcePager = 2;        // EWMH source indication: a pager, not the program
constexpr uint32_t kStackBelow = XCB_STACK_MODE_BELOW;

xcb_atom_t internAtom(xcb_connection_t* c, const char* name) {
  xcb_intern_atom_reply_t* r = xcb_intern_atom_reply(
      c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
  const xcb_atom_t atom = r != nullptr ? r->atom : xcb_atom_t{XCB_ATOM_NONE};
  std::free(r);
  return atom;
}

std::vector<uint32_t> property32(xcb_connection_t* c, xcb_window_t window, xcb_atom_t property,
                                 xcb_atom_t type, uint32_t longs) {
  std::vector<uint32_t> out;
  xcb_get_property_reply_t* r =
      xcb_get_property_reply(c, xcb_get_property(c, 0, window, property, type, 0, longs), nullptr);
  if (r != nullptr && r->format == 32) {
    const auto* values = static_cast<const uint32_t*>(xcb_get_property_value(r));
    out.assign(values, values + xcb_get_property_value_length(r) / 4);
  }
  std::free(r);
  return out;
}

pid_t parentOf(pid_t pid) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  FILE* f = std::fopen(path, "re");
  if (f == nullptr) return 0;
  char buffer[512];
  const size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
  std::fclose(f);
  buffer[n] = '\0';
  const char* close = std::strrchr(buffer, ')');
  int parent = 0;
  char state = 0;
  if (close == nullptr || std::sscanf(close + 1, " %c %d", &state, &parent) != 2) return 0;
  return parent;
}

// Whether `pid` is the program or a process it started (a launcher script's child).
bool startedBy(pid_t pid, pid_t program) {
  for (int depth = 0; depth < 16 && pid > 1; ++depth) {
    if (pid == program) return true;
    pid = parentOf(pid);
  }
  return false;
}

void watch(pid_t program) {
  xcb_connection_t* c = xcb_connect(nullptr, nullptr);
  if (xcb_connection_has_error(c) != 0) {
    xcb_disconnect(c);
    return;
  }
  const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
  const xcb_atom_t activeAtom = internAtom(c, "_NET_ACTIVE_WINDOW");
  const xcb_atom_t clientList = internAtom(c, "_NET_CLIENT_LIST");
  const xcb_atom_t restack = internAtom(c, "_NET_RESTACK_WINDOW");
  const xcb_atom_t wmPid = internAtom(c, "_NET_WM_PID");
  auto activeNow = [&]() -> xcb_window_t {
    std::vector<uint32_t> v = property32(c, root, activeAtom, XCB_ATOM_WINDOW, 1);
    return v.empty() ? 0 : v[0];
  };
  auto toRoot = [&](xcb_window_t window, xcb_atom_t type, uint32_t a, uint32_t b, uint32_t d) {
    xcb_client_message_event_t e{};
    e.response_type = XCB_CLIENT_MESSAGE;
    e.format = 32;
    e.window = window;
    e.type = type;
    e.data.data32[0] = a;
    e.data.data32[1] = b;
    e.data.data32[2] = d;
    xcb_send_event(c, 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&e));
  };

  const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_change_window_attributes(c, root, XCB_CW_EVENT_MASK, &mask);
  const xcb_window_t anchor = activeNow();
  std::vector<uint32_t> listed = property32(c, root, clientList, XCB_ATOM_WINDOW, 1 << 16);
  std::set<xcb_window_t> known(listed.begin(), listed.end()), ours;
  const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, program, 0));
  auto end = Clock::now() + kWatchAtMost;
  xcb_timestamp_t time = XCB_CURRENT_TIME;

  auto check = [&] {
    for (xcb_window_t w : property32(c, root, clientList, XCB_ATOM_WINDOW, 1 << 16)) {
      if (!known.insert(w).second) continue;
      std::vector<uint32_t> pid = property32(c, w, wmPid, XCB_ATOM_CARDINAL, 1);
      if (pid.empty() || !startedBy(static_cast<pid_t>(pid[0]), program)) continue;
      if (ours.empty()) end = std::min(end, Clock::now() + kAfterFirstWindow);
      ours.insert(w);
      toRoot(w, restack, kSourcePager, anchor, kStackBelow);
    }
    const xcb_window_t now = activeNow();
    if (ours.count(now) != 0) toRoot(anchor, activeAtom, kSourcePager, time, 0);
    else if (now != 0 && now != anchor) end = Clock::now();  // the user went elsewhere
    xcb_flush(c);
  };

  if (anchor != 0 && pidfd >= 0) {  // no pidfd: the program is gone already
    check();
    while (Clock::now() < end && xcb_connection_has_error(c) == 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      pollfd fds[2] = {{xcb_get_file_descriptor(c), POLLIN, 0}, {pidfd, POLLIN, 0}};
      ::poll(fds, pidfd >= 0 ? 2 : 1, static_cast<int>(std::max<long>(1, left.count())));
      if (pidfd >= 0 && (fds[1].revents & POLLIN) != 0) break;  // the program ended
      bool changed = false;
      while (xcb_generic_event_t* e = xcb_poll_for_event(c)) {
        if ((e->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
          const auto* p = reinterpret_cast<const xcb_property_notify_event_t*>(e);
          time = p->time;
          changed = changed || p->atom == clientList || p->atom == activeAtom;
        }
        std::free(e);
      }
      if (changed) check();
    }
  }
  if (pidfd >= 0) ::close(pidfd);
  xcb_disconnect(c);
}

}  // namespace

void keepBehindActiveWindow(pid_t program) {
  const char* display = std::getenv("DISPLAY");
  if (program <= 0 || display == nullptr || *display == '\0') return;
  try {
    std::thread(watch, program).detach();
  } catch (...) {
    // No thread to be had: the program simply comes up where the window manager puts it.
  }
}

}  // namespace tessel::platform
