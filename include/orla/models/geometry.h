// Points, sizes and rectangles in screen points, as the desktop's window,
// event and screen interfaces exchange them. Which way y grows depends on
// the interface: the accessibility interface and events measure from the
// top left of the primary screen, screens (`Displays`) from its bottom left.
#pragma once

#include <orla/export.h>

namespace orla ORLA_EXPORT {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  Point origin() const { return {x, y}; }
  Size size() const { return {width, height}; }
  double maxX() const { return x + width; }
  double maxY() const { return y + height; }
  bool isEmpty() const { return !(width > 0) || !(height > 0); }
  bool contains(Point p) const { return p.x >= x && p.x < maxX() && p.y >= y && p.y < maxY(); }

  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace orla
