#include <orla/plugins/framework/orla_plugin.h>

#include <gtest/gtest.h>

#include <thread>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

class OrlaPluginTest : public SimTest {
 protected:
  OrlaPluginTest() : plugin(platform) {
    platform->notifications().addObserver(std::string(OrlaPlugin::notificationName),
                                          [this](const Notification& n) { posted.push_back(n.userInfo); });
  }
  OrlaPlugin plugin;
  std::vector<std::map<std::string, std::string>> posted;
};

TEST_F(OrlaPluginTest, ResolvesTheCommandNumber) {
  struct Case {
    const char* name;
    ActionData data;
    std::int64_t expected;
  };
  const Case cases[] = {
      {"empty", {}, 1},
      {"name wins over number", {{"subAction", "report"}, {"actionType", 2}}, 4},
      {"capitalised name does not match", {{"subAction", "Quit"}, {"actionType", 5}}, 5},
      {"zero", {{"actionType", 0}}, 1},
      {"legacy key", {{"Action", 5}}, 5},
      {"unconvertible actionType", {{"actionType", "soon"}, {"Action", 3}}, 3},
      {"every alias", {{"subAction", "stopShortcuts"}}, 5},
      {"runShortcut", {{"subAction", "runShortcut"}}, 9},
      {"negative", {{"actionType", -1}}, -1},
  };
  for (const auto& c : cases) EXPECT_EQ(OrlaPlugin::resolvedActionType(c.data), c.expected) << c.name;
}

TEST_F(OrlaPluginTest, EachCommandPostsItsSubActionAndAnswers) {
  struct Case {
    std::int64_t type;
    const char* subAction;
    PluginResult result;
  };
  const Case cases[] = {
      {1, "openEditor", PluginResult::success("Opened the editor.")},
      {2, "openPreferences", PluginResult::success("Opened Preferences.")},
      {3, "quit", PluginResult::success("Quitting Orla.")},
      {4, "showReport", PluginResult::success("Opened the activity report.")},
      {5, "toggleEngine", PluginResult::success("Toggled the engine (shortcuts pause or resume).")},
      {6, "lastAction", PluginResult::silentSuccess()},
      {7, "previousAction", PluginResult::silentSuccess()},
      {8, "testEdited", PluginResult::silentSuccess()},
  };
  for (const auto& c : cases) {
    posted.clear();
    const ActionData data{{"actionType", c.type}};
    EXPECT_EQ(plugin.validate(data), std::nullopt);
    EXPECT_EQ(plugin.execute(data), c.result) << c.type;
    ASSERT_EQ(posted.size(), 1u) << c.type;
    EXPECT_EQ(posted[0], (std::map<std::string, std::string>{{"action", c.subAction}}));
    EXPECT_EQ(OrlaPlugin::subAction(c.type), c.subAction);
  }
  EXPECT_EQ(OrlaPlugin::subAction(42), "openEditor");
}

TEST_F(OrlaPluginTest, RunByNameNeedsATrimmedName) {
  const ActionData named{{"subAction", "runByName"},
                         {"shortcutName", "  \n "},
                         {"shortcut", "  Tidy  up "},
                         {"Name", "ignored"}};
  EXPECT_EQ(OrlaPlugin::shortcutName(named), "Tidy  up");
  EXPECT_EQ(plugin.validate(named), std::nullopt);
  EXPECT_EQ(plugin.execute(named), PluginResult::silentSuccess());
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0], (std::map<std::string, std::string>{{"action", "runByName"},
                                                          {"shortcutName", "Tidy  up"}}));

  posted.clear();
  const std::string noName = "Enter the exact name of the shortcut to run.";
  for (const ActionData& data : {ActionData{{"actionType", 9}},
                                 ActionData{{"actionType", 9}, {"shortcutName", 5}, {"Name", " "}}}) {
    EXPECT_EQ(plugin.validate(data), noName);
    EXPECT_EQ(plugin.execute(data), PluginResult::failure(noName));
  }
  EXPECT_TRUE(posted.empty());
}

TEST_F(OrlaPluginTest, UnknownNumbersFailBothWays) {
  const std::string unknown = "Unknown Orla Control command. Choose one from the menu.";
  for (std::int64_t type : {10, -1, 1000}) {
    const ActionData data{{"actionType", type}};
    EXPECT_EQ(plugin.validate(data), unknown) << type;
    EXPECT_EQ(plugin.execute(data), PluginResult::failure(unknown)) << type;
  }
  EXPECT_TRUE(posted.empty());
}

TEST_F(OrlaPluginTest, HistoryControlsAreSixToEight) {
  for (std::int64_t type = -1; type <= 10; ++type)
    EXPECT_EQ(OrlaPlugin::isHistoryControl({{"actionType", type}}), type >= 6 && type <= 8) << type;
  for (const char* name : {"last", "previous", "test", "lastAction", "previousAction", "testEdited"})
    EXPECT_TRUE(OrlaPlugin::isHistoryControl({{"subAction", name}})) << name;
  EXPECT_FALSE(OrlaPlugin::isHistoryControl({{"subAction", "quit"}}));
}

TEST_F(OrlaPluginTest, FromAnotherThreadTheNoticeWaitsForTheMainThread) {
  PluginResult result = PluginResult::silentSuccess();
  std::thread worker([&] { result = plugin.execute({{"subAction", "quit"}}); });
  worker.join();
  EXPECT_EQ(result, PluginResult::success("Quitting Orla."));
  EXPECT_TRUE(posted.empty()) << "delivered off the main thread";
  EXPECT_EQ(platform->mainThread().runPending(), 1u);
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].at("action"), "quit");
}

TEST_F(OrlaPluginTest, TheSimulatedDesktopRecordsTheNotice) {
  (void)plugin.execute({{"subAction", "runByName"}, {"Name", "Daily"}});
  const auto notices = desktop->trace("notification");
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(notices[0].text, "orOrlaPluginAction action=runByName shortcutName=Daily");
}

}  // namespace
}  // namespace orla
