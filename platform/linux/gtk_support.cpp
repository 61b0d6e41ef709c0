#include "platform/linux/gtk_support.h"

namespace tessel::platform::gtk {

// Runs what is pending without blocking.
void drainEvents() {
  while (gtk_events_pending()) gtk_main_iteration_do(FALSE);
}

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
  // A dialog closed by its window's close button may be destroyed already, its handlers gone.
  if (g_signal_handler_is_connected(dialog, handler)) g_signal_handler_disconnect(dialog, handler);
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

}  // namespace tessel::platform::gtk
