// The application plugin's commands, parameters, validation, switching,
// targets and launching, on the simulated desktop.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/plugins/apps/application_test_fixture.h"

namespace orla {
namespace {

using namespace std::chrono_literals;
using testing::ApplicationTest;
using Command = ApplicationPlugin::Command;

TEST(ApplicationCommand, RawValuesTitlesAndClasses) {
  EXPECT_EQ(applicationCommand(0), std::nullopt);
  EXPECT_EQ(applicationCommand(-1), std::nullopt);
  EXPECT_EQ(applicationCommand(23), std::nullopt);
  int needsPath = 0, needsName = 0, front = 0;
  for (std::int64_t raw = 1; raw <= 22; ++raw) {
    const auto cmd = applicationCommand(raw);
    ASSERT_TRUE(cmd) << raw;
    EXPECT_EQ(rawValue(*cmd), raw);
    needsPath += needsAppPath(*cmd);
    needsName += needsAppName(*cmd);
    front += targetsFrontApp(*cmd);
  }
  EXPECT_EQ(needsPath, 1);
  EXPECT_EQ(needsName, 5);
  EXPECT_EQ(front, 5);
  EXPECT_TRUE(needsAppPath(Command::launch));
  EXPECT_TRUE(needsAppName(Command::relaunchOne));
  EXPECT_FALSE(needsAppName(Command::launch));
  EXPECT_TRUE(targetsFrontApp(Command::saveFront));
  EXPECT_FALSE(targetsFrontApp(Command::switchToSaved));
  EXPECT_EQ(title(Command::launch), "Launch Application");
  EXPECT_EQ(title(Command::switchTo), "Switch to Application\u2026");
  EXPECT_EQ(title(Command::recentMenu), "Menu of Recent Applications");
  EXPECT_EQ(title(Command::switchToPreviousFront), "Switch to Previous Front");
}

TEST(ApplicationReaders, AliasesAndDefaults) {
  EXPECT_EQ(ApplicationPlugin::actionTypeNumber({}), 1);
  EXPECT_EQ(ApplicationPlugin::actionTypeNumber({{"actionType", "x"}, {"Action", 7}}), 7);
  EXPECT_EQ(ApplicationPlugin::actionTypeNumber({{"actionType", 0}, {"Action", 7}}), 0);
  EXPECT_EQ(
      ApplicationPlugin::applicationPath({{"applicationPath", "  "}, {"AppPath", " /A.app "}}),
      "/A.app");
  EXPECT_EQ(ApplicationPlugin::applicationPath({{"path", "~/B.app"}}), "~/B.app");
  EXPECT_EQ(ApplicationPlugin::appName({{"AppName", " Mail\n"}}), "Mail");
  EXPECT_TRUE(ApplicationPlugin::hideOthers({{"HideOthers", 1}}));
  EXPECT_FALSE(ApplicationPlugin::hideOthers({{"hideOthers", "yes"}}));
  EXPECT_TRUE(ApplicationPlugin::force({{"force", true}}));
  EXPECT_EQ(ApplicationPlugin::order({{"Order", 1}}), 1);
  EXPECT_EQ(ApplicationPlugin::order({}), 0);
}

TEST_F(ApplicationTest, ValidationSentencesInTheirOrder) {
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> problem;
  };
  const std::string unknown0 = "Unknown application command 0. Choose a command from the menu.";
  const Case cases[] = {
      {"no keys means launch, which needs a path",
       {},
       "Choose the application to launch with Browse Apps."},
      {"0 is unknown", {{"actionType", 0}}, unknown0},
      {"23 is unknown",
       {{"actionType", 23}},
       "Unknown application command 23. Choose a command from the menu."},
      {"-1 is unknown",
       {{"actionType", -1}},
       "Unknown application command -1. Choose a command from the menu."},
      {"Action when actionType holds no integer",
       {{"actionType", "?"}, {"Action", 30}},
       "Unknown application command 30. Choose a command from the menu."},
      {"unknown before a missing name",
       {{"actionType", 99}},
       "Unknown application command 99. Choose a command from the menu."},
      {"launch with a name alone",
       {{"actionType", 1}, {"appName", "Mail"}},
       "Choose the application to launch with Browse Apps."},
      {"launch with a path",
       {{"actionType", 1}, {"applicationPath", "/Applications/Mail.app"}},
       std::nullopt},
      {"quit one without a target",
       {{"actionType", 16}, {"appName", "  "}},
       "Choose the target application with Browse Apps."},
      {"quit one with a name", {{"actionType", 16}, {"appName", "Mail"}}, std::nullopt},
      {"show one with a path",
       {{"actionType", 10}, {"path", "/Applications/Mail.app"}},
       std::nullopt},
      {"front commands need nothing", {{"actionType", 14}}, std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(plugin().validate(c.data), c.problem) << c.name;
    // execute repeats the checks with the same sentence; an unknown command
    // has its own.
    if (c.problem && !c.problem->starts_with("Unknown")) {
      EXPECT_EQ(run(c.data), failure(*c.problem)) << c.name;
    }
  }
  EXPECT_EQ(run({{"actionType", 23}}), failure("Unknown application action type: 23"));
  EXPECT_EQ(run({{"actionType", -1}}), failure("Unknown application action type: -1"));
  EXPECT_TRUE(desktop->trace("activate").empty()) << "nothing acted";
}

TEST_F(ApplicationTest, SwitchNextAndPreviousWrapAtBothEnds) {
  struct Case {
    const char* name;
    std::optional<ProcessId> frontBefore;
    int actionType;
    ProcessId expected;
  };
  const Case cases[] = {
      {"next from the newest wraps to the oldest", textEdit, 4, finder},
      {"previous from the oldest wraps to the newest", finder, 5, textEdit},
      {"next from the middle", safari, 4, textEdit},
      {"previous from the middle", safari, 5, finder},
      // The host is not in the cycle: the front counts as position 0.
      {"next from the host", 100, 4, safari},
      {"previous from the host", 100, 5, textEdit},
      {"next with nothing in front", std::nullopt, 4, safari},
  };
  for (const Case& c : cases) {
    desktop->setFrontmost(c.frontBefore);
    const std::string expectedName = c.expected == finder   ? "Finder"
                                     : c.expected == safari ? "Safari"
                                                            : "TextEdit";
    EXPECT_EQ(run({{"actionType", c.actionType}}), success("Switched to " + expectedName + "."))
        << c.name;
    EXPECT_EQ(front(), c.expected) << c.name;
  }
}

TEST_F(ApplicationTest, SwitchingNeedsRegularApplicationsOtherThanTheHost) {
  desktop->removeAllApplications();
  RunningApplication agent = app("Agent", "com.example.agent", 300);
  agent.activationPolicy = ActivationPolicy::accessory;
  desktop->addApplication(agent);
  EXPECT_EQ(run({{"actionType", 4}}), failure("No applications running"));
  EXPECT_EQ(run({{"actionType", 5}}), failure("No applications running"));
}

TEST_F(ApplicationTest, SwitchingUnhidesYieldsAndHidesOthersButNeverTheHost) {
  ASSERT_TRUE(desktop->setHidden(safari, true, sim::hiding_ways::request));
  desktop->clearTrace();
  EXPECT_EQ(run({{"actionType", 6}, {"appName", "safari"}, {"hideOthers", true}}),
            success("Switched to Safari."));
  EXPECT_EQ(front(), safari);
  EXPECT_FALSE(isHidden(safari));
  EXPECT_TRUE(isHidden(finder));
  EXPECT_TRUE(isHidden(textEdit));
  EXPECT_EQ(desktop->trace("yield"), (std::vector<sim::TraceEntry>{{"yield", "to pid=201"}}));
  // The others are asked together and looked at once.
  EXPECT_EQ(desktop->trace("hide"), (std::vector<sim::TraceEntry>{{"hide", "pid=200 by request"},
                                                                   {"hide", "pid=202 by request"}}));
  EXPECT_EQ(count("sleep"), 1u);
}

TEST_F(ApplicationTest, AnApplicationThatIgnoresActivationIsOpenedInstead) {
  desktop->setRefusesActivation(safari, true);
  EXPECT_EQ(run({{"actionType", 6}, {"appName", "Safari"}}), success("Switched to Safari."));
  EXPECT_EQ(front(), safari);
  EXPECT_EQ(count("open"), 1u);

  // Without a bundle to open, the switch fails.
  RunningApplication tool = app("Tool", "", 300);
  desktop->addApplication(tool);
  desktop->setRefusesActivation(300, true);
  EXPECT_EQ(run({{"actionType", 6}, {"appName", "Tool"}}), failure("Could not switch to Tool"));
}

TEST_F(ApplicationTest, TargetsByNameWithAndWithoutTheSuffixAndByPath) {
  install("/Applications/Mail.app", "com.apple.mail", "Mail");
  install("/System/Applications/Utilities/Terminal.app", "com.apple.Terminal", "Terminal");
  struct Case {
    const char* name;
    ActionData data;
    PluginResult result;
  };
  const Case cases[] = {
      {"running, any case",
       {{"actionType", 6}, {"appName", "SAFARI"}},
       success("Switched to Safari.")},
      {"running, with .app",
       {{"actionType", 6}, {"appName", "Finder.app"}},
       success("Switched to Finder.")},
      {"installed, not running",
       {{"actionType", 6}, {"appName", "Mail"}},
       success("Launched Mail.")},
      {"in the utilities",
       {{"actionType", 6}, {"appName", "Terminal.APP"}},
       success("Launched Terminal.")},
      {"matching nothing",
       {{"actionType", 6}, {"appName", "Nope"}},
       failure("Application 'Nope' not found")},
      {"matching nothing, with .app",
       {{"actionType", 13}, {"appName", "Nope.app"}},
       failure("Application 'Nope' not found")},
      {"by path",
       {{"actionType", 6}, {"applicationPath", "/Applications/./Safari.app/"}},
       success("Switched to Safari.")},
      {"a missing path falls to the name",
       {{"actionType", 6}, {"applicationPath", "/Gone/Safari.app"}, {"appName", "TextEdit"}},
       success("Switched to TextEdit.")},
      {"a missing path alone",
       {{"actionType", 16}, {"applicationPath", "/Gone/Old.app"}},
       failure("Application 'Old' not found")},
      {"quitting one that is installed but not running",
       {{"actionType", 16}, {"appName", "Calculator"}},
       failure("Application 'Calculator' not found")},
  };
  for (const Case& c : cases) EXPECT_EQ(run(c.data), c.result) << c.name;
  install("/Applications/Calculator.app", "com.apple.calculator", "Calculator");
  EXPECT_EQ(run({{"actionType", 16}, {"appName", "Calculator"}}),
            failure("The application \"Calculator\" isn't running."));
  EXPECT_EQ(run({{"actionType", 13}, {"appName", "Calculator"}}),
            failure("The application \"Calculator\" isn't running."));
}

TEST_F(ApplicationTest, LaunchWaitsOnTheVirtualClock) {
  install("/Applications/Mail.app", "com.apple.mail", "Mail", 1200ms);
  install("/Applications/Slow.app", "com.example.slow", "Slow", 6s);
  install("/Applications/Crash.app", "com.example.crash", "Crash", std::nullopt);
  struct Case {
    const char* path;
    PluginResult result;
    std::chrono::milliseconds elapsed;
  };
  const Case cases[] = {
      {"/Applications/Mail.app", success("Launched Mail."), 1200ms},
      {"/Applications/Slow.app", failure("Could not launch Slow.app"), 5000ms},
      {"/Applications/Crash.app", failure("Could not launch Crash.app"), 5000ms},
      {"/Applications/Safari.app", success("Brought Safari to the front."), 0ms},
      {"/Applications/Missing.app", failure("Could not launch Missing.app"), 0ms},
  };
  for (const Case& c : cases) {
    const auto start = desktop->monotonicNow();
    EXPECT_EQ(run({{"applicationPath", c.path}}), c.result) << c.path;
    EXPECT_EQ(elapsedSince(start), c.elapsed) << c.path;
  }
  ASSERT_TRUE(pidOf("Mail"));
  EXPECT_EQ(front(), safari);
}

TEST_F(ApplicationTest, LaunchPathsThatAreFoldersOrUnderHome) {
  const auto folder =
      std::filesystem::temp_directory_path() / ("orla-app-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  // A plain folder exists but is no application.
  EXPECT_EQ(run({{"applicationPath", folder.string() + "/"}}),
            failure("Could not launch " + folder.filename().string()));
  EXPECT_EQ(run({{"actionType", 6}, {"applicationPath", folder.string()}}),
            failure("Could not launch " + folder.filename().string()));
  std::filesystem::remove_all(folder);

  install("/home/ada/Applications/Tool.app", "com.example.tool", "Tool");
  EXPECT_EQ(run({{"applicationPath", "~/Applications/Tool.app"}, {"hideOthers", 1}}),
            success("Launched Tool."));
  EXPECT_TRUE(isHidden(finder));
  EXPECT_FALSE(isHidden(*pidOf("Tool")));
}

TEST_F(ApplicationTest, ApplicationCommandsNeedApplicationControl) {
  auto nativePlatform = makeNativePlatform();
  if (nativePlatform->supports(Capability::applicationControl))
    GTEST_SKIP() << "this desktop offers application control (the desktop suites prove it)";
  ApplicationPlugin native(nativePlatform);
  EXPECT_EQ(native.execute({{"actionType", 14}}),
            failure("Launching, switching, hiding and quitting applications is not available on "
                    "this desktop in "
                    "this build of Orla."));
  EXPECT_EQ(native.validate({{"actionType", 14}}), std::nullopt);
}

}  // namespace
}  // namespace orla
