#include "platform/linux/x11_displays.h"

#include <X11/Xlib.h>

#include <X11/Xatom.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>

namespace orla::linux_desktop {
namespace {

Rect intersection(const Rect& a, const Rect& b) {
  const double x = std::max(a.x, b.x), y = std::max(a.y, b.y);
  const double maxX = std::min(a.maxX(), b.maxX()), maxY = std::min(a.maxY(), b.maxY());
  if (maxX <= x || maxY <= y) return {};
  return {x, y, maxX - x, maxY - y};
}

class X11Displays : public Displays {
 public:
  explicit X11Displays(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {}

  std::optional<Rect> mainDisplayBounds() const override {
    auto lock = connection_->lock();
    const Rect primary = connection_->primaryMonitorLocked();
    return Rect{0, 0, primary.width, primary.height};
  }

  std::vector<Screen> screens() const override {
    auto lock = connection_->lock();
    return screensLocked();
  }

  // The screen holding the middle of the active window, else the primary.
  std::optional<Screen> mainScreen() const override {
    auto lock = connection_->lock();
    const auto screens = screensLocked();
    if (screens.empty()) return std::nullopt;
    Display* display = connection_->display();
    const auto active = connection_->cardinalsLocked(connection_->root(), connection_->atom("_NET_ACTIVE_WINDOW"),
                                                     XA_WINDOW);
    if (!active.empty() && active[0] != None) {
      XWindowAttributes attributes{};
      Window child = None;
      int x = 0, y = 0;
      if (XGetWindowAttributes(display, active[0], &attributes) &&
          XTranslateCoordinates(display, active[0], connection_->root(), attributes.width / 2,
                                attributes.height / 2, &x, &y, &child)) {
        const Rect primary = connection_->primaryMonitorLocked();
        const Point middle{x - primary.x, primary.maxY() - y};
        for (const Screen& screen : screens)
          if (screen.frame.contains(middle)) return screen;
      }
      takeX11Error();  // the window may have closed meanwhile
    }
    return screens.front();
  }

 private:
  // Root-window rectangles (y down from the top of the root window) turned
  // into screen coordinates: origin at the primary monitor's bottom left,
  // y up.
  std::vector<Screen> screensLocked() const {
    Display* display = connection_->display();
    const Rect primary = connection_->primaryMonitorLocked();
    auto flip = [&](const Rect& r) { return Rect{r.x - primary.x, primary.maxY() - r.maxY(), r.width, r.height}; };
    std::optional<Rect> workArea;
    const auto area = connection_->cardinalsLocked(connection_->root(), connection_->atom("_NET_WORKAREA"), XA_CARDINAL);
    const auto current = connection_->cardinalsLocked(connection_->root(), connection_->atom("_NET_CURRENT_DESKTOP"),
                                                      XA_CARDINAL);
    const std::size_t desktop = current.empty() ? 0 : current[0];
    if (area.size() >= 4 * (desktop + 1))
      workArea = Rect{double(long(area[4 * desktop])), double(long(area[4 * desktop + 1])),
                      double(area[4 * desktop + 2]), double(area[4 * desktop + 3])};
    int count = 0;
    XRRMonitorInfo* monitors = XRRGetMonitors(display, connection_->root(), True, &count);
    std::vector<Rect> frames;
    for (int i = 0; i < count; ++i) {
      const Rect frame{double(monitors[i].x), double(monitors[i].y), double(monitors[i].width),
                       double(monitors[i].height)};
      if (monitors[i].primary) frames.insert(frames.begin(), frame);
      else frames.push_back(frame);
    }
    if (monitors) XRRFreeMonitors(monitors);
    if (frames.empty()) frames.push_back(primary);
    std::vector<Screen> out;
    for (const Rect& frame : frames) {
      Rect visible = workArea ? intersection(frame, *workArea) : frame;
      if (visible.isEmpty()) visible = frame;  // a work area that misses this monitor says nothing about it
      out.push_back({flip(frame), flip(visible)});
    }
    return out;
  }

  std::shared_ptr<X11Connection> connection_;
};

}  // namespace

std::unique_ptr<Displays> makeX11Displays(std::shared_ptr<X11Connection> connection) {
  return std::make_unique<X11Displays>(std::move(connection));
}

}  // namespace orla::linux_desktop
