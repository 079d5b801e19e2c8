// The simulated desktop's interface: menus, windows, scroll bars, screens
// and the pointer behave as the real ones do, through the platform services.
#include "platform/sim/sim_user_interface.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "platform/sim/sim_state.h"
#include "tests/sim_fixture.h"

namespace orla {
namespace {

using sim::SimMenuItem;
using sim::SimScrollBar;
using sim::SimWindow;

class SimInterfaceTest : public testing::SimTest {
 protected:
  static constexpr ProcessId kPid = 201;

  SimInterfaceTest() {
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", kPid));
    SimMenuItem file{.title = "File"};
    file.items = {{.title = "New"},
                  {.separator = true},
                  {.title = "Open Recent", .items = {{.title = "notes.txt"}}, .fillsWhenOpened = true},
                  {.title = "Save…", .enabled = false},
                  {.title = "Print…", .actions = {"AXPick"}}};
    desktop->ui().setMenuBar(kPid, std::vector<SimMenuItem>{{.title = "", .items = {{.title = "About"}}}, file});
  }

  Accessibility& ax() { return platform->accessibility(); }
  AXElement appElement() { return ax().applicationElement(kPid); }

  AXValue read(const AXElement& element, std::string_view attribute) {
    auto value = ax().copyAttributeValue(element, attribute);
    EXPECT_TRUE(value) << attribute << ": " << static_cast<int>(value.error());
    return value ? *value : AXValue();
  }
  AXElement elementAt(const AXElement& element, std::string_view attribute) {
    const AXValue value = read(element, attribute);
    return value.asElement() ? *value.asElement() : AXElement();
  }
  std::vector<AXElement> children(const AXElement& element) {
    std::vector<AXElement> out;
    const AXValue value = read(element, "AXChildren");
    if (value.asList())
      for (const AXValue& child : *value.asList()) out.push_back(*child.asElement());
    return out;
  }
  std::vector<std::string> titles(const AXElement& element) {
    std::vector<std::string> out;
    for (const AXElement& child : children(element)) out.push_back(*read(child, "AXTitle").asString());
    return out;
  }
  // The menu of a menu bar item or item.
  AXElement menuOf(const AXElement& item) { return children(item).at(0); }
};

TEST_F(SimInterfaceTest, MenusAnswerLikeTheRealOnes) {
  const AXElement bar = elementAt(appElement(), "AXMenuBar");
  EXPECT_EQ(*read(bar, "AXRole").asString(), "AXMenuBar");
  EXPECT_EQ(titles(bar), (std::vector<std::string>{"", "File"}));
  const AXElement fileItem = children(bar)[1];
  EXPECT_EQ(*read(fileItem, "AXRole").asString(), "AXMenuBarItem");
  EXPECT_EQ(children(bar)[1], fileItem) << "the same element, read twice, is equal";
  EXPECT_FALSE(children(bar)[0] == fileItem);

  const AXElement fileMenu = menuOf(fileItem);
  EXPECT_EQ(*read(fileMenu, "AXRole").asString(), "AXMenu");
  const auto items = children(fileMenu);
  ASSERT_EQ(items.size(), 5u);
  EXPECT_EQ(*read(items[1], "AXRole").asString(), "AXSeparator");
  EXPECT_EQ(*read(items[3], "AXEnabled").asBool(), false);
  EXPECT_EQ(ax().copyAttributeValue(items[0], "AXMenuItemMarkChar").error(), AXError::noValue);

  // A menu that fills when opened is empty until its owner is pressed.
  const AXElement recentMenu = menuOf(items[2]);
  EXPECT_TRUE(children(recentMenu).empty());
  EXPECT_EQ(ax().performAction(items[2], "AXPress"), AXError::success);
  EXPECT_EQ(titles(recentMenu), std::vector<std::string>{"notes.txt"});
  EXPECT_EQ(ax().performAction(items[2], "AXCancel"), AXError::success);
  EXPECT_TRUE(children(recentMenu).empty());

  // Disabled items cannot be pressed; an item may take one action only.
  EXPECT_EQ(ax().performAction(items[3], "AXPress"), AXError::cannotComplete);
  EXPECT_EQ(ax().performAction(items[4], "AXPress"), AXError::actionUnsupported);
  EXPECT_EQ(ax().performAction(items[4], "AXPick"), AXError::success);
  EXPECT_EQ(desktop->ui().chosenMenuItems(kPid), std::vector<std::string>{"File > Print…"});
  EXPECT_EQ(ax().copyAttributeValue(fileMenu, "AXNoSuchThing").error(), AXError::attributeUnsupported);

  const auto actions = desktop->trace("axAction");
  ASSERT_EQ(actions.size(), 5u);
  EXPECT_EQ(actions[0].text, "AXPress “File > Open Recent” pid=201");
  EXPECT_EQ(actions[2].text, "AXPress “File > Save…” pid=201: cannotComplete");
}

TEST_F(SimInterfaceTest, WindowsMoveResizeRaiseAndPressTheirButtons) {
  SimWindow doc{.title = "Doc", .frame = {100, 100, 800, 600}};
  doc.buttons = {"close", "minimize", "zoom", "toolbar"};
  doc.verticalScrollBar = SimScrollBar{.value = 0.97};
  SimWindow panel{.title = "Find", .frame = {50, 60, 300, 100}, .subrole = "AXFloatingWindow"};
  SimWindow fixed{.title = "Fixed", .frame = {0, 30, 400, 300}, .movable = false, .resizable = false};
  desktop->ui().setWindows(kPid, {panel, doc, fixed});

  // The focused window is the front one; the main one the front standard one.
  EXPECT_EQ(*read(elementAt(appElement(), "AXFocusedWindow"), "AXTitle").asString(), "Find");
  const AXElement main = elementAt(appElement(), "AXMainWindow");
  EXPECT_EQ(*read(main, "AXTitle").asString(), "Doc");
  EXPECT_EQ(*read(main, "AXPosition").asPoint(), (Point{100, 100}));
  EXPECT_EQ(*read(main, "AXSize").asSize(), (Size{800, 600}));

  EXPECT_EQ(ax().setAttributeValue(main, "AXPosition", Point{10, 40}), AXError::success);
  EXPECT_EQ(ax().setAttributeValue(main, "AXSize", Size{500, 400}), AXError::success);
  EXPECT_EQ(ax().setAttributeValue(main, "AXSize", AXValue("big")), AXError::illegalArgument);
  const AXElement fixedWindow = read(appElement(), "AXWindows").asList()->at(2).asElement()[0];
  EXPECT_EQ(ax().setAttributeValue(fixedWindow, "AXPosition", Point{0, 0}), AXError::cannotComplete);
  EXPECT_EQ(ax().setAttributeValue(fixedWindow, "AXSize", Size{10, 10}), AXError::cannotComplete);

  // Zoom fills the visible frame of the window's screen and comes back.
  const AXElement zoom = elementAt(main, "AXZoomButton");
  EXPECT_EQ(ax().performAction(zoom, "AXPress"), AXError::success);
  EXPECT_EQ(desktop->ui().windows(kPid)[1].frame, (Rect{0, 25, 1920, 1055}));
  EXPECT_EQ(ax().performAction(zoom, "AXPress"), AXError::success);
  EXPECT_EQ(desktop->ui().windows(kPid)[1].frame, (Rect{10, 40, 500, 400}));
  EXPECT_EQ(ax().performAction(elementAt(main, "AXToolbarButton"), "AXPress"), AXError::success);
  EXPECT_FALSE(desktop->ui().windows(kPid)[1].toolbarVisible);

  // Scroll parts step the value and stop at the ends.
  const AXElement area = children(main).back();
  EXPECT_EQ(*read(area, "AXRole").asString(), "AXScrollArea");
  const AXElement bar = elementAt(area, "AXVerticalScrollBar");
  EXPECT_EQ(*read(bar, "AXOrientation").asString(), "AXVerticalOrientation");
  EXPECT_EQ(ax().copyAttributeValue(area, "AXHorizontalScrollBar").error(), AXError::noValue);
  const AXElement increment = children(bar)[0];
  EXPECT_EQ(*read(increment, "AXSubrole").asString(), "AXIncrementArrow");
  EXPECT_EQ(ax().performAction(increment, "AXPress"), AXError::success);
  EXPECT_EQ(*read(bar, "AXValue").asNumber(), 1.0);
  EXPECT_EQ(ax().setAttributeValue(bar, "AXValue", 0.25), AXError::success);
  EXPECT_EQ(ax().performAction(children(bar)[3], "AXPress"), AXError::success);  // page up
  EXPECT_DOUBLE_EQ(*read(bar, "AXValue").asNumber(), 0.05);

  // Raising makes a window main; a minimized one cannot be raised.
  EXPECT_EQ(ax().performAction(fixedWindow, "AXRaise"), AXError::success);
  EXPECT_EQ(desktop->ui().windows(kPid)[0].title, "Fixed");
  EXPECT_EQ(ax().performAction(elementAt(main, "AXMinimizeButton"), "AXPress"), AXError::success);
  EXPECT_EQ(ax().performAction(main, "AXRaise"), AXError::cannotComplete);
  EXPECT_EQ(ax().setAttributeValue(main, "AXMinimized", false), AXError::success);

  // Closing removes the window; its elements refer to nothing after.
  EXPECT_EQ(ax().performAction(elementAt(main, "AXCloseButton"), "AXPress"), AXError::success);
  EXPECT_EQ(desktop->ui().windows(kPid).size(), 2u);
  EXPECT_EQ(ax().copyAttributeValue(main, "AXTitle").error(), AXError::invalidUIElement);
}

TEST_F(SimInterfaceTest, RefusesUntrustedCallersQuitApplicationsAndInaccessibleOnes) {
  const AXElement element = appElement();
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(ax().copyAttributeValue(element, "AXMenuBar").error(), AXError::apiDisabled);
  EXPECT_EQ(ax().performAction(element, "AXRaise"), AXError::apiDisabled);
  desktop->setAccessibilityTrusted(true);
  desktop->ui().setAccessible(kPid, false);
  EXPECT_EQ(ax().copyAttributeValue(element, "AXMenuBar").error(), AXError::cannotComplete);
  desktop->ui().setAccessible(kPid, true);
  EXPECT_TRUE(ax().copyAttributeValue(element, "AXMenuBar"));
  EXPECT_EQ(ax().copyAttributeValue(ax().applicationElement(999), "AXWindows").error(),
            AXError::invalidUIElement);
  EXPECT_EQ(desktop->trace("axRead").front().text, "AXMenuBar: apiDisabled");
}

TEST_F(SimInterfaceTest, ScreensAreReportedInScreenCoordinates) {
  // A primary screen with a 25-point menu bar, and a taller one to its right
  // whose top is 200 points above the primary's.
  desktop->ui().setScreens({{{0, 0, 1440, 900}, {0, 25, 1440, 875}},
                            {{1440, -200, 1080, 1920}, {1440, -200, 1080, 1870}}});
  desktop->ui().setMainScreenIndex(1);
  Displays& displays = platform->displays();
  EXPECT_EQ(displays.mainDisplayBounds(), (Rect{0, 0, 1440, 900}));
  const auto screens = displays.screens();
  ASSERT_EQ(screens.size(), 2u);
  EXPECT_EQ(screens[0].frame, (Rect{0, 0, 1440, 900}));
  EXPECT_EQ(screens[0].visibleFrame, (Rect{0, 0, 1440, 875}));
  EXPECT_EQ(screens[1].frame, (Rect{1440, -820, 1080, 1920}));
  EXPECT_EQ(screens[1].visibleFrame, (Rect{1440, -770, 1080, 1870}));
  EXPECT_EQ(displays.mainScreen(), screens[1]);
}

TEST_F(SimInterfaceTest, MouseEventsMoveThePointerAndCanFail) {
  MouseEvents& mouse = platform->mouse();
  ASSERT_TRUE(mouse.post({MouseEventType::mouseMoved, {10, 20}, 0, 0}));
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseDown, {99, 99}, 1, 0}));
  EXPECT_EQ(*mouse.pointerLocation(), (Point{10, 20})) << "a button event does not move the pointer";
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseDragged, {30, 40}, 0, 0}));
  EXPECT_EQ(*mouse.pointerLocation(), (Point{30, 40}));
  ASSERT_TRUE(mouse.postScrollWheel(-3));
  desktop->ui().failMouseEventsAfter(0);
  EXPECT_FALSE(mouse.post({MouseEventType::mouseMoved, {0, 0}, 0, 0}));
  desktop->ui().failMouseEventsAfter(std::nullopt);
  desktop->setEventSourcesAvailable(false);
  EXPECT_FALSE(mouse.pointerLocation());
  const std::vector<sim::TraceEntry> expected{{"mouse", "moved (10, 20)"},
                                              {"mouse", "leftDown (99, 99) click=1 button=0"},
                                              {"mouse", "leftDragged (30, 40)"},
                                              {"mouse", "scroll -3 lines"},
                                              {"mouse", "moved (0, 0) (could not be created)"}};
  EXPECT_EQ(desktop->trace("mouse"), expected);
}

TEST_F(SimInterfaceTest, NestedPopUpsAnswerByTitleOrPathButNotDisabledOrSubmenuItems) {
  std::vector<MenuItem> items(2);
  items[0].title = "File";
  items[0].submenu.resize(3);
  items[0].submenu[0].title = "Save";
  items[0].submenu[1].separator = true;
  items[0].submenu[2].title = "Export";
  items[0].submenu[2].submenu.resize(1);
  items[0].submenu[2].submenu[0].title = "PDF";
  items[1].title = "Save";
  items[1].enabled = false;
  for (const auto& [choice, expected] :
       std::vector<std::pair<std::optional<std::string>, std::optional<MenuItemPath>>>{
           {"PDF", MenuItemPath{0, 2, 0}},
           {"File > Save", MenuItemPath{0, 0}},
           {"Save", MenuItemPath{0, 0}},
           {"Export", std::nullopt},
           {"File > Export", std::nullopt},
           {std::nullopt, std::nullopt}}) {
    desktop->scriptMenuChoice(choice);
    auto chosen = platform->popupMenus().popUpNestedAtMouse(items);
    ASSERT_TRUE(chosen);
    EXPECT_EQ(*chosen, expected) << choice.value_or("(dismiss)");
  }
  EXPECT_EQ(desktop->trace("menu").front().text,
            "pop up “File” [“Save”, \u2014, “Export” [“PDF”]], (disabled)“Save”");
}

TEST_F(SimInterfaceTest, StateFileDescribesScreensPointerMenusAndWindows) {
  const auto state = nlohmann::json::parse(R"({
    "screens": [{"frame": [0, 0, 1440, 900], "visibleFrame": [0, 25, 1440, 875]},
                {"frame": [1440, 0, 1920, 1080], "visibleFrame": [1440, 0, 1920, 1080]}],
    "mainScreen": 1, "pointer": [12.5, 30],
    "applications": [{"name": "Notes", "pid": 300, "frontmost": true, "accessible": true,
      "menuBar": [{"title": "", "items": ["About Notes", "-", "Quit Notes"]},
                  {"title": "View", "items": [{"title": "Sort By", "fillsWhenOpened": true,
                    "items": [{"title": "Name", "mark": "✓"}, {"title": "Date", "enabled": false}]},
                    {"title": "Print…", "actions": ["AXPick"]}]}],
      "windows": [{"title": "Notes", "frame": [40, 50, 900, 700], "minimized": false,
                   "subrole": "AXStandardWindow", "buttons": ["close", "zoom"], "toolbar": true,
                   "movable": true, "resizable": false,
                   "scrollBars": {"vertical": 0.5, "horizontal": {"value": 0, "arrows": false, "pages": true}}}]}]
  })");
  sim::SimDesktop fresh;
  auto loaded = sim::loadState(fresh, state);
  ASSERT_TRUE(loaded) << loaded.error();
  EXPECT_EQ(fresh.ui().mainScreenIndex(), 1u);
  EXPECT_EQ(fresh.ui().pointer(), (Point{12.5, 30}));
  const auto windows = fresh.ui().windows(300);
  ASSERT_EQ(windows.size(), 1u);
  EXPECT_FALSE(windows[0].resizable);
  EXPECT_FALSE(windows[0].horizontalScrollBar->arrows);
  const auto bar = fresh.ui().menuBar(300);
  ASSERT_TRUE(bar);
  EXPECT_TRUE((*bar)[1].items[0].fillsWhenOpened);
  EXPECT_EQ((*bar)[1].items[0].items[0].mark, "✓");

  const auto saved = sim::saveState(fresh);
  for (const char* key : {"screens", "mainScreen", "pointer"}) EXPECT_EQ(saved[key], state[key]) << key;
  for (const char* key : {"accessible", "menuBar", "windows"})
    EXPECT_EQ(saved["applications"][0][key], state["applications"][0][key]) << key;

  for (const char* bad : {R"({"screens": []})", R"({"pointer": [1]})", R"({"mainScreen": 3})",
                          R"({"applications": [{"windows": [{"frame": [0, 0, -1, 5]}]}]})",
                          R"({"applications": [{"windows": [{"buttons": ["help"]}]}]})",
                          R"({"applications": [{"windows": [{"scrollBars": {"vertical": 2}}]}]})",
                          R"({"applications": [{"menuBar": [3]}]})"}) {
    sim::SimDesktop other;
    auto result = sim::loadState(other, nlohmann::json::parse(bad));
    ASSERT_FALSE(result) << bad;
    EXPECT_TRUE(result.error().starts_with("Simulated desktop state: “")) << result.error();
  }
}

}  // namespace
}  // namespace orla
