#include "plugins/input/mouse_plugin.h"

#include <cmath>
#include <limits>
#include <mutex>

#include <orla/models/parameter_readers.h>
#include "plugins/input/accessibility_readers.h"

namespace orla {

namespace {

constexpr std::string_view kNoSteps = "Add at least one mouse movement (Click, Move, Drag, …).";
constexpr std::string_view kCannotClick = "Could not send the mouse click.";
constexpr std::string_view kCannotMove = "Could not move the mouse.";
constexpr std::string_view kCannotDrag = "Could not drag the mouse.";
constexpr std::string_view kCannotScroll = "Could not scroll.";

Failure failWith(std::string_view sentence) { return fail(std::string(sentence)); }

struct SavedPosition {
  std::mutex mutex;
  std::optional<Point> position;
};

SavedPosition& saved() {
  static SavedPosition state;
  return state;
}

// A number of a step: an integer, a floating-point value or a Boolean.
std::optional<double> stepNumber(const AnyDictionary& step, std::string_view key) {
  const AnyCodable* value = lookup(step, key);
  if (!value) return std::nullopt;
  if (const auto* i = value->asInt()) return static_cast<double>(*i);
  if (const auto* d = value->asDouble(); d && std::isfinite(*d)) return *d;
  if (const auto* b = value->asBool()) return *b ? 1.0 : 0.0;
  return std::nullopt;
}

// "x" as a number, else "XValue" as an integer.
std::optional<double> coordinate(const AnyDictionary& step, std::string_view key, std::string_view legacy) {
  if (auto value = stepNumber(step, key)) return value;
  if (auto whole = readInt(step, {legacy})) return static_cast<double>(*whole);
  return std::nullopt;
}

std::string_view placeName(std::int64_t coordSystem) {
  if (coordSystem == MousePlugin::frontWindow) return "the front window";
  if (coordSystem == MousePlugin::focusedWindow) return "the focused window";
  return "the screen";
}

}  // namespace

MousePlugin::MousePlugin() : MousePlugin(Platform::current()) {}
MousePlugin::MousePlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t MousePlugin::resolvedCoordSystem(const ActionData& data) {
  static constexpr std::pair<std::string_view, std::int64_t> kNames[] = {
      {"screen", screen},       {"window", frontWindow},        {"mainWindow", frontWindow},
      {"focus", focusedWindow}, {"focusedWindow", focusedWindow},
  };
  std::optional<std::int64_t> number;
  if (auto sub = readRawString(data, "subAction"))
    for (const auto& [name, value] : kNames)
      if (name == *sub) number = value;
  if (!number) number = readInt(data, {"coordSystem", "Action"});
  if (!number && readList(data, {"movements", "Movements"})) number = screen;
  if (!number) number = readInt(data, {"actionType"});
  // A number that names no coordinate system measures from the screen.
  if (!number || *number < screen || *number > focusedWindow) return screen;
  return *number;
}

std::int64_t MousePlugin::originID(std::string_view text, std::int64_t fallback) {
  std::string upper(text);
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  if (upper == "TOPRIGHT" || upper == "TOP/RIGHT") return topRight;
  if (upper == "BOTTOMRIGHT" || upper == "BOTTOM/RIGHT") return bottomRight;
  if (upper == "BOTTOMLEFT" || upper == "BOTTOM/LEFT") return bottomLeft;
  if (upper == "TOPLEFT" || upper == "TOP/LEFT") return topLeft;
  return fallback;
}

// Steps are read by "moveType" only: the older numbering under "Type" is
// not known here, so a step that has nothing else is left out, as is an
// element of the list that is not a dictionary.
std::vector<MousePlugin::Step> MousePlugin::steps(const ActionData& data) {
  std::vector<Step> out;
  const AnyArray* list = readList(data, {"movements", "Movements"});
  if (!list) return out;
  for (const AnyCodable& element : *list) {
    const AnyDictionary* dict = element.asDictionary();
    if (!dict) continue;
    const auto type = readInt(*dict, {"moveType"});
    if (!type) continue;
    Step step;
    step.type = *type;
    const auto x = coordinate(*dict, "x", "XValue");
    const auto y = coordinate(*dict, "y", "YValue");
    step.hasLocation = x || y;
    step.x = x.value_or(0);
    step.y = y.value_or(0);
    step.origin = readIntOr(*dict, {"Origin"}, topLeft);
    if (const AnyCodable* text = lookup(*dict, "origin"); text && text->asString())
      step.origin = originID(*text->asString(), step.origin);
    step.wheel = readIntOr(*dict, {"Wheel", "wheel"}, 0);
    step.pauseAfter = stepNumber(*dict, "pauseAfter").value_or(stepNumber(*dict, "Pause").value_or(0));
    out.push_back(step);
  }
  return out;
}

Point MousePlugin::location(const Rect& f, std::int64_t origin, double x, double y) {
  switch (origin) {
    case topRight: return {f.x + f.width - x, f.y + y};
    case bottomRight: return {f.x + f.width - x, f.y + f.height - y};
    case bottomLeft: return {f.x + x, f.y + f.height - y};
    default: return {f.x + x, f.y + y};
  }
}

Point MousePlugin::offsetsFromCorner(Point q, const Rect& f, std::int64_t origin) {
  switch (origin) {
    case topRight: return {f.x + f.width - q.x, q.y - f.y};
    case bottomRight: return {f.x + f.width - q.x, f.y + f.height - q.y};
    case bottomLeft: return {q.x - f.x, f.y + f.height - q.y};
    default: return {q.x - f.x, q.y - f.y};
  }
}

Point MousePlugin::quartzPoint(Point cocoa, const Rect& primaryScreenFrame) {
  return {cocoa.x, primaryScreenFrame.maxY() - cocoa.y};
}

std::int64_t MousePlugin::dragSegments(Point from, Point to) {
  const double longest = std::max(std::abs(to.x - from.x), std::abs(to.y - from.y)) / dragStepLength;
  if (!(longest < static_cast<double>(mostDragSegments))) return mostDragSegments;  // NaN too
  return std::max<std::int64_t>(1, static_cast<std::int64_t>(longest));
}

std::chrono::microseconds MousePlugin::pause(double seconds) {
  if (!(seconds > 0)) return defaultPause;
  if (seconds >= 5) return longestPause;
  return std::chrono::microseconds(static_cast<std::int64_t>(std::llround(seconds * 1e6)));
}

std::optional<Point> MousePlugin::savedPosition() {
  std::lock_guard lock(saved().mutex);
  return saved().position;
}

void MousePlugin::resetSavedPosition() {
  std::lock_guard lock(saved().mutex);
  saved().position.reset();
}

std::optional<std::string> MousePlugin::validate(const ActionData& data) const {
  if (steps(data).empty()) return std::string(kNoSteps);
  return std::nullopt;
}

bool MousePlugin::requiresAccessibility(const ActionData& data) const {
  const std::int64_t system = resolvedCoordSystem(data);
  return system == frontWindow || system == focusedWindow;
}

Checked<Rect> MousePlugin::referenceFrame(std::int64_t coordSystem) const {
  std::optional<Rect> frame;
  if (coordSystem == screen) {
    frame = platform_->displays().mainDisplayBounds();
  } else if (auto front = platform_->workspace().frontmostApplication()) {
    AXReader reader(platform_->accessibility());
    const auto window =
        reader.window(front->processIdentifier, coordSystem == frontWindow ? "AXMainWindow" : "AXFocusedWindow");
    if (window) frame = reader.frame(*window);
  }
  if (frame && !frame->isEmpty()) return *frame;
  if (coordSystem == focusedWindow)
    return fail("No focused window. Click a window in another app, then click Test again.");
  if (coordSystem == frontWindow) return fail("No front window. Click a window in another app, then click Test again.");
  return fail("Could not convert that mouse location.");
}

Checked<Point> MousePlugin::pickedLocation(Point quartz, std::int64_t coordSystem, std::int64_t origin) const {
  const auto frame = referenceFrame(coordSystem);
  if (!frame) return fail(frame.error());
  return offsetsFromCorner(quartz, *frame, origin);
}

Checked<void> MousePlugin::postMove(Point location) {
  if (!platform_->mouse().post({MouseEventType::mouseMoved, location, 0, 0})) return failWith(kCannotMove);
  return {};
}

// Created where the pointer is now, as a button event of the hardware is.
Checked<void> MousePlugin::postButton(MouseEventType type, std::int64_t clickState, std::int64_t buttonNumber) {
  MouseEvents& mouse = platform_->mouse();
  const auto at = mouse.pointerLocation();
  if (!at || !mouse.post({type, *at, clickState, buttonNumber})) return failWith(kCannotClick);
  return {};
}

// Only dragged events are posted: a drag that holds the button is a
// left-down step, a drag step and a left-up step.
Checked<void> MousePlugin::postDrag(Point target) {
  MouseEvents& mouse = platform_->mouse();
  Clock& clock = platform_->clock();
  const auto start = mouse.pointerLocation();
  if (!start) return failWith(kCannotDrag);
  auto dragged = [&](Point at) { return mouse.post({MouseEventType::leftMouseDragged, at, 0, 0}).ok(); };
  if (!dragged(*start)) return failWith(kCannotDrag);
  clock.sleep(dragStartWait);
  const std::int64_t segments = dragSegments(*start, target);
  for (std::int64_t i = 1; i <= segments; ++i) {
    const double t = static_cast<double>(i) / static_cast<double>(segments);
    if (!dragged({start->x + (target.x - start->x) * t, start->y + (target.y - start->y) * t}))
      return failWith(kCannotDrag);
    clock.sleep(dragStepWait);
  }
  if (!dragged(target)) return failWith(kCannotDrag);
  return {};
}

Checked<void> MousePlugin::postScroll(std::int64_t lines) {
  if (lines < std::numeric_limits<std::int32_t>::min() || lines > std::numeric_limits<std::int32_t>::max())
    return failWith(kCannotScroll);
  if (!platform_->mouse().postScrollWheel(static_cast<std::int32_t>(lines))) return failWith(kCannotScroll);
  return {};
}

PluginResult MousePlugin::runStep(const Step& step, std::int64_t coordSystem) {
  auto target = [&]() -> Checked<Point> {
    const auto frame = referenceFrame(coordSystem);
    if (!frame) return fail(frame.error());
    return location(*frame, step.origin, step.x, step.y);
  };
  // Clicks and presses with a location go there first.
  auto moveFirst = [&]() -> Checked<void> {
    if (!step.hasLocation) return {};
    const auto at = target();
    if (!at) return fail(at.error());
    return postMove(*at);
  };
  auto pointerPlus = [&]() -> Checked<Point> {
    const auto at = platform_->mouse().pointerLocation();
    if (!at) return failWith(step.type == moveBy ? kCannotMove : kCannotDrag);
    return Point{at->x + step.x, at->y + step.y};
  };
  Checked<void> done;
  switch (step.type) {
    case leftClick:
    case rightClick:
    case doubleClick: {
      const bool right = step.type == rightClick;
      const auto down = right ? MouseEventType::rightMouseDown : MouseEventType::leftMouseDown;
      const auto up = right ? MouseEventType::rightMouseUp : MouseEventType::leftMouseUp;
      if (!(done = moveFirst())) break;
      if (!(done = postButton(down, 1, right ? 1 : 0)) || !(done = postButton(up, 1, right ? 1 : 0))) break;
      if (step.type != doubleClick) break;
      platform_->clock().sleep(doubleClickGap);
      if (!(done = postButton(down, 2, 0))) break;
      done = postButton(up, 2, 0);
      break;
    }
    case savePosition: {
      const auto at = platform_->mouse().pointerLocation();
      if (!at) return PluginResult::failure("Could not read the mouse position.");
      std::lock_guard lock(saved().mutex);
      saved().position = *at;
      break;
    }
    case restorePosition: {
      const auto position = savedPosition();
      if (!position)
        return PluginResult::failure("No saved mouse position. Add “Save Current Position” first.");
      done = postMove(*position);
      break;
    }
    case moveTo:
    case dragTo: {
      const auto at = target();
      if (!at) return PluginResult::failure(at.error());
      done = step.type == moveTo ? postMove(*at) : postDrag(*at);
      break;
    }
    case leftDown:
    case rightDown:
      if ((done = moveFirst()))
        done = postButton(step.type == leftDown ? MouseEventType::leftMouseDown : MouseEventType::rightMouseDown, 1,
                      step.type == leftDown ? 0 : 1);
      break;
    case leftUp: done = postButton(MouseEventType::leftMouseUp, 1, 0); break;
    case rightUp: done = postButton(MouseEventType::rightMouseUp, 1, 1); break;
    case moveBy:
    case dragBy: {
      const auto at = pointerPlus();
      if (!at) return PluginResult::failure(at.error());
      done = step.type == moveBy ? postMove(*at) : postDrag(*at);
      break;
    }
    case scrollWheel: done = postScroll(step.wheel); break;
    case scrollWheelBack:
      // The negation of the smallest 64-bit value does not exist; it is out
      // of range either way.
      done = step.wheel == std::numeric_limits<std::int64_t>::min() ? failWith(kCannotScroll) : postScroll(-step.wheel);
      break;
    default: return PluginResult::failure(std::string("Unknown mouse movement: ").append(std::to_string(step.type)));
  }
  if (!done) return PluginResult::failure(done.error());
  return PluginResult::silentSuccess();
}

PluginResult MousePlugin::execute(const ActionData& data) {
  const std::vector<Step> list = steps(data);
  if (list.empty()) return PluginResult::failure(std::string(kNoSteps));
  const std::int64_t coordSystem = resolvedCoordSystem(data);
  if (coordSystem != screen)
    if (auto allowed = requireAccessibility(
            *platform_,
            "Accessibility permission is required for Window and Focus mouse actions. Enable Orla in System "
            "Settings → Privacy & Security → Accessibility.");
        !allowed)
      return PluginResult::failure(allowed.error());
  if (!platform_->supports(Capability::mouseEvents))
    return PluginResult::failure(std::string(kMouseEventsUnavailable));

  return onMainThread(platform_->mainThread(), [&] {
    PluginResult last = PluginResult::silentSuccess();
    for (const Step& step : list) {
      last = runStep(step, coordSystem);
      if (last.isFailure()) return last;
      platform_->clock().sleep(pause(step.pauseAfter));
    }
    if (last.kind() != PluginResult::Kind::silentSuccess) return last;
    std::string report = "Did ";
    report += std::to_string(list.size());
    report += list.size() == 1 ? " mouse movement on " : " mouse movements on ";
    report += placeName(coordSystem);
    report += ".";
    return PluginResult::success(std::move(report));
  });
}

}  // namespace orla
