// orla_hotkey_driver: the other side of the daemon's tests on the headless
// desktop, an X client of its own.
//
//   orla_hotkey_driver press <keysym>...      press the keys in order with XTest, then let go in reverse
//   orla_hotkey_driver hold <keysym> <mask>   grab the combination (mask: control+mod1+shift+mod4) until killed
//   orla_hotkey_driver window <file>          show a window, take the focus, append every typed character to <file>
//
// `hold` and `window` print "ready" once in place.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int press(Display* display, int count, char** names) {
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
  for (int i = count - 1; i >= 0; --i) XTestFakeKeyEvent(display, codes[i], False, CurrentTime);
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

int window(Display* display, const char* file) {
  const int screen = DefaultScreen(display);
  const Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 100, 100, 400, 200, 1,
                                            BlackPixel(display, screen), WhitePixel(display, screen));
  XStoreName(display, window, "orla hotkey test window");
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
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    if (event.type != KeyPress) continue;
    char text[32];
    KeySym keysym;
    const int size = XLookupString(&event.xkey, text, sizeof text, &keysym, nullptr);
    if (size > 0) {
      std::fwrite(text, 1, static_cast<size_t>(size), out);
      std::fflush(out);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 1;
  const std::string command = argv[1];
  if (command == "press") return press(display, argc - 2, argv + 2);
  if (command == "hold" && argc == 4) return hold(display, argv[2], argv[3]);
  if (command == "window") return window(display, argv[2]);
  return 2;
}
