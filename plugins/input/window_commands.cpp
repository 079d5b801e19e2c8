#include "plugins/input/window_commands.h"

#include <algorithm>
#include <deque>

#include <orla/models/parameter_readers.h>
#include <orla/models/window_tiling.h>
#include "plugins/input/window_plugin.h"

namespace orla {

namespace {

using W = WindowPlugin;

constexpr std::string_view kNoButton = "This window does not have that button.";
constexpr std::string_view kButtonRefused = "Could not press the window button.";
constexpr std::string_view kCannotScroll = "Could not scroll this window.";

Failure failWith(std::string_view sentence) { return fail(std::string(sentence)); }

}  // namespace

Checked<void> WindowCommands::run(std::int64_t command, const ActionData& data) {
  switch (command) {
    case W::zoom: return pressButton(window_, "AXZoomButton");
    case W::zoomAll:
      return forEveryWindow([&](const AXElement& w) { return pressButton(w, "AXZoomButton"); });
    case W::minimize: return minimizeWindow(window_);
    case W::minimizeAll: return forEveryWindow([&](const AXElement& w) { return minimizeWindow(w); });
    case W::showAll:
      return forEveryWindow([&](const AXElement& w) -> Checked<void> {
        if (!reader_.set(w, "AXMinimized", false)) return fail("Could not restore the window.");
        return {};
      });
    case W::toolbar: return pressButton(window_, "AXToolbarButton");
    case W::close: return pressButton(window_, "AXCloseButton");
    case W::closeAll:
      return forEveryWindow([&](const AXElement& w) { return pressButton(w, "AXCloseButton"); });
    case W::move: return moveTo(data, false);
    case W::moveRelative: return moveTo(data, true);
    case W::resize:
    case W::resizeRelative:
    case W::resizePercent: return resizeTo(command, data);
    case W::nextWindow: return switchWindow(true);
    case W::previousWindow: return switchWindow(false);
    case W::center: return centerOnScreen(data);
    case W::resizeToScreen: return fillScreen();
    case W::tile: return tileTo(data);
    default:
      if (command >= W::scrollDown && command <= W::scrollLeftEnd) return scroll(command, data);
      return fail(unknownCommandMessage("window action"));
  }
}

Checked<void> WindowCommands::pressButton(const AXElement& window, std::string_view subrole) const {
  for (const AXElement& child : reader_.children(window)) {
    if (reader_.subrole(child) != subrole) continue;
    if (!reader_.perform(child, "AXPress")) return failWith(kButtonRefused);
    return {};
  }
  return failWith(kNoButton);
}

// Acts on each window even after one fails, and reports the first failure.
Checked<void> WindowCommands::forEveryWindow(const std::function<Checked<void>(const AXElement&)>& action) const {
  const std::vector<AXElement> windows = reader_.windows(pid_);
  if (windows.empty()) return fail("No windows in the front app.");
  Checked<void> first;
  for (const AXElement& window : windows)
    if (auto done = action(window); !done && first) first = std::move(done);
  return first;
}

Checked<void> WindowCommands::minimizeWindow(const AXElement& window) const {
  if (reader_.set(window, "AXMinimized", true)) return {};
  return pressButton(window, "AXMinimizeButton");
}

Checked<void> WindowCommands::moveTo(const ActionData& data, bool relative) const {
  Point target{W::number(data, {"x", "XValue"}), W::number(data, {"y", "YValue"})};
  if (relative) {
    const auto position = reader_.point(window_, "AXPosition");
    if (!position) return fail("Could not read the window position.");
    target = {position->x + target.x, position->y + target.y};
  }
  if (!reader_.set(window_, "AXPosition", target)) return fail("Could not move the window.");
  return {};
}

Checked<void> WindowCommands::resizeTo(std::int64_t command, const ActionData& data) const {
  const auto current = reader_.size(window_, "AXSize");
  if (!current) return fail("Could not read the window size.");
  Size size;
  if (command == W::resizePercent) {
    const auto visible = mainVisibleFrame();
    if (!visible) return fail(visible.error());
    size = {visible->width * W::number(data, {"widthPercent", "width", "XValue"}) / 100,
            visible->height * W::number(data, {"heightPercent", "height", "YValue"}) / 100};
  } else {
    size = {W::number(data, {"width", "XValue"}), W::number(data, {"height", "YValue"})};
    if (command == W::resizeRelative) size = {current->width + size.width, current->height + size.height};
  }
  size = {std::max(size.width, W::minimumSide), std::max(size.height, W::minimumSide)};

  // The corner named by "origin" stays where it is: the position moves by
  // what the size gives up or takes on that side.
  const std::int64_t origin = readIntOr(data, {"origin", "Origin"}, 0);
  const double dx = (origin == 1 || origin == 2) ? current->width - size.width : 0;
  const double dy = (origin == 2 || origin == 3) ? current->height - size.height : 0;
  if (dx != 0 || dy != 0) {
    const auto position = reader_.point(window_, "AXPosition");
    if (!position) return fail("Could not read the window position.");
    if (!reader_.set(window_, "AXPosition", Point{position->x + dx, position->y + dy}))
      return fail("Could not set the window position.");
  }
  if (!reader_.set(window_, "AXSize", size)) return fail("Could not resize the window.");
  return {};
}

Checked<void> WindowCommands::centerOnScreen(const ActionData& data) const {
  const auto visible = mainVisibleFrame();
  if (!visible) return fail(visible.error());
  const auto size = reader_.size(window_, "AXSize");
  if (!size) return fail("Could not read the window size.");
  const auto position = reader_.point(window_, "AXPosition");
  if (!position) return fail("Could not read the window position.");
  // Both ways when neither is given; otherwise the ways asked for.
  const auto horizontal = readSwitch(data, {"centerH"});
  const auto vertical = readSwitch(data, {"centerV"});
  const bool both = !horizontal && !vertical;
  Point target = *position;
  if (both || horizontal.value_or(false)) target.x = visible->x + (visible->width - size->width) * 0.5;
  if (both || vertical.value_or(false)) target.y = visible->y + (visible->height - size->height) * 0.5;
  if (!reader_.set(window_, "AXPosition", target)) return fail("Could not set the window position.");
  return {};
}

Checked<void> WindowCommands::fillScreen() const {
  const auto visible = mainVisibleFrame();
  if (!visible) return fail(visible.error());
  // Moved first, so that a window coming from another screen is not held
  // to that screen's size.
  if (!reader_.set(window_, "AXPosition", visible->origin())) return fail("Could not set the window position.");
  if (!reader_.set(window_, "AXSize", visible->size())) return fail("Could not set the window size.");
  return {};
}

Checked<void> WindowCommands::tileTo(const ActionData& data) const {
  const auto position = W::tilePosition(data);
  if (!position) return fail("Choose a tile position, for example left or right.");
  const auto visible = mainVisibleFrame();
  if (!visible) return fail(visible.error());
  const Size current = reader_.size(window_, "AXSize").value_or(Size{});
  const Rect frame = WindowTilingLayouts::frame(*position, *visible, current, W::tileSpacing);
  if (!reader_.set(window_, "AXSize", frame.size()) || !reader_.set(window_, "AXPosition", frame.origin()))
    return fail("Could not place the window.");
  return {};
}

// Next sends the front window to the back (each other window is raised in
// turn, the backmost first), so that repeating it visits every window;
// previous raises the backmost one, visiting them the other way round.
// Minimized windows are left out.
Checked<void> WindowCommands::switchWindow(bool next) const {
  std::vector<AXElement> windows;
  for (const AXElement& window : reader_.windows(pid_))
    if (!reader_.boolean(window, "AXMinimized").value_or(false)) windows.push_back(window);
  if (windows.empty()) return fail("No windows in the front app.");
  if (windows.size() == 1) return {};
  std::vector<AXElement> raised;
  if (next) raised.assign(windows.rbegin(), windows.rend() - 1);
  else raised.push_back(windows.back());
  for (const AXElement& window : raised)
    if (!reader_.perform(window, "AXRaise")) return fail("Could not switch windows.");
  // Raising orders the windows; making the new front one main gives it the
  // keyboard too. An application that does not take it still shows it.
  reader_.set(raised.back(), "AXMain", true);
  return {};
}

Checked<Rect> WindowCommands::mainVisibleFrame() const {
  Displays& displays = platform_.displays();
  const auto main = displays.mainScreen();
  const auto screens = displays.screens();
  if (!main || screens.empty())
    return fail(platform_.supports(Capability::displays) ? "Could not read the screen size."
                                                         : std::string(kDisplaysUnavailable));
  return WindowTilingLayouts::axVisibleFrame(main->visibleFrame, screens.front().frame);
}

// The scroll bar of the window's scroll area (the first one found, nearest
// the window first) whose orientation fits.
std::optional<AXElement> WindowCommands::scrollBar(bool vertical) const {
  constexpr int kDepth = 4;
  std::deque<std::pair<AXElement, int>> queue{{window_, 0}};
  std::optional<AXElement> area;
  while (!queue.empty() && !area) {
    auto [element, depth] = queue.front();
    queue.pop_front();
    for (const AXElement& child : reader_.children(element)) {
      if (reader_.role(child) == "AXScrollArea") {
        area = child;
        break;
      }
      if (depth + 1 < kDepth) queue.emplace_back(child, depth + 1);
    }
  }
  if (!area) return std::nullopt;
  if (auto bar = reader_.element(*area, vertical ? "AXVerticalScrollBar" : "AXHorizontalScrollBar")) return bar;
  const std::string_view orientation = vertical ? "AXVerticalOrientation" : "AXHorizontalOrientation";
  for (const AXElement& child : reader_.children(*area))
    if (reader_.role(child) == "AXScrollBar" && reader_.string(child, "AXOrientation") == orientation) return child;
  return std::nullopt;
}

Checked<void> WindowCommands::scroll(std::int64_t command, const ActionData& data) const {
  const bool vertical = command == W::scrollDown || command == W::scrollUp || command == W::scrollBottom ||
                        command == W::scrollTop;
  const auto bar = scrollBar(vertical);
  if (!bar) return failWith(kCannotScroll);
  if (command == W::scrollBottom || command == W::scrollTop || command == W::scrollRightEnd ||
      command == W::scrollLeftEnd) {
    const double end = (command == W::scrollBottom || command == W::scrollRightEnd) ? 1.0 : 0.0;
    if (!reader_.set(*bar, "AXValue", end)) return failWith(kCannotScroll);
    return {};
  }
  const bool increment = command == W::scrollDown || command == W::scrollRight;
  // "scrollUnit" 1 steps by pages, anything else by lines.
  const bool page = readIntOr(data, {"scrollUnit", "Unit"}, 0) == 1;
  const std::int64_t count = std::clamp<std::int64_t>(readIntOr(data, {"scrollCount", "Count"}, 1), 1,
                                                      W::maximumScrollCount);
  const std::string subrole = std::string(increment ? "AXIncrement" : "AXDecrement") + (page ? "Page" : "Arrow");
  std::optional<AXElement> part;
  for (const AXElement& child : reader_.children(*bar))
    if (reader_.subrole(child) == subrole) part = child;
  for (std::int64_t step = 0; step < count; ++step) {
    if (part) {
      if (!reader_.perform(*part, "AXPress")) return failWith(kCannotScroll);
      continue;
    }
    // A bar without that part (an overlay scroll bar has none) is moved by
    // its value instead.
    const auto value = reader_.number(*bar, "AXValue");
    if (!value) return failWith(kCannotScroll);
    const double delta = (page ? W::pageStep : W::lineStep) * (increment ? 1 : -1);
    if (!reader_.set(*bar, "AXValue", std::clamp(*value + delta, 0.0, 1.0))) return failWith(kCannotScroll);
  }
  return {};
}

}  // namespace orla
