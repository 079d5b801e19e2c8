#include "platform/linux/x11_windows.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>

#include <algorithm>

namespace orla::linux_desktop {
namespace {

// The process the X server knows for the client that created `window`. A
// client on another machine has none.
std::optional<ProcessId> serverKnownProcess(Display* display, Window window) {
  int event = 0, error = 0;
  if (!XResQueryExtension(display, &event, &error)) return std::nullopt;
  XResClientIdSpec spec{window, XRES_CLIENT_ID_PID_MASK};
  long count = 0;
  XResClientIdValue* values = nullptr;
  if (XResQueryClientIds(display, 1, &spec, &count, &values) != Success) return std::nullopt;
  std::optional<ProcessId> pid;
  for (long i = 0; i < count && !pid; ++i)
    if (XResGetClientIdType(&values[i]) == XRES_CLIENT_ID_PID && XResGetClientPid(&values[i]) > 0)
      pid = static_cast<ProcessId>(XResGetClientPid(&values[i]));
  XResClientIdsDestroy(count, values);
  return pid;
}

}  // namespace

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
    const auto states = connection.cardinalsLocked(w.window, connection.atom("_NET_WM_STATE"), XA_ATOM);
    w.minimized = std::find(states.begin(), states.end(), hidden) != states.end();
    takeX11Error();  // a window that closed meanwhile is listed without its details
    out.push_back(std::move(w));
  }
  return out;
}

std::optional<ProcessId> activeWindowProcess(X11Connection& connection) {
  auto lock = connection.lock();
  const auto active = connection.cardinalsLocked(connection.root(), connection.atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
  if (active.empty() || active[0] == None) return std::nullopt;
  return windowProcessLocked(connection, active[0]);
}

}  // namespace orla::linux_desktop
