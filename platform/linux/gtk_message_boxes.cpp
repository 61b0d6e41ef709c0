// The message boxes: the alert (a GtkMessageDialog) and the custom box, a fixed layout of text,
// icon and up to three buttons placed where the caller says.
#include <algorithm>

#include "platform/linux/gtk_support.h"

namespace tessel::platform::gtk {
namespace {

// The narrowest alert: a one-word message still gets a box as wide as the prompt and more.
constexpr int kAlertMinWidth = 320;

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

// Return and Enter answer the default item; Escape and Ctrl-period the cancel item.
gboolean customBoxKey(GtkWidget*, GdkEventKey* event, gpointer data) {
  auto* r = static_cast<CustomBoxRun*>(data);
  if (isEnter(event->keyval)) {
    r->finish(r->spec->defaultItem);
    return TRUE;
  }
  const bool ctrlPeriod = (event->state & GDK_CONTROL_MASK) != 0 &&
                          (event->keyval == GDK_KEY_period || event->keyval == GDK_KEY_KP_Decimal);
  if (event->keyval == GDK_KEY_Escape || ctrlPeriod) {
    r->finish(r->spec->cancelItem);
    return TRUE;
  }
  return FALSE;
}

}  // namespace

int32_t runAlert(const AlertSpec& spec) {
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

int32_t runCustomBox(const CustomBoxSpec& spec) {
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
  g_signal_connect(window, "key-press-event", G_CALLBACK(customBoxKey), &run);
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

}  // namespace tessel::platform::gtk
