#include "platform/linux/x11_connection.h"

#include <X11/Xlib.h>

#include <X11/Xatom.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/Xrandr.h>
#include <X11/extensions/XTest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace orla::linux_desktop {
namespace {

std::atomic<bool> errorSeen{false};

// The connections with receivers of their own (few: the hotkeys', GTK's).
std::mutex routesMutex;
std::vector<std::pair<Display*, XErrorHandler>> routes;

int noteError(Display* display, XErrorEvent* error) {
  XErrorHandler receiver = nullptr;
  {
    std::lock_guard lock(routesMutex);
    for (const auto& [routed, routedTo] : routes)
      if (routed == display) receiver = routedTo;
  }
  if (receiver) return receiver(display, error);
  errorSeen = true;
  return 0;
}

}  // namespace

bool takeX11Error() { return errorSeen.exchange(false); }

void installX11ErrorHandler() { XSetErrorHandler(noteError); }

void routeX11Errors(Display* display, void* receiver) {
  {
    std::lock_guard lock(routesMutex);
    std::erase_if(routes, [&](const auto& route) { return route.first == display; });
    if (receiver) routes.emplace_back(display, reinterpret_cast<XErrorHandler>(receiver));
  }
  installX11ErrorHandler();
}

Checked<std::shared_ptr<X11Connection>> X11Connection::open() {
  const char* name = std::getenv("DISPLAY");
  if (!name || !*name) return fail("There is no X display to talk to (DISPLAY is not set).");
  Display* display = XOpenDisplay(nullptr);
  if (!display) return fail(std::string("The X display “") + name + "” cannot be opened.");
  int event = 0, error = 0, major = 0, minor = 0;
  if (!XTestQueryExtension(display, &event, &error, &major, &minor)) {
    XCloseDisplay(display);
    return fail("The X server has no XTest extension, so keys and clicks cannot be posted.");
  }
  int fixesEvent = 0;
  if (!XFixesQueryExtension(display, &fixesEvent, &error) || !XRRQueryExtension(display, &event, &error)) {
    XCloseDisplay(display);
    return fail("The X server lacks the XFixes or XRandR extension.");
  }
  installX11ErrorHandler();
  auto connection = std::shared_ptr<X11Connection>(new X11Connection(display));
  connection->xfixesEventBase_ = fixesEvent;
  return connection;
}

X11Connection::X11Connection(Display* display) : display_(display), root_(DefaultRootWindow(display)) {}

X11Connection::~X11Connection() { XCloseDisplay(display_); }

XAtom X11Connection::atom(const char* name) const { return XInternAtom(display_, name, False); }

Rect X11Connection::primaryMonitorLocked() const {
  int count = 0;
  XRRMonitorInfo* monitors = XRRGetMonitors(display_, root_, True, &count);
  Rect primary{0, 0, static_cast<double>(DisplayWidth(display_, DefaultScreen(display_))),
               static_cast<double>(DisplayHeight(display_, DefaultScreen(display_)))};
  for (int i = 0; i < count; ++i) {
    if (monitors[i].primary || i == 0)
      primary = {static_cast<double>(monitors[i].x), static_cast<double>(monitors[i].y),
                 static_cast<double>(monitors[i].width), static_cast<double>(monitors[i].height)};
    if (monitors[i].primary) break;
  }
  if (monitors) XRRFreeMonitors(monitors);
  return primary;
}

std::vector<unsigned long> X11Connection::cardinalsLocked(XWindow window, XAtom property, XAtom type) const {
  Atom actualType = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  std::vector<unsigned long> out;
  if (XGetWindowProperty(display_, window, property, 0, 4096, False, type, &actualType, &format, &count, &after,
                         &data) == Success &&
      data && format == 32) {
    // Xlib hands 32-bit items over as longs, whatever the size of a long.
    const auto* items = reinterpret_cast<const unsigned long*>(data);
    out.assign(items, items + count);
  }
  if (data) XFree(data);
  return out;
}

void X11Connection::askWindowManagerLocked(XWindow window, const char* type, std::initializer_list<long> data) const {
  XEvent message{};
  message.xclient.type = ClientMessage;
  message.xclient.window = window;
  message.xclient.message_type = atom(type);
  message.xclient.format = 32;
  int i = 0;
  for (long d : data) message.xclient.data.l[i++] = d;
  XSendEvent(display_, root_, False, SubstructureRedirectMask | SubstructureNotifyMask, &message);
  XFlush(display_);
}

}  // namespace orla::linux_desktop
