// The screens as the desktop describes them: frames in screen coordinates
// (origin at the primary screen's bottom left), visible frames inside them,
// the main display's bounds in event coordinates.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/platform/desktop/desktop_backends.h"

namespace orla::desktop_testing {
namespace {

template <class Backend>
using ScreensConformance = DesktopTest<Backend>;
TYPED_TEST_SUITE(ScreensConformance, DesktopBackends, DesktopBackendNames);

TYPED_TEST(ScreensConformance, ThePrimaryScreenComesFirstAndHoldsItsVisibleFrame) {
  ASSERT_TRUE(this->platform().supports(Capability::displays));
  Displays& displays = this->platform().displays();
  const auto bounds = displays.mainDisplayBounds();
  ASSERT_TRUE(bounds);
  EXPECT_EQ(bounds->origin(), (Point{0, 0}));
  const auto screens = displays.screens();
  ASSERT_FALSE(screens.empty());
  EXPECT_EQ(screens.front().frame.origin(), (Point{0, 0})) << "screen coordinates start at the primary screen";
  EXPECT_EQ(screens.front().frame.size(), bounds->size());
  for (const Screen& screen : screens) {
    EXPECT_FALSE(screen.frame.isEmpty());
    EXPECT_FALSE(screen.visibleFrame.isEmpty());
    EXPECT_GE(screen.visibleFrame.x, screen.frame.x);
    EXPECT_GE(screen.visibleFrame.y, screen.frame.y);
    EXPECT_LE(screen.visibleFrame.maxX(), screen.frame.maxX());
    EXPECT_LE(screen.visibleFrame.maxY(), screen.frame.maxY());
  }
  const auto main = displays.mainScreen();
  ASSERT_TRUE(main);
  EXPECT_NE(std::find(screens.begin(), screens.end(), *main), screens.end());
}

TYPED_TEST(ScreensConformance, ThePointerStaysWhereItWasPutAnywhereOnTheMainDisplay) {
  const auto bounds = this->platform().displays().mainDisplayBounds();
  ASSERT_TRUE(bounds);
  MouseEvents& mouse = this->platform().mouse();
  for (const Point p : {Point{0, 0}, Point{12, 34}, Point{bounds->width - 1, bounds->height - 1}}) {
    ASSERT_TRUE(mouse.post({MouseEventType::mouseMoved, p, 0, 0}));
    auto location = mouse.pointerLocation();
    ASSERT_TRUE(location) << location.error();
    EXPECT_EQ(*location, p);
  }
}

}  // namespace
}  // namespace orla::desktop_testing
