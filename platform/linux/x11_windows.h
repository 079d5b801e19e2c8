// Windows of an X11 desktop through the window manager's EWMH properties:
// which window is active, and which process a window belongs to.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/x11_connection.h"
#include "platform/workspace.h"

namespace orla::linux_desktop {

// The process of the window the window manager shows as active
// (`_NET_ACTIVE_WINDOW`): the window's own `_NET_WM_PID`, else the process
// the X server knows for the client that made it (X-Resource extension).
// None when no window is active or its process cannot be told.
std::optional<ProcessId> activeWindowProcess(X11Connection& connection);
// A window the window manager manages, with what tells its application.
struct ManagedWindow {
  XWindow window = 0;
  std::optional<ProcessId> process;
  std::string instance, windowClass;  // WM_CLASS
  bool minimized = false;
};
// Every managed window, front to back.
std::vector<ManagedWindow> managedWindows(X11Connection& connection);

// The process of one window, found the same way. Under the connection's lock.
std::optional<ProcessId> windowProcessLocked(X11Connection& connection, XWindow window);

}  // namespace orla::linux_desktop
