// The desktop's windows through GTK 3, running in the host's process on the host's thread.
//
// GTK starts at the first window (gtk_init_check, so that a missing display is an answer rather
// than the end of the host). Every window is a modal top-level that runs its own loop inside the
// call, is destroyed before the call returns, and has its destruction flushed to the X server:
// the host runs no GTK loop between calls.
#include <dlfcn.h>
#include <gio/gunixmounts.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/gtk_support.h"
#include "platform/ui.h"

namespace tessel::platform {
namespace {

using namespace gtk;

// GTK and Pango take UTF-8 only and show nothing of a text that is not (a Latin-1 name, a text
// cut inside a character): each byte that starts no character shows as U+FFFD instead.
std::string valid(std::string text) {
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return text;
  gchar* made = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  text = made;
  g_free(made);
  return text;
}

// ---- The progress window -------------------------------------------------------------------------

class GtkProgress final : public ProgressWindow {
 public:
  GtkProgress(const ProgressSpec& spec, std::pair<int32_t, int32_t> screen) {
    constexpr int32_t kWidth = 254, kHeight = 100;
    GtkWindow* w = GTK_WINDOW(window_.widget());
    gtk_window_set_title(w, valid(spec.title).c_str());
    gtk_window_set_type_hint(w, GDK_WINDOW_TYPE_HINT_DIALOG);
    gtk_window_set_resizable(w, FALSE);
    GtkWidget* fixed = gtk_fixed_new();
    gtk_widget_set_size_request(fixed, kWidth, kHeight);
    gtk_container_add(GTK_CONTAINER(w), fixed);
    // Layout 2 and 3 put the bar above the name; layout 1 and 3 centre the button.
    const bool barFirst = (spec.layout & 2) != 0;
    const int32_t barTop = barFirst ? 16 : 37;
    name_ = gtk_label_new("");
    gtk_label_set_xalign(GTK_LABEL(name_), 0);
    gtk_widget_set_size_request(name_, 224, -1);
    gtk_fixed_put(GTK_FIXED(fixed), name_, 15, barFirst ? 36 : 12);
    bar_ = gtk_progress_bar_new();
    gtk_widget_set_size_request(bar_, 224, 14);
    gtk_fixed_put(GTK_FIXED(fixed), bar_, 15, barTop);
    GtkWidget* button = gtk_button_new_with_label(valid(spec.buttonText).c_str());
    button_ = button;
    gtk_widget_set_size_request(button, 90, 28);
    gtk_fixed_put(GTK_FIXED(fixed), button, (spec.layout & 1) ? (kWidth - 90) / 2 : 149, 62);
    g_signal_connect(button, "clicked", G_CALLBACK(+[](GtkButton*, gpointer self) {
                       static_cast<GtkProgress*>(self)->cancelled_ = true;
                     }),
                     this);
    g_signal_connect(w, "key-press-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEventKey* event, gpointer self) -> gboolean {
                       if (event->keyval != GDK_KEY_Escape) return FALSE;
                       auto* progress = static_cast<GtkProgress*>(self);
                       if (!progress->cancelled_) flashButton(progress->button_);
                       progress->cancelled_ = true;
                       return TRUE;
                     }),
                     this);
    g_signal_connect(w, "delete-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer self) -> gboolean {
                       static_cast<GtkProgress*>(self)->cancelled_ = true;
                       return TRUE;
                     }),
                     this);
    placeWindow(w, {false, (screen.first - kWidth) / 2, (screen.second - kHeight) / 2}, false);
    showModal(window_.widget());
    drainEvents();
  }
  void setName(const std::string& name) override {
    if (!window_.gone()) gtk_label_set_text(GTK_LABEL(name_), valid(name).c_str());
  }
  void setPercent(int32_t percent) override {
    if (!window_.gone()) gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(bar_), percent / 100.0);
  }
  // A window destroyed from outside cancels the copy.
  bool poll() override {
    drainEvents();
    return cancelled_ || window_.gone();
  }

 private:
  CallWindow window_{gtk_window_new(GTK_WINDOW_TOPLEVEL)};
  GtkWidget* name_ = nullptr;
  GtkWidget* bar_ = nullptr;
  GtkWidget* button_ = nullptr;
  bool cancelled_ = false;
};

// ---- The service ---------------------------------------------------------------------------------

class GtkUiService final : public UiService {
 public:
  bool available() override {
    if (state_ == 0) state_ = start() ? 1 : -1;
    return state_ > 0;
  }

  std::pair<int32_t, int32_t> screenSize() override {
    if (!available()) return {0, 0};
    GdkDisplay* display = gdk_display_get_default();
    GdkMonitor* monitor = gdk_display_get_primary_monitor(display);
    if (monitor == nullptr) monitor = gdk_display_get_monitor(display, 0);
    if (monitor == nullptr) return {0, 0};
    GdkRectangle area;
    gdk_monitor_get_geometry(monitor, &area);
    return {area.width, area.height};
  }

  // Pango alone, so the layout is known with or without a display.
  TextMeasure measureText(const std::string& text, const TextStyle& style,
                          int32_t width) override {
    PangoFontMap* map = pango_cairo_font_map_get_default();
    PangoContext* context = pango_font_map_create_context(map);
    PangoLayout* layout = pango_layout_new(context);
    TextStyle font = style;
    font.fontName = valid(font.fontName);
    setUpLayout(layout, valid(text), font, width, TextAlign::Left);
    TextMeasure measure;
    measure.lines = pango_layout_get_line_count(layout);
    PangoRectangle logical;
    pango_layout_get_pixel_extents(layout, nullptr, &logical);
    if (measure.lines > 0)
      measure.lineHeight = (logical.height + measure.lines - 1) / measure.lines;
    g_object_unref(layout);
    g_object_unref(context);
    return measure;
  }

  // The windows themselves are in gtk_message_boxes.cpp, gtk_prompt.cpp and gtk_choosers.cpp.
  // Every text a window shows is made valid UTF-8 first.
  int32_t alert(const AlertSpec& spec) override {
    AlertSpec shown = spec;
    shown.message = valid(spec.message);
    shown.title = valid(spec.title);
    for (std::string& button : shown.buttons) button = valid(button);
    return gtk::runAlert(shown);
  }
  int32_t customBox(const CustomBoxSpec& spec) override {
    CustomBoxSpec shown = spec;
    shown.title = valid(spec.title);
    shown.text = valid(spec.text);
    shown.style.fontName = valid(spec.style.fontName);
    for (std::string& button : shown.buttons) button = valid(button);
    return gtk::runCustomBox(shown);
  }
  std::optional<std::vector<std::string>> prompt(const PromptSpec& spec) override {
    PromptSpec shown = spec;
    shown.title = valid(spec.title);
    shown.instruction = valid(spec.instruction);
    for (PromptField& field : shown.fields) {
      field.caption = valid(field.caption);
      field.text = valid(field.text);
    }
    return gtk::runPrompt(shown);
  }
  std::vector<std::string> chooseFiles(const FileChooserSpec& spec) override {
    FileChooserSpec shown = spec;
    shown.title = valid(spec.title);
    shown.instruction = valid(spec.instruction);
    shown.proposedName = valid(spec.proposedName);
    return gtk::runFileChooser(shown);
  }
  int32_t chooseFromList(const ListChooserSpec& spec) override {
    ListChooserSpec shown = spec;
    shown.title = valid(spec.title);
    shown.instruction = valid(spec.instruction);
    for (std::string& row : shown.rows) row = valid(row);
    return gtk::runListChooser(shown);
  }

  std::unique_ptr<ProgressWindow> openProgress(const ProgressSpec& spec) override {
    if (!available()) return nullptr;
    return std::make_unique<GtkProgress>(spec, screenSize());
  }

  // GIO's guess for the mount (its first themed name), else a plain disk.
  std::string volumeIcon(const std::string& mountPoint) override {
    std::string name = mountPoint == "/" ? "drive-harddisk-system" : "drive-harddisk";
    GUnixMountEntry* mount = g_unix_mount_at(mountPoint.c_str(), nullptr);
    if (mount == nullptr) return name;
    GIcon* icon = g_unix_mount_guess_icon(mount);
    if (icon != nullptr && G_IS_THEMED_ICON(icon)) {
      const gchar* const* names = g_themed_icon_get_names(G_THEMED_ICON(icon));
      if (names != nullptr && names[0] != nullptr) name = names[0];
    }
    if (icon != nullptr) g_object_unref(icon);
    g_unix_mount_free(mount);
    return name;
  }

  void pause(int32_t milliseconds) override {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < end) {
      if (state_ > 0) drainEvents();
      g_usleep(5000);
    }
  }

 private:
  // GTK on its Wayland backend in a Wayland session (falling back to X11 when the compositor
  // cannot be reached and there is an X display), on X11 otherwise; TESSEL_BACKEND forces one.
  // Without either display, or when it can't be reached, there is no window.
  bool start() {
    auto set = [](const char* name) {
      const char* value = std::getenv(name);
      return value != nullptr && *value != '\0';
    };
    const char* forced = std::getenv("TESSEL_BACKEND");
    std::string_view backend = forced != nullptr ? forced : "";
    const char* backends = nullptr;
    if (backend == "x11") backends = set("DISPLAY") ? "x11" : nullptr;
    else if (backend == "wayland") backends = set("WAYLAND_DISPLAY") ? "wayland" : nullptr;
    else if (set("WAYLAND_DISPLAY")) backends = set("DISPLAY") ? "wayland,x11" : "wayland";
    else if (set("DISPLAY")) backends = "x11";
    bool ok = false;
    if (backends != nullptr) {
      gdk_set_allowed_backends(backends);
      ok = gtk_init_check(nullptr, nullptr);
    }
    if (!ok) {
      std::fputs("tessel: no X display; dialogs answer their cancel values\n", stderr);
      return false;
    }
    // Chosen files are the movie's business, not the desktop's recent list.
    g_object_set(gtk_settings_get_default(), "gtk-recent-files-enabled", FALSE, nullptr);
    return true;
  }

  int state_ = 0;  // 0 not tried, 1 started, -1 no display
};

// GTK and the libraries below it register types and keep caches from the moment they are
// loaded, and cannot be unloaded: they stay mapped when a host unloads the module.
[[gnu::constructor]] void keepGtkLoaded() {
  dlopen("libgtk-3.so.0", RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace

std::unique_ptr<UiService> makeGtkUiService() { return std::make_unique<GtkUiService>(); }

}  // namespace tessel::platform
