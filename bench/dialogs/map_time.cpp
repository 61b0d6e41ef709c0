// Time from a dialog call to the window's MapNotify, answered each time with Return through
// XTest: 20 rounds, the first (GTK starting) reported on its own, then the median and the worst
// of the others. Run it under scripts/with-desktop.
//   build/bench/tessel_dialog_map_time [rounds]
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "host/host.h"

using Clock = std::chrono::steady_clock;

namespace {

class NoMovie : public tessel::host::Movie {
 public:
  moa::MoaError callHandler(const std::string&, const std::vector<tessel::host::Value>&,
                                    tessel::host::Value&) override {
    return moa::kMoaDrErr_HandlerNotDefined;
  }
  std::string moviePath() const override { return "/tmp/"; }
};

// Waits for the next top-level map on the screen, then presses Return until the call is over.
double watchAndAnswer(Display* x, Clock::time_point start, const std::atomic<bool>& done) {
  double ms = -1;
  const KeyCode enter = XKeysymToKeycode(x, XK_Return);
  while (!done) {
    while (XPending(x) > 0) {
      XEvent event;
      XNextEvent(x, &event);
      if (event.type == MapNotify && ms < 0 && !event.xmap.override_redirect)
        ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
    if (ms >= 0) {
      XTestFakeKeyEvent(x, enter, True, 0);
      XTestFakeKeyEvent(x, enter, False, 0);
      XFlush(x);
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
    } else {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
  return ms;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 20;
  Display* x = XOpenDisplay(nullptr);
  if (x == nullptr) {
    std::fprintf(stderr, "no X display\n");
    return 1;
  }
  XSelectInput(x, DefaultRootWindow(x), SubstructureNotifyMask);
  XFlush(x);

  NoMovie movie;
  tessel::host::Host host;
  host.setMovie(&movie);
  if (host.loadXtras(TESSEL_XTRAS_DIR) != 1) return 1;

  std::vector<double> times;
  for (int i = 0; i < rounds; ++i) {
    XSync(x, True);  // forget earlier maps
    std::atomic<bool> done{false};
    const Clock::time_point start = Clock::now();
    double ms = -1;
    std::thread watcher([&] { ms = watchAndAnswer(x, start, done); });
    tessel::host::Value result;
    host.callMethod("tsMsgBox", {"How long to the screen?", "Map time", "OK", "Note", 0}, result);
    done = true;
    watcher.join();
    times.push_back(ms);
  }
  const double first = times.front();
  std::vector<double> later(times.begin() + 1, times.end());
  std::sort(later.begin(), later.end());
  std::printf("first dialog: %.1f ms (limit 150)\n", first);
  if (!later.empty())
    std::printf("later dialogs: median %.1f ms, worst %.1f ms over %zu (limit 50)\n",
                later[later.size() / 2], later.back(), later.size());
  XCloseDisplay(x);
  const bool ok = first >= 0 && first < 150 && (later.empty() || later.back() < 50);
  return ok ? 0 : 2;
}
