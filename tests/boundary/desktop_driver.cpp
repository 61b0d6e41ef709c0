#include "tests/boundary/desktop_driver.h"

#include "tests/boundary/boundary_support.h"

#include <unistd.h>

#include <cstdlib>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <iostream>
#include <mutex>
#include <sstream>
#include <thread>

namespace tessel::testing {
namespace {

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

void collect(GtkWidget* widget, GtkWidget* top, SeenWindow& seen) {
  if (GTK_IS_BUTTON(widget) && gtk_widget_get_visible(widget) &&
      gtk_button_get_label(GTK_BUTTON(widget)) != nullptr) {
    int x = 0, y = 0;
    gtk_widget_translate_coordinates(widget, top, 0, 0, &x, &y);
    seen.buttons.push_back(
        {gtk_button_get_label(GTK_BUTTON(widget)), x, y, gtk_widget_get_sensitive(widget) != FALSE,
         gtk_style_context_has_class(gtk_widget_get_style_context(widget),
                                     GTK_STYLE_CLASS_SUGGESTED_ACTION) != FALSE});
  }
  if (GTK_IS_LABEL(widget) && gtk_widget_get_mapped(widget))
    seen.texts.emplace_back(gtk_label_get_text(GTK_LABEL(widget)));
  if (GTK_IS_ENTRY(widget)) seen.entries.push_back(GTK_ENTRY(widget));
  if (GTK_IS_CONTAINER(widget)) {
    struct Ctx {
      GtkWidget* top;
      SeenWindow* seen;
    } ctx{top, &seen};
    gtk_container_forall(
        GTK_CONTAINER(widget),
        +[](GtkWidget* child, gpointer data) {
          auto* c = static_cast<Ctx*>(data);
          collect(child, c->top, *c->seen);
        },
        &ctx);
  }
}

}  // namespace

std::string shell(const std::string& command) { return run(command).value_or(""); }

unsigned long waitForWindow(int timeoutMs) {
  const std::string command =
      "xdotool search --onlyvisible --pid " + std::to_string(getpid()) + " 2>/dev/null";
  for (int waited = 0; waited < timeoutMs; waited += 20) {
    std::istringstream found(shell(command));
    unsigned long window = 0;
    if (found >> window) {
      sleepMs(150);  // let the window manager map, focus and the toolkit draw it
      return window;
    }
    sleepMs(20);
  }
  return 0;
}

bool windowViewable(unsigned long window) {
  return shell("xwininfo -id " + std::to_string(window) + " 2>/dev/null").find("IsViewable") !=
         std::string::npos;
}

bool waitWindowGone(unsigned long window, int timeoutMs) {
  for (int waited = 0; waited < timeoutMs; waited += 20) {
    if (!windowViewable(window)) return true;
    sleepMs(20);
  }
  return false;
}

void focus(unsigned long window) {
  const std::string id = std::to_string(window);
  for (int i = 0; i < 50; ++i) {
    std::istringstream focused(shell("xdotool getwindowfocus 2>/dev/null"));
    unsigned long current = 0;
    if (focused >> current && current == window) return;
    if (i % 10 == 0) shell("xdotool windowactivate " + id + " 2>/dev/null");
    sleepMs(20);
  }
}

void keys(const std::string& keys) { shell("xdotool key --delay 30 " + keys); }

void typeText(const std::string& text) {
  shell("xdotool type --delay 30 '" + text + "'");
}

WindowGeometry geometryOf(unsigned long window) {
  WindowGeometry g;
  std::istringstream info(shell("xwininfo -id " + std::to_string(window)));
  std::string line;
  while (std::getline(info, line)) {
    auto value = [&](const char* label, int& out) {
      if (line.find(label) != std::string::npos) out = std::stoi(line.substr(line.find(':') + 1));
    };
    value("Absolute upper-left X:", g.x);
    value("Absolute upper-left Y:", g.y);
    value("Width:", g.width);
    value("Height:", g.height);
  }
  return g;
}

WindowGeometry clientAreaOnScreen() {
  WindowGeometry g;
  onGtkThread([&] {
    GList* all = gtk_window_list_toplevels();
    for (GList* l = all; l != nullptr; l = l->next) {
      GtkWidget* w = GTK_WIDGET(l->data);
      GtkWidget* child = gtk_bin_get_child(GTK_BIN(w));
      if (!gtk_widget_get_visible(w) || child == nullptr || !gtk_widget_get_realized(w)) continue;
      int originX = 0, originY = 0, x = 0, y = 0;
      gdk_window_get_origin(gtk_widget_get_window(w), &originX, &originY);
      gtk_widget_translate_coordinates(child, w, 0, 0, &x, &y);
      g = {originX + x, originY + y, gtk_widget_get_allocated_width(child),
           gtk_widget_get_allocated_height(child)};
    }
    g_list_free(all);
  });
  return g;
}

void onGtkThread(const std::function<void()>& work) {
  struct Job {
    std::function<void()> work;
    std::promise<void> done;
  };
  auto* job = new Job{work, {}};
  std::future<void> done = job->done.get_future();
  g_idle_add(
      +[](gpointer data) -> gboolean {
        auto* j = static_cast<Job*>(data);
        j->work();
        j->done.set_value();
        delete j;
        return G_SOURCE_REMOVE;
      },
      job);
  done.wait();
}

std::vector<SeenWindow> visibleWindows() {
  std::vector<SeenWindow> windows;
  onGtkThread([&] {
    GList* all = gtk_window_list_toplevels();
    for (GList* l = all; l != nullptr; l = l->next) {
      GtkWidget* w = GTK_WIDGET(l->data);
      if (!gtk_widget_get_visible(w) || gtk_window_get_window_type(GTK_WINDOW(w)) != GTK_WINDOW_TOPLEVEL)
        continue;
      SeenWindow seen;
      const char* title = gtk_window_get_title(GTK_WINDOW(w));
      seen.title = title != nullptr ? title : "";
      // Places are the client area's, below any title bar of GTK's own.
      GtkWidget* client = gtk_bin_get_child(GTK_BIN(w));
      collect(w, client != nullptr ? client : w, seen);
      GtkWidget* titleBar = gtk_window_get_titlebar(GTK_WINDOW(w));
      if (titleBar != nullptr && GTK_IS_HEADER_BAR(titleBar))
        seen.titleBarClose = gtk_header_bar_get_show_close_button(GTK_HEADER_BAR(titleBar)) ? 1 : 0;
      windows.push_back(seen);
    }
    g_list_free(all);
  });
  return windows;
}

void screenshot(const std::string& name) {
  const std::filesystem::path folder = TESSEL_ARTIFACTS_DIR;
  std::filesystem::create_directories(folder);
  const std::string path = (folder / (name + ".png")).string();
  onGtkThread([&] {
    GdkWindow* root = gdk_get_default_root_window();
    GdkPixbuf* shot = gdk_pixbuf_get_from_window(root, 0, 0, gdk_window_get_width(root),
                                                 gdk_window_get_height(root));
    if (shot != nullptr) {
      gdk_pixbuf_save(shot, path.c_str(), "png", nullptr, nullptr);
      g_object_unref(shot);
    }
  });
  std::cout << "screenshot: " << path << std::endl;
}

namespace {

struct PressLog {
  std::mutex mutex;
  std::vector<ButtonPresses::Press> presses;
  std::vector<std::chrono::steady_clock::time_point> downAt;
};
PressLog& pressLog() {
  static PressLog log;
  return log;
}

// Runs on the GTK thread for every widget whose state flags change.
gboolean notePress(GSignalInvocationHint*, guint count, const GValue* values, gpointer) {
  if (count < 2) return TRUE;
  auto* widget = static_cast<GtkWidget*>(g_value_get_object(&values[0]));
  if (!GTK_IS_BUTTON(widget) || gtk_button_get_label(GTK_BUTTON(widget)) == nullptr) return TRUE;
  const bool was = (g_value_get_flags(&values[1]) & GTK_STATE_FLAG_ACTIVE) != 0;
  const bool is = (gtk_widget_get_state_flags(widget) & GTK_STATE_FLAG_ACTIVE) != 0;
  if (was == is) return TRUE;
  PressLog& log = pressLog();
  std::lock_guard lock(log.mutex);
  const auto now = std::chrono::steady_clock::now();
  if (is) {
    log.presses.push_back({gtk_button_get_label(GTK_BUTTON(widget)), -1});
    log.downAt.push_back(now);
    return TRUE;
  }
  const std::string label = gtk_button_get_label(GTK_BUTTON(widget));
  for (size_t i = log.presses.size(); i-- > 0;)
    if (log.presses[i].label == label && log.presses[i].heldMs < 0) {
      log.presses[i].heldMs = std::chrono::duration<double, std::milli>(now - log.downAt[i]).count();
      break;
    }
  return TRUE;
}

}  // namespace

ButtonPresses::ButtonPresses() {
  gpointer widgetClass = g_type_class_ref(GTK_TYPE_BUTTON);
  const guint signal = g_signal_lookup("state-flags-changed", GTK_TYPE_WIDGET);
  hook_ = g_signal_add_emission_hook(signal, 0, notePress, nullptr, nullptr);
  g_type_class_unref(widgetClass);
  PressLog& log = pressLog();
  std::lock_guard lock(log.mutex);
  log.presses.clear();
  log.downAt.clear();
}

ButtonPresses::~ButtonPresses() {
  g_signal_remove_emission_hook(g_signal_lookup("state-flags-changed", GTK_TYPE_WIDGET), hook_);
}

std::vector<ButtonPresses::Press> ButtonPresses::presses() const {
  PressLog& log = pressLog();
  std::lock_guard lock(log.mutex);
  return log.presses;
}

host::Value withWindow(const std::function<host::Value()>& call,
                       const std::function<void()>& actions) {
  std::thread driver(actions);
  host::Value result = call();
  driver.join();
  return result;
}

StderrCapture::StderrCapture() {
  char name[] = "/tmp/tessel-stderr-XXXXXX";
  int fd = ::mkstemp(name);
  file_ = name;
  std::fflush(stderr);
  saved_ = ::dup(2);
  ::dup2(fd, 2);
  ::close(fd);
}

StderrCapture::~StderrCapture() {
  restore();
  ::unlink(file_.c_str());
}

std::string StderrCapture::text() {
  restore();
  return slurp(file_);
}

void StderrCapture::restore() {
  if (saved_ < 0) return;
  std::fflush(stderr);
  ::dup2(saved_, 2);
  ::close(saved_);
  saved_ = -1;
}

}  // namespace tessel::testing
