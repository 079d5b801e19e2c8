#include "plugins/input/key_shortcut_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;
using Resolved = KeyShortcutPlugin::Resolved;

TEST(KeyShortcutResolve, CommandTypeKeyCodeAndFlags) {
  struct Case {
    const char* name;
    ActionData data;
    std::int64_t type;
    std::optional<std::int64_t> keycode;
    std::uint64_t modifiers;
  };
  const std::optional<std::int64_t> none;
  const Case cases[] = {
      {"empty", {}, 1, none, 0},
      {"combined key code and flags", {{"keycode", 0x100000 + 0x31}}, 1, 0x31, 0x100000},
      {"bits above the byte that are no modifiers", {{"keycode", 300}}, 1, 44, 0},
      {"legacy key code", {{"Keycode", 12}}, 1, 12, 0},
      {"keycode wins over Keycode", {{"keycode", 1}, {"Keycode", 2}}, 1, 1, 0},
      {"unusable keycode falls to Keycode", {{"keycode", "x"}, {"Keycode", 2}}, 1, 2, 0},
      {"modifier switches", {{"keycode", 0}, {"asciiCode", 97}, {"shift", true}, {"function", 1}}, 1, 0, 0x820000},
      {"stray bits are masked", {{"keycode", 1}, {"modifiers", 0x1FFFFFF}}, 1, 1, 0x9F0000},
      {"negative modifiers are none", {{"keycode", 1}, {"modifiers", -1}}, 1, 1, 0},
      {"negative key code is kept", {{"keycode", -5}}, 1, -5, 0},
      {"actionType", {{"actionType", 2}, {"keycode", 1}}, 2, 1, 0},
      {"Action when actionType has no integer", {{"actionType", "?"}, {"Action", 3}, {"keycode", 1}}, 3, 1, 0},
      {"actionType 0 skips Action", {{"actionType", 0}, {"Action", 2}, {"keycode", 1}}, 1, 1, 0},
      {"keyDown false alone releases", {{"keyDown", false}, {"keycode", 1}}, 3, 1, 0},
      {"keyDown and keyUp true type", {{"keyDown", true}, {"keyUp", true}, {"keycode", 1}}, 1, 1, 0},
      {"down without up holds", {{"keyDown", 1}, {"keyUp", 0}, {"keycode", 1}}, 2, 1, 0},
      {"up only releases", {{"keyDown", false}, {"keyUp", true}, {"keycode", 1}}, 3, 1, 0},
      {"neither types", {{"keyDown", false}, {"keyUp", false}, {"keycode", 1}}, 1, 1, 0},
      {"hasKey true without key code sends 0", {{"hasKey", true}, {"command", true}}, 1, 0, 0x100000},
      {"hasKey false drops the key", {{"hasKey", false}, {"keycode", 4}, {"command", true}}, 1, none, 0x100000},
      {"old modifier-only recording", {{"keycode", 0}, {"command", true}}, 1, none, 0x100000},
      {"key code 0 with a character is A", {{"keycode", 0}, {"command", true}, {"AsciiCode", 97}}, 1, 0, 0x100000},
      {"key code 0 without modifiers is A", {{"keycode", 0}}, 1, 0, 0},
      {"hasKey of another case is ignored", {{"hasKey", "no"}, {"keycode", 4}}, 1, 4, 0},
  };
  for (const auto& c : cases) {
    const Resolved r = KeyShortcutPlugin::resolve(c.data);
    EXPECT_EQ(r.actionType, c.type) << c.name;
    EXPECT_EQ(r.keycode, c.keycode) << c.name;
    EXPECT_EQ(r.modifiers, c.modifiers) << c.name;
  }
}

TEST(KeyShortcutResolve, DisplayStringOfModifiersAlone) {
  EXPECT_EQ(KeyShortcutPlugin::resolve({{"keycode", 0}, {"command", true}}).displayString(),
            "\u2318 (modifiers only)");
  EXPECT_EQ(KeyShortcutPlugin::resolve({}).displayString(), "(nothing)");
  EXPECT_EQ(KeyShortcutPlugin::resolve({{"keycode", 40}, {"command", true}, {"option", true}}).displayString(),
            "\u2325\u2318K");
}

TEST(KeyShortcutValidate, Sentences) {
  const std::optional<std::string> valid;
  struct Case {
    ActionData data;
    std::optional<std::string> message;
  };
  const Case cases[] = {
      {{}, "Click Record, then press the key or key combination this command should simulate. "
           "You can also tick modifier keys alone (for example \u2318) to hold just those."},
      {{{"hasKey", false}, {"shift", true}}, valid},
      {{{"keycode", 127}}, valid},
      {{{"keycode", 128}}, "Invalid key code 128. Click Record and press the key again."},
      {{{"keycode", -5}}, "Invalid key code -5. Click Record and press the key again."},
      {{{"actionType", 4}, {"keycode", 1}}, "Unknown key command 4. Choose Type, Press or Release."},
      {{{"actionType", -1}, {"keycode", 1}}, "Unknown key command -1. Choose Type, Press or Release."},
  };
  auto desktop = std::make_shared<sim::SimDesktop>();
  KeyShortcutPlugin plugin(sim::makeSimPlatform(desktop));
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.message);
    if (c.message) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.message));
    }
  }
  EXPECT_TRUE(desktop->keyEvents().empty());
  EXPECT_TRUE(plugin.requiresAccessibility({}));
}

class KeyShortcutTest : public SimTest {
 protected:
  KeyShortcutTest() : plugin(platform) {
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", 300));
    desktop->setFrontmost(300);
  }

  // The key events and sleeps, in order, as the trace prints them.
  std::vector<std::string> events() const {
    std::vector<std::string> out;
    for (const auto& e : desktop->trace())
      if (e.category == "key" || e.category == "sleep") out.push_back(e.category + " " + e.text);
    return out;
  }

  KeyShortcutPlugin plugin;
};

TEST_F(KeyShortcutTest, PressAndHoldShiftA) {
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"keycode", 0}, {"shift", true}, {"hasKey", true}}),
            PluginResult::success("Holding \u21E7A down. Add a Release Key command with the same key to let go."));
  EXPECT_EQ(events(), (std::vector<std::string>{"key down 0x38 flags=0x20000", "sleep 5ms",
                                                "key down 0x00 flags=0x20000", "sleep 5ms"}));
}

TEST_F(KeyShortcutTest, ReleaseCommandOptionK) {
  EXPECT_EQ(plugin.execute({{"actionType", 3}, {"keycode", 40}, {"command", true}, {"option", true}}),
            PluginResult::silentSuccess());
  EXPECT_EQ(events(), (std::vector<std::string>{"key up 0x28 flags=0x180000", "sleep 5ms",
                                                "key up 0x3A flags=0x100000", "sleep 5ms",
                                                "key up 0x37 flags=0x0", "sleep 5ms"}));
}

TEST_F(KeyShortcutTest, TypeWithEveryModifierInTableOrder) {
  const std::uint64_t all = 0x9F0000;
  EXPECT_EQ(plugin.execute({{"keycode", 1}, {"modifiers", static_cast<std::int64_t>(all)}}),
            PluginResult::silentSuccess());
  EXPECT_EQ(events(), (std::vector<std::string>{
                          "key down 0x37 flags=0x900000", "sleep 5ms",  // function rides along
                          "key down 0x38 flags=0x920000", "sleep 5ms",
                          "key down 0x39 flags=0x930000", "sleep 5ms",
                          "key down 0x3A flags=0x9B0000", "sleep 5ms",
                          "key down 0x3B flags=0x9F0000", "sleep 5ms",
                          "key down 0x01 flags=0x9F0000", "sleep 5ms",
                          "sleep 20ms",
                          "key up 0x01 flags=0x9F0000", "sleep 5ms",
                          "key up 0x3B flags=0x9B0000", "sleep 5ms",
                          "key up 0x3A flags=0x930000", "sleep 5ms",
                          "key up 0x39 flags=0x920000", "sleep 5ms",
                          "key up 0x38 flags=0x900000", "sleep 5ms",
                          "key up 0x37 flags=0x800000", "sleep 5ms",
                      }));
}

TEST_F(KeyShortcutTest, ModifiersOnlySkipTheTargetCheck) {
  desktop->setFrontmost(desktop->host().processIdentifier);  // Test pressed in the host
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"hasKey", false}, {"command", true}}),
            PluginResult::success("Holding \u2318 (modifiers only) down. Add a Release Key command with the same key to let go."));
  EXPECT_EQ(events(), (std::vector<std::string>{"key down 0x37 flags=0x100000", "sleep 5ms"}));
}

TEST_F(KeyShortcutTest, TargetCheckWhenTheHostIsInFront) {
  const std::string noTarget =
      "No target app to send \u2318A to. Click into the app that should receive the key, then click Test again.";
  const ActionData commandA{{"keycode", 0}, {"command", true}, {"hasKey", true}};
  desktop->setFrontmost(desktop->host().processIdentifier);

  EXPECT_EQ(plugin.execute(commandA), PluginResult::failure(noTarget)) << "no last application";
  TypingTargetContext::setLastUserAppBundleID("com.example.Gone");
  EXPECT_EQ(plugin.execute(commandA), PluginResult::failure(noTarget)) << "last application not running";
  EXPECT_TRUE(desktop->keyEvents().empty());

  TypingTargetContext::setLastUserAppBundleID("com.apple.TextEdit");
  desktop->setRefusesActivation(300, true);
  desktop->clearTrace();
  EXPECT_EQ(plugin.execute(commandA), PluginResult::failure(noTarget)) << "activation never succeeds";
  EXPECT_EQ(desktop->trace("activate"), (std::vector<sim::TraceEntry>{{"activate", "pid=300 options=2"}}));
  EXPECT_EQ(desktop->trace("sleep").size(), 20u);
  EXPECT_TRUE(desktop->keyEvents().empty());

  desktop->setRefusesActivation(300, false);
  desktop->clearTrace();
  EXPECT_EQ(plugin.execute(commandA), PluginResult::silentSuccess());
  EXPECT_EQ(desktop->frontmostApplication()->processIdentifier, 300);
  const auto sleeps = desktop->trace("sleep");
  ASSERT_FALSE(sleeps.empty());
  EXPECT_EQ(sleeps.front().text, "50ms") << "one poll, then the keys";
  EXPECT_EQ(desktop->keyEvents().size(), 4u);
}

TEST_F(KeyShortcutTest, EventFailures) {
  desktop->setEventSourcesAvailable(false);
  EXPECT_EQ(plugin.execute({{"keycode", 1}}), PluginResult::failure("Could not create a keyboard event source."));

  desktop->setEventSourcesAvailable(true);
  desktop->failKeyEventsAfter(1);  // Shift goes down, A does not
  EXPECT_EQ(plugin.execute({{"keycode", 0}, {"shift", true}, {"hasKey", true}}),
            PluginResult::failure("Failed to create key down event for keycode 0"));
  EXPECT_EQ(desktop->keyEvents().size(), 1u) << "no release after a failed press, nothing rolled back";

  desktop->failKeyEventsAfter(0);
  EXPECT_EQ(plugin.execute({{"actionType", 3}, {"keycode", 7}}),
            PluginResult::failure("Failed to create key up event for keycode 7"));
}

TEST_F(KeyShortcutTest, CommandVPastesIntoTheFrontTextField) {
  desktop->setTextField(300, sim::SimTextField{u"Dear Sir,", 5, 3, {}});
  desktop->setClipboardText("Ada");
  EXPECT_EQ(plugin.execute({{"keycode", 9}, {"command", true}}), PluginResult::silentSuccess());
  EXPECT_EQ(desktop->textFieldValue(300), "Dear Ada,");
}

}  // namespace
}  // namespace orla
