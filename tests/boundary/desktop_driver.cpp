#include "tests/boundary/desktop_driver.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <iostream>
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
    seen.buttons.push_back({gtk_button_get_label(GTK_BUTTON(widget)), x, y,
                            gtk_widget_get_sensitive(widget) != FALSE});
  }
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

std::string shell(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[512];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
  }
  return out;
}

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
      collect(w, w, seen);
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

host::Value withWindow(const std::function<host::Value()>& call,
                       const std::function<void()>& actions) {
  std::thread driver(actions);
  host::Value result = call();
  driver.join();
  return result;
}

}  // namespace tessel::testing
