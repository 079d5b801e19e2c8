// Do not disturb on the Linux desktop, against GSettings on the headless
// desktop's session bus (dconf): what the action switches, `gsettings` in
// another process reads back, and what is switched there, the action sees.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/linux/gsettings_focus.h"
#include <orla/platform/platform.h>
#include "plugins/input/focus_mode_plugin.h"
#include "tests/support/command_output.h"

namespace orla {
namespace {

using testing::outputOf;

std::string showBanners() {
  std::string out = outputOf("gsettings get org.gnome.desktop.notifications show-banners 2>&1");
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

class GSettingsFocusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("ORLA_DESKTOP_HARNESS") || !std::getenv("DBUS_SESSION_BUS_ADDRESS"))
      GTEST_SKIP() << "no private session bus: these tests change the desktop's settings only on the headless desktop";
    if (!linux_desktop::hasDoNotDisturbSetting())
      GTEST_SKIP() << "GNOME's notification settings are not installed (gsettings-desktop-schemas)";
    ASSERT_EQ(std::system("gsettings set org.gnome.desktop.notifications show-banners true"), 0);
  }
  void TearDown() override {
    if (!IsSkipped()) (void)std::system("gsettings reset org.gnome.desktop.notifications show-banners");
  }

  std::shared_ptr<Platform> platform = makeNativePlatform();
  FocusModePlugin plugin{platform};
};

TEST_F(GSettingsFocusTest, DoNotDisturbIsTheDesktopsNotificationSwitch) {
  ASSERT_TRUE(platform->supports(Capability::focusModes));
  const struct {
    ActionData data;
    PluginResult result;
    const char* banners;  // what gsettings reads afterwards
  } steps[] = {
      {{}, PluginResult::success("Turned \u201cDo Not Disturb\u201d on."), "false"},
      {{{"state", "on"}}, PluginResult::success("\u201cDo Not Disturb\u201d is already on."), "false"},
      {{}, PluginResult::success("Turned \u201cDo Not Disturb\u201d off."), "true"},
      {{{"state", 2}}, PluginResult::success("No Focus mode was on."), "true"},
      {{{"mode", "do not disturb"}, {"state", 1}}, PluginResult::success("Turned \u201cDo Not Disturb\u201d on."),
       "false"},
      {{{"mode", "Work"}},
       PluginResult::failure("There is no Focus mode named \u201cWork\u201d. Modes here: Do Not Disturb. Check the "
                             "name in System Settings \u2192 Focus, then click Test again."),
       "false"},
  };
  for (const auto& step : steps) {
    EXPECT_EQ(plugin.execute(step.data), step.result) << ::testing::PrintToString(step.data);
    EXPECT_EQ(showBanners(), step.banners) << ::testing::PrintToString(step.data);
  }
}

TEST_F(GSettingsFocusTest, AChangeMadeElsewhereIsSeen) {
  ASSERT_EQ(std::system("gsettings set org.gnome.desktop.notifications show-banners false"), 0);
  EXPECT_EQ(platform->focusModes().state()->active, std::string(kDoNotDisturb));
  EXPECT_EQ(plugin.execute({{"state", "off"}}), PluginResult::success("Turned \u201cDo Not Disturb\u201d off."));
  EXPECT_EQ(showBanners(), "true");
}

}  // namespace
}  // namespace orla
