#include "plugins/apps/preference_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

class PreferencePluginTest : public testing::SimTest {
 protected:
  PluginResult run(std::string pane) { return plugin.execute({{"pane", std::move(pane)}}); }
  PreferencePlugin plugin{platform};
};

constexpr const char* kUnknownTail =
    "” is not a settings pane Orla knows. Choose one from the menu, or enter the system's identifier for it (for "
    "example com.apple.preference.sound or sound).";

TEST_F(PreferencePluginTest, NamesResolveToARowAndIdentifiersPassAsTheyAre) {
  const struct {
    const char* text;
    const char* key;         // the row, or
    const char* identifier;  // the identifier, or neither
  } cases[] = {
      {"Sound", "sound", nullptr},
      {" SOUND ", "sound", nullptr},
      {"Printers & Scanners", "printers", nullptr},
      {"Date & Time", "dateTime", nullptr},
      {"date-time", "dateTime", nullptr},
      {"DATETIME", "dateTime", nullptr},
      {"com.apple.preference.security?Privacy_Accessibility", nullptr,
       "com.apple.preference.security?Privacy_Accessibility"},
      {"x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility", nullptr,
       "com.apple.preference.security?Privacy_Accessibility"},
      {"kcm_kwin_effects", nullptr, "kcm_kwin_effects"},
      {"--help", nullptr, nullptr},
      {"sound; rm -rf ~", nullptr, nullptr},
      {"a b", nullptr, nullptr},
      {"x?", nullptr, nullptr},
      {"x?a&b=c", nullptr, nullptr},
      {"", nullptr, nullptr},
  };
  for (const auto& c : cases) {
    const auto resolved = PreferencePlugin::resolvedPane(c.text);
    if (c.key) {
      ASSERT_TRUE(resolved && std::holds_alternative<const PreferencePlugin::Pane*>(*resolved)) << c.text;
      EXPECT_EQ(std::get<const PreferencePlugin::Pane*>(*resolved)->key, c.key) << c.text;
    } else if (c.identifier) {
      ASSERT_TRUE(resolved && std::holds_alternative<std::string>(*resolved)) << c.text;
      EXPECT_EQ(std::get<std::string>(*resolved), c.identifier);
    } else {
      EXPECT_FALSE(resolved) << c.text;
    }
  }
}

TEST_F(PreferencePluginTest, ValidationSentences) {
  EXPECT_EQ(plugin.validate({}), "Choose a settings pane from the menu, or enter its identifier.");
  EXPECT_EQ(plugin.validate({{"pane", "   "}}), "Choose a settings pane from the menu, or enter its identifier.");
  for (const char* bad : {"--help", "sound; rm -rf ~", "a b"})
    EXPECT_EQ(plugin.validate({{"identifier", bad}}), std::string("“") + bad + kUnknownTail);
  EXPECT_EQ(plugin.validate({{"Pane", "wifi"}}), std::nullopt);
  EXPECT_FALSE(plugin.requiresAccessibility({{"pane", "sound"}}));
  // Nothing is opened for text that fails validation.
  EXPECT_TRUE(run("--help").isFailure());
  EXPECT_TRUE(desktop->settings().opened().empty());
}

TEST_F(PreferencePluginTest, EachDesktopOpensItsOwnColumn) {
  const struct {
    const char* desktopName;
    const char* pane;
    PluginResult result;
    const char* request;  // null: nothing opened
  } cases[] = {
      {"macos", "sound", PluginResult::success("Opened the “Sound” settings."),
       "x-apple.systempreferences:com.apple.preference.sound"},
      {"gnome", "wifi", PluginResult::success("Opened the “Wi-Fi” settings."), "gnome-control-center wifi"},
      {"kde", "Sound", PluginResult::success("Opened the “Sound” settings."), "systemsettings kcm_pulseaudio"},
      {"gnome", "softwareUpdate",
       PluginResult::failure(
           "This desktop has no “Software Update” settings. Open the system settings and look for it there."),
       nullptr},
      {"gnome", "x-apple.systempreferences:sound-extra",
       PluginResult::success("Opened the settings pane “sound-extra”."), "gnome-control-center sound-extra"},
      {"macos", "accessibilityPermission", PluginResult::success("Opened the “Privacy & Security → Accessibility” settings."),
       "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"},
  };
  for (const auto& c : cases) {
    desktop->settings().setDesktop(c.desktopName);
    const auto before = desktop->settings().opened().size();
    EXPECT_EQ(run(c.pane), c.result) << c.desktopName << " " << c.pane;
    const auto opened = desktop->settings().opened();
    if (c.request) {
      ASSERT_EQ(opened.size(), before + 1) << c.pane;
      EXPECT_EQ(opened.back(), c.request);
    } else {
      EXPECT_EQ(opened.size(), before) << c.pane;
    }
  }
}

TEST_F(PreferencePluginTest, NoDesktopAndARefusalEachHaveTheirSentence) {
  desktop->settings().setDesktop(std::nullopt);
  EXPECT_EQ(run("sound"),
            PluginResult::failure("Opening settings panes is not available on this desktop in this build of Orla."));
  desktop->settings().setDesktop("gnome");
  desktop->settings().setRefuses(true);
  EXPECT_EQ(run("sound"), PluginResult::failure("The system settings did not open “Sound”. Open the system settings "
                                                "yourself and choose it there."));
  EXPECT_EQ(run("other-pane"), PluginResult::failure("The system settings did not open “other-pane”. Open the "
                                                     "system settings yourself and choose it there."));
}

}  // namespace
}  // namespace orla
