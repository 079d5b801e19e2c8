#include <orla/models/window_tiling.h>

#include <gtest/gtest.h>

namespace orla {
namespace {

using P = WindowTilePosition;

TEST(WindowTilePosition, ParsesWhatPeopleType) {
  const std::pair<const char*, P::Value> cases[] = {
      {"left", P::leftHalf},
      {"Left Half", P::leftHalf},
      {"  right  ", P::rightHalf},
      {"leftHalf", P::leftHalf},
      {"TOP", P::topHalf},
      {"bottom_half", P::bottomHalf},
      {"top-right", P::topRightQuarter},
      {"topRight", P::topRightQuarter},
      {"top/right", P::topRightQuarter},
      {"right top", P::topRightQuarter},
      {"upper left quarter", P::topLeftQuarter},
      {"lower-left", P::bottomLeftQuarter},
      {"bottom right corner", P::bottomRightQuarter},
      {"left third", P::leftThird},
      {"first third", P::leftThird},
      {"middle third", P::centerThird},
      {"centerThird", P::centerThird},
      {"last 1/3", P::rightThird},
      {"left two thirds", P::leftTwoThirds},
      {"left two-thirds", P::leftTwoThirds},
      {"right 2/3", P::rightTwoThirds},
      {"right2/3", P::rightTwoThirds},
      {"rightTwoThirds", P::rightTwoThirds},
      {"center", P::center},
      {"Centre", P::center},
      {"middle", P::center},
      {"maximize", P::maximize},
      {"Maximise", P::maximize},
      {"full screen", P::maximize},
      {"fill", P::maximize},
  };
  for (const auto& [text, expected] : cases) {
    auto parsed = P::parse(text);
    ASSERT_TRUE(parsed) << text;
    EXPECT_EQ(*parsed, expected) << text;
  }
}

TEST(WindowTilePosition, RejectsWhatIsNoPlace) {
  for (const char* text : {"", "   ", "left right", "top bottom", "sideways", "top third", "center half",
                           "two", "left two", "maximize left", "top left half", "quarter", "third",
                           "first", "left quarter", "links"})
    EXPECT_FALSE(P::parse(text)) << text;
}

TEST(WindowTilePosition, EveryNameReadsBack) {
  for (P::Value value : P::all) {
    const P position(value);
    auto parsed = P::parse(position.name());
    ASSERT_TRUE(parsed) << position.name();
    EXPECT_EQ(*parsed, value) << position.name();
  }
}

TEST(WindowTilingLayouts, VisibleFrameTurnsIntoAccessibilityCoordinates) {
  const Rect primary{0, 0, 1440, 900};
  // Menu bar of 25 points at the top, Dock of 60 at the bottom.
  EXPECT_EQ(WindowTilingLayouts::axVisibleFrame({0, 60, 1440, 815}, primary), (Rect{0, 25, 1440, 815}));
  // A second screen to the right whose top is 200 points above the primary's.
  EXPECT_EQ(WindowTilingLayouts::axVisibleFrame({1440, -820, 1080, 1920}, primary),
            (Rect{1440, -200, 1080, 1920}));
}

TEST(WindowTilingLayouts, TilesKeepTheSpacingOnAScreenAwayFromTheOrigin) {
  // A visible frame that starts neither at x 0 nor at y 0 (Dock on the left,
  // menu bar on top): 1832 wide leaves 1808 for two halves and 1800 for
  // three thirds once the gaps are taken.
  const Rect v{80, 25, 1832, 1055};
  const Size current{600, 400};
  const std::pair<P::Value, Rect> cases[] = {
      {P::leftHalf, {88, 33, 904, 1039}},
      {P::rightHalf, {1000, 33, 904, 1039}},
      {P::topHalf, {88, 33, 1816, 515.5}},
      {P::bottomHalf, {88, 556.5, 1816, 515.5}},
      {P::topLeftQuarter, {88, 33, 904, 515.5}},
      {P::bottomRightQuarter, {1000, 556.5, 904, 515.5}},
      {P::leftThird, {88, 33, 600, 1039}},
      {P::centerThird, {696, 33, 600, 1039}},
      {P::rightThird, {1304, 33, 600, 1039}},
      {P::leftTwoThirds, {88, 33, 1208, 1039}},
      {P::rightTwoThirds, {696, 33, 1208, 1039}},
      {P::maximize, {88, 33, 1816, 1039}},
      {P::center, {696, 352.5, 600, 400}},
  };
  for (const auto& [position, expected] : cases)
    EXPECT_EQ(WindowTilingLayouts::frame(position, v, current, 8), expected) << P(position).name();
}

TEST(WindowTilingLayouts, NeighbouringTilesLeaveExactlyTheSpacingAndStayInside) {
  const Rect v{-1920, 200, 1920, 1080};
  const double s = 8;
  auto frame = [&](P::Value p) { return WindowTilingLayouts::frame(p, v, {}, s); };
  EXPECT_DOUBLE_EQ(frame(P::rightTwoThirds).x - frame(P::leftThird).maxX(), s);
  EXPECT_DOUBLE_EQ(frame(P::rightThird).x - frame(P::leftTwoThirds).maxX(), s);
  EXPECT_DOUBLE_EQ(frame(P::bottomLeftQuarter).y - frame(P::topLeftQuarter).maxY(), s);
  EXPECT_DOUBLE_EQ(frame(P::topRightQuarter).x - frame(P::topLeftQuarter).maxX(), s);
  for (P::Value p : P::all) {
    const Rect f = frame(p);
    EXPECT_GE(f.x, v.x + s) << P(p).name();
    EXPECT_GE(f.y, v.y + s) << P(p).name();
    EXPECT_LE(f.maxX(), v.maxX() - s + 1e-9) << P(p).name();
    EXPECT_LE(f.maxY(), v.maxY() - s + 1e-9) << P(p).name();
  }
}

TEST(WindowTilingLayouts, CenterShrinksAWindowTooBigAndSizesOneWithoutASize) {
  const Rect v{0, 25, 1000, 775};
  EXPECT_EQ(WindowTilingLayouts::frame(P::center, v, {5000, 300}, 10), (Rect{10, 262.5, 980, 300}));
  // Two thirds of the room inside the spacing (980 by 755), centered.
  const Rect unknown = WindowTilingLayouts::frame(P::center, v, {0, 0}, 10);
  EXPECT_NEAR(unknown.width, 653.333, 1e-3);
  EXPECT_NEAR(unknown.height, 503.333, 1e-3);
  EXPECT_NEAR(unknown.x + unknown.width / 2, 500, 1e-9);
  EXPECT_NEAR(unknown.y + unknown.height / 2, 412.5, 1e-9);
}

}  // namespace
}  // namespace orla
