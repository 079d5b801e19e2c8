// X11Connection: the one connection to the X server that the X11 desktop
// services share (keys, mouse, screens, windows), with the atoms and root
// window properties they all read.
//
// Thread safety: every call may come from any thread. Xlib calls on the
// display are made under `lock()`; the helpers below take it themselves.
#pragma once

#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>
#include <orla/models/geometry.h>

// Xlib's own header defines macros (None, Status, Bool, True) that clash
// with ordinary names, so only the X11 sources include it; the types are
// named here as Xlib declares them.
typedef struct _XDisplay Display;

namespace orla::linux_desktop {

using XWindow = unsigned long;  // Xlib's Window
using XAtom = unsigned long;    // Xlib's Atom

class X11Connection {
 public:
  // Opens the display named by DISPLAY and checks for the extensions the
  // services need (XTest, XFixes, XRandR). Fails with the reason.
  static Checked<std::shared_ptr<X11Connection>> open();
  ~X11Connection();
  X11Connection(const X11Connection&) = delete;
  X11Connection& operator=(const X11Connection&) = delete;

  std::unique_lock<std::mutex> lock() const { return std::unique_lock(mutex_); }
  // Use under `lock()`.
  Display* display() const { return display_; }
  XWindow root() const { return root_; }
  XAtom atom(const char* name) const;  // under `lock()`

  // The primary monitor in root-window coordinates; the whole root window
  // when the server reports no monitors. Under `lock()`.
  Rect primaryMonitorLocked() const;
  // A window-typed or cardinal-typed property of 32-bit items, under `lock()`.
  std::vector<unsigned long> cardinalsLocked(XWindow window, XAtom property, XAtom type) const;
  // Sends the window manager a request about `window` (an EWMH client
  // message of type `type` with up to five items), and flushes. Under
  // `lock()`.
  void askWindowManagerLocked(XWindow window, const char* type, std::initializer_list<long> data) const;

  int xfixesEventBase() const { return xfixesEventBase_; }

 private:
  X11Connection(Display* display);
  Display* display_;
  XWindow root_;
  int xfixesEventBase_ = 0;
  mutable std::mutex mutex_;
};

// Whether an X error arrived since the last call, for the calls that may
// name a window that is already gone. Under `lock()`, after XSync.
bool takeX11Error();
// Xlib's default handler ends the process on any error; a window that closes
// between a read and a request is ordinary on a desktop, so errors are only
// noted for `takeX11Error`. Installed by every X11 service; installing it
// again keeps what routeX11Errors set.
void installX11ErrorHandler();
// The errors of `display` go to `receiver` rather than to takeX11Error,
// until routed to nullptr: for a connection that must know which of its
// requests failed (a grab another client holds answers BadAccess), and for
// GTK's, whose own handler would swallow everyone else's errors. Xlib has
// one error handler per process, so this is the only way to have one's own;
// the handler is installed here. `receiver` is an XErrorHandler, passed
// untyped so that this header need not include Xlib's.
void routeX11Errors(Display* display, void* receiver);
// routeX11Errors as one module hands it to another (GTK's), both untyped.
using X11ErrorRoute = void (*)(void* display, void* receiver);

}  // namespace orla::linux_desktop
