// The system plugin on the simulated desktop: each command's script as the
// system receives it, the sleep sentence, and the four ways of starting the
// screen saver.
#include "plugins/system/system_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

const std::string kDock =
    "tell application \"System Events\"\n"
    "    tell dock preferences\n"
    "        set autohide to not autohide\n"
    "    end tell\n"
    "end tell";
const std::string kScreenSaver = "tell application \"System Events\" to start current screen saver";

class SystemTest : public SimTest {
 protected:
  SystemTest() : plugin(platform) {}

  std::vector<std::string> traceTexts(std::string_view category) const {
    std::vector<std::string> texts;
    for (const auto& entry : desktop->trace(category)) texts.push_back(entry.text);
    return texts;
  }

  SystemPlugin plugin;
};

TEST_F(SystemTest, EachCommandRunsItsScriptAndSaysWhatItAsked) {
  struct Case {
    ActionData data;
    std::string script;
    std::string message;
  };
  const Case cases[] = {
      {{}, "tell application \"System Events\" to restart",
       "Asked macOS to restart. Confirm the dialog if one appears."},
      {{{"actionType", 0}}, "tell application \"System Events\" to restart",
       "Asked macOS to restart. Confirm the dialog if one appears."},
      {{{"subAction", "shutDown"}}, "tell application \"System Events\" to shut down",
       "Asked macOS to shut down. Confirm the dialog if one appears."},
      {{{"actionType", 3}}, "tell application \"System Events\" to sleep", "Putting the Mac to sleep."},
      {{{"subAction", "logout"}}, "tell application \"System Events\" to log out",
       "Asked macOS to log out. Confirm the dialog if one appears."},
      {{{"subAction", "hideDock"}}, kDock, "Toggled Dock auto-hide."},
      {{{"subAction", "dock"}}, kDock, "Toggled Dock auto-hide."},
      {{{"Action", 6}}, kDock, "Toggled Dock auto-hide."},
      {{{"subAction", "eject"}}, "tell application \"Finder\" to eject (every disk whose ejectable is true)",
       "Asked Finder to eject removable disks."},
      {{{"subAction", "trash"}}, "tell application \"Finder\" to empty the trash",
       "Asked Finder to empty the Trash. Confirm the dialog if one appears."},
      // Not a known spelling: the numbers decide.
      {{{"subAction", "HideDock"}, {"actionType", 2}}, "tell application \"System Events\" to shut down",
       "Asked macOS to shut down. Confirm the dialog if one appears."},
  };
  for (const Case& c : cases) {
    desktop->setScriptAnswer(c.script, {});
    EXPECT_EQ(plugin.validate(c.data), std::nullopt) << c.message;
    EXPECT_EQ(plugin.execute(c.data), PluginResult::success(c.message)) << c.message;
    EXPECT_EQ(desktop->givenScripts().back(), c.script) << c.message;
  }
}

TEST_F(SystemTest, UnusedNumbersAreUnknown) {
  for (std::int64_t number : {7, 8, 11, -1}) {
    EXPECT_EQ(plugin.validate({{"actionType", number}}), "Unknown system action. Choose one from the menu.");
    EXPECT_EQ(plugin.execute({{"actionType", number}}),
              PluginResult::failure("Unknown system action. Choose one from the menu."));
  }
  EXPECT_TRUE(desktop->givenScripts().empty());
}

TEST_F(SystemTest, SleepSaysThatNoWakeTimeWasSet) {
  const std::string sleep = "tell application \"System Events\" to sleep";
  desktop->setScriptAnswer(sleep, {});
  const std::string both =
      "Putting the Mac to sleep. Scheduled wake is not supported by macOS, so no wake time was set.";
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}, {"sleepWakeType", 1}}), PluginResult::success(both));
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}, {"sleepWakeType", 0}}),
            PluginResult::success("Putting the Mac to sleep."));
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}, {"sleepWakeType", "soon"}}),
            PluginResult::success("Putting the Mac to sleep."));
  desktop->setScriptAnswer(sleep, {true, std::nullopt, ScriptError{"Not allowed.", std::nullopt, -1743}});
  EXPECT_EQ(plugin.execute({{"subAction", "sleep"}, {"sleepWakeType", 1}}), PluginResult::failure("Not allowed."));
}

TEST_F(SystemTest, ScriptFailuresSayWhy) {
  const std::string restart = "tell application \"System Events\" to restart";
  struct Case {
    sim::SimScriptAnswer answer;
    std::string expected;
  };
  const Case cases[] = {
      {{true, std::nullopt, ScriptError{"Not authorized to send Apple events to System Events.", "b", -1743}},
       "Not authorized to send Apple events to System Events."},
      {{true, std::nullopt, ScriptError{std::nullopt, "Brief only.", -1743}}, "System Events could not run this command."},
      {{false, std::nullopt, std::nullopt}, "Could not build the system script."},
  };
  for (const Case& c : cases) {
    desktop->setScriptAnswer(restart, c.answer);
    EXPECT_EQ(plugin.execute({{"subAction", "restart"}}), PluginResult::failure(c.expected));
  }
}

TEST_F(SystemTest, TheScreenSaverStartsTheFirstWayThatWorks) {
  const ScriptError refused{"Not authorized to send Apple events to System Events.", std::nullopt, -1743};
  const ActionData screenSaver{{"subAction", "screenSaver"}};
  const PluginResult started = PluginResult::success("Started the screen saver.");

  // 1. System Events.
  desktop->setScriptAnswer(kScreenSaver, {});
  EXPECT_EQ(plugin.execute(screenSaver), started);
  EXPECT_TRUE(desktop->trace("open").empty());

  // 2. and 3. The engine application, where it is installed.
  desktop->setScriptAnswer(kScreenSaver, {true, std::nullopt, refused});
  for (std::string_view engine : {SystemPlugin::frameworkScreenSaverEngine, SystemPlugin::screenSaverEngine}) {
    desktop->clearTrace();
    desktop->installApplication({std::string(engine), "com.apple.ScreenSaver.Engine", "ScreenSaverEngine", "",
                                 ActivationPolicy::regular, std::chrono::microseconds(0), sim::QuitBehaviour::quits});
    EXPECT_EQ(plugin.execute({{"actionType", 5}}), started);
    EXPECT_EQ(traceTexts("open"), std::vector<std::string>{std::string(engine)});
  }
}

TEST_F(SystemTest, TheScreenSaverFallsBackToTheOpenToolThenFails) {
  const ScriptError refused{"Not authorized to send Apple events to System Events.", std::nullopt, -1743};
  desktop->setScriptAnswer(kScreenSaver, {true, std::nullopt, refused});
  // 4. Neither engine is where it is looked for: the open tool, which finds
  // it by name and ends with status 0.
  desktop->installApplication({"/Applications/Utilities/ScreenSaverEngine.app", "com.apple.ScreenSaver.Engine",
                               "ScreenSaverEngine", "", ActivationPolicy::regular, std::chrono::microseconds(0),
                               sim::QuitBehaviour::quits});
  EXPECT_EQ(plugin.execute({{"subAction", "screensaver"}}), PluginResult::success("Started the screen saver."));
  EXPECT_EQ(traceTexts("process"), std::vector<std::string>{"run /usr/bin/open -a ScreenSaverEngine"});
  EXPECT_EQ(traceTexts("open"), std::vector<std::string>{"/Applications/Utilities/ScreenSaverEngine.app"});
}

TEST_F(SystemTest, AnOpenToolThatRefusesHasNotStartedTheScreenSaver) {
  const ScriptError refused{"Not authorized to send Apple events to System Events.", std::nullopt, -1743};
  const PluginResult failed = PluginResult::failure(
      "Could not start the screen saver: Not authorized to send Apple events to System Events.");
  desktop->setScriptAnswer(kScreenSaver, {true, std::nullopt, refused});
  // The open tool runs but knows no such application: nothing started.
  EXPECT_EQ(plugin.execute({{"subAction", "screensaver"}}), failed);
  EXPECT_TRUE(traceTexts("open").empty());
  // No open tool at all.
  desktop->programs().setMissing("/usr/bin/open");
  EXPECT_EQ(plugin.execute({{"subAction", "screensaver"}}), failed);
}

// Only commands with no effect on the machine: restart and its kind are
// tested against the login manager's stand-in, never the real one.
TEST(SystemNative, TheDockHasNoMeaningOnThisDesktop) {
  SystemPlugin plugin(makeNativePlatform());
  EXPECT_EQ(plugin.execute({{"subAction", "dock"}}),
            PluginResult::failure("There is no Dock on this desktop, so there is nothing to hide or show. Hide the "
                                  "desktop's panel in its own settings instead."));
  EXPECT_EQ(plugin.execute({{"actionType", 7}}),
            PluginResult::failure("Unknown system action. Choose one from the menu."));
}

}  // namespace
}  // namespace orla
