#include "platform/linux/x11_windows.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>

#include <algorithm>
#include <functional>
#include <thread>

namespace orla::linux_desktop {
namespace {

// The process the X server knows for the client that created `window`. A
// client on another machine has none.
std::optional<ProcessId> serverKnownProcess(Display* display, Window window) {
  int event = 0, error = 0;
  if (!XResQueryExtension(display, &event, &error)) return std::nullopt;
  XResClientIdSpec wanted{window, XRES_CLIENT_ID_PID_MASK};
  long count = 0;
  XResClientIdValue* values = nullptr;
  if (XResQueryClientIds(display, 1, &wanted, &count, &values) != Success) return std::nullopt;
  std::optional<ProcessId> pid;
  for (long i = 0; i < count && !pid; ++i)
    if (XResGetClientIdType(&values[i]) == XRES_CLIENT_ID_PID && XResGetClientPid(&values[i]) > 0)
      pid = static_cast<ProcessId>(XResGetClientPid(&values[i]));
  XResClientIdsDestroy(count, values);
  return pid;
}

constexpr auto kSettle = std::chrono::seconds(2);
constexpr auto kSettlePoll = std::chrono::milliseconds(5);
constexpr long kSourcePager = 2;

// Waits, without holding the connection between looks, until `done` holds
// or `limit` passes; answers `done()`.
bool settle(const std::function<bool()>& done, std::chrono::milliseconds limit = kSettle) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kSettlePoll);
  }
  return true;
}

void sendToWindowManager(X11Connection& connection, XWindow window, const char* type,
                         std::initializer_list<long> data) {
  auto lock = connection.lock();
  connection.askWindowManagerLocked(window, type, data);
}

std::vector<ManagedWindow> windowsOf(X11Connection& connection, ProcessId pid) {
  auto windows = managedWindows(connection);
  std::erase_if(windows, [&](const ManagedWindow& w) { return w.process != pid; });
  return windows;
}

XWindow activeWindow(X11Connection& connection) {
  auto lock = connection.lock();
  const auto active = connection.cardinalsLocked(connection.root(), connection.atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
  return active.empty() ? None : active[0];
}

bool isMinimized(X11Connection& connection, XWindow window) {
  for (const ManagedWindow& w : managedWindows(connection))
    if (w.window == window) return w.minimized;
  return false;  // gone
}

// A short text property (UTF8_STRING or STRING); empty when there is none.
std::string textPropertyLocked(X11Connection& connection, XWindow window, const char* name) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  std::string text;
  if (XGetWindowProperty(connection.display(), window, connection.atom(name), 0, 256, False, AnyPropertyType, &type,
                         &format, &count, &after, &data) == Success &&
      data && format == 8)
    text.assign(reinterpret_cast<const char*>(data), count);
  if (data) XFree(data);
  return text;
}

void requestActivation(X11Connection& connection, XWindow window) {
  sendToWindowManager(connection, window, "_NET_ACTIVE_WINDOW", {kSourcePager, CurrentTime, None});
}

}  // namespace

XWindow activeWindowLocked(X11Connection& connection) {
  const auto active = connection.cardinalsLocked(connection.root(), connection.atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
  if (active.empty() || active[0] == None) return None;
  // A window manager may leave the property naming a window that has closed
  // (openbox does when the last one goes), whose id the X server would
  // still attribute to a client: only a window that exists counts. (Not the
  // client list: a window just activated may be named before it is listed.)
  XWindowAttributes attributes{};
  const bool exists = XGetWindowAttributes(connection.display(), active[0], &attributes) != 0;
  takeX11Error();
  return exists ? active[0] : None;
}

WindowClass activeWindowClassLocked(X11Connection& connection) {
  const XWindow active = activeWindowLocked(connection);
  WindowClass out;
  if (active == None) return out;
  XClassHint hint{};
  if (XGetClassHint(connection.display(), active, &hint)) {
    if (hint.res_name) out.instance = hint.res_name;
    if (hint.res_class) out.windowClass = hint.res_class;
    XFree(hint.res_name);
    XFree(hint.res_class);
  }
  takeX11Error();  // the window may have closed since it was active
  return out;
}

std::optional<ProcessId> windowProcessLocked(X11Connection& connection, XWindow window) {
  const auto pid = connection.cardinalsLocked(window, connection.atom("_NET_WM_PID"), XA_CARDINAL);
  std::optional<ProcessId> process;
  if (!pid.empty() && pid[0] > 0) process = static_cast<ProcessId>(pid[0]);
  else process = serverKnownProcess(connection.display(), window);
  takeX11Error();  // the window may have closed since it was listed
  return process;
}

std::vector<ManagedWindow> managedWindows(X11Connection& connection) {
  auto lock = connection.lock();
  Display* display = connection.display();
  auto stacking =
      connection.cardinalsLocked(connection.root(), connection.atom("_NET_CLIENT_LIST_STACKING"), XA_WINDOW);
  const XAtom hidden = connection.atom("_NET_WM_STATE_HIDDEN");
  std::vector<ManagedWindow> out;
  for (auto it = stacking.rbegin(); it != stacking.rend(); ++it) {
    ManagedWindow w;
    w.window = *it;
    w.process = windowProcessLocked(connection, w.window);
    XClassHint hint{};
    if (XGetClassHint(display, w.window, &hint)) {
      if (hint.res_name) w.instance = hint.res_name;
      if (hint.res_class) w.windowClass = hint.res_class;
      XFree(hint.res_name);
      XFree(hint.res_class);
    }
    w.startupId = textPropertyLocked(connection, w.window, "_NET_STARTUP_ID");
    // GTK sets it on the client leader, the hidden window that stands for
    // all of an application's windows.
    if (w.startupId.empty())
      if (const auto leader = connection.cardinalsLocked(w.window, connection.atom("WM_CLIENT_LEADER"), XA_WINDOW);
          !leader.empty() && leader[0] != None && leader[0] != w.window)
        w.startupId = textPropertyLocked(connection, leader[0], "_NET_STARTUP_ID");
    const auto states = connection.cardinalsLocked(w.window, connection.atom("_NET_WM_STATE"), XA_ATOM);
    w.minimized = std::find(states.begin(), states.end(), hidden) != states.end();
    takeX11Error();  // a window that closed meanwhile is listed without its details
    out.push_back(std::move(w));
  }
  return out;
}

std::optional<ProcessId> activeWindowProcess(X11Connection& connection) {
  const auto active = activeWindowAndProcess(connection);
  return active ? active->process : std::nullopt;
}

std::optional<ActiveWindow> activeWindowAndProcess(X11Connection& connection) {
  auto lock = connection.lock();
  const XWindow active = activeWindowLocked(connection);
  if (active == None) return std::nullopt;
  return ActiveWindow{active, windowProcessLocked(connection, active)};
}

bool activateProcessWindows(X11Connection& connection, ProcessId pid, bool allWindows) {
  const auto windows = windowsOf(connection, pid);  // front to back
  if (windows.empty()) return false;
  const auto shown = std::find_if(windows.begin(), windows.end(), [](const ManagedWindow& w) { return !w.minimized; });
  const XWindow target = shown != windows.end() ? shown->window : windows.front().window;
  if (allWindows)
    for (auto it = windows.rbegin(); it != windows.rend(); ++it)
      if (it->window != target && !it->minimized)
        sendToWindowManager(connection, it->window, "_NET_RESTACK_WINDOW", {kSourcePager, None, Above});
  requestActivation(connection, target);
  // A minimized window comes back in two steps (its state, then its
  // place); it counts once it is active and no longer minimized.
  return settle([&] { return activeWindow(connection) == target && !isMinimized(connection, target); });
}

bool minimizeProcessWindows(X11Connection& connection, ProcessId pid) {
  const auto windows = windowsOf(connection, pid);
  if (windows.empty()) return false;
  {
    auto lock = connection.lock();
    for (const ManagedWindow& w : windows)
      if (!w.minimized) XIconifyWindow(connection.display(), w.window, DefaultScreen(connection.display()));
    XFlush(connection.display());
    takeX11Error();
  }
  return settle([&] {
    const auto now = windowsOf(connection, pid);
    return std::all_of(now.begin(), now.end(), [](const ManagedWindow& w) { return w.minimized; });
  });
}

bool restoreProcessWindows(X11Connection& connection, ProcessId pid) {
  const auto windows = windowsOf(connection, pid);
  if (windows.empty()) return false;
  // Back to front, so that the frontmost ends in front.
  for (auto it = windows.rbegin(); it != windows.rend(); ++it)
    if (it->minimized) requestActivation(connection, it->window);
  return settle([&] {
    const auto now = windowsOf(connection, pid);
    return std::none_of(now.begin(), now.end(), [](const ManagedWindow& w) { return w.minimized; });
  });
}

CloseRequest closeProcessWindows(X11Connection& connection, ProcessId pid, std::chrono::milliseconds limit) {
  CloseRequest request;
  std::vector<XWindow> asked;
  {
    const auto windows = windowsOf(connection, pid);
    auto lock = connection.lock();
    Display* display = connection.display();
    const XAtom deleteWindow = connection.atom("WM_DELETE_WINDOW");
    for (const ManagedWindow& w : windows) {
      Atom* protocols = nullptr;
      int count = 0;
      bool takesIt = false;
      if (XGetWMProtocols(display, w.window, &protocols, &count)) {
        takesIt = std::find(protocols, protocols + count, deleteWindow) != protocols + count;
        XFree(protocols);
      }
      takeX11Error();
      if (!takesIt) continue;
      XEvent message{};
      message.xclient.type = ClientMessage;
      message.xclient.window = w.window;
      message.xclient.message_type = connection.atom("WM_PROTOCOLS");
      message.xclient.format = 32;
      message.xclient.data.l[0] = static_cast<long>(deleteWindow);
      message.xclient.data.l[1] = CurrentTime;
      XSendEvent(display, w.window, False, NoEventMask, &message);
      asked.push_back(w.window);
    }
    XFlush(display);
    takeX11Error();
  }
  request.asked = asked.size();
  if (asked.empty()) return request;
  request.allClosed = settle(
      [&] {
        const auto now = managedWindows(connection);
        return std::none_of(now.begin(), now.end(), [&](const ManagedWindow& w) {
          return std::find(asked.begin(), asked.end(), w.window) != asked.end();
        });
      },
      limit);
  return request;
}

}  // namespace orla::linux_desktop
