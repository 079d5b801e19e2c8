#include "plugins/input/window_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using sim::SimScrollBar;
using sim::SimWindow;
using W = WindowPlugin;

TEST(WindowReaders, CommandNumber) {
  const std::pair<ActionData, std::int64_t> cases[] = {
      {{}, W::zoom},
      {{{"subAction", "toggleToolbar"}}, W::toolbar},
      {{{"subAction", "scrollRightTo"}, {"actionType", 2}}, W::scrollRightEnd},
      {{{"subAction", "scrollDownTo"}}, W::scrollBottom},
      {{{"subAction", "scrollLeftTo"}, {"actionType", 2}}, W::minimize},
      {{{"subAction", "scrollLeftTo"}}, W::zoom},
      {{{"subAction", "scrollLeftEnd"}}, W::scrollLeftEnd},
      {{{"subAction", "Zoom"}, {"Action", 7}}, W::closeAll},
      {{{"subAction", "resizeRelativePercent"}}, W::resizePercent},
      {{{"position", "left"}}, W::tile},
      {{{"tile", " top-right "}}, W::tile},
      {{{"tile", "left"}, {"actionType", 3}}, W::minimizeAll},
      {{{"tile", "left"}, {"Action", "8"}}, W::move},
      {{{"tile", "sideways"}}, W::zoom},
      {{{"actionType", 25}}, W::tile},
      {{{"actionType", -4}}, -4},
  };
  for (const auto& [data, command] : cases) EXPECT_EQ(W::resolvedActionType(data), command);
}

TEST(WindowReaders, NumbersAndValidation) {
  const std::pair<ActionData, double> numbers[] = {
      {{}, 0},
      {{{"x", 12}}, 12},
      {{{"x", 12.5}}, 12.5},
      {{{"x", true}}, 1},
      {{{"x", " 7 "}}, 7},
      {{{"x", "seven"}, {"XValue", 3}}, 3},
      {{{"XValue", -40}}, -40},
  };
  for (const auto& [data, value] : numbers) EXPECT_EQ(W::number(data, {"x", "XValue"}), value);

  W plugin(makeNativePlatform());
  EXPECT_EQ(plugin.validate({{"actionType", 26}}), "Unknown window action. Choose one from the menu.");
  EXPECT_EQ(plugin.validate({{"actionType", -1}}), "Unknown window action. Choose one from the menu.");
  EXPECT_EQ(plugin.validate({{"actionType", 25}}), "Choose a tile position, for example left or right.");
  EXPECT_EQ(plugin.validate({{"actionType", 25}, {"position", "left third"}}), std::nullopt);
  EXPECT_EQ(W::successText(25), "Tiled the front window");
  EXPECT_EQ(W::successText(99), "Did the window command");
  // A native desktop without windows to act on says so; one with them (X11)
  // is the desktop suites' to act on, not this test's.
  if (!makeNativePlatform()->supports(Capability::accessibility)) {
    EXPECT_EQ(plugin.execute({{"subAction", "zoom"}}), PluginResult::failure(std::string(kAccessibilityUnavailable)));
  }
}

// TextEdit in front with three windows, front to back: "Doc" with every
// button and both scroll bars, "Notes", and "Old", minimized.
class WindowTest : public testing::SimTest {
 protected:
  static constexpr ProcessId textEdit = 201;

  WindowTest() {
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", textEdit));
    desktop->setFrontmost(textEdit);
    SimWindow doc{.title = "Doc", .frame = {100, 100, 800, 600}};
    doc.buttons = {"close", "minimize", "zoom", "toolbar"};
    doc.verticalScrollBar = SimScrollBar{};
    doc.horizontalScrollBar = SimScrollBar{.value = 0.5, .arrows = false, .pages = false};
    SimWindow notes{.title = "Notes", .frame = {300, 200, 400, 300}};
    notes.buttons = {"close"};
    SimWindow old{.title = "Old", .frame = {0, 30, 500, 400}, .minimized = true};
    desktop->ui().setWindows(textEdit, {doc, notes, old});
  }

  PluginResult run(const ActionData& data) { return W(platform).execute(data); }
  std::vector<SimWindow> windows() const { return desktop->ui().windows(textEdit); }
  SimWindow front() const { return windows().front(); }
  std::vector<std::string> titles() const {
    std::vector<std::string> out;
    for (const SimWindow& w : windows()) out.push_back(w.title);
    return out;
  }
  static PluginResult done(std::string text) { return PluginResult::success(text + " in TextEdit."); }
};

TEST_F(WindowTest, PermissionFrontWindowAndAppName) {
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(run({}), PluginResult::failure("Accessibility permission is required for window actions. Enable Orla "
                                           "in System Settings → Privacy & Security → Accessibility."));
  desktop->setAccessibilityTrusted(true);
  desktop->ui().setWindows(textEdit, {});
  EXPECT_EQ(run({}), PluginResult::failure(
                         "No front window to act on. Click a window in another app, then click Test again."));
  desktop->setFrontmost(std::nullopt);
  EXPECT_EQ(run({}), PluginResult::failure(
                         "No front window to act on. Click a window in another app, then click Test again."));
  RunningApplication nameless = app("", "org.example.tool", 300);
  desktop->addApplication(nameless);
  desktop->setFrontmost(300);
  desktop->ui().setWindows(300, {SimWindow{.title = "T"}});
  EXPECT_EQ(run({{"subAction", "move"}}), PluginResult::success("Moved the front window in the front app."));
}

TEST_F(WindowTest, ButtonsOfTheFrontWindowAndOfEveryWindow) {
  EXPECT_EQ(run({{"subAction", "toolbar"}}), done("Toggled the toolbar"));
  EXPECT_FALSE(front().toolbarVisible);
  EXPECT_EQ(run({{"subAction", "zoom"}}), done("Zoomed the front window"));
  EXPECT_EQ(front().frame, (Rect{0, 25, 1920, 1055}));
  EXPECT_EQ(run({{"subAction", "minimize"}}), done("Minimized the front window"));
  EXPECT_TRUE(windows()[0].minimized);
  EXPECT_EQ(run({{"subAction", "showAll"}}), done("Showed every window"));
  for (const SimWindow& w : windows()) EXPECT_FALSE(w.minimized) << w.title;
  EXPECT_EQ(run({{"subAction", "minimizeAll"}}), done("Minimized every window"));
  for (const SimWindow& w : windows()) EXPECT_TRUE(w.minimized) << w.title;
  run({{"subAction", "showAll"}});

  // "Notes" has no zoom or toolbar button: the others are zoomed all the same.
  EXPECT_EQ(run({{"subAction", "zoomAll"}}), PluginResult::failure("This window does not have that button."));
  EXPECT_EQ(windows()[0].frame, (Rect{100, 100, 800, 600})) << "zoomed back";
  EXPECT_EQ(windows()[2].frame, (Rect{0, 25, 1920, 1055}));
  desktop->ui().setWindows(textEdit, {SimWindow{.title = "Plain"}});
  EXPECT_EQ(run({{"subAction", "toolbar"}}), PluginResult::failure("This window does not have that button."));

  EXPECT_EQ(run({{"subAction", "close"}}), done("Closed the front window"));
  EXPECT_TRUE(windows().empty());
}

TEST_F(WindowTest, CloseEveryWindow) {
  EXPECT_EQ(run({{"actionType", 7}}), done("Closed every window"));
  EXPECT_TRUE(windows().empty());
}

TEST_F(WindowTest, MovesAndResizesWithAMinimumSize) {
  EXPECT_EQ(run({{"subAction", "move"}, {"x", 40}, {"y", 60.5}}), done("Moved the front window"));
  EXPECT_EQ(front().frame, (Rect{40, 60.5, 800, 600}));
  EXPECT_EQ(run({{"actionType", 9}, {"XValue", -10}, {"YValue", 20}}), done("Moved the front window"));
  EXPECT_EQ(front().frame, (Rect{30, 80.5, 800, 600}));
  EXPECT_EQ(run({{"subAction", "resize"}, {"width", 10}, {"height", 10}}), done("Resized the front window"));
  EXPECT_EQ(front().frame, (Rect{30, 80.5, 50, 50}));
  EXPECT_EQ(run({{"subAction", "resizeRelative"}, {"width", 100}, {"height", -500}}), done("Resized the front window"));
  EXPECT_EQ(front().frame, (Rect{30, 80.5, 150, 50}));
  EXPECT_EQ(run({{"subAction", "resizePercent"}, {"widthPercent", 50}, {"heightPercent", 100}}),
            done("Resized the front window"));
  EXPECT_EQ(front().frame, (Rect{30, 80.5, 960, 1055})) << "half the width of the visible frame, all its height";
}

TEST_F(WindowTest, ResizeKeepsTheCornerNamedByOrigin) {
  // Doc is at (100, 100) and 800 by 600; it becomes 500 by 200.
  const std::pair<int, Rect> cases[] = {
      {0, {100, 100, 500, 200}},  // top left stays at (100, 100)
      {1, {400, 100, 500, 200}},  // top right stays at (900, 100)
      {2, {400, 500, 500, 200}},  // bottom right stays at (900, 700)
      {3, {100, 500, 500, 200}},  // bottom left stays at (100, 700)
  };
  for (const auto& [origin, frame] : cases) {
    desktop->ui().setWindows(textEdit, {SimWindow{.title = "Doc", .frame = {100, 100, 800, 600}}});
    EXPECT_EQ(run({{"subAction", "resize"}, {"width", 500}, {"height", 200}, {"Origin", origin}}),
              done("Resized the front window"));
    EXPECT_EQ(front().frame, frame) << "origin " << origin;
  }
}

TEST_F(WindowTest, CenterAndFillUseTheMainScreensVisibleFrame) {
  EXPECT_EQ(run({{"subAction", "center"}}), done("Centered the front window"));
  EXPECT_EQ(front().frame, (Rect{560, 252.5, 800, 600}));
  run({{"subAction", "move"}, {"x", 0}, {"y", 0}});
  EXPECT_EQ(run({{"subAction", "center"}, {"centerH", true}}), done("Centered the front window"));
  EXPECT_EQ(front().frame, (Rect{560, 0, 800, 600}));
  EXPECT_EQ(run({{"subAction", "center"}, {"centerH", false}, {"centerV", 1}}), done("Centered the front window"));
  EXPECT_EQ(front().frame, (Rect{560, 252.5, 800, 600}));
  EXPECT_EQ(run({{"subAction", "resizeToScreen"}}), done("Resized the front window to the screen"));
  EXPECT_EQ(front().frame, (Rect{0, 25, 1920, 1055}));
}

TEST_F(WindowTest, TilesOnTheMainScreenWhereverTheWindowIs) {
  // The primary screen, and a second one to its right whose top is 180
  // points higher, with the Dock on its left: its visible frame starts
  // neither at the screen's origin nor at the desktop's.
  desktop->ui().setScreens({{{0, 0, 1440, 900}, {0, 25, 1440, 875}},
                            {{1440, -180, 1920, 1080}, {1520, -155, 1840, 1055}}});
  desktop->ui().setMainScreenIndex(1);
  EXPECT_EQ(run({{"position", "left"}}), done("Tiled the front window"));
  EXPECT_EQ(front().frame, (Rect{1528, -147, 908, 1039}));
  EXPECT_EQ(run({{"subAction", "tile"}, {"tile", "bottom right"}}), done("Tiled the front window"));
  EXPECT_EQ(front().frame, (Rect{2444, 376.5, 908, 515.5}));

  // A window on the second screen tiles onto the main one.
  desktop->ui().setMainScreenIndex(0);
  EXPECT_EQ(run({{"subAction", "tile"}, {"tile", "right"}}), done("Tiled the front window"));
  EXPECT_EQ(front().frame, (Rect{724, 33, 708, 859}));
  EXPECT_EQ(run({{"subAction", "tile"}, {"tile", "center"}}), done("Tiled the front window"));
  EXPECT_EQ(front().frame, (Rect{366, 33, 708, 859})) << "the window keeps its size";
}

TEST_F(WindowTest, RefusedMovesAndResizes) {
  desktop->ui().setWindows(textEdit, {SimWindow{.title = "Fixed", .movable = false, .resizable = false}});
  const std::pair<ActionData, std::string> cases[] = {
      {{{"subAction", "move"}}, "Could not move the window."},
      {{{"subAction", "moveRelative"}}, "Could not move the window."},
      {{{"subAction", "resize"}, {"width", 900}}, "Could not resize the window."},
      {{{"subAction", "resize"}, {"width", 900}, {"origin", 1}}, "Could not set the window position."},
      {{{"subAction", "center"}}, "Could not set the window position."},
      {{{"subAction", "resizeToScreen"}}, "Could not set the window position."},
      {{{"position", "left"}}, "Could not place the window."},
  };
  for (const auto& [data, message] : cases) EXPECT_EQ(run(data), PluginResult::failure(message)) << message;
  desktop->ui().setWindows(textEdit, {SimWindow{.title = "Stuck", .resizable = false}});
  EXPECT_EQ(run({{"subAction", "resizeToScreen"}}), PluginResult::failure("Could not set the window size."));
  EXPECT_EQ(front().frame.origin(), (Point{0, 25})) << "the move before the failed resize stays";
}

TEST_F(WindowTest, NextAndPreviousVisitEveryWindow) {
  desktop->ui().setWindows(textEdit, {SimWindow{.title = "A"}, SimWindow{.title = "B"}, SimWindow{.title = "C"},
                                      SimWindow{.title = "M", .minimized = true}});
  EXPECT_EQ(run({{"subAction", "next"}}), done("Switched to the next window"));
  EXPECT_EQ(titles(), (std::vector<std::string>{"B", "C", "A", "M"}));
  EXPECT_EQ(run({{"subAction", "nextWindow"}}), done("Switched to the next window"));
  EXPECT_EQ(titles(), (std::vector<std::string>{"C", "A", "B", "M"}));
  EXPECT_EQ(run({{"subAction", "previous"}}), done("Switched to the previous window"));
  EXPECT_EQ(titles(), (std::vector<std::string>{"B", "C", "A", "M"}));
  EXPECT_EQ(run({{"actionType", 14}}), done("Switched to the previous window"));
  EXPECT_EQ(titles(), (std::vector<std::string>{"A", "B", "C", "M"}));

  desktop->ui().setWindows(textEdit, {SimWindow{.title = "Only"}});
  desktop->clearTrace();
  EXPECT_EQ(run({{"subAction", "next"}}), done("Switched to the next window"));
  EXPECT_TRUE(desktop->trace("axAction").empty());
}

TEST_F(WindowTest, ScrollsByStepsAndToTheEnds) {
  auto vertical = [&] { return front().verticalScrollBar->value; };
  auto horizontal = [&] { return front().horizontalScrollBar->value; };
  EXPECT_EQ(run({{"subAction", "scrollDown"}, {"scrollCount", 3}}), done("Scrolled down"));
  EXPECT_DOUBLE_EQ(vertical(), 0.15);
  EXPECT_EQ(run({{"subAction", "scrollDown"}, {"Count", 2}, {"Unit", 1}}), done("Scrolled down"));
  EXPECT_DOUBLE_EQ(vertical(), 0.55);
  EXPECT_EQ(run({{"subAction", "scrollUp"}, {"scrollCount", 0}}), done("Scrolled up"));
  EXPECT_DOUBLE_EQ(vertical(), 0.5);
  EXPECT_EQ(run({{"subAction", "scrollBottom"}}), done("Scrolled to the bottom"));
  EXPECT_EQ(vertical(), 1.0);
  EXPECT_EQ(run({{"subAction", "scrollUpTo"}}), done("Scrolled to the top"));
  EXPECT_EQ(vertical(), 0.0);
  // The horizontal bar has neither arrows nor page areas: its value moves.
  EXPECT_EQ(run({{"subAction", "scrollRight"}, {"scrollCount", 2}}), done("Scrolled right"));
  EXPECT_DOUBLE_EQ(horizontal(), 0.6);
  EXPECT_EQ(run({{"subAction", "scrollLeft"}, {"scrollUnit", 1}}), done("Scrolled left"));
  EXPECT_DOUBLE_EQ(horizontal(), 0.4);
  EXPECT_EQ(run({{"subAction", "scrollLeftEnd"}}), done("Scrolled to the left end"));
  EXPECT_EQ(horizontal(), 0.0);
  EXPECT_EQ(run({{"subAction", "scrollRightTo"}}), done("Scrolled to the right end"));
  EXPECT_EQ(horizontal(), 1.0);

  desktop->ui().setWindows(textEdit, {SimWindow{.title = "Plain"}});
  EXPECT_EQ(run({{"subAction", "scrollDown"}}), PluginResult::failure("Could not scroll this window."));
  SimWindow onlyVertical{.title = "Tall"};
  onlyVertical.verticalScrollBar = SimScrollBar{};
  desktop->ui().setWindows(textEdit, {onlyVertical});
  EXPECT_EQ(run({{"subAction", "scrollLeft"}}), PluginResult::failure("Could not scroll this window."));
}

}  // namespace
}  // namespace orla
