// orla_gtk_test_app: a GTK 3 application the accessibility tests drive over
// the accessibility bus. It writes one line per thing a user did to the log
// file named by its first argument, so that a test checks the effect from
// the application's side:
//   activated File > Export > PDF       a menu item chosen
//   toggled View > Word Wrap on         a check menu item or check box
//   pressed Submit                      a button or tool button
//   text Name=Ada                       the name field changed
//   opened Report                       the report window came up
//   vanished                            the field "Vanishing" took the focus and went away
//   scrolled vertical 100               the text view's scroll bar moved (0 to 100)
// Its window "Orla GTK Test" holds a menu bar (File, Edit, View; File's
// "Open Recent" fills only when opened; "Print…" and "Undo" are disabled), a
// toolbar, a scrolled text view and a form. ORLA_GTK_TEST_MENU_ITEMS=n adds
// a menu "Many" of n items; ORLA_GTK_TEST_BUTTONS=n a panel of n buttons.
#include <gtk/gtk.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

FILE* logFile = stdout;

void note(const std::string& line) {
  std::fprintf(logFile, "%s\n", line.c_str());
  std::fflush(logFile);
}

void onActivate(GtkMenuItem* item, gpointer path) {
  if (GTK_IS_CHECK_MENU_ITEM(item)) {
    note(std::string("toggled ") + static_cast<const char*>(path) +
         (gtk_check_menu_item_get_active(GTK_CHECK_MENU_ITEM(item)) ? " on" : " off"));
    return;
  }
  note(std::string("activated ") + static_cast<const char*>(path));
}

GtkWidget* addItem(GtkWidget* menu, const char* label, const char* path, bool enabled = true) {
  GtkWidget* item = gtk_menu_item_new_with_label(label);
  gtk_widget_set_sensitive(item, enabled);
  g_signal_connect(item, "activate", G_CALLBACK(onActivate), const_cast<char*>(path));
  gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
  return item;
}

GtkWidget* addCheck(GtkWidget* menu, const char* label, const char* path, bool on) {
  GtkWidget* item = gtk_check_menu_item_new_with_label(label);
  gtk_check_menu_item_set_active(GTK_CHECK_MENU_ITEM(item), on);
  g_signal_connect(item, "toggled", G_CALLBACK(onActivate), const_cast<char*>(path));
  gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
  return item;
}

GtkWidget* addSubmenu(GtkWidget* shell, const char* label) {
  GtkWidget* owner = gtk_menu_item_new_with_label(label);
  GtkWidget* menu = gtk_menu_new();
  gtk_menu_item_set_submenu(GTK_MENU_ITEM(owner), menu);
  gtk_menu_shell_append(GTK_MENU_SHELL(shell), owner);
  return menu;
}

// Like a recent-files menu: its items are made when it is shown.
void fillRecent(GtkWidget* menu, gpointer) {
  GList* children = gtk_container_get_children(GTK_CONTAINER(menu));
  const bool empty = children == nullptr;
  g_list_free(children);
  if (!empty) return;
  addItem(menu, "notes.txt", "File > Open Recent > notes.txt");
  addItem(menu, "report.txt", "File > Open Recent > report.txt");
  gtk_widget_show_all(menu);
}

GtkWidget* toolbar = nullptr;

void onToolbarToggled(GtkCheckMenuItem* item, gpointer) {
  gtk_widget_set_visible(toolbar, gtk_check_menu_item_get_active(item));
}

GtkWidget* menuBar() {
  GtkWidget* bar = gtk_menu_bar_new();
  GtkWidget* file = addSubmenu(bar, "File");
  addItem(file, "New", "File > New");
  GtkWidget* recent = addSubmenu(file, "Open Recent");
  g_signal_connect(recent, "show", G_CALLBACK(fillRecent), nullptr);
  GtkWidget* exportMenu = addSubmenu(file, "Export");
  addItem(exportMenu, "PDF", "File > Export > PDF");
  GtkWidget* html = addSubmenu(exportMenu, "HTML");
  addItem(html, "Single Page", "File > Export > HTML > Single Page");
  addItem(html, "Multiple Pages", "File > Export > HTML > Multiple Pages");
  gtk_menu_shell_append(GTK_MENU_SHELL(file), gtk_separator_menu_item_new());
  addItem(file, "Save\u2026", "File > Save\u2026");
  addItem(file, "Print\u2026", "File > Print\u2026", false);
  addItem(file, "Quit", "File > Quit");
  GtkWidget* edit = addSubmenu(bar, "Edit");
  addItem(edit, "Undo", "Edit > Undo", false);
  addItem(edit, "Copy", "Edit > Copy");
  addItem(edit, "Paste", "Edit > Paste");
  GtkWidget* view = addSubmenu(bar, "View");
  GtkWidget* showToolbar = addCheck(view, "Toolbar", "View > Toolbar", true);
  g_signal_connect(showToolbar, "toggled", G_CALLBACK(onToolbarToggled), nullptr);
  addCheck(view, "Word Wrap", "View > Word Wrap", false);
  if (const char* many = std::getenv("ORLA_GTK_TEST_MENU_ITEMS")) {
    GtkWidget* menu = addSubmenu(bar, "Many");
    const int count = std::atoi(many);
    for (int i = 1; i <= count; ++i) {
      const std::string label = "Item " + std::to_string(i);
      // The path lives as long as the application.
      addItem(menu, label.c_str(), g_strdup(("Many > " + label).c_str()));
    }
  }
  return bar;
}

void onPressed(GtkWidget*, gpointer name) { note(std::string("pressed ") + static_cast<const char*>(name)); }

void onToolPressed(GtkToolButton* button, gpointer) {
  note(std::string("pressed ") + gtk_tool_button_get_label(button));
}

void onChecked(GtkToggleButton* box, gpointer) {
  note(std::string("toggled ") + gtk_button_get_label(GTK_BUTTON(box)) +
       (gtk_toggle_button_get_active(box) ? " on" : " off"));
}

void onText(GtkEditable* field, gpointer) { note(std::string("text Name=") + gtk_entry_get_text(GTK_ENTRY(field))); }

gboolean openReport(gpointer) {
  GtkWidget* report = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(report), "Report");
  gtk_window_set_default_size(GTK_WINDOW(report), 240, 120);
  gtk_container_add(GTK_CONTAINER(report), gtk_label_new("All done."));
  gtk_widget_show_all(report);
  note("opened Report");
  return G_SOURCE_REMOVE;
}

// The report window comes up a moment later, as one that takes its time.
void onOpenReport(GtkWidget*, gpointer) { g_timeout_add(400, openReport, nullptr); }

GtkWidget* toolBar() {
  GtkWidget* bar = gtk_toolbar_new();
  for (const char* name : {"Bold", "Italic"}) {
    GtkToolItem* button = gtk_tool_button_new(nullptr, name);
    g_signal_connect(button, "clicked", G_CALLBACK(onToolPressed), nullptr);
    gtk_toolbar_insert(GTK_TOOLBAR(bar), button, -1);
  }
  return bar;
}

// Where a scroll bar stands, from 0 at the top (or left) end to 100 at the
// other.
void onScrolled(GtkAdjustment* adjustment, gpointer direction) {
  const double span = gtk_adjustment_get_upper(adjustment) - gtk_adjustment_get_page_size(adjustment) -
                      gtk_adjustment_get_lower(adjustment);
  const double at = span > 0 ? (gtk_adjustment_get_value(adjustment) - gtk_adjustment_get_lower(adjustment)) / span : 0;
  note(std::string("scrolled ") + static_cast<const char*>(direction) + " " +
       std::to_string(static_cast<int>(at * 100 + 0.5)));
}

GtkWidget* textView() {
  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_ALWAYS, GTK_POLICY_ALWAYS);
  // Classic scroll bars: overlay ones hide until the pointer comes by.
  gtk_scrolled_window_set_overlay_scrolling(GTK_SCROLLED_WINDOW(scrolled), FALSE);
  gtk_widget_set_size_request(scrolled, 360, 160);
  GtkWidget* view = gtk_text_view_new();
  gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(view), GTK_WRAP_NONE);
  std::string text;
  for (int line = 1; line <= 300; ++line)
    text += "Line " + std::to_string(line) + " of a long text that is wider than its window, to scroll both ways.\n";
  gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(view)), text.c_str(), -1);
  gtk_container_add(GTK_CONTAINER(scrolled), view);
  g_signal_connect(gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(scrolled)), "value-changed",
                   G_CALLBACK(onScrolled), const_cast<char*>("vertical"));
  g_signal_connect(gtk_scrolled_window_get_hadjustment(GTK_SCROLLED_WINDOW(scrolled)), "value-changed",
                   G_CALLBACK(onScrolled), const_cast<char*>("horizontal"));
  return scrolled;
}

// The field "Vanishing" goes away as soon as it takes the focus, the way a
// control a program replaces does: whoever found it finds it gone.
gboolean vanish(gpointer field) {
  gtk_widget_destroy(GTK_WIDGET(field));
  note("vanished");
  return G_SOURCE_REMOVE;
}

gboolean onVanishingFocus(GtkWidget* field, GdkEvent*, gpointer) {
  g_idle_add_full(G_PRIORITY_HIGH, vanish, field, nullptr);
  return FALSE;
}

GtkWidget* form() {
  GtkWidget* grid = gtk_grid_new();
  GtkWidget* label = gtk_label_new("Name");
  GtkWidget* field = gtk_entry_new();
  gtk_entry_set_placeholder_text(GTK_ENTRY(field), "Your name");
  gtk_label_set_mnemonic_widget(GTK_LABEL(label), field);
  g_signal_connect(field, "changed", G_CALLBACK(onText), nullptr);
  gtk_grid_attach(GTK_GRID(grid), label, 0, 0, 1, 1);
  gtk_grid_attach(GTK_GRID(grid), field, 1, 0, 1, 1);
  GtkWidget* subscribe = gtk_check_button_new_with_label("Subscribe");
  g_signal_connect(subscribe, "toggled", G_CALLBACK(onChecked), nullptr);
  gtk_grid_attach(GTK_GRID(grid), subscribe, 1, 1, 1, 1);
  GtkWidget* submit = gtk_button_new_with_label("Submit");
  g_signal_connect(submit, "clicked", G_CALLBACK(onPressed), const_cast<char*>("Submit"));
  gtk_grid_attach(GTK_GRID(grid), submit, 1, 2, 1, 1);
  GtkWidget* report = gtk_button_new_with_label("Open Report");
  g_signal_connect(report, "clicked", G_CALLBACK(onOpenReport), nullptr);
  gtk_grid_attach(GTK_GRID(grid), report, 2, 2, 1, 1);
  GtkWidget* vanishing = gtk_entry_new();
  gtk_entry_set_placeholder_text(GTK_ENTRY(vanishing), "Vanishing");
  g_signal_connect(vanishing, "focus-in-event", G_CALLBACK(onVanishingFocus), nullptr);
  gtk_grid_attach(GTK_GRID(grid), vanishing, 1, 3, 1, 1);
  return grid;
}

GtkWidget* manyButtons(int count) {
  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_widget_set_size_request(scrolled, 360, 120);
  GtkWidget* flow = gtk_flow_box_new();
  for (int i = 1; i <= count; ++i)
    gtk_container_add(GTK_CONTAINER(flow), gtk_button_new_with_label(("Button " + std::to_string(i)).c_str()));
  gtk_container_add(GTK_CONTAINER(scrolled), flow);
  return scrolled;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && !(logFile = std::fopen(argv[1], "a"))) {
    std::perror(argv[1]);
    return 2;
  }
  g_set_prgname("orla-gtk-test");
  gtk_init(&argc, &argv);
  g_set_application_name("Orla GTK Test");
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Orla GTK Test");
  gtk_window_set_default_size(GTK_WINDOW(window), 480, 520);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
  gtk_box_pack_start(GTK_BOX(box), menuBar(), FALSE, FALSE, 0);
  toolbar = toolBar();
  gtk_box_pack_start(GTK_BOX(box), toolbar, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(box), textView(), TRUE, TRUE, 0);
  gtk_box_pack_start(GTK_BOX(box), form(), FALSE, FALSE, 0);
  if (const char* buttons = std::getenv("ORLA_GTK_TEST_BUTTONS"))
    gtk_box_pack_start(GTK_BOX(box), manyButtons(std::atoi(buttons)), FALSE, FALSE, 0);
  gtk_container_add(GTK_CONTAINER(window), box);
  gtk_widget_show_all(window);
  note("ready");
  gtk_main();
  return 0;
}
