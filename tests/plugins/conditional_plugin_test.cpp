#include "plugins/flow/conditional_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

class ConditionalPluginTest : public SimTest {
 protected:
  ConditionalPluginTest() : plugin(platform) {}

  void setLocalTime(const char* isoLocal) {
    auto instant = parseLocalDateTime(isoLocal, desktop->timeZone());
    ASSERT_TRUE(instant) << isoLocal;
    desktop->setNow(*instant);
  }
  std::optional<bool> outcome(const ActionData& data) {
    PluginResult result = plugin.execute(data);
    if (result.kind() != PluginResult::Kind::conditionResult) return std::nullopt;
    return result.conditionValue();
  }

  ConditionalPlugin plugin;
};

TEST_F(ConditionalPluginTest, ValidationSentences) {
  struct Case {
    ActionData data;
    std::optional<std::string> message;
  };
  const std::optional<std::string> valid;
  const Case cases[] = {
      {{}, "Enter the text to look for on the clipboard."},
      {{{"pattern", "  \n"}}, "Enter the text to look for on the clipboard."},
      {{{"pattern", "x"}}, valid},
      {{{"conditionType", 1}}, "Enter a regular expression to match against the clipboard."},
      {{{"conditionType", 1}, {"pattern", "a(b"}}, "That regular expression is not valid."},
      {{{"conditionType", 1}, {"pattern", "\\d+"}}, valid},
      {{{"conditionType", 2}, {"path", "   "}}, "Enter a file or folder path to check."},
      {{{"conditionType", 2}, {"path", "~"}}, valid},
      {{{"conditionType", 3}}, "Enter an application name, for example Finder."},
      {{{"conditionType", 4}, {"expected", "x"}}, "Enter an environment variable name, for example HOME."},
      {{{"conditionType", 5}}, valid},
      {{{"conditionType", 5}, {"startHour", 25}, {"endHour", 25}}, "Hours must be between 0 and 24."},
      {{{"conditionType", 5}, {"startHour", -1}}, "Hours must be between 0 and 24."},
      {{{"conditionType", 5}, {"endHour", 30}}, "Hours must be between 0 and 24."},
      {{{"conditionType", 5}, {"startHour", 9}, {"endHour", 9}}, "End hour must be different from the start hour."},
      {{{"conditionType", 5}, {"startHour", 24}, {"endHour", 0}}, valid},
      {{{"conditionType", 6}}, valid},
      {{{"conditionType", 6}, {"dayOfWeek", 0}}, "Choose a day of the week."},
      {{{"conditionType", 6}, {"dayOfWeek", 8}}, "Choose a day of the week."},
      {{{"conditionType", 7}}, "Enter the text to look for in the previous command's result."},
      {{{"conditionType", 8}}, "Unknown condition. Choose one from the menu."},
      {{{"conditionType", -1}}, "Unknown condition. Choose one from the menu."},
      {{{"conditionType", "3"}, {"appName", "Finder"}}, valid},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.message);
    if (c.message) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.message));
    }
  }
}

TEST_F(ConditionalPluginTest, ClipboardConditions) {
  struct Case {
    std::optional<std::string> clipboard;
    ActionData data;
    bool expected;
  };
  const Case cases[] = {
      {"Order 1234 shipped", {{"pattern", "1234"}}, true},
      {"Order 1234 shipped", {{"pattern", "order"}}, false},  // case-sensitive
      {"Order 1234 shipped", {{"pattern", "  1234 "}}, true},  // pattern is trimmed
      {std::nullopt, {{"pattern", "x"}}, false},
      {"Order 1234 shipped", {{"conditionType", 1}, {"pattern", "\\d{4}"}}, true},
      {"Order 1234 shipped", {{"conditionType", 1}, {"pattern", "^shipped"}}, false},
      {"Order 1234 shipped", {{"conditionType", 1}, {"pattern", "(?i)ORDER"}}, true},
      {"café", {{"conditionType", 1}, {"pattern", "^caf.$"}}, true},  // one character, two bytes
      {std::nullopt, {{"conditionType", 1}, {"pattern", "^$"}}, true},
      {std::nullopt, {{"conditionType", 1}, {"pattern", "."}}, false},
  };
  for (const auto& c : cases) {
    desktop->setClipboardText(c.clipboard);
    EXPECT_EQ(outcome(c.data), c.expected) << c.clipboard.value_or("<none>");
  }
}

TEST_F(ConditionalPluginTest, FileExistsExpandsTheTilde) {
  const auto home = std::filesystem::temp_directory_path() / ("orla-home-" + std::to_string(::getpid()));
  std::filesystem::create_directories(home / "Documents");
  std::ofstream(home / "Documents" / "notes.txt") << "x";
  desktop->setEnvironment({{"HOME", home.string()}});
  struct Case {
    std::string path;
    bool expected;
  };
  const Case cases[] = {
      {"~/Documents/notes.txt", true},
      {" ~/Documents \n", true},
      {"~/Documents/missing.txt", false},
      {(home / "Documents").string(), true},
      {"~", true},
  };
  for (const auto& c : cases) EXPECT_EQ(outcome({{"conditionType", 2}, {"path", c.path}}), c.expected) << c.path;
  std::filesystem::remove_all(home);
}

TEST_F(ConditionalPluginTest, AppRunningMatchesNameOrBundleIgnoringCase) {
  desktop->addApplication(app("Finder", "com.apple.finder", 300));
  desktop->addApplication(app("", "org.example.NoName", 301));
  struct Case {
    const char* name;
    bool expected;
  };
  const Case cases[] = {
      {"finder", true},      {"FINDER", true},          {"COM.APPLE.FINDER", true},
      {"Find", false},       {"org.example.noname", true}, {"Orla Pro", true},  // the host runs too
      {"Safari", false},
  };
  for (const auto& c : cases) EXPECT_EQ(outcome({{"conditionType", 3}, {"appName", c.name}}), c.expected) << c.name;
  desktop->removeAllApplications();
  EXPECT_EQ(outcome({{"conditionType", 3}, {"appName", "Finder"}}), false);
}

TEST_F(ConditionalPluginTest, EnvironmentEqualsExactly) {
  desktop->setEnvironment({{"MODE", "work"}, {"EMPTY", ""}, {"SPACED", " a "}});
  struct Case {
    ActionData data;
    bool expected;
  };
  const Case cases[] = {
      {{{"envVar", "MODE"}, {"expected", "work"}}, true},
      {{{"envVar", " MODE "}, {"expected", "work"}}, true},
      {{{"envVar", "MODE"}, {"expected", "Work"}}, false},
      {{{"envVar", "SPACED"}, {"expected", " a "}}, true},  // expected is not trimmed
      {{{"envVar", "SPACED"}, {"expected", "a"}}, false},
      {{{"envVar", "EMPTY"}}, true},
      {{{"envVar", "UNSET"}}, false},
      {{{"envVar", "UNSET"}, {"negate", true}}, true},
      {{{"envVar", "MODE"}, {"expected", "work"}, {"negate", 1}}, false},
      {{{"envVar", "MODE"}, {"expected", "work"}, {"negate", "yes"}}, true},  // text is no switch
  };
  for (const auto& c : cases) {
    ActionData data = c.data;
    data["conditionType"] = 4;
    EXPECT_EQ(outcome(data), c.expected);
  }
}

TEST_F(ConditionalPluginTest, HourBetweenInTheUsersTimeZone) {
  struct Case {
    const char* now;
    std::int64_t start, end;
    bool expected;
  };
  const Case cases[] = {
      {"2026-11-21T23:30:00", 22, 6, true},  {"2026-11-21T05:59:00", 22, 6, true},
      {"2026-11-21T06:00:00", 22, 6, false}, {"2026-11-21T09:00:00", 9, 17, true},
      {"2026-11-21T16:59:59", 9, 17, true},  {"2026-11-21T17:00:00", 9, 17, false},
      {"2026-11-21T00:00:00", 0, 24, true},  {"2026-11-21T23:59:00", 0, 24, true},
  };
  for (const auto& c : cases) {
    setLocalTime(c.now);
    EXPECT_EQ(outcome({{"conditionType", 5}, {"startHour", c.start}, {"endHour", c.end}}), c.expected)
        << c.now << " in " << c.start << "-" << c.end;
  }
  // The same instant is another hour elsewhere.
  setLocalTime("2026-11-21T10:00:00");
  desktop->setTimeZone("America/New_York");
  EXPECT_EQ(outcome({{"conditionType", 5}, {"startHour", 9}, {"endHour", 12}}), false);
}

TEST_F(ConditionalPluginTest, HourRangeRule) {
  for (std::int64_t h = 0; h < 24; ++h) {
    EXPECT_EQ(ConditionalPlugin::hour(h, 22, 6), h >= 22 || h < 6) << h;
    EXPECT_EQ(ConditionalPlugin::hour(h, 9, 17), h >= 9 && h < 17) << h;
    EXPECT_TRUE(ConditionalPlugin::hour(h, 0, 24)) << h;
  }
}

TEST_F(ConditionalPluginTest, DayOfWeekDefaultsToSunday) {
  setLocalTime("2026-11-22T12:00:00");  // a Sunday
  EXPECT_EQ(outcome({{"conditionType", 6}}), true);
  EXPECT_EQ(outcome({{"conditionType", 6}, {"dayOfWeek", 2}}), false);
  setLocalTime("2026-11-23T12:00:00");
  EXPECT_EQ(outcome({{"conditionType", 6}, {"dayOfWeek", 2}}), true);
}

TEST_F(ConditionalPluginTest, PreviousResultContains) {
  struct Case {
    ActionData data;
    bool expected;
  };
  const Case cases[] = {
      {{{"pattern", "Opened"}, {"_previousResult", "Opened the editor."}}, true},
      {{{"pattern", "opened"}, {"_previousResult", "Opened the editor."}}, false},
      {{{"pattern", "Opened"}}, false},
      {{{"pattern", "x"}, {"_previousResult", 5}}, false},
  };
  for (const auto& c : cases) {
    ActionData data = c.data;
    data["conditionType"] = 7;
    EXPECT_EQ(outcome(data), c.expected);
  }
}

TEST(SkipsFollowingAction, OnlyAFalseConditionOrASkipMessage) {
  struct Case {
    const char* pluginClass;
    PluginResult result;
    bool skips;
  };
  const Case cases[] = {
      {"ConditionalAction", PluginResult::conditionResult(false), true},
      {"ConditionalAction", PluginResult::conditionResult(true), false},
      {"ConditionalAction", PluginResult::success("No match. The next command will be skipped."), true},
      {"ConditionalAction", PluginResult::success("The next command will be skipped. Done."), false},
      {"ConditionalAction", PluginResult::failure("The next command will be skipped."), false},
      {"ConditionalAction", PluginResult::silentSuccess(), false},
      {"ConditionalAction", PluginResult::stopSequence(), false},
      {"OrlaShortcut", PluginResult::conditionResult(false), false},
      {"conditionalaction", PluginResult::conditionResult(false), false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ConditionalPlugin::skipsFollowingAction(c.pluginClass, c.result), c.skips)
        << c.pluginClass << " " << kindName(c.result.kind()) << " " << c.result.message();
}

}  // namespace
}  // namespace orla
