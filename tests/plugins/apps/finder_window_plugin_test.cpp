#include "plugins/apps/finder_window_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <orla/platform/finder_scripts.h>
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using Command = FinderWindowPlugin::Command;
using testing::TempFolder;

class FinderWindowTest : public testing::SimTest {
 protected:
  FinderWindowTest() {
    fs::create_directories(tmp / "Projects");
    fs::create_directories(tmp / "Photos");
    fs::create_directories(tmp / "Keynote.key");
    tmp.write("notes.txt", "n");
  }

  std::string front() const {
    const auto windows = desktop->finder().windows();
    return windows.empty() ? std::string() : windows.front().target;
  }

  TempFolder tmp{"orla-finder"};
  FinderWindowPlugin plugin{platform};
};

TEST_F(FinderWindowTest, TheCommandComesFromItsNumberItsNameOrTheFolder) {
  const struct {
    ActionData data;
    std::optional<Command> expected;
  } cases[] = {
      {{}, Command::showSelection},
      {{{"path", "/tmp"}}, Command::showFolder},
      {{{"actionType", 2}, {"path", "/tmp"}}, Command::showSelection},
      {{{"Action", 1}}, Command::showFolder},
      {{{"actionType", 0}, {"subAction", "currentNavigation"}}, Command::showFolder},
      {{{"actionType", 0}, {"Action", 2}}, Command::showFolder},
      {{{"actionType", "two"}, {"Action", 2}}, Command::showSelection},
      {{{"Action", 0}, {"subAction", "selection"}}, Command::showFolder},
      {{{"subAction", "show"}}, Command::showFolder},
      {{{"subAction", "selection"}, {"folderPath", "/tmp"}}, Command::showSelection},
      {{{"actionType", 3}}, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(FinderWindowPlugin::command(c.data), c.expected);
}

TEST_F(FinderWindowTest, ValidationChecksTheFolderAndTheCustomRectangle) {
  const struct {
    ActionData data;
    std::optional<std::string> expected;
  } cases[] = {
      {{{"actionType", 3}}, "Unknown Finder navigation command 3. Choose a command from the menu."},
      {{{"actionType", 1}}, "No folder chosen. Click Browse… and pick the folder to show in Finder."},
      {{{"path", tmp / "Gone"}}, "The folder \"" + (tmp / "Gone") + "\" can't be found. Choose it again with Browse…"},
      {{{"path", tmp / "notes.txt"}},
       "The folder \"" + (tmp / "notes.txt") + "\" is a file, not a folder. Choose a folder with Browse…"},
      {{{"path", tmp / "Projects"}, {"customWindow", true}, {"windowW", 0}},
       "Custom window size needs a width and height greater than 0 (or turn Custom window size off)."},
      {{{"CustomWindow", 1}, {"WindowRect", AnyArray{10, 10, 300, -5}}},
       "Custom window size needs a width and height greater than 0 (or turn Custom window size off)."},
      {{{"path", tmp / "Projects"}, {"customWindow", false}, {"windowW", 0}}, std::nullopt},
      {{{"path", "file://" + (tmp / "Projects")}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.expected);
    if (c.expected) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.expected));
    }
  }
}

TEST_F(FinderWindowTest, TheWindowRectangleComesFromAnyOfItsForms) {
  const struct {
    ActionData data;
    WindowRect expected;
  } cases[] = {
      {{}, {100, 100, 800, 600}},
      {{{"windowRect", AnyArray{10, 20, 300, 400}}}, {10, 20, 300, 400}},
      {{{"windowRect", AnyDictionary{{"x", 1}, {"y", 2}, {"width", 3}, {"height", 4}}}}, {1, 2, 3, 4}},
      {{{"WindowRect", "{{50, 60}, {700.5, 500}}"}}, {50, 60, 700.5, 500}},
      {{{"windowRect", "50,60,700,500"}, {"WindowH", "250,5"}}, {50, 60, 700, 250.5}},
  };
  for (const auto& c : cases) EXPECT_EQ(FinderWindowOptions::from(c.data).windowRect, c.expected);
}

TEST_F(FinderWindowTest, ScriptsFollowTheOptions) {
  FinderWindowOptions plain;
  EXPECT_EQ(FinderWindowPlugin::script("/Users/ada", plain),
            "tell application \"Finder\"\n"
            "    if (count of Finder windows) is 0 then\n"
            "        set w to make new Finder window\n"
            "        set target of w to POSIX file \"/Users/ada\" as alias\n"
            "    else\n"
            "        set target of front Finder window to POSIX file \"/Users/ada\" as alias\n"
            "    end if\n"
            "end tell");
  FinderWindowOptions all;
  all.closeAll = all.newWindow = all.customWindow = true;
  all.viewType = 2;
  all.windowRect = {10.4, 20, 300, 400.6};
  EXPECT_EQ(FinderWindowPlugin::script("/a \"quoted\" \\ path\nline", all),
            "tell application \"Finder\"\n"
            "    close every Finder window\n"
            "    set w to make new Finder window\n"
            "    set target of w to POSIX file \"/a \\\"quoted\\\" \\\\ path\\nline\" as alias\n"
            "    set current view of front Finder window to column view\n"
            "    set bounds of front Finder window to {10, 20, 310, 421}\n"
            "end tell");
}

TEST_F(FinderWindowTest, NamesWithQuotesBackslashesAndLineBreaksReachTheFinderIntact) {
  for (std::string name : {"say \"hi\"", "back\\slash", "two\nlines", "end\\", "\\\"mix\"\\"}) {
    const std::string folder = tmp / name;
    fs::create_directories(folder);
    EXPECT_EQ(plugin.execute({{"path", folder}}), PluginResult::success("Finder now shows " + folder + " (front window).")) << name;
    EXPECT_EQ(front(), folder) << name;
  }
}

TEST_F(FinderWindowTest, TheOptionsShapeTheWindow) {
  desktop->finder().setWindows({{tmp / "Photos", "icon", {0, 0, 10, 10}}, {"/", "icon", {0, 0, 10, 10}}});
  const ActionData data{{"path", tmp / "Projects"}, {"newWindow", true}, {"closeAll", true}, {"viewType", 1},
                        {"customWindow", true}, {"windowX", 100}, {"windowY", 50}, {"windowW", 800}, {"windowH", 600}};
  EXPECT_EQ(plugin.execute(data),
            PluginResult::success("Finder now shows " + (tmp / "Projects") +
                                  " (new window, list view, size 800×600 at 100, 50, other Finder windows closed)."));
  const std::vector<sim::SimFinderWindow> expected{{tmp / "Projects", "list", {100, 50, 900, 650}}};
  EXPECT_EQ(desktop->finder().windows(), expected);
}

TEST_F(FinderWindowTest, ARefusedScriptStillShowsTheFolderAndSaysWhatWasSkipped) {
  desktop->finder().setAutomationAllowed(false);
  EXPECT_EQ(plugin.execute({{"path", tmp / "Projects"}, {"viewType", 1}}),
            PluginResult::success("The view and window options were skipped because Orla Pro is not allowed to control "
                                  "Finder. Allow it in System Settings → Privacy & Security → Automation → Orla Pro → "
                                  "Finder, then try again."));
  EXPECT_EQ(desktop->trace("reveal").size(), 1u);
  EXPECT_EQ(front(), tmp / "Projects");

  desktop->finder().setAutomationAllowed(true);
  const std::string source = FinderWindowPlugin::script(tmp / "Photos", {});
  desktop->setScriptAnswer(source, {true, std::nullopt, ScriptError{"Finder got an error: AppleEvent timed out", std::nullopt, -1712}});
  EXPECT_EQ(plugin.execute({{"path", tmp / "Photos"}}),
            PluginResult::success("The view and window options were skipped because Finder reported: Finder got an "
                                  "error: AppleEvent timed out"));
  desktop->setScriptAnswer(source, {false, std::nullopt, std::nullopt});
  EXPECT_EQ(plugin.execute({{"path", tmp / "Photos"}}), PluginResult::failure("Could not build the Finder script."));
}

TEST_F(FinderWindowTest, TheSelectedFoldersEachGetAWindow) {
  desktop->finder().setWindows({{tmp.path().string(), "icon", {0, 0, 10, 10}}});
  desktop->finder().setSelection({tmp / "Projects", tmp / "notes.txt", tmp / "Keynote.key", tmp / "Photos"});
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"viewType", 1}}),
            PluginResult::success("Opened 1 new Finder window; Finder now shows " + (tmp / "Projects") + ", " +
                                  (tmp / "Photos") + "."));
  const auto windows = desktop->finder().windows();
  ASSERT_EQ(windows.size(), 2u);
  EXPECT_EQ(windows[0].target, tmp / "Photos");
  EXPECT_EQ(windows[1].target, tmp / "Projects");
  EXPECT_EQ(windows[1].view, "list");
}

TEST_F(FinderWindowTest, WithoutSelectedFoldersTheFrontWindowsFolderOrASentence) {
  desktop->finder().setSelection({tmp / "notes.txt"});
  EXPECT_EQ(plugin.execute({{"actionType", 2}}),
            PluginResult::failure("No folder is selected. Select one or more folders in Finder (a selected file does "
                                  "not count), or select nothing to show the front Finder window's folder."));
  desktop->finder().setSelection({});
  EXPECT_EQ(plugin.execute({{"actionType", 2}}),
            PluginResult::failure("No folder is selected. Open a Finder window or select a folder in Finder, then try "
                                  "again."));
  desktop->finder().setWindows({{tmp / "Photos", "icon", {0, 0, 10, 10}}});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}, {"newWindow", true}}),
            PluginResult::success("Opened 1 new Finder window; Finder now shows " + (tmp / "Photos") + "."));
  EXPECT_EQ(desktop->finder().windows().size(), 2u);
  desktop->finder().setAutomationAllowed(false);
  EXPECT_EQ(plugin.execute({{"actionType", 2}}),
            PluginResult::failure("Orla Pro is not allowed to control Finder. Allow it in System Settings → Privacy & "
                                  "Security → Automation → Orla Pro → Finder, then try again."));
}

TEST_F(FinderWindowTest, FailuresEndWithTheErrorTextOrTheFolderAsTheyAre) {
  // The front window shows a folder that has gone: neither the script nor
  // the reveal can show it.
  desktop->finder().setSelection({});
  desktop->finder().setWindows({{tmp / "Gone", "icon", {0, 0, 10, 10}}});
  EXPECT_EQ(plugin.execute({{"actionType", 2}}),
            PluginResult::failure("Finder could not show \"" + (tmp / "Gone") + "\""));

  desktop->setScriptAnswer(std::string(kFinderSelectionScript),
                           {true, std::nullopt, ScriptError{"Finder got an error: AppleEvent timed out", std::nullopt, -1712}});
  EXPECT_EQ(plugin.execute({{"actionType", 2}}),
            PluginResult::failure("Could not read the Finder selection: Finder got an error: AppleEvent timed out"));
}

}  // namespace
}  // namespace orla
