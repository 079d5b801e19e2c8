// WindowPlugin ("WindowShortcut"): acts on the front window of the
// frontmost application, or on all its windows, through the accessibility
// interface: zoom, minimize, restore, close, toggle the toolbar, move,
// resize, center, fill the screen, tile, switch windows and scroll.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/window_tiling.h>
#include <orla/platform/platform.h>
#include "plugins/input/accessibility_readers.h"

namespace orla {

class WindowPlugin : public PluginBase<WindowPlugin, AccessibilityPlugin> {
 public:
  static constexpr std::string_view pluginClass = "WindowShortcut";

  enum Command : std::int64_t {
    zoom, zoomAll, minimize, minimizeAll, showAll, toolbar, close, closeAll,
    move, moveRelative, resize, resizeRelative, resizePercent, nextWindow, previousWindow,
    scrollDown, scrollUp, scrollBottom, scrollTop, scrollRight, scrollLeft, scrollRightEnd, scrollLeftEnd,
    center, resizeToScreen, tile,
  };
  static constexpr std::int64_t commandCount = 26;
  // The names accepted in "subAction". The aliases are uneven on purpose:
  // saved actions use exactly these, and the left end has no "…To" form.
  static constexpr std::array<CommandName, 37> commandNames{{
      {"zoom", zoom}, {"zoomAll", zoomAll}, {"minimize", minimize}, {"minimizeAll", minimizeAll},
      {"showAll", showAll}, {"toolbar", toolbar}, {"toggleToolbar", toolbar}, {"close", close},
      {"closeAll", closeAll}, {"move", move}, {"moveAbsolute", move}, {"moveRelative", moveRelative},
      {"resize", resize}, {"resizeAbsolute", resize}, {"resizeRelative", resizeRelative},
      {"resizeRelativePoint", resizeRelative}, {"resizePercent", resizePercent},
      {"resizeRelativePercent", resizePercent}, {"next", nextWindow}, {"nextWindow", nextWindow},
      {"previous", previousWindow}, {"previousWindow", previousWindow}, {"scrollDown", scrollDown},
      {"scrollUp", scrollUp}, {"scrollBottom", scrollBottom}, {"scrollDownTo", scrollBottom},
      {"scrollTop", scrollTop}, {"scrollUpTo", scrollTop}, {"scrollRight", scrollRight},
      {"scrollLeft", scrollLeft}, {"scrollRightEnd", scrollRightEnd}, {"scrollRightTo", scrollRightEnd},
      {"scrollLeftEnd", scrollLeftEnd}, {"center", center}, {"resizeScreen", resizeToScreen},
      {"resizeToScreen", resizeToScreen}, {"tile", tile},
  }};
  // No side of a resized window is shorter than this.
  static constexpr double minimumSide = 50;
  // The gap between a tiled window and the screen's edges or its neighbours.
  static constexpr double tileSpacing = 8;
  // How far one scroll step moves a scroll bar that has no arrow or page
  // area to press: a line, or a page.
  static constexpr double lineStep = 0.05;
  static constexpr double pageStep = 0.2;
  static constexpr std::int64_t maximumScrollCount = 1000;

  WindowPlugin();
  explicit WindowPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // "Zoomed the front window", ...; "Did the window command" for others.
  static std::string successText(std::int64_t command);
  // The first key of `keys` holding an integer, a floating-point value or a
  // Boolean (1 or 0); 0 when none does.
  static double number(const ActionData& data, Keys keys);
  static std::optional<WindowTilePosition> tilePosition(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
