// orla_desktop_driver: works a program's dialogs and menus from the outside,
// as a user (or a screen reader) would, so that the tests check what really
// appeared on the desktop. Accessibility through AT-SPI, keys and clicks
// through XTest.
//
//   orla_desktop_driver button <pid> <title>        press the button
//   orla_desktop_driver menu <pid> <title>...        choose the item at the end of the path
//   orla_desktop_driver focus <pid>                  wait until a window of <pid> has the focus; print its title
//   orla_desktop_driver keys <pid> <title> <key>...  once the item <title> shows, press the keys (X keysym names)
//   orla_desktop_driver click <x> <y>                click the left button there
//   orla_desktop_driver move <x> <y>                 move the pointer there
//   orla_desktop_driver showing <pid> <title>        wait until an element with this title shows
//
// Each waits up to 10 s for what it needs and exits 0 when it did its work.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <atspi/atspi.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(20);

std::string nameOf(AtspiAccessible* a) {
  gchar* n = atspi_accessible_get_name(a, nullptr);
  std::string s = n ? n : "";
  g_free(n);
  return s;
}

bool showing(AtspiAccessible* a) {
  AtspiStateSet* states = atspi_accessible_get_state_set(a);
  const bool shows = states && atspi_state_set_contains(states, ATSPI_STATE_SHOWING);
  if (states) g_object_unref(states);
  return shows;
}

AtspiAccessible* application(int pid) {
  AtspiAccessible* desktop = atspi_get_desktop(0);
  AtspiAccessible* found = nullptr;
  const int n = atspi_accessible_get_child_count(desktop, nullptr);
  for (int i = 0; i < n && !found; ++i) {
    AtspiAccessible* c = atspi_accessible_get_child_at_index(desktop, i, nullptr);
    if (!c) continue;
    if (static_cast<int>(atspi_accessible_get_process_id(c, nullptr)) == pid) found = c;
    else g_object_unref(c);
  }
  g_object_unref(desktop);
  return found;
}

// The first showing descendant with this name (any role but a label or
// text, which only repeat a title); depth-first.
AtspiAccessible* find(AtspiAccessible* a, const std::string& name, int depth = 0) {
  if (depth > 40) return nullptr;
  const int n = atspi_accessible_get_child_count(a, nullptr);
  for (int i = 0; i < n; ++i) {
    AtspiAccessible* c = atspi_accessible_get_child_at_index(a, i, nullptr);
    if (!c) continue;
    const AtspiRole role = atspi_accessible_get_role(c, nullptr);
    if (role != ATSPI_ROLE_LABEL && role != ATSPI_ROLE_TEXT && nameOf(c) == name) return c;
    if (AtspiAccessible* r = find(c, name, depth + 1)) {
      g_object_unref(c);
      return r;
    }
    g_object_unref(c);
  }
  return nullptr;
}

// Waits for the path of titles to show in the application of `pid`.
AtspiAccessible* waitFor(int pid, const std::vector<std::string>& path) {
  const auto end = Clock::now() + kPatience;
  while (Clock::now() < end) {
    if (AtspiAccessible* app = application(pid)) {
      AtspiAccessible* at = app;
      for (const std::string& title : path) {
        AtspiAccessible* next = find(at, title);
        if (at != app) g_object_unref(at);
        at = next;
        if (!at) break;
      }
      g_object_unref(app);
      if (at && showing(at)) return at;
      if (at) g_object_unref(at);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::fprintf(stderr, "driver: nothing titled \"%s\" showed in process %d\n", path.back().c_str(), pid);
  return nullptr;
}

bool click(AtspiAccessible* a) {
  AtspiAction* action = atspi_accessible_get_action_iface(a);
  if (!action) return false;
  const int n = atspi_action_get_n_actions(action, nullptr);
  bool ok = false;
  for (int i = 0; i < n && !ok; ++i) {
    gchar* name = atspi_action_get_action_name(action, i, nullptr);
    if (name && (std::strcmp(name, "click") == 0 || std::strcmp(name, "press") == 0 ||
                 std::strcmp(name, "activate") == 0))
      ok = atspi_action_do_action(action, i, nullptr);
    g_free(name);
  }
  g_object_unref(action);
  return ok;
}

// A real click in the middle of the element, as a user opens a submenu (the
// accessibility action cannot reach an item whose menu is not open yet).
bool clickWithPointer(AtspiAccessible* a) {
  AtspiComponent* component = atspi_accessible_get_component_iface(a);
  if (!component) return false;
  AtspiRect* r = atspi_component_get_extents(component, ATSPI_COORD_TYPE_SCREEN, nullptr);
  g_object_unref(component);
  if (!r) return false;
  Display* display = XOpenDisplay(nullptr);
  if (display) {
    XTestFakeMotionEvent(display, -1, r->x + r->width / 2, r->y + r->height / 2, 0);
    XTestFakeButtonEvent(display, 1, True, 0);
    XTestFakeButtonEvent(display, 1, False, 0);
    XFlush(display);
    XCloseDisplay(display);
  }
  g_free(r);
  return display != nullptr;
}

long property(Display* display, Window window, const char* name, Atom type) {
  Atom actual = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  long value = 0;
  if (XGetWindowProperty(display, window, XInternAtom(display, name, False), 0, 1, False, type, &actual, &format,
                         &count, &after, &data) == Success &&
      data && count == 1)
    value = *reinterpret_cast<long*>(data);
  if (data) XFree(data);
  return value;
}

int focus(int pid) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 2;
  // The active window may go away between reading it and reading its
  // process: that is not an error here.
  XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
  const auto end = Clock::now() + kPatience;
  while (Clock::now() < end) {
    const Window active = property(display, DefaultRootWindow(display), "_NET_ACTIVE_WINDOW", XA_WINDOW);
    if (active && property(display, active, "_NET_WM_PID", XA_CARDINAL) == pid) {
      char* title = nullptr;
      XFetchName(display, active, &title);
      std::printf("%s\n", title ? title : "");
      if (title) XFree(title);
      XCloseDisplay(display);
      return 0;
    }
    // Often, so that the benchmarks can time when the focus arrived.
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  std::fprintf(stderr, "driver: no window of process %d took the focus\n", pid);
  XCloseDisplay(display);
  return 1;
}

int keys(const std::vector<std::string>& names) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 2;
  for (const std::string& name : names) {
    const KeyCode code = XKeysymToKeycode(display, XStringToKeysym(name.c_str()));
    if (!code) {
      std::fprintf(stderr, "driver: no key %s\n", name.c_str());
      return 2;
    }
    XTestFakeKeyEvent(display, code, True, 0);
    XTestFakeKeyEvent(display, code, False, 0);
    XFlush(display);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
  }
  XCloseDisplay(display);
  return 0;
}

int pointAt(int x, int y, bool click) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 2;
  XTestFakeMotionEvent(display, -1, x, y, 0);
  if (click) {
    XTestFakeButtonEvent(display, 1, True, 0);
    XTestFakeButtonEvent(display, 1, False, 0);
  }
  XFlush(display);
  XCloseDisplay(display);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: orla_desktop_driver button|menu|focus|keys|click|showing ...\n");
    return 2;
  }
  const std::string command = argv[1];
  if ((command == "click" || command == "move") && argc == 4)
    return pointAt(std::atoi(argv[2]), std::atoi(argv[3]), command == "click");
  const int pid = std::atoi(argv[2]);
  if (command == "focus") return focus(pid);
  if (atspi_init() < 0) return 2;
  std::vector<std::string> rest(argv + 3, argv + argc);
  if (rest.empty()) return 2;
  if (command == "keys") {
    AtspiAccessible* at = waitFor(pid, {rest.front()});
    if (!at) {
      keys({"Escape"});
      return 1;
    }
    g_object_unref(at);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // the menu takes the keyboard
    return keys({rest.begin() + 1, rest.end()});
  }
  if (command == "menu") {
    // Open each submenu on the way, then choose the item.
    for (std::size_t level = 1; level < rest.size(); ++level) {
      AtspiAccessible* opener = waitFor(pid, {rest.begin(), rest.begin() + level});
      if (!opener || !clickWithPointer(opener)) {
        keys({"Escape", "Escape", "Escape"});
        return 1;
      }
      g_object_unref(opener);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
  }
  AtspiAccessible* at = waitFor(pid, rest);
  if (!at) {
    // Close whatever is open, so that the program under test does not wait
    // for a user forever and its test can report the failure.
    if (command != "showing") keys({"Escape"});
    return 1;
  }
  if (command == "showing") return 0;
  if (command != "button" && command != "menu") return 2;
  const bool ok = click(at);
  g_object_unref(at);
  if (!ok) std::fprintf(stderr, "driver: \"%s\" did not take the click\n", rest.back().c_str());
  return ok ? 0 : 1;
}
