#include "tests/platform/desktop/x11_test_window.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include <orla/models/text.h>

namespace orla::testing_x11 {
namespace {

// The character a keysym types: Latin-1 keysyms are their code point, the
// Unicode range carries it, Return and Tab are their control characters.
std::optional<char32_t> characterOf(KeySym keysym) {
  if ((keysym >= 0x20 && keysym <= 0x7E) || (keysym >= 0xA0 && keysym <= 0xFF)) return char32_t(keysym);
  if ((keysym & 0xFF000000) == 0x01000000) return char32_t(keysym & 0x00FFFFFF);
  if (keysym == XK_Return || keysym == XK_KP_Enter) return U'\n';
  if (keysym == XK_Tab) return U'\t';
  return std::nullopt;
}

std::string utf8(char32_t c) {
  std::u16string units;
  if (c >= 0x10000) {
    units.push_back(char16_t(0xD800 + ((c - 0x10000) >> 10)));
    units.push_back(char16_t(0xDC00 + ((c - 0x10000) & 0x3FF)));
  } else {
    units.push_back(char16_t(c));
  }
  return toUtf8(units);
}

}  // namespace

Window activeWindow(Display* display) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  Window active = None;
  if (XGetWindowProperty(display, DefaultRootWindow(display), XInternAtom(display, "_NET_ACTIVE_WINDOW", False), 0,
                         1, False, XA_WINDOW, &type, &format, &count, &after, &data) == Success &&
      data && count == 1)
    active = *reinterpret_cast<Window*>(data);
  if (data) XFree(data);
  return active;
}

std::unique_ptr<X11TestWindow> X11TestWindow::open(const char* title, bool announcesProcess) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return nullptr;
  const int screen = DefaultScreen(display);
  Window window = XCreateSimpleWindow(display, RootWindow(display, screen), 100, 100, 400, 300, 1,
                                      BlackPixel(display, screen), WhitePixel(display, screen));
  XStoreName(display, window, title);
  XClassHint hint{const_cast<char*>("orla-test-window"), const_cast<char*>("OrlaTestWindow")};
  XSetClassHint(display, window, &hint);
  const long pid = ::getpid();
  if (announcesProcess)
    XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&pid), 1);
  // Asked to close (WM_DELETE_WINDOW), it goes, as an application's window
  // does; without the protocol the window manager would end the connection.
  Atom deleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
  XSetWMProtocols(display, window, &deleteWindow, 1);
  XSelectInput(display, window,
               KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask | FocusChangeMask |
                   StructureNotifyMask | PointerMotionMask);
  // Translating a key loads this connection's copy of the keyboard map and
  // subscribes it to the map's changes, as a toolkit does when it starts; a
  // change made between the two would otherwise never reach the copy.
  XKeyEvent probe{};
  probe.type = KeyPress;
  probe.display = display;
  probe.window = window;
  probe.keycode = XKeysymToKeycode(display, XK_a);
  char ignored[8];
  XLookupString(&probe, ignored, sizeof ignored, nullptr, nullptr);
  XMapWindow(display, window);
  XEvent event;
  do XWindowEvent(display, window, StructureNotifyMask, &event);
  while (event.type != MapNotify);
  auto result = std::unique_ptr<X11TestWindow>(new X11TestWindow(display, window));
  return result;
}

X11TestWindow::X11TestWindow(Display* display, Window window)
    : display_(display), window_(window), pump_([this] { pump(); }) {}

X11TestWindow::~X11TestWindow() {
  stop_ = true;
  pump_.join();
  XDestroyWindow(display_, window_);
  XCloseDisplay(display_);
}

void X11TestWindow::pump() {
  while (!stop_) {
    pollfd fd{ConnectionNumber(display_), POLLIN, 0};
    ::poll(&fd, 1, 5);
    std::lock_guard lock(mutex_);
    while (XPending(display_)) {
      XEvent event;
      XNextEvent(display_, &event);
      handle(event);
    }
  }
}

void X11TestWindow::toRoot(int x, int y, int& rootX, int& rootY) {
  std::lock_guard lock(mutex_);
  Window child = None;
  XTranslateCoordinates(display_, window_, DefaultRootWindow(display_), x, y, &rootX, &rootY, &child);
}

std::vector<ReceivedKey> X11TestWindow::keys() const {
  std::lock_guard lock(mutex_);
  return keys_;
}

std::string X11TestWindow::text() const {
  std::lock_guard lock(mutex_);
  return text_;
}

std::size_t X11TestWindow::typedCharacters() const {
  std::lock_guard lock(mutex_);
  return typedCharacters_;
}

std::vector<ReceivedButton> X11TestWindow::buttons() const {
  std::lock_guard lock(mutex_);
  return buttons_;
}

// The window manager may not have taken the window in yet when the first
// request comes, so the request is repeated until the focus is there.
bool X11TestWindow::focus() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (std::chrono::steady_clock::now() < end) {
    {
      std::lock_guard lock(mutex_);
      XEvent message{};
      message.xclient.type = ClientMessage;
      message.xclient.window = window_;
      message.xclient.message_type = XInternAtom(display_, "_NET_ACTIVE_WINDOW", False);
      message.xclient.format = 32;
      message.xclient.data.l[0] = 2;  // from a pager or tool: the window manager obeys at once
      message.xclient.data.l[1] = CurrentTime;
      XSendEvent(display_, DefaultRootWindow(display_), False, SubstructureRedirectMask | SubstructureNotifyMask,
                 &message);
      XFlush(display_);
    }
    const bool focused = waitUntil(
        [&] {
          std::lock_guard again(mutex_);
          Window focus = None;
          int revert = 0;
          XGetInputFocus(display_, &focus, &revert);
          return focus == window_ && activeWindow(display_) == window_;
        },
        std::chrono::milliseconds(100));
    if (focused) return true;
  }
  return false;
}

bool X11TestWindow::waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void X11TestWindow::handle(XEvent& event) {
  switch (event.type) {
    case MappingNotify:
      // The sender lends spare keycodes to characters: read the new map
      // before the key events that use it.
      XRefreshKeyboardMapping(&event.xmapping);
      break;
    case KeyRelease:
      timeline_.push_back({XLookupKeysym(&event.xkey, 0), false, std::chrono::steady_clock::now()});
      break;
    case KeyPress: {
      const KeySym keysym = XLookupKeysym(&event.xkey, 0);
      timeline_.push_back({keysym, true, std::chrono::steady_clock::now()});
      keys_.push_back({keysym, event.xkey.state});
      if (isField_ && (event.xkey.state & ControlMask) && (keysym == XK_c || keysym == XK_v)) {
        if (keysym == XK_c) {
          copyField(event.xkey.time);
        } else {
          XConvertSelection(display_, XInternAtom(display_, "CLIPBOARD", False),
                            XInternAtom(display_, "UTF8_STRING", False), XInternAtom(display_, "ORLA_PASTE", False),
                            window_, event.xkey.time);
          XFlush(display_);
        }
        break;
      }
      KeySym typed = NoSymbol;
      char buffer[16];
      XLookupString(&event.xkey, buffer, sizeof buffer, &typed, nullptr);
      const bool chord = event.xkey.state & (ControlMask | Mod1Mask | Mod4Mask);
      if (auto c = characterOf(typed); c && !chord) {
        text_ += utf8(*c);
        ++typedCharacters_;
      }
      break;
    }
    case ClientMessage:
      if (static_cast<Atom>(event.xclient.data.l[0]) == XInternAtom(display_, "WM_DELETE_WINDOW", False))
        XWithdrawWindow(display_, window_, DefaultScreen(display_));
      break;
    case SelectionRequest:
      answerRequest(event.xselectionrequest);
      break;
    case SelectionNotify:
      takePaste(event.xselection);
      break;
    case ButtonPress:
    case ButtonRelease:
      buttons_.push_back({event.xbutton.button, event.type == ButtonPress, event.xbutton.x_root, event.xbutton.y_root});
      break;
    default:
      break;
  }
}

std::vector<TimedKeyEvent> X11TestWindow::timeline() const {
  std::lock_guard lock(mutex_);
  return timeline_;
}

void X11TestWindow::setFieldText(std::string text) {
  std::lock_guard lock(mutex_);
  isField_ = true;
  field_ = std::move(text);
}

std::string X11TestWindow::fieldText() const {
  std::lock_guard lock(mutex_);
  return field_;
}

std::size_t X11TestWindow::pastes() const {
  std::lock_guard lock(mutex_);
  return pastes_;
}

// The copied text is served until another client takes the selection; a
// text field's selection is small, so it goes in one property (no INCR).
void X11TestWindow::copyField(Time time) {
  XSetSelectionOwner(display_, XInternAtom(display_, "CLIPBOARD", False), window_, time);
  XFlush(display_);
}

void X11TestWindow::answerRequest(const XSelectionRequestEvent& request) {
  XSelectionEvent reply{};
  reply.type = SelectionNotify;
  reply.display = display_;
  reply.requestor = request.requestor;
  reply.selection = request.selection;
  reply.target = request.target;
  reply.time = request.time;
  reply.property = request.property == None ? request.target : request.property;
  const Atom utf8 = XInternAtom(display_, "UTF8_STRING", False);
  const Atom targets = XInternAtom(display_, "TARGETS", False);
  if (request.target == targets) {
    const Atom offered[] = {targets, utf8};
    XChangeProperty(display_, request.requestor, reply.property, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(offered), 2);
  } else if (request.target == utf8) {
    XChangeProperty(display_, request.requestor, reply.property, utf8, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(field_.data()), static_cast<int>(field_.size()));
  } else {
    reply.property = None;
  }
  XSendEvent(display_, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
  XFlush(display_);
}

void X11TestWindow::takePaste(const XSelectionEvent& notify) {
  if (notify.property == None) return;
  Atom type = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(display_, window_, notify.property, 0, 1L << 24, True, AnyPropertyType, &type, &format,
                         &count, &after, &data) == Success &&
      data && format == 8) {
    field_.assign(reinterpret_cast<const char*>(data), count);
    ++pastes_;
  }
  if (data) XFree(data);
}

void X11TestWindow::clear() {
  std::lock_guard lock(mutex_);
  timeline_.clear();
  keys_.clear();
  text_.clear();
  typedCharacters_ = 0;
  buttons_.clear();
}

}  // namespace orla::testing_x11
