// orla_test_app [--keeps-windows]: a separate X client with one window, for
// the application suites, which start it, activate, hide, quit and launch it
// as a user's application. Asked to close its window (WM_DELETE_WINDOW) it
// closes it and keeps running without windows until it is terminated, as a
// program with background work does; with --keeps-windows it keeps the
// window, as one that asks to save first does.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

#include <string_view>

int main(int argc, char** argv) {
  const bool keepsWindows = argc > 1 && std::string_view(argv[1]) == "--keeps-windows";
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 1;
  const int screen = DefaultScreen(display);
  const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 200, 200, 300, 200, 1,
                                            BlackPixel(display, screen), WhitePixel(display, screen));
  XStoreName(display, window, "Orla test application");
  XClassHint hint{const_cast<char*>("orla-test-app"), const_cast<char*>("OrlaTestApp")};
  XSetClassHint(display, window, &hint);
  const long pid = ::getpid();
  XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(&pid), 1);
  Atom deleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
  XSetWMProtocols(display, window, &deleteWindow, 1);
  XMapWindow(display, window);
  XFlush(display);
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    if (event.type == ClientMessage && static_cast<Atom>(event.xclient.data.l[0]) == deleteWindow && !keepsWindows) {
      XDestroyWindow(display, window);
      XFlush(display);
    }
  }
}
