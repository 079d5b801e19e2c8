// The Focus mode plugin on the simulated desktop: which mode a switch
// names, when nothing needs switching, and how the system's answer is
// waited for.
#include "plugins/input/focus_mode_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

const std::string kDnd = "Do Not Disturb";

class FocusModeTest : public SimTest {
 protected:
  FocusModeTest() : plugin(platform) {}

  void scene(std::vector<std::string> modes, std::optional<std::string> active) {
    desktop->focus().setState({std::move(modes), std::move(active)});
  }
  std::optional<std::string> active() const { return desktop->focus().state().active; }

  FocusModePlugin plugin;
};

TEST_F(FocusModeTest, StateIsANumberOrAWord) {
  const std::string sentence = "Choose whether to turn the Focus mode on, off, or toggle it.";
  const struct {
    ActionData data;
    std::optional<FocusModePlugin::Wish> wish;
  } cases[] = {
      {{}, FocusModePlugin::Wish::toggle},
      {{{"state", 1}}, FocusModePlugin::Wish::on},
      {{{"State", 2}}, FocusModePlugin::Wish::off},
      {{{"State", 1.0}}, FocusModePlugin::Wish::on},
      {{{"state", true}}, std::nullopt},
      {{{"state", " Off\n"}}, FocusModePlugin::Wish::off},
      {{{"state", "TOGGLE"}}, FocusModePlugin::Wish::toggle},
      {{{"state", "disable"}}, std::nullopt},
      {{{"state", " 1"}}, FocusModePlugin::Wish::on},
      {{{"state", "4"}}, std::nullopt},
      {{{"state", 3}}, std::nullopt},
      {{{"state", -1}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FocusModePlugin::state(c.data), c.wish) << ::testing::PrintToString(c.data);
    EXPECT_EQ(plugin.validate(c.data), c.wish ? std::nullopt : std::optional(sentence));
  }
  EXPECT_EQ(plugin.execute({{"state", "disable"}}), PluginResult::failure(sentence));
  EXPECT_TRUE(desktop->trace("focus").empty());
}

TEST_F(FocusModeTest, SwitchesTheModeTheActionNames) {
  const std::vector<std::string> modes{kDnd, "Work", "Sleep"};
  const struct {
    const char* name;
    std::optional<std::string> activeBefore;
    ActionData data;
    PluginResult result;
    std::optional<std::string> activeAfter;
    std::vector<std::string> asked;  // what the system was asked, in order
  } cases[] = {
      {"toggle on", std::nullopt, {}, PluginResult::success("Turned \u201cDo Not Disturb\u201d on."), kDnd,
       {"on \u201cDo Not Disturb\u201d"}},
      {"toggle off", kDnd, {}, PluginResult::success("Turned \u201cDo Not Disturb\u201d off."), std::nullopt,
       {"off \u201cDo Not Disturb\u201d"}},
      {"off whatever is on", "Sleep", {{"state", "off"}}, PluginResult::success("Turned \u201cSleep\u201d off."),
       std::nullopt, {"off \u201cSleep\u201d"}},
      {"toggle ends another mode", "Sleep", {}, PluginResult::success("Turned \u201cSleep\u201d off."), std::nullopt,
       {"off \u201cSleep\u201d"}},
      {"named mode replaces", kDnd, {{"mode", "work"}, {"state", 1}},
       PluginResult::success("Turned \u201cWork\u201d on."), "Work", {"on \u201cWork\u201d"}},
      {"named toggle", "Work", {{"focusMode", "WORK"}}, PluginResult::success("Turned \u201cWork\u201d off."),
       std::nullopt, {"off \u201cWork\u201d"}},
      {"already on", "Work", {{"Mode", "Work"}, {"state", "on"}},
       PluginResult::success("\u201cWork\u201d is already on."), "Work", {}},
      {"focus already on", kDnd, {{"state", "on"}},
       PluginResult::success("\u201cDo Not Disturb\u201d is already on."), kDnd, {}},
      {"was not on", "Work", {{"name", "Sleep"}, {"state", 2}},
       PluginResult::success("\u201cSleep\u201d was not on."), "Work", {}},
      {"nothing on", std::nullopt, {{"state", 2}}, PluginResult::success("No Focus mode was on."), std::nullopt, {}},
      {"unknown", std::nullopt, {{"mode", "Gym"}},
       PluginResult::failure("There is no Focus mode named \u201cGym\u201d. Modes here: Do Not Disturb, Work, Sleep. "
                             "Check the name in System Settings \u2192 Focus, then click Test again."),
       std::nullopt, {}},
  };
  for (const auto& c : cases) {
    scene(modes, c.activeBefore);
    desktop->clearTrace();
    EXPECT_EQ(plugin.execute(c.data), c.result) << c.name;
    EXPECT_EQ(active(), c.activeAfter) << c.name;
    std::vector<std::string> asked;
    for (const auto& entry : desktop->trace("focus")) asked.push_back(entry.text);
    EXPECT_EQ(asked, c.asked) << c.name;
  }
}

TEST_F(FocusModeTest, TheDefaultSceneTogglesDoNotDisturbBackAndForth) {
  EXPECT_EQ(plugin.execute({}), PluginResult::success("Turned \u201cDo Not Disturb\u201d on."));
  EXPECT_EQ(plugin.execute({}), PluginResult::success("Turned \u201cDo Not Disturb\u201d off."));
  EXPECT_EQ(active(), std::nullopt);
}

TEST_F(FocusModeTest, WaitsThreeSecondsForTheSystemToSwitch) {
  const struct {
    std::optional<std::chrono::milliseconds> delay;
    bool refuses;
    PluginResult result;
    std::size_t sleeps;
  } cases[] = {
      {std::chrono::milliseconds(500), false, PluginResult::success("Turned \u201cDo Not Disturb\u201d on."), 3},
      {std::chrono::milliseconds(3000), false, PluginResult::success("Turned \u201cDo Not Disturb\u201d on."), 15},
      {std::nullopt, false,
       PluginResult::failure("The system did not turn \u201cDo Not Disturb\u201d on within 3 seconds. Switch it in "
                             "Control Center yourself, then click Test again."),
       15},
      {std::chrono::milliseconds(0), true,
       PluginResult::failure("The system refused to turn \u201cDo Not Disturb\u201d on. Switch it in Control Center "
                             "yourself, then click Test again."),
       0},
  };
  for (const auto& c : cases) {
    scene({kDnd}, std::nullopt);
    desktop->focus().setSwitchDelay(c.delay);
    desktop->focus().setRefuses(c.refuses);
    desktop->clearTrace();
    EXPECT_EQ(plugin.execute({{"state", "on"}}), c.result);
    const auto sleeps = desktop->trace("sleep");
    EXPECT_EQ(sleeps.size(), c.sleeps);
    for (const auto& entry : sleeps) EXPECT_EQ(entry.text, "200ms");
    desktop->sleep(std::chrono::seconds(10));  // let a late switch land before the next case
  }
}

TEST_F(FocusModeTest, ControlCenterNeedsTrustWhereTheBackendDrivesIt) {
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(plugin.execute({}),
            PluginResult::failure("Accessibility permission is required to switch Focus through Control Center. "
                                  "Enable Orla Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility."));
  EXPECT_EQ(active(), std::nullopt);
  desktop->focus().setNeedsAccessibility(false);
  EXPECT_EQ(plugin.execute({}), PluginResult::success("Turned \u201cDo Not Disturb\u201d on."));
}

}  // namespace
}  // namespace orla
