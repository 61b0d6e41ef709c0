/* A small GTK application for the window, key and click tests.
 *
 *   tessel_test_app --class CLASS --title TITLE [--windows 2] [--refuse-close] [--record FILE]
 *
 * Opens one or two windows (the second titled TITLE " 2") with the WM_CLASS class CLASS (on
 * Wayland: the app_id CLASS). With --record, appends one line per event to FILE, flushed at once:
 *   ready                    when the first window is mapped
 *   key NAME MODS            a key press: the keysym's name and the held modifiers
 *                            ("shift+control+alt+super", "-" for none)
 *   press N / release N      a mouse button pressed or released
 *   close refused            a close request turned down (--refuse-close)
 * Quits when its last window is closed. */
#include <gtk/gtk.h>
#ifdef GDK_WINDOWING_WAYLAND
#include <gdk/gdkwayland.h>
#endif
#include <stdio.h>
#include <string.h>

static FILE *record;
static gboolean refuse_close;
static int open_windows;
static gboolean ready_written;

static void note(const char *line) {
  if (record == NULL) return;
  fputs(line, record);
  fputc('\n', record);
  fflush(record);
}

static gboolean on_key(GtkWidget *widget, GdkEventKey *event, gpointer data) {
  (void)widget;
  (void)data;
  char mods[64] = "";
  if (event->state & GDK_SHIFT_MASK) strcat(mods, "+shift");
  if (event->state & GDK_CONTROL_MASK) strcat(mods, "+control");
  if (event->state & GDK_MOD1_MASK) strcat(mods, "+alt");
  if (event->state & (GDK_SUPER_MASK | GDK_MOD4_MASK)) strcat(mods, "+super");
  const char *name = gdk_keyval_name(event->keyval);
  char line[160];
  snprintf(line, sizeof line, "key %s %s", name != NULL ? name : "?", mods[0] ? mods + 1 : "-");
  note(line);
  return TRUE;
}

static gboolean on_button(GtkWidget *widget, GdkEventButton *event, gpointer data) {
  (void)widget;
  (void)data;
  char line[64];
  if (event->type == GDK_BUTTON_PRESS || event->type == GDK_BUTTON_RELEASE) {
    snprintf(line, sizeof line, "%s %u", event->type == GDK_BUTTON_RELEASE ? "release" : "press",
             event->button);
    note(line);
  }
  return TRUE;
}

static gboolean on_map(GtkWidget *widget, GdkEvent *event, gpointer data) {
  (void)widget;
  (void)event;
  (void)data;
  if (!ready_written) {
    ready_written = TRUE;
    note("ready");
  }
  return FALSE;
}

static gboolean on_delete(GtkWidget *widget, GdkEvent *event, gpointer data) {
  (void)widget;
  (void)event;
  (void)data;
  if (refuse_close) {
    note("close refused");
    return TRUE;
  }
  return FALSE;
}

static void on_destroy(GtkWidget *widget, gpointer data) {
  (void)widget;
  (void)data;
  if (--open_windows == 0) gtk_main_quit();
}

int main(int argc, char **argv) {
  const char *klass = "TesselTest", *title = "Tessel test", *path = NULL;
  int windows = 1;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--class") == 0 && i + 1 < argc) klass = argv[++i];
    else if (strcmp(argv[i], "--title") == 0 && i + 1 < argc) title = argv[++i];
    else if (strcmp(argv[i], "--windows") == 0 && i + 1 < argc) windows = atoi(argv[++i]) == 2 ? 2 : 1;
    else if (strcmp(argv[i], "--record") == 0 && i + 1 < argc) path = argv[++i];
    else if (strcmp(argv[i], "--refuse-close") == 0) refuse_close = TRUE;
  }
  gdk_set_program_class(klass);
  gtk_init(&argc, &argv);
  gdk_set_program_class(klass);
#ifdef GDK_WINDOWING_WAYLAND
  /* On Wayland the class is the app_id, which GDK takes from the program name. */
  if (GDK_IS_WAYLAND_DISPLAY(gdk_display_get_default())) g_set_prgname(klass);
#endif
  if (path != NULL) record = fopen(path, "a");
  for (int w = 0; w < windows; ++w) {
    GtkWidget *window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    char name[512];
    snprintf(name, sizeof name, w == 0 ? "%s" : "%s 2", title);
    gtk_window_set_title(GTK_WINDOW(window), name);
    gtk_window_set_default_size(GTK_WINDOW(window), 320, 200);
    gtk_widget_add_events(window, GDK_KEY_PRESS_MASK | GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK);
    g_signal_connect(window, "key-press-event", G_CALLBACK(on_key), NULL);
    g_signal_connect(window, "button-press-event", G_CALLBACK(on_button), NULL);
    g_signal_connect(window, "button-release-event", G_CALLBACK(on_button), NULL);
    g_signal_connect(window, "map-event", G_CALLBACK(on_map), NULL);
    g_signal_connect(window, "delete-event", G_CALLBACK(on_delete), NULL);
    g_signal_connect(window, "destroy", G_CALLBACK(on_destroy), NULL);
    ++open_windows;
    gtk_widget_show_all(window);
  }
  gtk_main();
  if (record != NULL) fclose(record);
  return 0;
}
