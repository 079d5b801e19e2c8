// Window tiling: the named places a window can be tiled to, read from what a
// person types, and the arithmetic that turns a place into a frame inside a
// screen's visible frame. The window plugin asks these; they touch nothing.
#pragma once

#include <orla/export.h>

#include <array>
#include <optional>
#include <string_view>

#include <orla/models/geometry.h>

namespace orla ORLA_EXPORT {

class WindowTilePosition {
 public:
  enum Value : unsigned char {
    leftHalf,
    rightHalf,
    topHalf,
    bottomHalf,
    topLeftQuarter,
    topRightQuarter,
    bottomLeftQuarter,
    bottomRightQuarter,
    leftThird,
    centerThird,
    rightThird,
    leftTwoThirds,
    rightTwoThirds,
    center,
    maximize,
  };
  static constexpr std::array<Value, 15> all{
      leftHalf,   rightHalf,         topHalf,     bottomHalf,    topLeftQuarter,
      topRightQuarter, bottomLeftQuarter, bottomRightQuarter, leftThird, centerThird,
      rightThird, leftTwoThirds,     rightTwoThirds, center,     maximize};

  constexpr WindowTilePosition(Value value) : value_(value) {}
  constexpr operator Value() const { return value_; }

  // Reads what a person would type, forgivingly: case, spaces, hyphens,
  // underscores and camel case do not matter, and the usual synonyms are
  // understood. "left", "Left Half", "top-right", "topRight", "upper right
  // quarter", "left third", "middle third", "right 2/3", "left two-thirds",
  // "centre", "maximise", "full screen" all parse. None for anything else,
  // including contradictions such as "left right".
  static std::optional<WindowTilePosition> parse(std::string_view text);

  // "left half", "top right quarter", "left two thirds", ...: a form `parse`
  // reads back.
  std::string_view name() const;

 private:
  Value value_;
};

struct WindowTilingLayouts {
  // A screen's visible frame (without menu bar and Dock) turned from screen
  // coordinates (origin at the bottom left of the primary screen, y up) into
  // accessibility coordinates (origin at its top left, y down).
  static Rect axVisibleFrame(const Rect& visibleFrame, const Rect& primaryScreenFrame);

  // The frame of a window tiled to `position` inside `visibleFrame`, both in
  // accessibility coordinates. Tiles keep `spacing` points from the edges of
  // the visible frame and from each other, so that a left third and a right
  // two-thirds, or four quarters, fill it with even gaps. `center` keeps the
  // window's current size (shrunk to fit inside the spacing).
  static Rect frame(WindowTilePosition position, const Rect& visibleFrame, Size currentSize,
                    double spacing);
};

}  // namespace orla
