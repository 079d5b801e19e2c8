// The accessibility side of an X11 desktop, over what the window manager
// publishes (EWMH). Posting keys, typing and reading the clipboard need no
// permission on X11 beyond a connection to the server, so the trust check
// answers whether the server and the extensions the services use are
// reachable.
//
// Elements: an application (by process) with its windows (the managed
// windows whose process it is, front to back), each window with its frame
// (position and size include the window manager's frame, as the interface
// measures windows), title, minimized, main and full-screen states, and its
// title-bar buttons: close (the window's own close request), minimize, and
// zoom (maximized both ways, or back). Position, size, minimized and main
// are set through the window manager, and each call waits until the window
// shows the change. What belongs to an application's own interface (menus,
// a toolbar, scroll bars) is not the X server's to tell: those attributes
// are unsupported here, and come from the accessibility bus when the
// session has one (atspi_accessibility.h).
#pragma once

#include <memory>
#include <optional>

#include <orla/platform/accessibility.h>
#include "platform/linux/x11_connection.h"

namespace orla::linux_desktop {

std::unique_ptr<Accessibility> makeX11Accessibility(std::shared_ptr<X11Connection> connection);

// What an element of this service stands for, so that a service layered on
// it (the application's own interface over AT-SPI) can tell an application
// and a window from its buttons; none for an element of another service.
struct X11ElementInfo {
  ProcessId pid = 0;
  unsigned long window = 0;  // 0 for the application
  bool isButton = false;
};
std::optional<X11ElementInfo> describeX11Element(const AXElement& element);
// describeX11Element of the module that made the elements: the X11 module's
// elements are its own types, which another module's copy cannot see.
using X11ElementDescriber = std::optional<X11ElementInfo> (*)(const AXElement& element);

}  // namespace orla::linux_desktop
