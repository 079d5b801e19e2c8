// Displays: the screens attached to the desktop and where they are.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string_view>
#include <vector>

#include <orla/models/geometry.h>

namespace orla ORLA_EXPORT {

// One screen, in screen coordinates: origin at the bottom left of the
// primary screen, y growing upwards. The visible frame leaves out the menu
// bar and the Dock.
struct Screen {
  Rect frame;
  Rect visibleFrame;
  friend bool operator==(const Screen&, const Screen&) = default;
};

// The sentence a desktop that cannot tell its screens gives.
inline constexpr std::string_view kDisplaysUnavailable =
    "The screens cannot be read on this desktop in this build of Orla.";

class Displays {
 public:
  virtual ~Displays() = default;
  // The bounds of the main display (the one with the menu bar) in event
  // coordinates: origin at its top left, y growing downwards, so its origin
  // is (0, 0). None when the desktop has no display.
  virtual std::optional<Rect> mainDisplayBounds() const = 0;
  // Every screen, the primary one (with the menu bar) first.
  virtual std::vector<Screen> screens() const = 0;
  // The screen with the keyboard focus, which need not be the primary one.
  virtual std::optional<Screen> mainScreen() const = 0;
};

}  // namespace orla
