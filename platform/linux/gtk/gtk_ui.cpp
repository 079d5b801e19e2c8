// Message dialogs and pop-up menus with GTK 3 on X11. Loaded on demand by
// the platform (see gtk_ui.h); runs on the main thread only.
#include "platform/linux/gtk/gtk_ui.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <gdk/gdkx.h>
#include <gio/gdesktopappinfo.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace orla::linux_desktop {
namespace {

// A detail longer than this goes into a scrolling area, so that the dialog
// keeps its buttons on the screen.
constexpr std::size_t kLongDetailBytes = 1500;
constexpr int kLongDetailLines = 20;

// The window the user was in, read from the window manager.
Window activeWindow(Display* display) {
  Atom property = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  Window window = None;
  if (XGetWindowProperty(display, DefaultRootWindow(display), property, 0, 1, False, XA_WINDOW, &type, &format,
                         &count, &after, &data) == Success &&
      data && count == 1 && format == 32)
    window = static_cast<Window>(*reinterpret_cast<unsigned long*>(data));
  if (data) XFree(data);
  return window;
}

// Asks the window manager to activate `window` as a pager would (source 2),
// which focus-stealing prevention lets through.
void activateWindow(Display* display, Window window, Time time) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = window;
  event.xclient.message_type = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = 2;
  event.xclient.data.l[1] = static_cast<long>(time);
  XSendEvent(display, DefaultRootWindow(display), False, SubstructureRedirectMask | SubstructureNotifyMask,
             &event);
  XFlush(display);
}

bool windowExists(Display* display, Window window) {
  if (window == None) return false;
  XWindowAttributes attributes;
  gdk_x11_display_error_trap_push(gdk_display_get_default());
  const Status ok = XGetWindowAttributes(display, window, &attributes);
  return gdk_x11_display_error_trap_pop(gdk_display_get_default()) == 0 && ok != 0 &&
         attributes.map_state == IsViewable;
}

Display* xDisplay() { return GDK_DISPLAY_XDISPLAY(gdk_display_get_default()); }

// Brings a window of ours to the front with the focus once it is mapped. A
// present with the server's current time is newer than any user action, so
// the window manager does not treat it as stealing the focus.
gboolean presentWhenMapped(GtkWidget* widget, GdkEvent*, gpointer) {
  GdkWindow* window = gtk_widget_get_window(widget);
  const guint32 now = gdk_x11_get_server_time(window);
  gtk_window_present_with_time(GTK_WINDOW(widget), now);
  activateWindow(xDisplay(), GDK_WINDOW_XID(window), now);
  return FALSE;
}

struct AlertRun {
  int response = 0;
  bool answered = false;
  int escapeResponse = alertFirstButtonReturn;
};

void addDetail(GtkMessageDialog* dialog, const std::string& detail) {
  int lines = 1;
  for (char c : detail) lines += c == '\n';
  if (detail.size() <= kLongDetailBytes && lines <= kLongDetailLines) {
    gtk_message_dialog_format_secondary_text(dialog, "%s", detail.c_str());
    return;
  }
  // A text view lays out only what is shown, where a label would lay out
  // all of it before the dialog could appear.
  GtkWidget* text = gtk_text_view_new();
  gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(text)), detail.c_str(),
                           static_cast<int>(detail.size()));
  gtk_text_view_set_editable(GTK_TEXT_VIEW(text), FALSE);
  gtk_text_view_set_cursor_visible(GTK_TEXT_VIEW(text), FALSE);
  gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(text), GTK_WRAP_WORD_CHAR);
  gtk_widget_set_can_focus(text, FALSE);
  GtkWidget* scroller = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_set_min_content_height(GTK_SCROLLED_WINDOW(scroller), 300);
  gtk_scrolled_window_set_min_content_width(GTK_SCROLLED_WINDOW(scroller), 480);
  gtk_container_add(GTK_CONTAINER(scroller), text);
  GtkWidget* area = gtk_message_dialog_get_message_area(dialog);
  gtk_box_pack_start(GTK_BOX(area), scroller, TRUE, TRUE, 0);
  gtk_widget_show_all(scroller);
}

GtkWidget* addButton(GtkDialog* dialog, const std::string& title, int response) {
  // A plain label: an underscore in a title is shown, not taken as a
  // keyboard mnemonic.
  GtkWidget* button = gtk_button_new_with_label(title.c_str());
  gtk_widget_set_can_default(button, TRUE);
  gtk_dialog_add_action_widget(dialog, button, response);
  gtk_widget_show(button);
  return button;
}

// --- menus ---

struct MenuRun {
  std::optional<MenuItemPath> chosen;
  bool closed = false;
};

void onItemActivate(GtkMenuItem* item, gpointer data) {
  auto* run = static_cast<MenuRun*>(data);
  if (gtk_menu_item_get_submenu(item)) return;  // opens its submenu, is not a choice
  if (const auto* path = static_cast<const MenuItemPath*>(g_object_get_data(G_OBJECT(item), "orla-path")))
    run->chosen = *path;
}

// The menu closes before its chosen item is activated: finish on the next
// idle turn, once the activation has been seen.
void onMenuDeactivate(GtkMenuShell*, gpointer data) {
  g_idle_add(
      [](gpointer run) -> gboolean {
        static_cast<MenuRun*>(run)->closed = true;
        return G_SOURCE_REMOVE;
      },
      data);
}

GIcon* iconFor(const MenuItem& item) {
  if (!item.iconApplicationPath.empty()) {
    const std::string& path = item.iconApplicationPath;
    if (path.size() > 8 && path.ends_with(".desktop")) {
      if (GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(path.c_str())) {
        GIcon* icon = g_app_info_get_icon(G_APP_INFO(info));
        if (icon) g_object_ref(icon);
        g_object_unref(info);
        if (icon) return icon;
      }
    }
    return g_themed_icon_new("application-x-executable");
  }
  if (!item.iconFilePath.empty()) {
    GFile* file = g_file_new_for_path(item.iconFilePath.c_str());
    GFileInfo* info = g_file_query_info(file, G_FILE_ATTRIBUTE_STANDARD_ICON, G_FILE_QUERY_INFO_NONE, nullptr,
                                        nullptr);
    g_object_unref(file);
    GIcon* icon = nullptr;
    if (info) {
      icon = g_file_info_get_icon(info);
      if (icon) g_object_ref(icon);
      g_object_unref(info);
    }
    return icon ? icon : g_themed_icon_new("text-x-generic");
  }
  return nullptr;
}

GtkWidget* menuItemWidget(const MenuItem& item) {
  GtkWidget* widget = item.on ? gtk_check_menu_item_new() : gtk_menu_item_new();
  if (item.on) gtk_check_menu_item_set_active(GTK_CHECK_MENU_ITEM(widget), TRUE);
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  if (GIcon* icon = iconFor(item)) {
    gtk_box_pack_start(GTK_BOX(box), gtk_image_new_from_gicon(icon, GTK_ICON_SIZE_MENU), FALSE, FALSE, 0);
    g_object_unref(icon);
  }
  GtkWidget* label = gtk_label_new(item.title.c_str());
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_box_pack_start(GTK_BOX(box), label, TRUE, TRUE, 0);
  gtk_container_add(GTK_CONTAINER(widget), box);
  // Screen readers (and the tests) find the item by its title.
  atk_object_set_name(gtk_widget_get_accessible(widget), item.title.c_str());
  gtk_widget_set_sensitive(widget, item.enabled);
  return widget;
}

GtkWidget* levelMenu(std::span<const MenuItem> items, std::size_t offset, const MenuItemPath& above, bool nested,
                     MenuRun& run);

// The items of one level from `offset` on, as they stand.
GtkWidget* plainMenu(std::span<const MenuItem> items, std::size_t offset, const MenuItemPath& above, bool nested,
                     MenuRun& run) {
  GtkWidget* menu = gtk_menu_new();
  for (std::size_t i = 0; i < items.size(); ++i) {
    const MenuItem& item = items[i];
    if (item.separator) {
      gtk_menu_shell_append(GTK_MENU_SHELL(menu), gtk_separator_menu_item_new());
      continue;
    }
    GtkWidget* widget = menuItemWidget(item);
    MenuItemPath path = above;
    path.push_back(offset + i);
    if (nested && !item.submenu.empty()) {
      gtk_menu_item_set_submenu(GTK_MENU_ITEM(widget), levelMenu(item.submenu, 0, path, nested, run));
    } else {
      g_object_set_data_full(G_OBJECT(widget), "orla-path", new MenuItemPath(std::move(path)),
                             [](gpointer p) { delete static_cast<MenuItemPath*>(p); });
      g_signal_connect(widget, "activate", G_CALLBACK(onItemActivate), &run);
    }
    gtk_menu_shell_append(GTK_MENU_SHELL(menu), widget);
  }
  return menu;
}

// GDK makes no window taller than 32,767 pixels, so a menu of thousands of
// entries cannot even scroll; and scrolling through thousands is no use to
// anyone. A level of more entries than this shows them in submenus of at
// most this many each, titled by the places they hold ("Items 401–800"),
// and those in turn when there are more groups than this. 400 entries stay
// far under the limit at any font size a menu uses. The chosen item's path
// is still its place in the caller's menu.
constexpr std::size_t kEntriesPerMenu = 400;

GtkWidget* levelMenu(std::span<const MenuItem> items, std::size_t offset, const MenuItemPath& above, bool nested,
                     MenuRun& run) {
  if (items.size() <= kEntriesPerMenu) return plainMenu(items, offset, above, nested, run);
  std::size_t group = kEntriesPerMenu;
  while ((items.size() + group - 1) / group > kEntriesPerMenu) group *= kEntriesPerMenu;
  GtkWidget* menu = gtk_menu_new();
  for (std::size_t start = 0; start < items.size(); start += group) {
    const std::size_t count = std::min(group, items.size() - start);
    MenuItem range;
    range.title = "Items " + std::to_string(offset + start + 1) + "\u2013" + std::to_string(offset + start + count);
    GtkWidget* widget = menuItemWidget(range);
    gtk_menu_item_set_submenu(GTK_MENU_ITEM(widget),
                              levelMenu(items.subspan(start, count), offset + start, above, nested, run));
    gtk_menu_shell_append(GTK_MENU_SHELL(menu), widget);
  }
  return menu;
}

class GtkUiImpl : public GtkUi {
 public:
  void* newMountOperation() override { return gtk_mount_operation_new(nullptr); }

  Checked<int> runAlert(const Alert& alert, MainLoop& loop) override {
    Display* display = xDisplay();
    const Window previous = activeWindow(display);
    GtkWidget* widget = gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, GTK_MESSAGE_INFO, GTK_BUTTONS_NONE, "%s",
                                               alert.messageText.c_str());
    GtkDialog* dialog = GTK_DIALOG(widget);
    gtk_window_set_title(GTK_WINDOW(widget), "Orla");
    if (!alert.informativeText.empty()) addDetail(GTK_MESSAGE_DIALOG(widget), alert.informativeText);
    AlertRun run;
    // GTK puts the default button at the end of the row, the other before it.
    const bool two = alert.buttons.size() > 1;
    if (two) addButton(dialog, alert.buttons[1], alertSecondButtonReturn);
    GtkWidget* first = addButton(dialog, alert.buttons.empty() ? "OK" : alert.buttons[0], alertFirstButtonReturn);
    gtk_dialog_set_default_response(dialog, alertFirstButtonReturn);
    // Drawn as the default, so the user sees which button Return presses.
    gtk_style_context_add_class(gtk_widget_get_style_context(first), GTK_STYLE_CLASS_SUGGESTED_ACTION);
    gtk_widget_grab_focus(first);
    // Escape stands for the other button; with one button, for that one.
    run.escapeResponse = two ? alertSecondButtonReturn : alertFirstButtonReturn;
    gtk_window_set_keep_above(GTK_WINDOW(widget), TRUE);
    gtk_window_set_position(GTK_WINDOW(widget), GTK_WIN_POS_CENTER);
    g_signal_connect(widget, "map-event", G_CALLBACK(presentWhenMapped), nullptr);
    g_signal_connect(widget, "close", G_CALLBACK(+[](GtkDialog* d, gpointer data) {
                       g_signal_stop_emission_by_name(d, "close");
                       gtk_dialog_response(d, static_cast<AlertRun*>(data)->escapeResponse);
                     }),
                     &run);
    // Closed by the window manager: the response is not the second
    // button's, which counts as the first button.
    g_signal_connect(widget, "response", G_CALLBACK(+[](GtkDialog*, int response, gpointer data) {
                       auto* r = static_cast<AlertRun*>(data);
                       r->response = response == alertSecondButtonReturn ? response : alertFirstButtonReturn;
                       r->answered = true;
                     }),
                     &run);
    gtk_widget_show(widget);
    loop.runUntil([&] { return run.answered; });
    gtk_widget_destroy(widget);
    // Back to the window the user was in.
    if (windowExists(display, previous)) activateWindow(display, previous, CurrentTime);
    settle();
    return run.response;
  }

  Checked<std::optional<MenuItemPath>> popUpMenu(std::span<const MenuItem> items, bool nested,
                                                 MainLoop& loop) override {
    MenuRun run;
    GtkWidget* menu = levelMenu(items, 0, {}, nested, run);
    g_object_ref_sink(menu);
    g_signal_connect(menu, "deactivate", G_CALLBACK(onMenuDeactivate), &run);
    gtk_widget_show_all(menu);
    // A command-line host has no event that opened the menu, so the menu is
    // placed at the pointer's position on the root window.
    GdkDisplay* gdkDisplay = gdk_display_get_default();
    GdkDevice* pointer = gdk_seat_get_pointer(gdk_display_get_default_seat(gdkDisplay));
    GdkRectangle at{0, 0, 1, 1};
    gdk_device_get_position(pointer, nullptr, &at.x, &at.y);
    // The event that opened it stands in for a click there, now.
    GdkEvent* trigger = gdk_event_new(GDK_BUTTON_PRESS);
    trigger->button.window = GDK_WINDOW(g_object_ref(gdk_get_default_root_window()));
    trigger->button.time = GDK_CURRENT_TIME;
    trigger->button.button = 3;
    gdk_event_set_device(trigger, pointer);
    gtk_menu_popup_at_rect(GTK_MENU(menu), gdk_get_default_root_window(), &at, GDK_GRAVITY_NORTH_WEST,
                           GDK_GRAVITY_NORTH_WEST, trigger);
    gdk_event_free(trigger);
    if (!gtk_widget_get_visible(menu)) {
      // Another program holds the keyboard or the pointer.
      gtk_widget_destroy(menu);
      g_object_unref(menu);
      return fail("The pop-up menu could not open: another program holds the keyboard or the mouse.");
    }
    loop.runUntil([&] { return run.closed; });
    gtk_widget_destroy(menu);
    g_object_unref(menu);
    settle();
    return run.chosen;
  }

 private:
  // Lets the window system see the windows go before the caller goes on
  // (a key sent next must reach the application, not the closed menu).
  static void settle() {
    gdk_display_flush(gdk_display_get_default());
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }
};

// GTK's error handler, between taking it back from Xlib and handing it to
// the process's handler for GTK's own connection: errors meanwhile still
// reach it, so no error goes to Xlib's default handler, which would end the
// process.
XErrorHandler gdkHandler = nullptr;
int toGdk(Display* display, XErrorEvent* error) { return gdkHandler ? gdkHandler(display, error) : 0; }

}  // namespace
}  // namespace orla::linux_desktop

extern "C" __attribute__((visibility("default"))) orla::linux_desktop::GtkUi* orla_gtk_ui_open(
    std::string* why, void (*routeErrors)(void* display, void* handler)) {
  // The X11 backend drives this display; GTK must not pick another one, nor
  // change the process's locale under the rest of the program.
  gdk_set_allowed_backends("x11");
  gtk_disable_setlocale();
  if (!g_get_prgname()) g_set_prgname("orla");
  if (!gtk_init_check(nullptr, nullptr)) {
    if (why) *why = "GTK cannot open the display";
    return nullptr;
  }
  if (routeErrors) {
    namespace ld = orla::linux_desktop;
    ld::gdkHandler = XSetErrorHandler(ld::toGdk);
    routeErrors(GDK_DISPLAY_XDISPLAY(gdk_display_get_default()), reinterpret_cast<void*>(ld::gdkHandler));
  }
  return new orla::linux_desktop::GtkUiImpl();
}
