// The file chooser (GtkFileChooserDialog) and the list chooser (a one-column tree view).
#include <functional>

#include "platform/linux/gtk_support.h"

namespace tessel::platform::gtk {

std::vector<std::string> runFileChooser(const FileChooserSpec& spec) {
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

int32_t runListChooser(const ListChooserSpec& spec) {
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

}  // namespace tessel::platform::gtk
