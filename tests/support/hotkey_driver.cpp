// orla_hotkey_driver: the other side of the daemon's tests on the headless
// desktop, an X client of its own.
//
//   orla_hotkey_driver press <keysym>...      press the keys in order with XTest, then let go in reverse
//   orla_hotkey_driver linger <ms> <keysym>...
//       the same, but the keys before the last stay down <ms> after the last
//       one is let go of, as a user's slower fingers on the modifiers
//   orla_hotkey_driver latency <count> <keysym>...
//       show a focused window, press the keys <count> times; print, in
//       microseconds, the time from each press to the first key that
//       reaches the window (the shortcut's first event)
//   orla_hotkey_driver hold <keysym> <mask>   grab the combination (mask: control+mod1+shift+mod4) until killed
//   orla_hotkey_driver window <file> [<selection>]
//       show a window, take the focus, append every typed character to <file>;
//       Ctrl+C puts <selection> on the clipboard as an editor's copy would,
//       Ctrl+V appends "[pasted <clipboard text>]"
//
// `hold` and `window` print "ready" once in place.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

int press(Display* display, int count, char** names, int lingerMs = 0) {
  KeyCode codes[16];
  if (count > 16) return 2;
  for (int i = 0; i < count; ++i) {
    const KeySym keysym = XStringToKeysym(names[i]);
    codes[i] = keysym == NoSymbol ? 0 : XKeysymToKeycode(display, keysym);
    if (!codes[i]) {
      std::fprintf(stderr, "no key %s\n", names[i]);
      return 2;
    }
  }
  for (int i = 0; i < count; ++i) XTestFakeKeyEvent(display, codes[i], True, CurrentTime);
  for (int i = count - 1; i >= 0; --i) {
    XTestFakeKeyEvent(display, codes[i], False, CurrentTime);
    if (i == count - 1 && lingerMs > 0) {
      XSync(display, False);
      usleep(static_cast<useconds_t>(lingerMs) * 1000);
    }
  }
  XSync(display, False);
  return 0;
}

int hold(Display* display, const char* key, const std::string& mask) {
  unsigned int modifiers = 0;
  if (mask.find("control") != std::string::npos) modifiers |= ControlMask;
  if (mask.find("mod1") != std::string::npos) modifiers |= Mod1Mask;
  if (mask.find("shift") != std::string::npos) modifiers |= ShiftMask;
  if (mask.find("mod4") != std::string::npos) modifiers |= Mod4Mask;
  XGrabKey(display, XKeysymToKeycode(display, XStringToKeysym(key)), modifiers, DefaultRootWindow(display), True,
           GrabModeAsync, GrabModeAsync);
  XSync(display, False);
  std::printf("ready\n");
  std::fflush(stdout);
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
  }
}

// Answers a request for the clipboard this window owns.
void serve(Display* display, const XSelectionRequestEvent& request, const std::string& selection) {
  const Atom targets = XInternAtom(display, "TARGETS", False);
  const Atom utf8 = XInternAtom(display, "UTF8_STRING", False);
  XSelectionEvent reply{};
  reply.type = SelectionNotify;
  reply.requestor = request.requestor;
  reply.selection = request.selection;
  reply.target = request.target;
  reply.time = request.time;
  reply.property = request.property ? request.property : request.target;
  if (request.target == targets) {
    const Atom offered[] = {targets, utf8, XA_STRING};
    XChangeProperty(display, request.requestor, reply.property, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(offered), 3);
  } else if (request.target == utf8 || request.target == XA_STRING) {
    XChangeProperty(display, request.requestor, reply.property, request.target, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(selection.data()), static_cast<int>(selection.size()));
  } else {
    reply.property = None;
  }
  XSendEvent(display, request.requestor, False, 0, reinterpret_cast<XEvent*>(&reply));
  XFlush(display);
}

std::string pastedText(Display* display, Window window, Atom property) {
  Atom type;
  int format;
  unsigned long count, after;
  unsigned char* data = nullptr;
  std::string text;
  if (XGetWindowProperty(display, window, property, 0, 1 << 20, True, AnyPropertyType, &type, &format, &count,
                         &after, &data) == Success && data)
    text.assign(reinterpret_cast<char*>(data), count);
  if (data) XFree(data);
  return text;
}

int window(Display* display, const char* file, const std::string& selection) {
  const int screen = DefaultScreen(display);
  const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 100, 100, 400, 200, 1,
                                            BlackPixel(display, screen), WhitePixel(display, screen));
  XStoreName(display, window, "orla hotkey test window");
  XClassHint hint{const_cast<char*>("orla-hotkey-window"), const_cast<char*>("OrlaHotkeyWindow")};
  XSetClassHint(display, window, &hint);
  const long pid = ::getpid();
  XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(&pid), 1);
  XSelectInput(display, window, KeyPressMask | StructureNotifyMask | FocusChangeMask);
  XMapWindow(display, window);
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    if (event.type == MapNotify) break;
  }
  XSetInputFocus(display, window, RevertToParent, CurrentTime);
  XSync(display, False);
  std::printf("ready\n");
  std::fflush(stdout);
  FILE* out = std::fopen(file, "a");
  if (!out) return 1;
  const Atom clipboard = XInternAtom(display, "CLIPBOARD", False);
  const Atom pasted = XInternAtom(display, "ORLA_PASTED", False);
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    if (event.type == SelectionRequest) {
      serve(display, event.xselectionrequest, selection);
    } else if (event.type == SelectionNotify && event.xselection.property != None) {
      std::fprintf(out, "[pasted %s]", pastedText(display, window, pasted).c_str());
      std::fflush(out);
    } else if (event.type == KeyPress) {
      char text[32];
      KeySym keysym;
      const int size = XLookupString(&event.xkey, text, sizeof text, &keysym, nullptr);
      if (event.xkey.state & ControlMask) {
        if (keysym == XK_c && !selection.empty()) XSetSelectionOwner(display, clipboard, window, event.xkey.time);
        if (keysym == XK_v)
          XConvertSelection(display, clipboard, XInternAtom(display, "UTF8_STRING", False), pasted, window,
                            event.xkey.time);
        XFlush(display);
      } else if (size > 0) {
        std::fwrite(text, 1, static_cast<size_t>(size), out);
        std::fflush(out);
      }
    }
  }
}

int latency(Display* display, int rounds, int count, char** names) {
  const int screen = DefaultScreen(display);
  const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 100, 100, 200, 100, 1,
                                            BlackPixel(display, screen), WhitePixel(display, screen));
  XSelectInput(display, window, KeyPressMask | StructureNotifyMask);
  XMapWindow(display, window);
  for (XEvent event; XNextEvent(display, &event), event.type != MapNotify;) {
  }
  XSetInputFocus(display, window, RevertToParent, CurrentTime);
  XSync(display, False);
  usleep(200000);
  for (int round = 0; round < rounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    if (press(display, count, names) != 0) return 2;
    // The modifiers of the combination reach the window too, before the
    // grabbed key: only a key the driver did not press counts. A press
    // that brings nothing within 2 s is reported as -1.
    bool arrived = false;
    while (!arrived && std::chrono::steady_clock::now() - start < std::chrono::seconds(2)) {
      if (!XPending(display)) {
        pollfd fd{ConnectionNumber(display), POLLIN, 0};
        ::poll(&fd, 1, 50);
        continue;
      }
      XEvent event;
      XNextEvent(display, &event);
      if (event.type != KeyPress) continue;
      bool ours = false;
      for (int i = 0; i < count; ++i)
        ours = ours || XKeysymToKeycode(display, XStringToKeysym(names[i])) == event.xkey.keycode;
      arrived = !ours;
    }
    if (!arrived) {
      std::printf("-1\n");
      std::fflush(stdout);
      continue;
    }
    const auto took = std::chrono::steady_clock::now() - start;
    std::printf("%lld\n", static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
    std::fflush(stdout);
    // Time for the run to end, so that the next press is not ignored as
    // one made while it runs.
    usleep(300000);
    while (XPending(display)) {
      XEvent event;
      XNextEvent(display, &event);
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 1;
  const std::string command = argv[1];
  if (command == "press") return press(display, argc - 2, argv + 2);
  if (command == "linger" && argc > 3) return press(display, argc - 3, argv + 3, std::atoi(argv[2]));
  if (command == "latency" && argc > 3) return latency(display, std::atoi(argv[2]), argc - 3, argv + 3);
  if (command == "hold" && argc == 4) return hold(display, argv[2], argv[3]);
  if (command == "window") return window(display, argv[2], argc > 3 ? argv[3] : "");
  return 2;
}
