#include "plugins/input/menu_plugin.h"

#include <gtest/gtest.h>

#include <orla/models/typing_target_context.h>
#include "tests/sim_fixture.h"

namespace orla {
namespace {

using sim::SimMenuItem;
using sim::TraceEntry;

TEST(MenuPath, SplitsLevelsInTheOrderOfTheRules) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"View>Sort By>Name", {"View", "Sort By", "Name"}},
      {"A > B>C", {"A", "B>C"}},
      {"  File > Save…  ", {"File", "Save…"}},
      {"Go\n Fast > Far \r\n\nUp", {"Go", "Fast > Far", "Up"}},
      {"Edit", {"Edit"}},
      {" > >", {}},
      {"", {}},
      {"A >> B", {"A", "B"}},
      // With a line feed, every newline character separates levels.
      {"File\nOpen\u2028Recent\u2029Doc\u0085A\vB\fC\rD", {"File", "Open", "Recent", "Doc", "A", "B", "C", "D"}},
      {"Café\u2028Menü\nÉ", {"Café", "Menü", "É"}},
  };
  for (const auto& [text, levels] : cases) EXPECT_EQ(splitPathText(text), levels) << text;
}

TEST(MenuPath, MatchesNamesAsAPersonReadsThem) {
  struct Case {
    const char* title;
    const char* name;
    Selection selection;
    bool matches;
  };
  const Case cases[] = {
      {"Save…", "Save...", Selection::nameFull, true},
      {"Save...", "Save…", Selection::nameFull, true},
      {"File", "file", Selection::nameFull, true},
      {"Café Mode", "CAFE MODE", Selection::nameFull, true},
      {"Résumé", "resume", Selection::nameFull, true},
      {"Save…", "Save", Selection::nameFull, false},
      {"  Save  ", "\tSave", Selection::nameFull, true},
      {"Export as PDF…", "pdf", Selection::nameContains, true},
      {"Export as PDF…", "export", Selection::namePrefix, true},
      {"Export as PDF…", "as pdf...", Selection::nameSuffix, true},
      {"Export as PDF…", "pdf", Selection::namePrefix, false},
      {"Export", "Export", Selection::index, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(titleMatches(c.title, c.name, c.selection), c.matches) << c.title << " / " << c.name;
}

TEST(MenuPath, LabelsNameIndexesAndNames) {
  const std::vector<PathStep> steps{{"3", 3, Selection::index}, {"2", 2, Selection::indexReverse},
                                    {"Save", 0, Selection::namePrefix}};
  EXPECT_EQ(pathLabel(steps), "#3 > #-2 > Save");
}

TEST(MenuReaders, CommandType) {
  struct Case {
    ActionData data;
    std::int64_t command;
  };
  const Case cases[] = {
      {{}, 3},
      {{{"subAction", "fullBar"}}, 1},
      {{{"subAction", "menu"}, {"actionType", 3}}, 1},
      {{{"subAction", "fullMenuBar"}}, 1},
      {{{"subAction", "submenu"}}, 2},
      {{{"subAction", "item"}, {"actionType", 1}}, 3},
      {{{"subAction", "Submenu"}}, 3},
      {{{"subAction", "Submenu"}, {"actionType", 2}}, 2},
      {{{"actionType", 1}}, 1},
      {{{"Action", 2}}, 2},
      {{{"actionType", 1}, {"MenuName", "File"}}, 3},
      {{{"actionType", 2}, {"ItemName", "Save"}}, 3},
      {{{"actionType", 7}}, 7},
      {{{"actionType", -1}}, -1},
      {{{"actionType", 0}, {"Action", 1}}, 3},
  };
  for (const Case& c : cases) EXPECT_EQ(MenuPlugin::resolvedActionType(c.data), c.command);
}

TEST(MenuReaders, PathStepsFromTheThreeStoredForms) {
  struct Case {
    const char* name;
    ActionData data;
    std::vector<PathStep> steps;
  };
  const Case cases[] = {
      {"text by name", {{"menuPath", "File > Save..."}}, {{"File", 0, Selection::nameFull}, {"Save...", 0, Selection::nameFull}}},
      {"text by position", {{"MenuPath", "3 > x"}, {"matchType", 0}}, {{"3", 3, Selection::index}, {"x", 0, Selection::index}}},
      {"text with an unknown match type", {{"menuPath", "Edit"}, {"matchType", 9}}, {{"Edit", 0, Selection::nameFull}}},
      {"text wins over items", {{"menuPath", "A"}, {"items", AnyArray{"B"}}}, {{"A", 0, Selection::nameFull}}},
      {"blank text gives way to items",
       {{"menuPath", "  "}, {"Items", AnyArray{" File ", "", AnyDictionary{{"ItemIndex", 2}, {"ItemSelection", 1}}, 5}}},
       {{"File", 0, Selection::nameFull}, {"", 2, Selection::indexReverse}}},
      {"item dictionaries with older keys and a bad selection",
       {{"items", AnyArray{AnyDictionary{{"name", "Edit"}, {"selection", 4}}, AnyDictionary{{"index", 1}, {"selection", 17}}}}},
       {{"Edit", 0, Selection::namePrefix}, {"", 1, Selection::index}}},
      {"oldest form",
       {{"MenuName", "View"}, {"SubmenuName", "Sort By"}, {"ItemIndex", 2}, {"ItemSelection", 0}},
       {{"View", 0, Selection::nameFull}, {"Sort By", 0, Selection::nameFull}, {"", 2, Selection::index}}},
      {"oldest form for a submenu keeps the menu only",
       {{"subAction", "submenu"}, {"MenuName", "View"}, {"ItemName", "Name"}},
       {{"View", 0, Selection::nameFull}}},
      {"nothing", {{"menuPath", 5}}, {}},
  };
  for (const Case& c : cases) EXPECT_EQ(MenuPlugin::pathSteps(c.data), c.steps) << c.name;
}

TEST(MenuReaders, Validation) {
  struct Case {
    ActionData data;
    std::optional<std::string> problem;
  };
  const Case cases[] = {
      {{{"subAction", "fullBar"}}, std::nullopt},
      {{{"menuPath", "File > Save…"}}, std::nullopt},
      {{{"actionType", 5}}, "Unknown menu command 5. Choose a command from the menu."},
      {{{"actionType", -2}}, "Unknown menu command -2. Choose a command from the menu."},
      {{{"subAction", "submenu"}}, "Enter the menu to show, one name per line, for example File or File > Export."},
      {{}, "Enter the menu path to click, one name per line, for example File > Save…"},
      {{{"menuPath", "3 > 0"}, {"matchType", 0}},
       "Index (position) needs a number of 1 or more for each level, one per line, for example 3 > 2."},
      {{{"menuPath", "two"}, {"matchType", 1}},
       "Index from end needs a number of 1 or more for each level, one per line, for example 3 > 2."},
      {{{"items", AnyArray{AnyDictionary{{"ItemSelection", 2}}}}},
       "One of the menu names is empty. Enter a name for every level of the path, for example File > Save…"},
  };
  MenuPlugin plugin(makeNativePlatform());
  for (const Case& c : cases) EXPECT_EQ(plugin.validate(c.data), c.problem);
}

// TextEdit in front with a menu bar whose menus cover the ways real menus
// behave: the Apple menu without a title, a menu that fills only when
// opened, disabled and marked items, an item that takes only "AXPick", and
// a menu of thirteen items.
class MenuTest : public testing::SimTest {
 protected:
  static constexpr ProcessId textEdit = 201, finder = 200;

  MenuTest() {
    RunningApplication f = app("Finder", "com.apple.finder", finder);
    desktop->addApplication(f);
    RunningApplication t = app("TextEdit", "com.apple.TextEdit", textEdit);
    t.bundlePath = "/Applications/TextEdit.app";
    desktop->addApplication(t);
    desktop->setFrontmost(textEdit);
    SimMenuItem apple{.title = "", .items = {{.title = "About TextEdit"}, {.separator = true}, {.title = "Quit TextEdit"}}};
    SimMenuItem file{.title = "File"};
    file.items = {{.title = "New"},
                  {.title = "Open Recent", .items = {{.title = "notes.txt"}, {.title = "todo.txt"}}, .fillsWhenOpened = true},
                  {.title = "Recent Servers", .fillsWhenOpened = true},
                  {.separator = true},
                  {.title = "Save…"},
                  {.title = "Export", .items = {{.title = "PDF…"}, {.title = "HTML"}}},
                  {.title = "Print…", .actions = {"AXPick"}},
                  {.title = "Locked", .actions = {"AXCancel"}}};
    SimMenuItem edit{.title = "Edit", .items = {{.title = "Undo", .enabled = false}, {.title = "Redo"}, {.title = "Select All"}}};
    SimMenuItem view{.title = "View"};
    view.items = {{.title = "Sort By", .items = {{.title = "Name", .mark = "✓"}, {.title = "Date"}}},
                  {.title = "Café Mode"}};
    SimMenuItem format{.title = "Format"};
    for (int i = 1; i <= 13; ++i) format.items.push_back({.title = "Style " + std::to_string(i)});
    desktop->ui().setMenuBar(textEdit, std::vector<SimMenuItem>{apple, file, edit, view, format});
  }

  PluginResult run(const ActionData& data) { return MenuPlugin(platform).execute(data); }
  std::vector<std::string> chosen() const { return desktop->ui().chosenMenuItems(textEdit); }
  std::vector<std::string> actions() const {
    std::vector<std::string> out;
    for (const TraceEntry& e : desktop->trace("axAction")) out.push_back(e.text);
    return out;
  }
  std::vector<std::string> sleeps() const {
    std::vector<std::string> out;
    for (const TraceEntry& e : desktop->trace("sleep")) out.push_back(e.text);
    return out;
  }
};

TEST_F(MenuTest, ClicksItemsByNameIndexAndAppleMenu) {
  const std::pair<ActionData, std::string> cases[] = {
      {{{"menuPath", "File > Save..."}}, "File > Save…"},
      {{{"menuPath", "file\nsave…"}}, "File > Save…"},
      {{{"menuPath", "3 > 2"}, {"matchType", 0}}, "Edit > Redo"},
      {{{"menuPath", "1 > 1"}, {"matchType", 1}}, "Format > Style 13"},
      {{{"menuPath", "Apple > About TextEdit"}}, "(untitled) > About TextEdit"},
      {{{"menuPath", "view > sort > dat"}, {"matchType", 4}}, "View > Sort By > Date"},
      {{{"menuPath", "View > cafe mode"}}, "View > Café Mode"},
      {{{"MenuName", "File"}, {"SubmenuName", "Export"}, {"ItemName", "HTML"}}, "File > Export > HTML"},
      {{{"items", AnyArray{"Edit", AnyDictionary{{"ItemIndex", 3}, {"ItemSelection", 0}}}}}, "Edit > Select All"},
  };
  for (const auto& [data, item] : cases) {
    EXPECT_EQ(run(data), PluginResult::silentSuccess()) << item;
    ASSERT_FALSE(chosen().empty()) << item;
    EXPECT_EQ(chosen().back(), item);
  }
  EXPECT_EQ(chosen().size(), std::size(cases));
  EXPECT_TRUE(sleeps().empty()) << "menus that answer at once are not opened";
}

TEST_F(MenuTest, OpensAMenuThatFillsOnlyWhenOpened) {
  EXPECT_EQ(run({{"menuPath", "File > Open Recent > todo.txt"}}), PluginResult::silentSuccess());
  EXPECT_EQ(chosen(), std::vector<std::string>{"File > Open Recent > todo.txt"});
  const std::vector<std::string> expected{"AXPress “File” pid=201", "AXPress “File > Open Recent” pid=201",
                                          "AXPress “File > Open Recent > todo.txt” pid=201"};
  EXPECT_EQ(actions(), expected);
  EXPECT_EQ(sleeps(), (std::vector<std::string>{"150ms", "150ms"}));
}

TEST_F(MenuTest, AFailedOpeningWalkCancelsWhatItOpenedLastFirst) {
  EXPECT_EQ(run({{"menuPath", "File > Open Recent > missing.txt"}}),
            PluginResult::failure("Menu item “File > Open Recent > missing.txt” not found in TextEdit: no "
                                  "“missing.txt” in the Open Recent menu. Items there: notes.txt, todo.txt."));
  const std::vector<std::string> expected{"AXPress “File” pid=201", "AXPress “File > Open Recent” pid=201",
                                          "AXCancel “File > Open Recent” pid=201", "AXCancel “File” pid=201"};
  EXPECT_EQ(actions(), expected);
  EXPECT_TRUE(chosen().empty());
}

TEST_F(MenuTest, NotFoundSentences) {
  const std::pair<const char*, std::string> cases[] = {
      {"Format > Nope",
       "Menu item “Format > Nope” not found in TextEdit: no “Nope” in the Format menu. Items there: Style 1, "
       "Style 2, Style 3, Style 4, Style 5, Style 6, Style 7, Style 8, Style 9, Style 10, Style 11, Style 12, … "
       "(13 items)."},
      {"Window > Zoom",
       "Menu item “Window > Zoom” not found in TextEdit: no “Window” in the menu bar. Items there: Apple, File, "
       "Edit, View, Format."},
      {"File > Recent Servers > home",
       "Menu item “File > Recent Servers > home” not found in TextEdit: no “home” in the Recent Servers menu. That "
       "menu reported no items; it may only fill when opened."},
      {"View > Sort By > Name > Deeper",
       "Menu item “View > Sort By > Name > Deeper” not found in TextEdit: no “Deeper” in the Name menu. That menu "
       "reported no items; it may only fill when opened."},
  };
  for (const auto& [path, message] : cases) EXPECT_EQ(run({{"menuPath", path}}), PluginResult::failure(message));
  EXPECT_EQ(run({{"menuPath", "9 > 1"}, {"matchType", 0}}),
            PluginResult::failure("Menu item “#9 > #1” not found in TextEdit: no “#9” in the menu bar. Items there: "
                                  "Apple, File, Edit, View, Format."));
  EXPECT_TRUE(chosen().empty()) << "the item “Name” is not pressed on the way to a level below it";
}

TEST_F(MenuTest, DisabledAndRefusedItems) {
  EXPECT_EQ(run({{"menuPath", "Edit > Undo"}}),
            PluginResult::failure("“Edit > Undo” is disabled in TextEdit right now (greyed out), so nothing happened."));
  EXPECT_EQ(actions(), std::vector<std::string>{}) << "a disabled item is not pressed";
  EXPECT_EQ(run({{"menuPath", "File > Print…"}}), PluginResult::silentSuccess());
  EXPECT_EQ(actions(), (std::vector<std::string>{"AXPress “File > Print…” pid=201: actionUnsupported",
                                                 "AXPick “File > Print…” pid=201"}));
  EXPECT_EQ(run({{"menuPath", "File > Locked"}}),
            PluginResult::failure("TextEdit did not accept the click on “File > Locked”."));
}

TEST_F(MenuTest, FindsTheTargetApplication) {
  const std::string notTestable =
      "This command works on the menu bar of a specific application and cannot be tested from inside Orla alone. "
      "Click into the application whose menu you want (for example TextEdit), then come back and click Test. Or "
      "enter the application in the Application field.";
  const ActionData save{{"menuPath", "File > Save…"}};

  desktop->setFrontmost(finder);
  ActionData named = save;
  named["applicationPath"] = "/Applications/TextEdit.app/";
  EXPECT_EQ(run(named), PluginResult::silentSuccess());
  EXPECT_EQ(desktop->frontmostApplication()->processIdentifier, textEdit);
  EXPECT_EQ(desktop->trace("activate").size(), 1u);

  for (const char* application : {"com.apple.TextEdit", "textedit"}) {
    ActionData data = save;
    data["Application"] = application;
    EXPECT_EQ(run(data), PluginResult::silentSuccess()) << application;
  }
  ActionData missing = save;
  missing["applicationPath"] = "~/Applications/Pages.app";
  EXPECT_EQ(run(missing), PluginResult::failure("“Pages” is not running. Launch it, then click Test again."));
  EXPECT_EQ(MenuPlugin(platform).targetApplicationProblem(missing),
            "“Pages” is not running. Launch it, then click Test again.");
  EXPECT_EQ(MenuPlugin(platform).targetApplicationProblem(named), std::nullopt);

  desktop->setFrontmost(desktop->host().processIdentifier);
  EXPECT_EQ(run(save), PluginResult::failure(notTestable));
  TypingTargetContext::setLastUserAppBundleID("com.apple.TextEdit");
  EXPECT_EQ(run(save), PluginResult::silentSuccess());
  desktop->setFrontmost(std::nullopt);
  EXPECT_EQ(run(save), PluginResult::failure(
                           "No application to work on. Click into the target application first, then try again."));
  EXPECT_EQ(chosen().size(), 4u);
}

TEST_F(MenuTest, WaitsForActivationButWorksOnAnApplicationThatStaysBehind) {
  desktop->setFrontmost(finder);
  desktop->setRefusesActivation(textEdit, true);
  EXPECT_EQ(run({{"menuPath", "File > Save…"}, {"applicationPath", "com.apple.TextEdit"}}),
            PluginResult::silentSuccess());
  EXPECT_EQ(sleeps(), std::vector<std::string>(20, "50ms"));
}

TEST_F(MenuTest, MenuBarThatCannotBeRead) {
  const std::string cannot =
      "Cannot read the menu bar of TextEdit. Allow Orla Pro in System Settings → Privacy & Security → "
      "Accessibility, and make sure TextEdit has a menu bar.";
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(run({{"menuPath", "File > Save…"}}), PluginResult::failure(cannot));
  desktop->setAccessibilityTrusted(true);
  desktop->ui().setAccessible(textEdit, false);
  EXPECT_EQ(run({{"subAction", "fullBar"}}), PluginResult::failure(cannot));
  desktop->ui().setAccessible(textEdit, true);
  desktop->ui().setMenuBar(textEdit, std::nullopt);
  EXPECT_EQ(run({{"menuPath", "File"}}), PluginResult::failure(cannot));
  desktop->ui().setMenuBar(textEdit, std::vector<SimMenuItem>{});
  EXPECT_EQ(run({{"subAction", "fullBar"}}), PluginResult::failure("The menu bar of TextEdit is empty."));

  // A desktop without menus (no accessibility bus) says so.
  const auto nativePlatform = makeNativePlatform();
  if (!nativePlatform->supports(Capability::menuBars)) {
    MenuPlugin native(nativePlatform);
    EXPECT_EQ(native.execute({{"menuPath", "File"}}), PluginResult::failure(std::string(kAccessibilityUnavailable)));
  }
}

TEST_F(MenuTest, PopUpOfTheMenuBarPressesTheChosenItem) {
  desktop->scriptMenuChoice("File > Export > PDF…");
  EXPECT_EQ(run({{"subAction", "fullBar"}}), PluginResult::silentSuccess());
  EXPECT_EQ(chosen(), std::vector<std::string>{"File > Export > PDF…"});
  const auto menus = desktop->trace("menu");
  ASSERT_EQ(menus.size(), 2u);
  EXPECT_TRUE(menus[0].text.starts_with(
      "pop up “Apple” [“About TextEdit”, \u2014, “Quit TextEdit”], “File” [“New”, “Open Recent”, “Recent Servers”, "
      "\u2014, “Save…”, “Export” [“PDF…”, “HTML”]"))
      << menus[0].text;
  EXPECT_NE(menus[0].text.find("“View” [“Sort By” [\u2713“Name”, “Date”], “Café Mode”]"), std::string::npos);
  EXPECT_NE(menus[0].text.find("(disabled)“Undo”"), std::string::npos);

  // A menu that fills when opened shows as an entry without items: choosing
  // it does nothing.
  desktop->scriptMenuChoice("Open Recent");
  EXPECT_EQ(run({{"subAction", "menu"}}), PluginResult::silentSuccess());
  desktop->scriptMenuChoice("File > Locked");
  EXPECT_EQ(run({{"subAction", "menu"}}), PluginResult::failure("TextEdit did not accept the click on “Locked”."));
  EXPECT_EQ(run({{"subAction", "menu"}}), PluginResult::silentSuccess()) << "dismissed";
  EXPECT_EQ(chosen().size(), 1u);
}

TEST_F(MenuTest, PopUpsStopAtTheirDepth) {
  // Six levels below the bar: the bar's pop-up shows four, a submenu's five.
  SimMenuItem deep{.title = "L6"};
  for (int level = 5; level >= 1; --level) deep = SimMenuItem{.title = "L" + std::to_string(level), .items = {deep}};
  desktop->ui().setMenuBar(textEdit, std::vector<SimMenuItem>{SimMenuItem{.title = "Deep", .items = {deep}}});
  EXPECT_EQ(run({{"subAction", "fullBar"}}), PluginResult::silentSuccess());
  EXPECT_EQ(run({{"subAction", "submenu"}, {"menuPath", "Deep"}}), PluginResult::silentSuccess());
  const auto menus = desktop->trace("menu");
  EXPECT_EQ(menus[0].text, "pop up “Deep” [“L1” [“L2” [“L3”]]]");
  EXPECT_EQ(menus[2].text, "pop up “L1” [“L2” [“L3” [“L4” [“L5”]]]]");
}

TEST_F(MenuTest, SubmenuPopUpsAndTheRealMenuShownInPlace) {
  desktop->scriptMenuChoice("Name");
  EXPECT_EQ(run({{"subAction", "submenu"}, {"menuPath", "View > Sort By"}}), PluginResult::silentSuccess());
  EXPECT_EQ(chosen(), std::vector<std::string>{"View > Sort By > Name"});
  EXPECT_EQ(desktop->trace("menu")[0].text, "pop up \u2713“Name”, “Date”");

  EXPECT_EQ(run({{"subAction", "submenu"}, {"menuPath", "File > New"}}),
            PluginResult::failure("Menu “File > New” in TextEdit is an item, not a menu, so it has nothing to show. "
                                  "Choose the click command to press it."));
  // Found only by opening the menus: they close again before the failure.
  desktop->clearTrace();
  EXPECT_EQ(run({{"subAction", "submenu"}, {"menuPath", "File > Open Recent > notes.txt"}}),
            PluginResult::failure("Menu “File > Open Recent > notes.txt” in TextEdit is an item, not a menu, so it has "
                                  "nothing to show. Choose the click command to press it."));
  EXPECT_EQ(actions(), (std::vector<std::string>{"AXPress “File” pid=201", "AXPress “File > Open Recent” pid=201",
                                                 "AXCancel “File > Open Recent” pid=201", "AXCancel “File” pid=201"}));
  EXPECT_EQ(run({{"subAction", "submenu"}, {"menuPath", "File > Recent Servers"}}),
            PluginResult::failure("That menu in TextEdit has no items to show."));

  desktop->clearTrace();
  EXPECT_EQ(run({{"subAction", "submenu"}, {"menuPath", "File > Export"}, {"displayOnly", true}}),
            PluginResult::silentSuccess());
  EXPECT_EQ(actions(), (std::vector<std::string>{"AXPress “File” pid=201", "AXPress “File > Export” pid=201"}));
  EXPECT_TRUE(desktop->trace("menu").empty()) << "the application's own menu is shown, not a copy";
}

TEST_F(MenuTest, OnlyDisplayOpensTheMenusDownToTheItemWithoutChoosingIt) {
  EXPECT_EQ(run({{"menuPath", "File > Export > PDF..."}, {"onlyDisplayMenu", 1}}), PluginResult::silentSuccess());
  EXPECT_EQ(actions(), (std::vector<std::string>{"AXPress “File” pid=201", "AXPress “File > Export” pid=201"}));
  EXPECT_EQ(sleeps(), (std::vector<std::string>{"150ms", "150ms"}));
  EXPECT_TRUE(chosen().empty());
  desktop->clearTrace();
  EXPECT_TRUE(run({{"menuPath", "File > Nope"}, {"OnlyDisplayMenu", true}}).isFailure());
  EXPECT_EQ(actions(), (std::vector<std::string>{"AXPress “File” pid=201", "AXCancel “File” pid=201"}));
}

}  // namespace
}  // namespace orla
