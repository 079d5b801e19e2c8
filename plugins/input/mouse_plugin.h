// MousePlugin ("MouseShortcut"): plays a list of mouse steps (clicks,
// presses and releases, moves, drags, wheel scrolls, and saving and going
// back to the pointer position), each measured from a corner of the main
// display, of the front window or of the focused window, and each followed
// by a pause.
//
// Process-wide state: the saved pointer position, guarded by a lock;
// `resetSavedPosition` clears it for tests.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class MousePlugin : public PluginBase<MousePlugin> {
 public:
  static constexpr std::string_view pluginClass = "MouseShortcut";

  // Where locations are measured from.
  static constexpr std::int64_t screen = 1, frontWindow = 2, focusedWindow = 3;
  // Which corner: distances grow away from it, into the frame.
  static constexpr std::int64_t topLeft = 0, topRight = 1, bottomRight = 2, bottomLeft = 3;

  enum Kind : std::int64_t {
    leftClick, rightClick, doubleClick, savePosition, restorePosition, moveTo, dragTo, leftDown, leftUp,
    moveBy, dragBy, scrollWheel, scrollWheelBack, rightDown, rightUp,
  };

  struct Step {
    std::int64_t type = leftClick;
    double x = 0;
    double y = 0;
    std::int64_t origin = topLeft;
    std::int64_t wheel = 0;
    double pauseAfter = 0;
    bool hasLocation = false;
    friend bool operator==(const Step&, const Step&) = default;
  };

  static constexpr auto defaultPause = std::chrono::milliseconds(50);
  static constexpr auto longestPause = std::chrono::seconds(5);
  static constexpr auto doubleClickGap = std::chrono::milliseconds(50);
  static constexpr auto dragStartWait = std::chrono::milliseconds(50);
  static constexpr auto dragStepWait = std::chrono::milliseconds(20);
  // One intermediate point of a drag per this many points of its length.
  static constexpr double dragStepLength = 32;
  // A drag longer than any screen gets no more points than this.
  static constexpr std::int64_t mostDragSegments = 10000;

  MousePlugin();
  explicit MousePlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedCoordSystem(const ActionData& data);
  // "TOPRIGHT", "top/right", ... compared upper-cased; `fallback` otherwise.
  static std::int64_t originID(std::string_view text, std::int64_t fallback);
  static std::vector<Step> steps(const ActionData& data);
  // The point `step` names inside `frame` (event coordinates).
  static Point location(const Rect& frame, std::int64_t origin, double x, double y);
  // The inverse: the offsets from `origin` of a point inside `frame`.
  static Point offsetsFromCorner(Point quartz, const Rect& frame, std::int64_t origin);
  // A point in screen coordinates (y up from the bottom of the primary
  // screen) in event coordinates (y down from its top).
  static Point quartzPoint(Point cocoa, const Rect& primaryScreenFrame);
  // How many segments a drag from `from` to `to` takes.
  static std::int64_t dragSegments(Point from, Point to);
  static std::chrono::microseconds pause(double seconds);

  // For the host's editor: the offsets of a point picked on screen from a
  // corner of the frame the coordinate system names.
  Checked<Point> pickedLocation(Point quartz, std::int64_t coordSystem, std::int64_t origin) const;

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;
  bool requiresAccessibility(const ActionData& data) const override;

  static std::optional<Point> savedPosition();
  static void resetSavedPosition();

 private:
  Checked<Rect> referenceFrame(std::int64_t coordSystem) const;
  PluginResult runStep(const Step& step, std::int64_t coordSystem);
  Checked<void> postMove(Point location);
  Checked<void> postButton(MouseEventType type, std::int64_t clickState, std::int64_t buttonNumber);
  Checked<void> postDrag(Point target);
  Checked<void> postScroll(std::int64_t lines);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
