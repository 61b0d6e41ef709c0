// The desktop's windows through GTK 3, running in the host's process on the host's thread.
//
// GTK starts at the first window (gtk_init_check, so that a missing display is an answer rather
// than the end of the host). Every window is a modal top-level that runs its own loop inside the
// call, is destroyed before the call returns, and has its destruction flushed to the X server:
// the host runs no GTK loop between calls.
#include <dlfcn.h>
#include <gio/gunixmounts.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>
// Xlib's None would stand in for DialogIcon::None.
#undef None

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/ui.h"

namespace tessel::platform {
namespace {

// Runs what is pending without blocking.
void drainEvents() {
  while (gtk_events_pending()) gtk_main_iteration_do(FALSE);
}

// The top-level window of one call, destroyed and its destruction flushed to the X server before
// the call returns. Another client may destroy the X window first (`xdotool windowclose`): GTK
// cannot take that (it warns, trips over the tick callbacks of widgets it then unrealizes, and
// GDK ends the process on the X errors of its requests on the dead window). So the DestroyNotify
// is taken away from GDK before it sees it, `gone` turns true, the call ends with its cancel
// value and the widget is destroyed in the ordinary way; X errors on GTK's connection while the
// window lives are ignored instead of ending the host.
class CallWindow {
 public:
  explicit CallWindow(GtkWidget* window) : widget_(window) {
    g_object_ref(window);
    gdk_x11_display_error_trap_push(gdk_display_get_default());
    gdk_window_add_filter(nullptr, &CallWindow::filter, this);
  }
  ~CallWindow() {
    gtk_widget_destroy(widget_);
    drainEvents();
    gdk_window_remove_filter(nullptr, &CallWindow::filter, this);
    GdkDisplay* display = gdk_display_get_default();
    gdk_display_flush(display);
    gdk_x11_display_error_trap_pop_ignored(display);
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

void runUntil(const bool& done, const CallWindow& window) {
  while (!done && !window.gone()) gtk_main_iteration_do(TRUE);
}

// Runs a GtkDialog to its response (GTK_RESPONSE_NONE when its window was destroyed from
// outside); the dialog's close button and Escape answer GTK_RESPONSE_DELETE_EVENT.
gint runDialog(const CallWindow& window) {
  struct Run {
    gint response = GTK_RESPONSE_NONE;
    bool done = false;
  } run;
  GtkWidget* dialog = window.widget();
  const gulong handler = g_signal_connect(
      dialog, "response", G_CALLBACK(+[](GtkDialog*, gint id, gpointer data) {
        auto* r = static_cast<Run*>(data);
        r->response = id;
        r->done = true;
      }),
      &run);
  gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
  gtk_widget_show(dialog);
  runUntil(run.done, window);
  g_signal_handler_disconnect(dialog, handler);
  return window.gone() ? GTK_RESPONSE_NONE : run.response;
}

// Gives a message box a title bar of GTK's own, with a close button only where the close button
// answers: openbox draws its own close button whatever _MOTIF_WM_HINTS asks. The bar's height.
int ownTitleBar(GtkWindow* window, bool closeButton) {
  GtkWidget* header = gtk_header_bar_new();
  gtk_header_bar_set_title(GTK_HEADER_BAR(header), gtk_window_get_title(window));
  gtk_header_bar_set_show_close_button(GTK_HEADER_BAR(header), closeButton);
  gtk_widget_show(header);
  gtk_window_set_titlebar(window, header);
  int height = 0;
  gtk_widget_get_preferred_height(header, nullptr, &height);
  return height;
}

// A window whose client area lies exactly under its title bar, as under a manager's frame: the
// theme's border around windows that draw their own frame is taken away.
void flushClientArea(GtkWindow* window) {
  static GtkCssProvider* css = [] {
    GtkCssProvider* provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(
        provider,
        "window.tessel-placed, window.tessel-placed decoration "
        "{ margin: 0; padding: 0; border-width: 0; box-shadow: none; }",
        -1, nullptr);
    return provider;
  }();
  GtkStyleContext* style = gtk_widget_get_style_context(GTK_WIDGET(window));
  gtk_style_context_add_provider(style, GTK_STYLE_PROVIDER(css),
                                 GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  gtk_style_context_add_class(style, "tessel-placed");
}

// The button Return stands for wears the theme's mark of the default action.
void markDefault(GtkWidget* button) {
  if (button != nullptr)
    gtk_style_context_add_class(gtk_widget_get_style_context(button),
                                GTK_STYLE_CLASS_SUGGESTED_ACTION);
}

// Shows a button pressed for 8 ticks (133 ms), drawing meanwhile, so that a choice made from the
// keyboard is seen on the button it stands for.
void flashButton(GtkWidget* button) {
  if (button == nullptr || !gtk_widget_get_mapped(button)) return;
  g_object_ref(button);  // its window may be destroyed from outside meanwhile
  gtk_widget_set_state_flags(button, GTK_STATE_FLAG_ACTIVE, FALSE);
  bool over = false;
  g_timeout_add(
      8 * 1000 / 60,
      +[](gpointer data) -> gboolean {
        *static_cast<bool*>(data) = true;
        return G_SOURCE_REMOVE;
      },
      &over);
  while (!over) gtk_main_iteration_do(TRUE);
  gtk_widget_unset_state_flags(button, GTK_STATE_FLAG_ACTIVE);
  g_object_unref(button);
  drainEvents();
}

// Places the client area's top-left corner, or leaves the window to the window manager.
void placeWindow(GtkWindow* window, const WindowPlace& place, bool centreByDefault) {
  if (place.systemDefault) {
    if (centreByDefault) gtk_window_set_position(window, GTK_WIN_POS_CENTER);
    return;
  }
  gtk_window_set_gravity(window, GDK_GRAVITY_STATIC);
  gtk_window_move(window, place.x, place.y);
}

void showModal(GtkWidget* window) {
  gtk_window_set_modal(GTK_WINDOW(window), TRUE);
  gtk_window_set_focus_on_map(GTK_WINDOW(window), TRUE);
  gtk_widget_show_all(window);
  gtk_window_present(GTK_WINDOW(window));
}

const char* iconName(DialogIcon icon) {
  switch (icon) {
    case DialogIcon::Note: return "dialog-information";
    case DialogIcon::Caution: return "dialog-warning";
    case DialogIcon::Stop: return "dialog-error";
    case DialogIcon::None: break;
  }
  return nullptr;
}

bool isEnter(guint keyval) {
  return keyval == GDK_KEY_Return || keyval == GDK_KEY_KP_Enter || keyval == GDK_KEY_ISO_Enter;
}

PangoFontDescription* fontFor(const TextStyle& style) {
  PangoFontDescription* font = pango_font_description_new();
  pango_font_description_set_family(font, style.fontName.empty() ? "Sans" : style.fontName.c_str());
  pango_font_description_set_absolute_size(font, (style.pixelSize > 0 ? style.pixelSize : 12) *
                                                     static_cast<double>(PANGO_SCALE));
  pango_font_description_set_weight(font, style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  return font;
}

void setUpLayout(PangoLayout* layout, const std::string& text, const TextStyle& style,
                 int32_t width, TextAlign align) {
  PangoFontDescription* font = fontFor(style);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_width(layout, width * PANGO_SCALE);
  pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
  pango_layout_set_alignment(layout, align == TextAlign::Right    ? PANGO_ALIGN_RIGHT
                                     : align == TextAlign::Centre ? PANGO_ALIGN_CENTER
                                                                  : PANGO_ALIGN_LEFT);
  pango_layout_set_text(layout, text.c_str(), static_cast<int>(text.size()));
}

// ---- The custom message box ---------------------------------------------------------------------

struct CustomBoxRun {
  const CustomBoxSpec* spec = nullptr;
  int32_t item = 0;
  bool done = false;
  void finish(int32_t hit) {
    if (done || hit < 1 || hit > 3) return;
    item = hit;
    done = true;
  }
};

gboolean drawBoxText(GtkWidget* area, cairo_t* cr, gpointer data) {
  const CustomBoxSpec& spec = *static_cast<CustomBoxRun*>(data)->spec;
  PangoLayout* layout = pango_cairo_create_layout(cr);
  setUpLayout(layout, spec.text, spec.style, gtk_widget_get_allocated_width(area), spec.align);
  GdkRGBA colour;
  gtk_style_context_get_color(gtk_widget_get_style_context(area), GTK_STATE_FLAG_NORMAL, &colour);
  gdk_cairo_set_source_rgba(cr, &colour);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
  return FALSE;
}

// ---- The progress window -------------------------------------------------------------------------

class GtkProgress final : public ProgressWindow {
 public:
  GtkProgress(const ProgressSpec& spec, std::pair<int32_t, int32_t> screen) {
    constexpr int32_t kWidth = 254, kHeight = 100;
    GtkWindow* w = GTK_WINDOW(window_.widget());
    gtk_window_set_title(w, spec.title.c_str());
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
    GtkWidget* button = gtk_button_new_with_label(spec.buttonText.c_str());
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
    if (!window_.gone()) gtk_label_set_text(GTK_LABEL(name_), name.c_str());
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

// The narrowest alert: a one-word message still gets a box as wide as the prompt and more.
constexpr int kAlertMinWidth = 320;

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
    setUpLayout(layout, text, style, width, TextAlign::Left);
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

  int32_t alert(const AlertSpec& spec) override {
    GtkMessageType type = spec.icon == DialogIcon::Note      ? GTK_MESSAGE_INFO
                          : spec.icon == DialogIcon::Caution ? GTK_MESSAGE_WARNING
                          : spec.icon == DialogIcon::Stop    ? GTK_MESSAGE_ERROR
                                                             : GTK_MESSAGE_OTHER;
    CallWindow window(gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, type, GTK_BUTTONS_NONE,
                                             "%s", spec.message.c_str()));
    GtkWidget* dialog = window.widget();
    // A short message still makes a box wide enough to read as a dialog and carry its title.
    gtk_widget_set_size_request(dialog, kAlertMinWidth, -1);
    if (!spec.title.empty()) gtk_window_set_title(GTK_WINDOW(dialog), spec.title.c_str());
    ownTitleBar(GTK_WINDOW(dialog), spec.cancelButton != 0);
    if (const char* name = iconName(spec.icon)) {
      G_GNUC_BEGIN_IGNORE_DEPRECATIONS
      gtk_message_dialog_set_image(GTK_MESSAGE_DIALOG(dialog),
                                   gtk_image_new_from_icon_name(name, GTK_ICON_SIZE_DIALOG));
      G_GNUC_END_IGNORE_DEPRECATIONS
    }
    // Added from the left, so the first button ends up on the right.
    for (size_t i = spec.buttons.size(); i > 0; --i)
      gtk_dialog_add_button(GTK_DIALOG(dialog), spec.buttons[i - 1].c_str(),
                            static_cast<gint>(i));
    gtk_window_set_deletable(GTK_WINDOW(dialog), spec.cancelButton != 0);
    // The default button looks the part; Return itself is handled below.
    if (spec.returnButton >= 1 && static_cast<size_t>(spec.returnButton) <= spec.buttons.size()) {
      gtk_dialog_set_default_response(GTK_DIALOG(dialog), spec.returnButton);
      markDefault(gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog), spec.returnButton));
    }

    struct Run {
      const AlertSpec* spec;
      int32_t pressed = 0;
      bool done = false;
    } run{&spec};
    g_signal_connect(dialog, "response", G_CALLBACK(+[](GtkDialog*, gint id, gpointer data) {
                       auto* r = static_cast<Run*>(data);
                       if (id >= 1 && id <= 3 && !r->done) {
                         r->pressed = id;
                         r->done = true;
                       }
                     }),
                     &run);
    // Return and Enter answer the alert's default number, whichever button has the focus.
    g_signal_connect(dialog, "key-press-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEventKey* event, gpointer data) -> gboolean {
                       auto* r = static_cast<Run*>(data);
                       if (isEnter(event->keyval)) {
                         r->pressed = r->spec->returnButton;
                         r->done = true;
                         return TRUE;
                       }
                       if (event->keyval == GDK_KEY_Escape) {
                         if (r->spec->cancelButton != 0) {
                           r->pressed = r->spec->cancelButton;
                           r->done = true;
                         }
                         return TRUE;
                       }
                       return FALSE;
                     }),
                     &run);
    g_signal_connect(dialog, "delete-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer data) -> gboolean {
                       auto* r = static_cast<Run*>(data);
                       if (r->spec->cancelButton != 0) {
                         r->pressed = r->spec->cancelButton;
                         r->done = true;
                       }
                       return TRUE;
                     }),
                     &run);
    gtk_window_set_position(GTK_WINDOW(dialog), GTK_WIN_POS_CENTER);
    showModal(dialog);
    runUntil(run.done, window);
    return window.gone() ? 0 : run.pressed;
  }

  int32_t customBox(const CustomBoxSpec& spec) override {
    CustomBoxRun run;
    run.spec = &spec;
    CallWindow owned(gtk_window_new(GTK_WINDOW_TOPLEVEL));
    GtkWidget* window = owned.widget();
    GtkWindow* w = GTK_WINDOW(window);
    gtk_window_set_title(w, spec.title.c_str());
    gtk_window_set_type_hint(w, GDK_WINDOW_TYPE_HINT_DIALOG);
    gtk_window_set_resizable(w, FALSE);
    gtk_window_set_deletable(w, spec.cancelItem != 0);
    flushClientArea(w);
    const int titleBarHeight = ownTitleBar(w, spec.cancelItem != 0);
    GtkWidget* fixed = gtk_fixed_new();
    gtk_widget_set_size_request(fixed, spec.width, spec.height);
    gtk_container_add(GTK_CONTAINER(window), fixed);

    GtkWidget* text = gtk_drawing_area_new();
    gtk_widget_set_size_request(text, spec.textRight - spec.textLeft,
                                std::max(1, spec.height - spec.textTop - 80));
    g_signal_connect(text, "draw", G_CALLBACK(drawBoxText), &run);
    gtk_fixed_put(GTK_FIXED(fixed), text, spec.textLeft, spec.textTop);

    if (const char* name = iconName(spec.icon)) {
      GdkPixbuf* pixbuf = gtk_icon_theme_load_icon(gtk_icon_theme_get_default(), name, 50,
                                                   GTK_ICON_LOOKUP_FORCE_SIZE, nullptr);
      if (pixbuf != nullptr) {
        gtk_fixed_put(GTK_FIXED(fixed), gtk_image_new_from_pixbuf(pixbuf), 25, 25);
        g_object_unref(pixbuf);
      }
    }
    GtkWidget* defaultButton = nullptr;
    for (int i = 0; i < 3; ++i) {
      if (!spec.shown[i]) continue;
      GtkWidget* button = gtk_button_new_with_label(spec.buttons[i].c_str());
      gtk_widget_set_size_request(button, 110, 30);
      g_object_set_data(G_OBJECT(button), "item", GINT_TO_POINTER(i + 1));
      g_signal_connect(button, "clicked", G_CALLBACK(+[](GtkButton* b, gpointer data) {
                         static_cast<CustomBoxRun*>(data)->finish(
                             GPOINTER_TO_INT(g_object_get_data(G_OBJECT(b), "item")));
                       }),
                       &run);
      gtk_fixed_put(GTK_FIXED(fixed), button, spec.buttonLeft[i], spec.buttonTop);
      if (spec.defaultItem == i + 1) defaultButton = button;
    }
    g_signal_connect(window, "key-press-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEventKey* event, gpointer data) -> gboolean {
                       auto* r = static_cast<CustomBoxRun*>(data);
                       if (isEnter(event->keyval)) {
                         r->finish(r->spec->defaultItem);
                         return TRUE;
                       }
                       const bool ctrlPeriod = (event->state & GDK_CONTROL_MASK) != 0 &&
                                               (event->keyval == GDK_KEY_period ||
                                                event->keyval == GDK_KEY_KP_Decimal);
                       if (event->keyval == GDK_KEY_Escape || ctrlPeriod) {
                         r->finish(r->spec->cancelItem);
                         return TRUE;
                       }
                       return FALSE;
                     }),
                     &run);
    g_signal_connect(window, "delete-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer data) -> gboolean {
                       auto* r = static_cast<CustomBoxRun*>(data);
                       r->finish(r->spec->cancelItem);
                       return TRUE;
                     }),
                     &run);
    // The place is the client area's; the title bar goes above it.
    WindowPlace place = spec.place;
    if (!place.systemDefault) place.y -= titleBarHeight;
    placeWindow(w, place, true);
    if (defaultButton != nullptr) {
      gtk_widget_set_can_default(defaultButton, TRUE);
      gtk_window_set_default(w, defaultButton);
      markDefault(defaultButton);
    }
    showModal(window);
    if (defaultButton != nullptr) gtk_widget_grab_focus(defaultButton);
    runUntil(run.done, owned);
    return owned.gone() ? 0 : run.item;
  }

  std::optional<std::vector<std::string>> prompt(const PromptSpec& spec) override {
    struct Run {
      const PromptSpec* spec;
      std::vector<GtkWidget*> entries;
      GtkWidget* ok = nullptr;
      bool accepted = false, done = false;
    } run{&spec};
    CallWindow window(gtk_dialog_new());
    GtkWidget* dialog = window.widget();
    GtkWindow* w = GTK_WINDOW(dialog);
    gtk_window_set_title(w, spec.title.c_str());
    gtk_window_set_resizable(w, FALSE);
    gtk_window_set_default_size(w, spec.width, -1);
    GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(dialog));
    gtk_box_set_spacing(GTK_BOX(content), 6);
    gtk_container_set_border_width(GTK_CONTAINER(content), 10);
    if (!spec.instruction.empty()) {
      GtkWidget* label = gtk_label_new(spec.instruction.c_str());
      gtk_label_set_xalign(GTK_LABEL(label), 0);
      gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
      gtk_label_set_max_width_chars(GTK_LABEL(label), 40);
      gtk_box_pack_start(GTK_BOX(content), label, FALSE, FALSE, 0);
    }
    for (const PromptField& field : spec.fields) {
      if (!field.caption.empty()) {
        GtkWidget* label = gtk_label_new(field.caption.c_str());
        gtk_label_set_xalign(GTK_LABEL(label), 0);
        gtk_box_pack_start(GTK_BOX(content), label, FALSE, FALSE, 0);
      }
      GtkWidget* entry = gtk_entry_new();
      gtk_entry_set_text(GTK_ENTRY(entry), field.text.c_str());
      if (field.masked) {
        gtk_entry_set_visibility(GTK_ENTRY(entry), FALSE);
        gtk_entry_set_invisible_char(GTK_ENTRY(entry), 0x2022);
      }
      gtk_box_pack_start(GTK_BOX(content), entry, FALSE, FALSE, 0);
      run.entries.push_back(entry);
    }
    GtkWidget* cancel = gtk_dialog_add_button(GTK_DIALOG(dialog), "Cancel", 2);
    run.ok = gtk_dialog_add_button(GTK_DIALOG(dialog), "OK", 1);
    markDefault(run.ok);

    auto update = +[](GtkEditable*, gpointer data) {
      auto* r = static_cast<Run*>(data);
      const bool empty = gtk_entry_get_text_length(GTK_ENTRY(r->entries.front())) == 0;
      gtk_widget_set_sensitive(r->ok, !(r->spec->requireInput && empty));
    };
    if (!run.entries.empty()) {
      g_signal_connect(run.entries.front(), "changed", G_CALLBACK(update), &run);
      update(nullptr, &run);
    }
    g_signal_connect(dialog, "response", G_CALLBACK(+[](GtkDialog*, gint id, gpointer data) {
                       auto* r = static_cast<Run*>(data);
                       r->accepted = id == 1;
                       r->done = true;
                     }),
                     &run);
    g_signal_connect(dialog, "delete-event",
                     G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer data) -> gboolean {
                       static_cast<Run*>(data)->done = true;
                       return TRUE;
                     }),
                     &run);
    // The filter sees every key before the focused field does.
    g_signal_connect(
        dialog, "key-press-event",
        G_CALLBACK(+[](GtkWidget* self, GdkEventKey* event, gpointer data) -> gboolean {
          auto* r = static_cast<Run*>(data);
          if (event->is_modifier || !r->spec->filter || r->entries.empty()) return FALSE;
          PromptKey key;
          key.command = (event->state & GDK_CONTROL_MASK) != 0;
          key.character = keyCharacter(event->keyval);
          GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(self));
          GtkWidget* entry = r->entries.front();
          for (GtkWidget* e : r->entries)
            if (e == focus) entry = e;
          const std::string text = gtk_entry_get_text(GTK_ENTRY(r->entries.front()));
          switch (r->spec->filter(key, text)) {
            case EntryKeyAction::Standard: return FALSE;
            case EntryKeyAction::Consume: return TRUE;
            case EntryKeyAction::Accept:
              r->accepted = true;
              r->done = true;
              return TRUE;
            case EntryKeyAction::Cancel:
              r->accepted = false;
              r->done = true;
              return TRUE;
            case EntryKeyAction::Paste:
              gtk_editable_paste_clipboard(GTK_EDITABLE(entry));
              return TRUE;
            case EntryKeyAction::Copy:
              gtk_editable_copy_clipboard(GTK_EDITABLE(entry));
              return TRUE;
            case EntryKeyAction::Cut:
              gtk_editable_cut_clipboard(GTK_EDITABLE(entry));
              return TRUE;
          }
          return FALSE;
        }),
        &run);
    placeWindow(w, spec.place, true);
    showModal(dialog);
    if (!run.entries.empty()) {
      gtk_widget_grab_focus(run.entries.front());
      gtk_editable_select_region(GTK_EDITABLE(run.entries.front()), 0, -1);
    }
    runUntil(run.done, window);
    std::optional<std::vector<std::string>> result;
    if (window.gone()) return result;
    if (run.accepted) {
      result.emplace();
      for (GtkWidget* entry : run.entries) result->push_back(gtk_entry_get_text(GTK_ENTRY(entry)));
    }
    // The entries are read first, so keys typed during the flash change nothing.
    flashButton(run.accepted ? run.ok : cancel);
    return result;
  }

  std::vector<std::string> chooseFiles(const FileChooserSpec& spec) override {
    const GtkFileChooserAction action = spec.mode == ChooserMode::Save ? GTK_FILE_CHOOSER_ACTION_SAVE
                                        : spec.mode == ChooserMode::Folder
                                            ? GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER
                                            : GTK_FILE_CHOOSER_ACTION_OPEN;
    const char* accept = spec.mode == ChooserMode::Save     ? "_Save"
                         : spec.mode == ChooserMode::Folder ? "_Select"
                                                            : "_Open";
    CallWindow window(gtk_file_chooser_dialog_new(
        spec.title.empty() ? nullptr : spec.title.c_str(), nullptr, action, "_Cancel",
        GTK_RESPONSE_CANCEL, accept, GTK_RESPONSE_ACCEPT, nullptr));
    GtkWidget* dialog = window.widget();
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
    markDefault(gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT));
    gtk_file_chooser_set_local_only(chooser, TRUE);
    gtk_file_chooser_set_select_multiple(chooser, spec.multiple && spec.mode == ChooserMode::Open);
    gtk_file_chooser_set_do_overwrite_confirmation(chooser, spec.mode == ChooserMode::Save);
    if (!spec.instruction.empty()) {
      GtkWidget* label = gtk_label_new(spec.instruction.c_str());
      gtk_label_set_xalign(GTK_LABEL(label), 0);
      GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(dialog));
      gtk_box_pack_start(GTK_BOX(content), label, FALSE, FALSE, 6);
      gtk_box_reorder_child(GTK_BOX(content), label, 0);
      // gtk_dialog_run shows the dialog alone; the chooser's own children are shown already.
      gtk_widget_show(label);
    }
    if (!spec.startFolder.empty() && g_file_test(spec.startFolder.c_str(), G_FILE_TEST_IS_DIR))
      gtk_file_chooser_set_current_folder(chooser, spec.startFolder.c_str());
    if (spec.mode == ChooserMode::Save && !spec.proposedName.empty())
      gtk_file_chooser_set_current_name(chooser, spec.proposedName.c_str());
    if (spec.mode == ChooserMode::Open && !spec.selectPath.empty())
      gtk_file_chooser_select_filename(chooser, spec.selectPath.c_str());
    if (spec.mode == ChooserMode::Open && spec.filter) {
      GtkFileFilter* filter = gtk_file_filter_new();
      gtk_file_filter_add_custom(
          filter, GTK_FILE_FILTER_FILENAME,
          +[](const GtkFileFilterInfo* info, gpointer data) -> gboolean {
            if (info->filename == nullptr) return FALSE;
            if (g_file_test(info->filename, G_FILE_TEST_IS_DIR)) return TRUE;
            return (*static_cast<const std::function<bool(const std::string&)>*>(data))(
                info->filename);
          },
          const_cast<std::function<bool(const std::string&)>*>(&spec.filter), nullptr);
      gtk_file_chooser_set_filter(chooser, filter);
    }
    placeWindow(GTK_WINDOW(dialog), spec.place, false);
    gtk_window_set_focus_on_map(GTK_WINDOW(dialog), TRUE);
    std::vector<std::string> chosen;
    if (runDialog(window) == GTK_RESPONSE_ACCEPT) {
      GSList* names = gtk_file_chooser_get_filenames(chooser);
      for (GSList* n = names; n != nullptr; n = n->next) {
        chosen.emplace_back(static_cast<char*>(n->data));
        g_free(n->data);
      }
      g_slist_free(names);
    }
    return chosen;
  }

  int32_t chooseFromList(const ListChooserSpec& spec) override {
    CallWindow window(gtk_dialog_new_with_buttons(spec.title.c_str(), nullptr, GTK_DIALOG_MODAL,
                                                  "Cancel", GTK_RESPONSE_CANCEL, "OK",
                                                  GTK_RESPONSE_ACCEPT, nullptr));
    GtkWidget* dialog = window.widget();
    gtk_window_set_default_size(GTK_WINDOW(dialog), 360, 320);
    GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(dialog));
    gtk_container_set_border_width(GTK_CONTAINER(content), 8);
    gtk_box_set_spacing(GTK_BOX(content), 6);
    if (!spec.instruction.empty()) {
      GtkWidget* label = gtk_label_new(spec.instruction.c_str());
      gtk_label_set_xalign(GTK_LABEL(label), 0);
      gtk_box_pack_start(GTK_BOX(content), label, FALSE, FALSE, 0);
    }
    GtkListStore* store = gtk_list_store_new(2, G_TYPE_STRING, G_TYPE_STRING);
    for (size_t i = 0; i < spec.rows.size(); ++i) {
      GtkTreeIter iter;
      gtk_list_store_append(store, &iter);
      const std::string icon = i < spec.icons.size() ? spec.icons[i] : std::string();
      gtk_list_store_set(store, &iter, 0, icon.empty() ? nullptr : icon.c_str(), 1,
                         spec.rows[i].c_str(), -1);
    }
    GtkWidget* view = gtk_tree_view_new_with_model(GTK_TREE_MODEL(store));
    g_object_unref(store);
    gtk_tree_view_set_headers_visible(GTK_TREE_VIEW(view), FALSE);
    GtkTreeViewColumn* column = gtk_tree_view_column_new();
    GtkCellRenderer* iconCell = gtk_cell_renderer_pixbuf_new();
    gtk_tree_view_column_pack_start(column, iconCell, FALSE);
    gtk_tree_view_column_add_attribute(column, iconCell, "icon-name", 0);
    GtkCellRenderer* textCell = gtk_cell_renderer_text_new();
    gtk_tree_view_column_pack_start(column, textCell, TRUE);
    gtk_tree_view_column_add_attribute(column, textCell, "text", 1);
    gtk_tree_view_append_column(GTK_TREE_VIEW(view), column);
    GtkWidget* scroller = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_container_add(GTK_CONTAINER(scroller), view);
    gtk_box_pack_start(GTK_BOX(content), scroller, TRUE, TRUE, 0);

    GtkWidget* ok = gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
    markDefault(ok);
    GtkTreeSelection* selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(view));
    gtk_tree_selection_set_mode(selection, GTK_SELECTION_SINGLE);
    auto sync = +[](GtkTreeSelection* s, gpointer button) {
      gtk_widget_set_sensitive(GTK_WIDGET(button),
                               gtk_tree_selection_count_selected_rows(s) > 0);
    };
    g_signal_connect(selection, "changed", G_CALLBACK(sync), ok);
    if (spec.selected >= 0 && static_cast<size_t>(spec.selected) < spec.rows.size()) {
      GtkTreePath* path = gtk_tree_path_new_from_indices(spec.selected, -1);
      gtk_tree_view_set_cursor(GTK_TREE_VIEW(view), path, nullptr, FALSE);
      gtk_tree_path_free(path);
    } else {
      gtk_tree_selection_unselect_all(selection);
    }
    sync(selection, ok);
    // A double-click, or Return on a row, chooses it.
    g_signal_connect(view, "row-activated",
                     G_CALLBACK(+[](GtkTreeView*, GtkTreePath*, GtkTreeViewColumn*, gpointer d) {
                       gtk_dialog_response(GTK_DIALOG(d), GTK_RESPONSE_ACCEPT);
                     }),
                     dialog);
    placeWindow(GTK_WINDOW(dialog), spec.place, true);
    gtk_widget_show_all(dialog);
    gtk_widget_grab_focus(view);
    int32_t chosen = -1;
    if (runDialog(window) == GTK_RESPONSE_ACCEPT) {
      GtkTreeModel* model = nullptr;
      GtkTreeIter iter;
      if (gtk_tree_selection_get_selected(selection, &model, &iter)) {
        GtkTreePath* path = gtk_tree_model_get_path(model, &iter);
        chosen = gtk_tree_path_get_indices(path)[0];
        gtk_tree_path_free(path);
      }
    }
    return chosen;
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
  static uint32_t keyCharacter(guint keyval) {
    switch (keyval) {
      case GDK_KEY_Return: return 13;
      case GDK_KEY_KP_Enter:
      case GDK_KEY_ISO_Enter: return 3;
      case GDK_KEY_Escape: return 27;
      case GDK_KEY_BackSpace: return 8;
      case GDK_KEY_Tab:
      case GDK_KEY_ISO_Left_Tab: return 9;
      case GDK_KEY_Left:
      case GDK_KEY_KP_Left: return 28;
      case GDK_KEY_Right:
      case GDK_KEY_KP_Right: return 29;
      case GDK_KEY_Up:
      case GDK_KEY_KP_Up: return 30;
      case GDK_KEY_Down:
      case GDK_KEY_KP_Down: return 31;
      case GDK_KEY_Home: return 1;
      case GDK_KEY_End: return 4;
      case GDK_KEY_Page_Up: return 11;
      case GDK_KEY_Page_Down: return 12;
      case GDK_KEY_Delete: return 127;
      default: return gdk_keyval_to_unicode(keyval);
    }
  }

  // GTK on X11 only: without DISPLAY, or when the X server can't be reached, there is no window.
  bool start() {
    const char* display = std::getenv("DISPLAY");
    bool ok = false;
    if (display != nullptr && *display != '\0') {
      gdk_set_allowed_backends("x11");
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
