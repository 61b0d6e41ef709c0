// What the UI service's GTK windows share: the window of one call and its loop, placing and
// showing a window, the theme's marks, text layout; and the windows themselves, one function each
// (gtk_message_boxes.cpp, gtk_prompt.cpp, gtk_choosers.cpp), which gtk_ui.cpp's service calls
// once GTK runs.
#pragma once

#include <gdk/gdkx.h>
#include <gtk/gtk.h>
// Xlib's None would stand in for DialogIcon::None.
#undef None

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/ui.h"

namespace tessel::platform::gtk {

// Runs what is pending without blocking.
void drainEvents();

// The top-level window of one call, destroyed and its destruction flushed to the X server before
// the call returns. Another client may destroy the X window first (`xdotool windowclose`): GTK
// cannot take that (it warns, trips over the tick callbacks of widgets it then unrealizes, and
// GDK ends the process on the X errors of its requests on the dead window). So the DestroyNotify
// is taken away from GDK before it sees it, `gone` turns true, the call ends with its cancel
// value and the widget is destroyed in the ordinary way; X errors on GTK's connection while the
// window lives are ignored instead of ending the host. (On Wayland a compositor's close request
// reaches the window as its close button does.)
class CallWindow {
 public:
  explicit CallWindow(GtkWidget* window) : widget_(window) {
    g_object_ref(window);
    if (GDK_IS_X11_DISPLAY(gdk_display_get_default())) {
      gdk_x11_display_error_trap_push(gdk_display_get_default());
      gdk_window_add_filter(nullptr, &CallWindow::filter, this);
    }
  }
  ~CallWindow() {
    gtk_widget_destroy(widget_);
    drainEvents();
    GdkDisplay* display = gdk_display_get_default();
    gdk_display_flush(display);
    if (GDK_IS_X11_DISPLAY(display)) {
      gdk_window_remove_filter(nullptr, &CallWindow::filter, this);
      gdk_x11_display_error_trap_pop_ignored(display);
    }
    g_object_unref(widget_);
  }
  CallWindow(const CallWindow&) = delete;
  CallWindow& operator=(const CallWindow&) = delete;
  GtkWidget* widget() const { return widget_; }
  bool gone() const { return gone_; }

 private:
  static GdkFilterReturn filter(GdkXEvent* native, GdkEvent*, gpointer data) {
    auto* self = static_cast<CallWindow*>(data);
    const XEvent* event = static_cast<const XEvent*>(native);
    if (event->type != DestroyNotify || self->gone_ || !gtk_widget_get_realized(self->widget_))
      return GDK_FILTER_CONTINUE;
    GdkWindow* window = gtk_widget_get_window(self->widget_);
    if (window == nullptr || !GDK_IS_X11_WINDOW(window) ||
        event->xdestroywindow.window != gdk_x11_window_get_xid(window))
      return GDK_FILTER_CONTINUE;
    self->gone_ = true;
    return GDK_FILTER_REMOVE;
  }

  GtkWidget* widget_;
  bool gone_ = false;
};

void runUntil(const bool& done, const CallWindow& window);
// Runs a GtkDialog to its response (GTK_RESPONSE_NONE when its window was destroyed from
// outside); the dialog's close button and Escape answer GTK_RESPONSE_DELETE_EVENT.
gint runDialog(const CallWindow& window);
// Gives a message box a title bar of GTK's own, with a close button only where the close button
// answers. The bar's height.
int ownTitleBar(GtkWindow* window, bool closeButton);
// A window whose client area lies exactly under its title bar, as under a manager's frame.
void flushClientArea(GtkWindow* window);
// The button Return stands for wears the theme's mark of the default action.
void markDefault(GtkWidget* button);
// Shows a button pressed for 8 ticks (133 ms), so that a keyboard choice is seen on its button.
void flashButton(GtkWidget* button);
// Places the client area's top-left corner, or leaves the window to the window manager.
void placeWindow(GtkWindow* window, const WindowPlace& place, bool centreByDefault);
void showModal(GtkWidget* window);
const char* iconName(DialogIcon icon);
bool isEnter(guint keyval);
PangoFontDescription* fontFor(const TextStyle& style);
void setUpLayout(PangoLayout* layout, const std::string& text, const TextStyle& style,
                 int32_t width, TextAlign align);

// ---- The windows (GTK running) ---------------------------------------------------------------------
int32_t runAlert(const AlertSpec& spec);
int32_t runCustomBox(const CustomBoxSpec& spec);
std::optional<std::vector<std::string>> runPrompt(const PromptSpec& spec);
std::vector<std::string> runFileChooser(const FileChooserSpec& spec);
int32_t runListChooser(const ListChooserSpec& spec);

}  // namespace tessel::platform::gtk
