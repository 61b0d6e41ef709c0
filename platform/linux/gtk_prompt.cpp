// The prompt: a GtkDialog of an instruction and entry fields, OK and Cancel. Its builder lays
// the dialog out; its key handler passes every key through the caller's filter before the
// focused field sees it.
#include "platform/linux/gtk_support.h"

namespace tessel::platform::gtk {
namespace {

struct PromptRun {
  const PromptSpec* spec;
  std::vector<GtkWidget*> entries;
  GtkWidget* ok = nullptr;
  GtkWidget* cancel = nullptr;
  bool accepted = false, done = false;
};

// The character a key stands for in the filter's terms: the control characters of the classic
// keyboard for Return, Enter, the arrows and the editing keys, else the key's Unicode character.
uint32_t keyCharacter(guint keyval) {
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

// Lays the dialog out: the instruction, each field's caption and entry, Cancel and OK.
void buildPrompt(GtkWidget* dialog, PromptRun& run) {
  const PromptSpec& spec = *run.spec;
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
  run.cancel = gtk_dialog_add_button(GTK_DIALOG(dialog), "Cancel", 2);
  run.ok = gtk_dialog_add_button(GTK_DIALOG(dialog), "OK", 1);
  markDefault(run.ok);
}

// OK is dimmed while input is required and the first field is empty.
void updateOk(GtkEditable*, gpointer data) {
  auto* r = static_cast<PromptRun*>(data);
  const bool empty = gtk_entry_get_text_length(GTK_ENTRY(r->entries.front())) == 0;
  gtk_widget_set_sensitive(r->ok, !(r->spec->requireInput && empty));
}

// The filter sees every key before the focused field does, and answers what the key does.
gboolean promptKey(GtkWidget* self, GdkEventKey* event, gpointer data) {
  auto* r = static_cast<PromptRun*>(data);
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
}

}  // namespace

std::optional<std::vector<std::string>> runPrompt(const PromptSpec& spec) {
  PromptRun run{&spec};
  CallWindow window(gtk_dialog_new());
  GtkWidget* dialog = window.widget();
  buildPrompt(dialog, run);
  if (!run.entries.empty()) {
    g_signal_connect(run.entries.front(), "changed", G_CALLBACK(updateOk), &run);
    updateOk(nullptr, &run);
  }
  g_signal_connect(dialog, "response", G_CALLBACK(+[](GtkDialog*, gint id, gpointer data) {
                     auto* r = static_cast<PromptRun*>(data);
                     r->accepted = id == 1;
                     r->done = true;
                   }),
                   &run);
  g_signal_connect(dialog, "delete-event",
                   G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer data) -> gboolean {
                     static_cast<PromptRun*>(data)->done = true;
                     return TRUE;
                   }),
                   &run);
  g_signal_connect(dialog, "key-press-event", G_CALLBACK(promptKey), &run);
  placeWindow(GTK_WINDOW(dialog), spec.place, true);
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
  flashButton(run.accepted ? run.ok : run.cancel);
  return result;
}

}  // namespace tessel::platform::gtk
