#include "plugins/input/mouse_plugin.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using sim::SimWindow;
using sim::TraceEntry;
using M = MousePlugin;

AnyDictionary stepData(std::int64_t type, AnyDictionary more = {}) {
  more.insert_or_assign("moveType", AnyCodable(type));
  return more;
}

ActionData movements(AnyArray steps, ActionData more = {}) {
  more.insert_or_assign("movements", AnyCodable(std::move(steps)));
  return more;
}

TEST(MouseReaders, CoordinateSystem) {
  const std::pair<ActionData, std::int64_t> cases[] = {
      {{}, M::screen},
      {{{"subAction", "focus"}, {"coordSystem", 2}}, M::focusedWindow},
      {{{"subAction", "focusedWindow"}}, M::focusedWindow},
      {{{"subAction", "mainWindow"}}, M::frontWindow},
      {{{"subAction", "window"}}, M::frontWindow},
      {{{"subAction", "Window"}, {"coordSystem", 3}}, M::focusedWindow},
      {{{"Action", 2}}, M::frontWindow},
      {{{"movements", AnyArray{}}, {"actionType", 3}}, M::screen},
      {{{"actionType", 3}}, M::focusedWindow},
      {{{"coordSystem", 7}}, M::screen},
  };
  for (const auto& [data, system] : cases) EXPECT_EQ(M::resolvedCoordSystem(data), system);
  M plugin(makeNativePlatform());
  EXPECT_FALSE(plugin.requiresAccessibility({{"coordSystem", 1}}));
  EXPECT_TRUE(plugin.requiresAccessibility({{"subAction", "window"}}));
  EXPECT_TRUE(plugin.requiresAccessibility({{"coordSystem", 3}}));
}

TEST(MouseReaders, OriginNames) {
  const std::tuple<const char*, std::int64_t, std::int64_t> cases[] = {
      {"top/right", 0, M::topRight},  {"TOPRIGHT", 3, M::topRight},     {"bottomRight", 0, M::bottomRight},
      {"Bottom/Left", 0, M::bottomLeft}, {"topleft", 2, M::topLeft},   {"top right", 2, 2},
      {"", 3, 3},
  };
  for (const auto& [text, fallback, origin] : cases) EXPECT_EQ(M::originID(text, fallback), origin) << text;
}

TEST(MouseReaders, Steps) {
  const ActionData data{{"Movements",
                         AnyArray{stepData(0, {{"x", 10.5}, {"y", 4}, {"Origin", 0}, {"origin", "top/right"}}),
                                  AnyDictionary{{"Type", 3}},
                                  "not a step",
                                  stepData(11, {{"Wheel", -3}, {"wheel", 9}, {"Pause", 0.2}}),
                                  stepData(5, {{"XValue", 7}, {"y", true}, {"pauseAfter", 1}, {"Pause", 9}}),
                                  stepData(8, {{"x", "12"}, {"Origin", 2}, {"origin", "middle"}})}}};
  const std::vector<M::Step> expected{
      {.type = 0, .x = 10.5, .y = 4, .origin = M::topRight, .hasLocation = true},
      {.type = 11, .wheel = -3, .pauseAfter = 0.2},
      {.type = 5, .x = 7, .y = 1, .pauseAfter = 1, .hasLocation = true},
      {.type = 8, .origin = M::bottomRight},
  };
  EXPECT_EQ(M::steps(data), expected);
  M plugin(makeNativePlatform());
  EXPECT_EQ(plugin.validate({}), "Add at least one mouse movement (Click, Move, Drag, …).");
  EXPECT_EQ(plugin.validate({{"actionType", 0}}), "Add at least one mouse movement (Click, Move, Drag, …).");
  EXPECT_EQ(plugin.validate(movements({stepData(99)})), std::nullopt);
}

TEST(MouseReaders, PausesAndDragLengths) {
  const std::pair<double, std::chrono::microseconds> pauses[] = {
      {0, std::chrono::milliseconds(50)},  {-1, std::chrono::milliseconds(50)},
      {0.25, std::chrono::milliseconds(250)}, {12, std::chrono::seconds(5)},
      {5, std::chrono::seconds(5)},        {0.001, std::chrono::milliseconds(1)},
  };
  for (const auto& [seconds, pause] : pauses) EXPECT_EQ(M::pause(seconds), pause) << seconds;
  const std::tuple<Point, Point, std::int64_t> drags[] = {
      {{0, 0}, {10, 0}, 1},    {{0, 0}, {0, -100}, 3},   {{5, 5}, {5, 5}, 1},
      {{0, 0}, {64, 63}, 2},   {{0, 0}, {1e300, 0}, M::mostDragSegments},
  };
  for (const auto& [from, to, segments] : drags) EXPECT_EQ(M::dragSegments(from, to), segments);
}

TEST(MouseReaders, PickedOffsetsAreTheInverseOfLocations) {
  const Rect frame{100, 50, 800, 600};
  for (std::int64_t origin : {M::topLeft, M::topRight, M::bottomRight, M::bottomLeft}) {
    const Point at = M::location(frame, origin, 30, 40);
    EXPECT_EQ(M::offsetsFromCorner(at, frame, origin), (Point{30, 40})) << origin;
  }
  EXPECT_EQ(M::quartzPoint({10, 0}, {0, 0, 1440, 900}), (Point{10, 900}));
  EXPECT_EQ(M::quartzPoint({10, 1000}, {0, 0, 1440, 900}), (Point{10, -100}));
}

// TextEdit in front: a document window (the main one) behind a floating
// panel (the focused one), on one 1920 by 1080 display. The pointer starts
// at (960, 540).
class MouseTest : public testing::SimTest {
 protected:
  static constexpr ProcessId textEdit = 201;

  MouseTest() {
    M::resetSavedPosition();
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", textEdit));
    desktop->setFrontmost(textEdit);
    desktop->ui().setWindows(textEdit, {SimWindow{.title = "Find", .frame = {1000, 700, 300, 100}, .subrole = "AXFloatingWindow"},
                                        SimWindow{.title = "Doc", .frame = {100, 50, 800, 600}}});
  }
  ~MouseTest() override { M::resetSavedPosition(); }

  PluginResult run(const ActionData& data) { return M(platform).execute(data); }
  std::vector<std::string> mouse() const {
    std::vector<std::string> out;
    for (const TraceEntry& e : desktop->trace("mouse")) out.push_back(e.text);
    return out;
  }
  std::vector<std::string> sleeps() const {
    std::vector<std::string> out;
    for (const TraceEntry& e : desktop->trace("sleep")) out.push_back(e.text);
    return out;
  }
};

TEST_F(MouseTest, CornerOffsetsOnEachCoordinateSystem) {
  struct Case {
    const char* system;
    const char* origin;
    const char* moved;
  };
  const Case cases[] = {
      {"screen", "top/left", "moved (30, 40)"},
      {"screen", "top/right", "moved (1890, 40)"},
      {"screen", "bottom/right", "moved (1890, 1040)"},
      {"screen", "bottom/left", "moved (30, 1040)"},
      {"window", "top/left", "moved (130, 90)"},
      {"window", "top/right", "moved (870, 90)"},
      {"mainWindow", "bottom/right", "moved (870, 610)"},
      {"window", "bottom/left", "moved (130, 610)"},
      {"focus", "top/left", "moved (1030, 740)"},
      {"focus", "top/right", "moved (1270, 740)"},
      {"focusedWindow", "bottom/right", "moved (1270, 760)"},
      {"focus", "bottom/left", "moved (1030, 760)"},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    EXPECT_TRUE(run(movements({stepData(M::moveTo, {{"x", 30}, {"y", 40}, {"origin", c.origin}})},
                              {{"subAction", c.system}}))
                    .hasMessage());
    EXPECT_EQ(mouse(), std::vector<std::string>{c.moved}) << c.system << " " << c.origin;
  }
}

TEST_F(MouseTest, ClicksPressAtThePointerAfterMovingThere) {
  EXPECT_EQ(run(movements({stepData(M::leftClick, {{"x", 10}, {"y", 20}}), stepData(M::rightClick),
                           stepData(M::doubleClick), stepData(M::leftDown, {{"x", 5}}), stepData(M::leftUp),
                           stepData(M::rightDown), stepData(M::rightUp)})),
            PluginResult::success("Did 7 mouse movements on the screen."));
  const std::vector<std::string> expected{
      "moved (10, 20)",
      "leftDown (10, 20) click=1 button=0",  "leftUp (10, 20) click=1 button=0",
      "rightDown (10, 20) click=1 button=1", "rightUp (10, 20) click=1 button=1",
      "leftDown (10, 20) click=1 button=0",  "leftUp (10, 20) click=1 button=0",
      "leftDown (10, 20) click=2 button=0",  "leftUp (10, 20) click=2 button=0",
      "moved (5, 0)",
      "leftDown (5, 0) click=1 button=0",    "leftUp (5, 0) click=1 button=0",
      "rightDown (5, 0) click=1 button=1",   "rightUp (5, 0) click=1 button=1",
  };
  EXPECT_EQ(mouse(), expected);
  // The double click waits 50 ms between its clicks; each step is followed
  // by the default pause.
  EXPECT_EQ(sleeps(), (std::vector<std::string>{"50ms", "50ms", "50ms", "50ms", "50ms", "50ms", "50ms", "50ms"}));
}

TEST_F(MouseTest, DragsPostOnlyDraggedEventsWithTheirWaits) {
  desktop->ui().setPointer({100, 100});
  EXPECT_EQ(run(movements({stepData(M::dragBy, {{"x", 10}, {"pauseAfter", 0.5}})})),
            PluginResult::success("Did 1 mouse movement on the screen."));
  EXPECT_EQ(mouse(), (std::vector<std::string>{"leftDragged (100, 100)", "leftDragged (110, 100)",
                                               "leftDragged (110, 100)"}));
  EXPECT_EQ(sleeps(), (std::vector<std::string>{"50ms", "20ms", "500ms"}));

  desktop->clearTrace();
  EXPECT_EQ(run(movements({stepData(M::dragTo, {{"x", 110}, {"y", 4}})})),
            PluginResult::success("Did 1 mouse movement on the screen."));
  EXPECT_EQ(mouse(), (std::vector<std::string>{"leftDragged (110, 100)", "leftDragged (110, 68)",
                                               "leftDragged (110, 36)", "leftDragged (110, 4)",
                                               "leftDragged (110, 4)"}))
      << "96 points: three intermediates, the last of them at the target, and the target";
  desktop->clearTrace();
  run(movements({stepData(M::dragBy, {{"x", -1000}, {"y", 5}})}));
  EXPECT_EQ(mouse().size(), 33u) << "1000 points: 31 segments, the start and the target";
  EXPECT_EQ(desktop->ui().pointer(), (Point{-890, 9}));
}

TEST_F(MouseTest, PausesAreClamped) {
  run(movements({stepData(M::moveBy, {{"pauseAfter", 0}}), stepData(M::moveBy, {{"pauseAfter", -2}}),
                 stepData(M::moveBy, {{"Pause", 12}}), stepData(M::moveBy, {{"pauseAfter", 0.75}})}));
  EXPECT_EQ(sleeps(), (std::vector<std::string>{"50ms", "50ms", "5000ms", "750ms"}));
}

TEST_F(MouseTest, SavedPositionLastsAcrossActions) {
  const ActionData restore = movements({stepData(M::restorePosition)});
  EXPECT_EQ(run(restore), PluginResult::failure("No saved mouse position. Add “Save Current Position” first."));
  desktop->ui().setPointer({12, 34});
  EXPECT_EQ(run(movements({stepData(M::savePosition), stepData(M::moveTo, {{"x", 500}, {"y", 500}})})),
            PluginResult::success("Did 2 mouse movements on the screen."));
  EXPECT_EQ(desktop->ui().pointer(), (Point{500, 500}));
  EXPECT_EQ(run(restore), PluginResult::success("Did 1 mouse movement on the screen."));
  EXPECT_EQ(desktop->ui().pointer(), (Point{12, 34}));
  EXPECT_EQ(M::savedPosition(), (Point{12, 34}));
}

TEST_F(MouseTest, ScrollsWithinThirtyTwoBits) {
  constexpr std::int64_t big = std::int64_t{1} << 31;
  const std::pair<AnyDictionary, PluginResult> cases[] = {
      {stepData(M::scrollWheel, {{"Wheel", 3}}), PluginResult::success("Did 1 mouse movement on the screen.")},
      {stepData(M::scrollWheelBack, {{"wheel", 3}}), PluginResult::success("Did 1 mouse movement on the screen.")},
      {stepData(M::scrollWheel, {{"Wheel", -big}}), PluginResult::success("Did 1 mouse movement on the screen.")},
      {stepData(M::scrollWheel, {{"Wheel", big}}), PluginResult::failure("Could not scroll.")},
      {stepData(M::scrollWheelBack, {{"Wheel", -big}}), PluginResult::failure("Could not scroll.")},
      {stepData(M::scrollWheelBack, {{"Wheel", std::numeric_limits<std::int64_t>::min()}}),
       PluginResult::failure("Could not scroll.")},
      {stepData(M::scrollWheel, {{"Wheel", std::numeric_limits<std::int64_t>::max()}}),
       PluginResult::failure("Could not scroll.")},
  };
  for (const auto& [step, result] : cases) EXPECT_EQ(run(movements({step})), result);
  EXPECT_EQ(desktop->ui().scrolls(), (std::vector<std::int32_t>{3, -3, std::numeric_limits<std::int32_t>::min()}));
}

TEST_F(MouseTest, WindowModesNeedPermissionAndAWindow) {
  const ActionData click = movements({stepData(M::leftClick, {{"x", 1}})}, {{"subAction", "focus"}});
  EXPECT_EQ(run(click), PluginResult::success("Did 1 mouse movement on the focused window."));
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(run(click), PluginResult::failure("Accessibility permission is required for Window and Focus mouse "
                                              "actions. Enable Orla in System Settings → Privacy & Security → "
                                              "Accessibility."));
  EXPECT_EQ(run(movements({stepData(M::leftClick, {{"x", 1}})})),
            PluginResult::success("Did 1 mouse movement on the screen."))
      << "the screen needs no permission";
  desktop->setAccessibilityTrusted(true);
  // Only the panel is left: it has the focus but is no main window.
  desktop->ui().setWindows(textEdit, {SimWindow{.title = "Find", .frame = {1000, 700, 300, 100}, .subrole = "AXFloatingWindow"}});
  EXPECT_EQ(run(movements({stepData(M::moveTo)}, {{"coordSystem", 2}})),
            PluginResult::success("Did 1 mouse movement on the front window."))
      << "without a main window the first window counts";
  desktop->ui().setWindows(textEdit, {});
  EXPECT_EQ(run(movements({stepData(M::moveTo)}, {{"coordSystem", 2}})),
            PluginResult::failure("No front window. Click a window in another app, then click Test again."));
  EXPECT_EQ(run(click), PluginResult::failure("No focused window. Click a window in another app, then click Test again."));
  EXPECT_EQ(run(movements({stepData(M::leftClick)}, {{"coordSystem", 3}})),
            PluginResult::success("Did 1 mouse movement on the focused window."))
      << "a click without a location needs no window";
}

TEST_F(MouseTest, FailuresEndTheRun) {
  EXPECT_EQ(run(movements({stepData(M::moveBy), stepData(15), stepData(M::moveBy)})),
            PluginResult::failure("Unknown mouse movement: 15"));
  EXPECT_EQ(mouse().size(), 1u);
  EXPECT_EQ(run({}), PluginResult::failure("Add at least one mouse movement (Click, Move, Drag, …)."));

  desktop->ui().failMouseEventsAfter(2);
  EXPECT_EQ(run(movements({stepData(M::dragBy, {{"x", 100}})})), PluginResult::failure("Could not drag the mouse."));
  desktop->ui().failMouseEventsAfter(0);
  EXPECT_EQ(run(movements({stepData(M::leftClick)})), PluginResult::failure("Could not send the mouse click."));
  EXPECT_EQ(run(movements({stepData(M::moveTo)})), PluginResult::failure("Could not move the mouse."));
  EXPECT_EQ(run(movements({stepData(M::scrollWheel)})), PluginResult::failure("Could not scroll."));
  desktop->ui().failMouseEventsAfter(std::nullopt);
  desktop->setEventSourcesAvailable(false);
  EXPECT_EQ(run(movements({stepData(M::moveBy)})), PluginResult::failure("Could not move the mouse."));
  EXPECT_EQ(run(movements({stepData(M::savePosition)})), PluginResult::failure("Could not read the mouse position."));

  // A native desktop without a mouse says so; one with a mouse (X11) is the
  // desktop suites' to click on, not this test's.
  auto native = makeNativePlatform();
  if (!native->supports(Capability::mouseEvents)) {
    EXPECT_EQ(M(native).execute(movements({stepData(M::leftClick)})),
              PluginResult::failure(std::string(kMouseEventsUnavailable)));
  }
}

}  // namespace
}  // namespace orla
