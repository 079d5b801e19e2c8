// Windows of an X11 desktop through the window manager's EWMH properties:
// which window is active, and which process a window belongs to.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/x11_connection.h"
#include <orla/platform/workspace.h>

namespace orla::linux_desktop {

// The process of the window the window manager shows as active
// (`_NET_ACTIVE_WINDOW`): the window's own `_NET_WM_PID`, else the process
// the X server knows for the client that made it (X-Resource extension).
// None when no window is active or its process cannot be told.
std::optional<ProcessId> activeWindowProcess(X11Connection& connection);
// The active window with its process, the same way; none when no window is
// active.
struct ActiveWindow {
  XWindow window = 0;
  std::optional<ProcessId> process;
};
std::optional<ActiveWindow> activeWindowAndProcess(X11Connection& connection);
// A window the window manager manages, with what tells its application.
struct ManagedWindow {
  XWindow window = 0;
  std::optional<ProcessId> process;
  std::string instance, windowClass;  // WM_CLASS
  std::string startupId;              // _NET_STARTUP_ID: the launch that made it, when it says
  bool minimized = false;
};
// Every managed window, front to back.
std::vector<ManagedWindow> managedWindows(X11Connection& connection);

// The active window (`_NET_ACTIVE_WINDOW`) when the window manager still
// manages it; None when no window is active. Under the connection's lock.
XWindow activeWindowLocked(X11Connection& connection);
// The WM_CLASS instance and class of the active window; empty when no
// window is active. Under the connection's lock.
struct WindowClass {
  std::string instance, windowClass;
};
WindowClass activeWindowClassLocked(X11Connection& connection);

// The process of one window, found the same way. Under the connection's lock.
std::optional<ProcessId> windowProcessLocked(X11Connection& connection, XWindow window);

// An application is its process's managed windows; these act on all of them
// through the window manager, asking as a pager does (source 2, which the
// window manager obeys at once). Each waits, for two seconds at most, until
// the root window and the windows' states show the change, and answers
// whether they did; false at once when the process has no managed window.
//
// Activates the process's frontmost window that is not minimized (else its
// frontmost one, which comes back); with `allWindows` the others are raised
// first, so that all of them stand in front of other applications' windows.
bool activateProcessWindows(X11Connection& connection, ProcessId pid, bool allWindows);
// Minimizes every window of the process.
bool minimizeProcessWindows(X11Connection& connection, ProcessId pid);
// Brings back every minimized window of the process. A window manager
// brings a window back by activating it, so the application ends in front.
bool restoreProcessWindows(X11Connection& connection, ProcessId pid);
// Asks every window of the process that takes the close request
// (WM_DELETE_WINDOW) to close, and waits until they are gone or `limit`
// passes. The number of windows asked and whether all of them closed.
struct CloseRequest {
  std::size_t asked = 0;
  bool allClosed = false;
};
CloseRequest closeProcessWindows(X11Connection& connection, ProcessId pid, std::chrono::milliseconds limit);

}  // namespace orla::linux_desktop
