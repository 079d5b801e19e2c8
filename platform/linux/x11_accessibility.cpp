#include "platform/linux/x11_accessibility.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <functional>
#include <thread>

#include "platform/linux/x11_windows.h"

namespace orla::linux_desktop {
namespace {

using SteadyClock = std::chrono::steady_clock;

// How long a change waits to show in the window's properties: the window
// manager applies it, then the window takes it.
constexpr auto kSettle = std::chrono::seconds(2);
constexpr auto kSettlePoll = std::chrono::milliseconds(5);

// EWMH numbers.
constexpr long kSourcePager = 2;  // requests from a tool: the window manager obeys at once
constexpr long kStaticGravity = 10;
constexpr long kStateRemove = 0, kStateToggle = 2;

// An application, one of its windows, or one of a window's title-bar
// buttons (which the window manager draws: a press is a request to it).
struct Element : AXElement::Handle {
  enum class Kind { application, window, button };
  Element(Kind k, ProcessId p, unsigned long w = 0, std::string s = {})
      : kind(k), pid(p), window(w), subrole(std::move(s)) {}
  bool sameElement(const Handle& other) const override {
    const auto* o = dynamic_cast<const Element*>(&other);
    return o && o->kind == kind && o->pid == pid && o->window == window && o->subrole == subrole;
  }
  Kind kind;
  ProcessId pid;
  unsigned long window;
  std::string subrole;
};

const std::array<std::string_view, 3> kButtons{"AXCloseButton", "AXMinimizeButton", "AXZoomButton"};

AXElement make(Element::Kind kind, ProcessId pid, unsigned long window = 0, std::string subrole = {}) {
  return AXElement(std::make_shared<const Element>(kind, pid, window, std::move(subrole)));
}

bool processRuns(ProcessId pid) { return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM); }

class X11Accessibility : public Accessibility {
 public:
  explicit X11Accessibility(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {}

  // This service exists only over a connection that opened with its
  // extensions present (the native platform falls back to the unavailable
  // one otherwise), and Xlib ends the process when a server goes away, so
  // holding the connection is the answer.
  bool isProcessTrusted() const override { return connection_ != nullptr; }

  AXElement applicationElement(ProcessId pid) override { return make(Element::Kind::application, pid); }

  AXResult<AXValue> copyAttributeValue(const AXElement& element, std::string_view attribute) override {
    const auto* e = dynamic_cast<const Element*>(element.handle());
    if (!e) return AXError::invalidUIElement;
    auto lock = connection_->lock();
    switch (e->kind) {
      case Element::Kind::application: return applicationAttribute(*e, attribute);
      case Element::Kind::window: return windowAttribute(*e, attribute);
      case Element::Kind::button:
        if (!exists(e->window)) return AXError::invalidUIElement;
        if (attribute == "AXRole") return AXValue("AXButton");
        if (attribute == "AXSubrole") return AXValue(e->subrole);
        if (attribute == "AXEnabled") return AXValue(true);
        if (attribute == "AXParent") return AXValue(make(Element::Kind::window, e->pid, e->window));
        return AXError::attributeUnsupported;
    }
    return AXError::attributeUnsupported;
  }

  AXError setAttributeValue(const AXElement& element, std::string_view attribute, const AXValue& value) override {
    const auto* e = dynamic_cast<const Element*>(element.handle());
    if (!e || e->kind != Element::Kind::window) return e ? AXError::attributeUnsupported : AXError::invalidUIElement;
    auto lock = connection_->lock();
    if (!exists(e->window)) return AXError::invalidUIElement;
    const Window w = e->window;
    // A window manager places a window by its own reckoning (the border the
    // window had when it was made, the screen's edges): a move or resize
    // that lands off the mark is corrected once by the difference.
    if (attribute == "AXPosition") {
      const Point* asked = value.asPoint();
      if (!asked) return AXError::illegalArgument;
      // The window manager places windows on whole pixels: a centred window
      // whose free space is odd lands on the rounded position, which is
      // where it was asked to go.
      const Point rounded{std::round(asked->x), std::round(asked->y)};
      const Point* p = &rounded;
      leaveMaximized(lock, w);
      const auto extents = extentsOf(w);
      Point aim = *p;
      for (int attempt = 0; attempt < 2; ++attempt) {
        const Point before = frameOf(w).origin();
        moveResize(w, {aim.x + extents[0], aim.y + extents[2], 0, 0}, true, false);
        settle(lock, [&] {
          const Point now = frameOf(w).origin();
          return now == *p || now != before;
        });
        const Point landed = frameOf(w).origin();
        if (landed == *p) return AXError::success;
        if (landed == before && attempt == 0 && before != *p) continue;  // not taken yet: once more
        aim = {aim.x + p->x - landed.x, aim.y + p->y - landed.y};
      }
      return settle(lock, [&] { return frameOf(w).origin() == *p; }) ? AXError::success : AXError::cannotComplete;
    }
    if (attribute == "AXSize") {
      const Size* askedSize = value.asSize();
      if (!askedSize || !(askedSize->width > 0) || !(askedSize->height > 0)) return AXError::illegalArgument;
      const Size roundedSize{std::round(askedSize->width), std::round(askedSize->height)};
      const Size* s = &roundedSize;
      leaveMaximized(lock, w);
      const auto extents = extentsOf(w);
      Size aim{s->width - extents[0] - extents[1], s->height - extents[2] - extents[3]};
      for (int attempt = 0; attempt < 2; ++attempt) {
        const Size before = frameOf(w).size();
        moveResize(w, {0, 0, aim.width, aim.height}, false, true);
        settle(lock, [&] {
          const Size now = frameOf(w).size();
          return now == *s || now != before;
        });
        const Size landed = frameOf(w).size();
        if (landed == *s) return AXError::success;
        aim = {aim.width + s->width - landed.width, aim.height + s->height - landed.height};
      }
      // A window may keep a size of its own (a minimum, a step): what it
      // took is for the caller to read back.
      return AXError::success;
    }
    if (attribute == "AXMinimized") {
      const bool* on = value.asBool();
      if (!on) return AXError::illegalArgument;
      if (*on) XIconifyWindow(connection_->display(), w, DefaultScreen(connection_->display()));
      else activate(w);
      return settle(lock, [&] { return minimized(w) == *on; }) ? AXError::success : AXError::cannotComplete;
    }
    if (attribute == "AXMain" || attribute == "AXFocused") {
      const bool* on = value.asBool();
      if (!on) return AXError::illegalArgument;
      if (!*on) return AXError::success;  // another window takes it from this one
      activate(w);
      return settle(lock, [&] { return active() == w; }) ? AXError::success : AXError::cannotComplete;
    }
    return AXError::attributeUnsupported;
  }

  AXError performAction(const AXElement& element, std::string_view action) override {
    const auto* e = dynamic_cast<const Element*>(element.handle());
    if (!e) return AXError::invalidUIElement;
    if (e->kind == Element::Kind::application) return AXError::actionUnsupported;
    auto lock = connection_->lock();
    const Window w = e->window;
    if (!exists(w)) return AXError::invalidUIElement;
    if (e->kind == Element::Kind::window) {
      if (action != "AXRaise") return AXError::actionUnsupported;
      activate(w);
      return settle(lock, [&] { return active() == w; }) ? AXError::success : AXError::cannotComplete;
    }
    if (action != "AXPress") return AXError::actionUnsupported;
    if (e->subrole == "AXCloseButton") {
      // The window's own close (WM_DELETE_WINDOW): it may ask to save first.
      clientMessage(w, "_NET_CLOSE_WINDOW", {CurrentTime, kSourcePager});
      return AXError::success;
    }
    if (e->subrole == "AXMinimizeButton") {
      XIconifyWindow(connection_->display(), w, DefaultScreen(connection_->display()));
      return settle(lock, [&] { return minimized(w); }) ? AXError::success : AXError::cannotComplete;
    }
    // Zoom: maximized both ways, or back.
    const bool wasZoomed = zoomed(w);
    const Rect before = frameOf(w);
    clientMessage(w, "_NET_WM_STATE",
                  {kStateToggle, static_cast<long>(connection_->atom("_NET_WM_STATE_MAXIMIZED_VERT")),
                   static_cast<long>(connection_->atom("_NET_WM_STATE_MAXIMIZED_HORZ")), kSourcePager});
    if (!settle(lock, [&] { return zoomed(w) != wasZoomed; })) return AXError::cannotComplete;
    // The window manager announces the state before it moves the window:
    // wait for the frame too, so that a read after the press sees the new
    // one. A window that already filled the screen keeps its frame; it only
    // costs that wait.
    settle(lock, [&] { return !(frameOf(w) == before); });
    return AXError::success;
  }

 private:
  AXResult<AXValue> applicationAttribute(const Element& e, std::string_view attribute) {
    if (!processRuns(e.pid)) return AXError::invalidUIElement;
    if (attribute == "AXRole") return AXValue("AXApplication");
    const auto windows = windowsOf(e.pid);
    if (attribute == "AXWindows") {
      AXValue::List list;
      for (Window w : windows) list.emplace_back(make(Element::Kind::window, e.pid, w));
      return AXValue(std::move(list));
    }
    if (attribute == "AXFocusedWindow" || attribute == "AXMainWindow") {
      const Window front = active();
      for (Window w : windows)
        if (w == front) return AXValue(make(Element::Kind::window, e.pid, w));
      // Not in front: its frontmost window that is not minimized.
      for (Window w : windows)
        if (!minimized(w)) return AXValue(make(Element::Kind::window, e.pid, w));
      return AXError::noValue;
    }
    if (attribute == "AXFrontmost") {
      const Window front = active();
      return AXValue(std::find(windows.begin(), windows.end(), front) != windows.end());
    }
    if (attribute == "AXHidden")
      return AXValue(!windows.empty() && std::all_of(windows.begin(), windows.end(), [&](Window w) { return minimized(w); }));
    // Menus and the rest of an application's interface are not the X
    // server's to tell.
    return AXError::attributeUnsupported;
  }

  AXResult<AXValue> windowAttribute(const Element& e, std::string_view attribute) {
    const Window w = e.window;
    if (!exists(w)) return AXError::invalidUIElement;
    if (attribute == "AXRole") return AXValue("AXWindow");
    if (attribute == "AXSubrole") return AXValue("AXStandardWindow");
    if (attribute == "AXTitle") return AXValue(title(w));
    if (attribute == "AXPosition") return AXValue(frameOf(w).origin());
    if (attribute == "AXSize") return AXValue(frameOf(w).size());
    if (attribute == "AXMinimized") return AXValue(minimized(w));
    if (attribute == "AXMain" || attribute == "AXFocused") return AXValue(active() == w);
    if (attribute == "AXFullScreen") return AXValue(hasState(w, "_NET_WM_STATE_FULLSCREEN"));
    if (attribute == "AXParent") return AXValue(make(Element::Kind::application, e.pid));
    // Title-bar buttons only: a toolbar or scroll bars are the
    // application's, which the X server does not show.
    if (attribute == "AXChildren") {
      AXValue::List buttons;
      for (std::string_view b : kButtons) buttons.emplace_back(make(Element::Kind::button, e.pid, w, std::string(b)));
      return AXValue(std::move(buttons));
    }
    for (std::string_view b : kButtons)
      if (attribute == b) return AXValue(make(Element::Kind::button, e.pid, w, std::string(b)));
    return AXError::attributeUnsupported;
  }

  // The managed windows, front to back.
  std::vector<Window> clients() {
    auto list = connection_->cardinalsLocked(connection_->root(), connection_->atom("_NET_CLIENT_LIST_STACKING"),
                                             XA_WINDOW);
    std::reverse(list.begin(), list.end());
    return {list.begin(), list.end()};
  }
  bool exists(Window w) {
    const auto all = clients();
    return std::find(all.begin(), all.end(), w) != all.end();
  }
  std::vector<Window> windowsOf(ProcessId pid) {
    std::vector<Window> out;
    for (Window w : clients())
      if (windowProcessLocked(*connection_, w) == pid) out.push_back(w);
    return out;
  }
  Window active() {
    const auto a = connection_->cardinalsLocked(connection_->root(), connection_->atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
    return a.empty() ? None : a[0];
  }
  bool hasState(Window w, const char* state) {
    const auto states = connection_->cardinalsLocked(w, connection_->atom("_NET_WM_STATE"), XA_ATOM);
    return std::find(states.begin(), states.end(), connection_->atom(state)) != states.end();
  }
  bool minimized(Window w) { return hasState(w, "_NET_WM_STATE_HIDDEN"); }
  // A maximized window keeps its place whatever a pager asks (openbox
  // ignores the move), so a move or resize takes it out of the maximized
  // state first, as dragging it would.
  void leaveMaximized(std::unique_lock<std::mutex>& lock, Window w) {
    if (!hasState(w, "_NET_WM_STATE_MAXIMIZED_VERT") && !hasState(w, "_NET_WM_STATE_MAXIMIZED_HORZ")) return;
    const Rect before = frameOf(w);
    clientMessage(w, "_NET_WM_STATE",
                  {kStateRemove, static_cast<long>(connection_->atom("_NET_WM_STATE_MAXIMIZED_VERT")),
                   static_cast<long>(connection_->atom("_NET_WM_STATE_MAXIMIZED_HORZ")), kSourcePager});
    settle(lock, [&] {
      return !hasState(w, "_NET_WM_STATE_MAXIMIZED_VERT") && !hasState(w, "_NET_WM_STATE_MAXIMIZED_HORZ");
    });
    settle(lock, [&] { return !(frameOf(w) == before); });
  }

  bool zoomed(Window w) {
    return hasState(w, "_NET_WM_STATE_MAXIMIZED_VERT") && hasState(w, "_NET_WM_STATE_MAXIMIZED_HORZ");
  }
  // What the window manager's frame adds on each side (left, right, top,
  // bottom).
  std::array<double, 4> extentsOf(Window w) {
    const auto e = connection_->cardinalsLocked(w, connection_->atom("_NET_FRAME_EXTENTS"), XA_CARDINAL);
    std::array<double, 4> out{0, 0, 0, 0};
    if (e.size() >= 4) out = {double(e[0]), double(e[1]), double(e[2]), double(e[3])};
    return out;
  }
  // The window with its frame, in event coordinates, as the accessibility
  // interface measures windows.
  Rect frameOf(Window w) {
    Display* display = connection_->display();
    XWindowAttributes attributes{};
    int x = 0, y = 0;
    Window child = None;
    if (!XGetWindowAttributes(display, w, &attributes) ||
        !XTranslateCoordinates(display, w, connection_->root(), 0, 0, &x, &y, &child)) {
      takeX11Error();
      return {};
    }
    const auto e = extentsOf(w);
    const double border = attributes.border_width;
    const Rect primary = connection_->primaryMonitorLocked();
    return {x - border - e[0] - primary.x, y - border - e[2] - primary.y, attributes.width + 2 * border + e[0] + e[1],
            attributes.height + 2 * border + e[2] + e[3]};
  }
  std::string title(Window w) {
    Display* display = connection_->display();
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    std::string text;
    if (XGetWindowProperty(display, w, connection_->atom("_NET_WM_NAME"), 0, 4096, False,
                           connection_->atom("UTF8_STRING"), &type, &format, &count, &after, &data) == Success &&
        data && format == 8)
      text.assign(reinterpret_cast<const char*>(data), count);
    if (data) XFree(data);
    if (text.empty()) {
      char* name = nullptr;
      if (XFetchName(display, w, &name) && name) text = name;
      if (name) XFree(name);
    }
    return text;
  }

  void clientMessage(Window w, const char* type, std::initializer_list<long> data) {
    connection_->askWindowManagerLocked(w, type, data);
  }
  void activate(Window w) { clientMessage(w, "_NET_ACTIVE_WINDOW", {kSourcePager, CurrentTime, None}); }
  // With static gravity the position is that of the window itself (the
  // outer corner of its border), the size that of its inside.
  void moveResize(Window w, Rect client, bool move, bool resize) {
    const long flags = kStaticGravity | (move ? (1 << 8) | (1 << 9) : 0) | (resize ? (1 << 10) | (1 << 11) : 0) |
                       (kSourcePager << 12);
    const Rect primary = connection_->primaryMonitorLocked();
    clientMessage(w, "_NET_MOVERESIZE_WINDOW",
                  {flags, std::lround(client.x + primary.x), std::lround(client.y + primary.y),
                   std::lround(client.width), std::lround(client.height)});
  }

  // Waits, without holding the connection between looks, until `done`.
  bool settle(std::unique_lock<std::mutex>& lock, const std::function<bool()>& done) {
    const auto end = SteadyClock::now() + kSettle;
    while (!done()) {
      if (SteadyClock::now() >= end) return false;
      lock.unlock();
      std::this_thread::sleep_for(kSettlePoll);
      lock.lock();
    }
    return true;
  }

  std::shared_ptr<X11Connection> connection_;
};

}  // namespace

std::unique_ptr<Accessibility> makeX11Accessibility(std::shared_ptr<X11Connection> connection) {
  return std::make_unique<X11Accessibility>(std::move(connection));
}

std::optional<X11ElementInfo> describeX11Element(const AXElement& element) {
  const auto* e = dynamic_cast<const Element*>(element.handle());
  if (!e) return std::nullopt;
  return X11ElementInfo{e->pid, e->window, e->kind == Element::Kind::button};
}

}  // namespace orla::linux_desktop
