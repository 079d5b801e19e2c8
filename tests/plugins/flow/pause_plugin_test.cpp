#include "plugins/flow/pause_plugin.h"

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using namespace std::chrono_literals;
using sim::SimWindow;

class PauseTest : public testing::SimTest {
 protected:
  PauseTest() {
    desktop->addApplication(app("Safari", "com.apple.Safari", 40));
    desktop->addApplication(app("Preview", "com.apple.Preview", 41));
    desktop->ui().setWindows(41, {SimWindow{.title = "Quarterly Report.pdf"}, SimWindow{.title = ""}});
    desktop->setFrontmost(41);
  }
  PluginResult run(const ActionData& data) { return PausePlugin(platform).execute(data); }
  std::vector<std::string> sleeps() const {
    std::vector<std::string> out;
    for (const auto& e : desktop->trace("sleep")) out.push_back(e.text);
    return out;
  }
};

TEST_F(PauseTest, ValidationSentences) {
  struct Case {
    ActionData data;
    std::optional<std::string> problem;
  };
  const std::vector<Case> cases{
      {{}, "Enter how many seconds to wait, for example 1.5."},
      {{{"seconds", 3600.5}}, "The pause must be more than 0 and at most 3600 seconds (one hour)."},
      {{{"seconds", 0}}, "The pause must be more than 0 and at most 3600 seconds (one hour)."},
      {{{"seconds", "1,5"}}, std::nullopt},
      {{{"actionType", -1}}, "Unknown Pause / Wait command. Choose one from the menu."},
      {{{"actionType", 4}}, "Unknown Pause / Wait command. Choose one from the menu."},
      {{{"subAction", "app"}}, "Enter the application to wait for, for example Safari."},
      {{{"subAction", "window"}},
       "Enter the window title to wait for, or the application whose window to wait for."},
      {{{"subAction", "app"}, {"appName", "Safari"}, {"until", 3}}, "Choose what to wait for from the menu."},
      {{{"subAction", "app"}, {"appName", "Safari"}, {"timeout", 0}},
       "The time-out must be more than 0 and at most 3600 seconds (one hour)."},
      {{{"subAction", "app"}, {"appName", "Safari"}, {"onTimeout", 3}},
       "Choose what happens after the time-out from the menu."},
      {{{"subAction", "window"}, {"title", "Report"}}, std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(PausePlugin(platform).validate(c.data), c.problem);
}

TEST_F(PauseTest, FormatsSecondsAndWaitsThroughTheClock) {
  EXPECT_EQ(PausePlugin::formatSeconds(1), "1 second");
  EXPECT_EQ(PausePlugin::formatSeconds(1.5), "1.5 seconds");
  EXPECT_EQ(PausePlugin::formatSeconds(0.25), "0.25 seconds");
  EXPECT_EQ(PausePlugin::formatSeconds(3600), "3600 seconds");
  EXPECT_EQ(run({{"seconds", "1,5"}}), PluginResult::success("Waited 1.5 seconds."));
  EXPECT_EQ(sleeps(), std::vector<std::string>{"1500ms"});
}

TEST_F(PauseTest, AConditionThatHoldsReturnsWithoutSleeping) {
  struct Case {
    ActionData data;
    std::string message;
  };
  const std::vector<Case> cases{
      {{{"subAction", "app"}, {"appName", "safari"}}, "“safari” is running."},
      {{{"subAction", "app"}, {"appName", "com.apple.Preview"}, {"until", 1}}, "“com.apple.Preview” is in front."},
      {{{"subAction", "app"}, {"appName", "Mail.app"}, {"until", 2}}, "“Mail.app” is not running."},
      {{{"subAction", "window"}, {"title", "report"}, {"matchType", 3}}, "The window “Quarterly Report.pdf” is open."},
      {{{"subAction", "window"}, {"title", "Quarterly Report.pdf"}, {"matchType", 7}},
       "The window “Quarterly Report.pdf” is open."},
      {{{"subAction", "window"}, {"title", "quarterly"}, {"matchType", 4}, {"until", 1}},
       "The window “Quarterly Report.pdf” is in front."},
      {{{"subAction", "window"}, {"appName", "Preview"}}, "The window “Quarterly Report.pdf” is open."},
      {{{"subAction", "window"}, {"title", "Invoice"}, {"until", 2}}, "No window whose title is “Invoice” is open."},
      {{{"subAction", "window"}, {"appName", "Mail"}, {"until", 2}}, "No window of “Mail” is open."},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(run(c.data), PluginResult::success(c.message));
    EXPECT_TRUE(sleeps().empty());
  }
}

TEST_F(PauseTest, AnApplicationThatStartsLaterIsSeenAtTheNextTest) {
  desktop->atTime(1100ms, [&] { desktop->addApplication(app("Mail", "com.apple.mail", 42)); });
  EXPECT_EQ(run({{"subAction", "app"}, {"appName", "Mail"}}), PluginResult::success("“Mail” is running."));
  EXPECT_EQ(sleeps(), std::vector<std::string>(6, "200ms"));
}

TEST_F(PauseTest, AWindowRetitledLaterIsSeenAtTheNextTest) {
  desktop->atTime(5s, [&] { desktop->ui().setWindows(40, {SimWindow{.title = "Report"}}); });
  EXPECT_EQ(run({{"subAction", "window"}, {"title", "Report"}, {"appName", "Safari"}}),
            PluginResult::success("The window “Report” is open."));
  EXPECT_EQ(sleeps().size(), 25u);
}

TEST_F(PauseTest, AtTheTimeOutTheUsersChoiceDecides) {
  const ActionData base{{"subAction", "app"}, {"appName", "Mail"}, {"timeout", 0.3}};
  struct Case {
    std::int64_t onTimeout;
    PluginResult result;
  };
  const std::vector<Case> cases{
      {0, PluginResult::failure("Waited 0.3 seconds, but “Mail” is not running. Launch it, or allow a longer "
                                "time-out, then click Test again.")},
      {1, PluginResult::success("Waited 0.3 seconds, but “Mail” is not running. The shortcut continues.")},
      {2, PluginResult::stopSequence()},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    ActionData data = base;
    data["onTimeout"] = c.onTimeout;
    EXPECT_EQ(run(data), c.result);
    EXPECT_EQ(sleeps(), (std::vector<std::string>{"200ms", "100ms"}));
  }
  EXPECT_EQ(run({{"subAction", "window"}, {"title", "Invoice"}, {"appName", "Safari"}, {"timeout", 0.2}}),
            PluginResult::failure("Waited 0.2 seconds, but no window whose title is “Invoice” in “Safari” appeared. "
                                  "Check the title and the match, or allow a longer time-out, then click Test again."));
  EXPECT_EQ(run({{"subAction", "window"}, {"title", "Quarterly"}, {"matchType", 4}, {"until", 2}, {"timeout", 0.2}}),
            PluginResult::failure("Waited 0.2 seconds, but a window whose title starts with “Quarterly” is still "
                                  "open. Close it, or allow a longer time-out, then click Test again."));
}

TEST_F(PauseTest, OnlyTheWindowWaitNeedsAccessibility) {
  PausePlugin plugin(platform);
  EXPECT_TRUE(plugin.requiresAccessibility({{"subAction", "window"}}));
  EXPECT_FALSE(plugin.requiresAccessibility({{"subAction", "time"}}));
  EXPECT_FALSE(plugin.requiresAccessibility({{"subAction", "app"}}));
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(run({{"subAction", "window"}, {"title", "Report"}}),
            PluginResult::failure("Accessibility permission is required to wait for a window. Enable Orla Pro in "
                                  "System Settings → Privacy & Security → Accessibility."));
}

}  // namespace
}  // namespace orla
