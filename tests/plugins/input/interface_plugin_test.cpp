#include "plugins/input/interface_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using sim::SimControl;
using sim::SimWindow;

constexpr ProcessId kApp = 300;

SimControl control(std::string role, std::string title, std::optional<AXValue> value = std::nullopt) {
  SimControl c;
  c.role = std::move(role);
  c.title = std::move(title);
  c.value = std::move(value);
  return c;
}

class InterfacePluginTest : public testing::SimTest {
 protected:
  InterfacePluginTest() : plugin(platform) {
    desktop->addApplication(app("Forms", "org.example.Forms", kApp));
    desktop->setFrontmost(kApp);
  }

  void show(std::vector<SimControl> controls, std::vector<SimControl> second = {}) {
    SimWindow window;
    window.title = "Order";
    window.controls = std::move(controls);
    std::vector<SimWindow> windows{window};
    if (!second.empty()) {
      SimWindow other;
      other.title = "Other";
      other.controls = std::move(second);
      windows.push_back(other);
    }
    desktop->ui().setWindows(kApp, windows);
  }

  std::vector<SimControl> controls() const { return desktop->ui().windows(kApp).front().controls; }
  std::vector<std::string> traced(std::string_view category) const {
    std::vector<std::string> out;
    for (const auto& entry : desktop->trace(category)) out.push_back(entry.text);
    return out;
  }

  InterfacePlugin plugin;
};

TEST_F(InterfacePluginTest, ValidationTellsTheFirstProblem) {
  const std::pair<ActionData, std::optional<std::string>> cases[] = {
      {{{"actionType", 6}, {"title", "OK"}}, "Unknown UI Element command. Choose one from the menu."},
      {{{"title", "  "}}, "Enter the title or the identifier of the element, for example OK."},
      {{{"title", "OK"}, {"elementKind", 8}}, "Choose the kind of element from the menu."},
      {{{"title", "OK"}, {"role", -1}}, "Choose the kind of element from the menu."},
      {{{"title", "OK"}, {"occurrence", 0}}, "The occurrence must be 1 or more (1 is the first matching element)."},
      {{{"title", "OK"}, {"timeout", 30.5}}, "The time-out must be between 0 and 30 seconds."},
      {{{"title", "OK"}, {"timeout", -0.1}}, "The time-out must be between 0 and 30 seconds."},
      {{{"subAction", "fill"}, {"identifier", "notes"}, {"text", std::string(100001, 'x')}},
       "The text is longer than 100,000 characters. Shorten it, or paste it with the Clipboard action."},
      {{{"subAction", "read"}, {"identifier", "notes"}, {"text", std::string(100001, 'x')}}, std::nullopt},
      {{{"subAction", "fill"}, {"identifier", "notes"}, {"text", std::string(100000, 'x')}}, std::nullopt},
      {{{"subAction", "check"}, {"name", "Bold"}, {"timeout", 0}}, std::nullopt},
  };
  for (const auto& [data, message] : cases) {
    EXPECT_EQ(plugin.validate(data), message) << (message ? *message : "valid");
    if (message) {
      EXPECT_EQ(plugin.execute(data), PluginResult::failure(*message));
    }
  }
  EXPECT_TRUE(plugin.requiresAccessibility({}));
}

TEST_F(InterfacePluginTest, FindsByKindTitleIdentifierAndOccurrence) {
  SimControl saveButton = control("AXButton", "Save…");
  saveButton.identifier = "saveButton";
  SimControl group = control("AXGroup", "");
  group.children = {control("AXButton", "OK"), control("AXButton", "Save as Draft")};
  SimControl described = control("AXButton", "");
  described.description = "Zoom in";
  SimControl labelled = control("AXTextField", "", AXValue(""));
  labelled.label = "Email";
  SimControl hinted = control("AXTextField", "", AXValue(""));
  hinted.placeholder = "Search";
  show({control("AXStaticText", "", AXValue("OK")), group, saveButton, described, labelled, hinted});

  struct Case {
    ActionData data;
    std::string message;
  };
  const Case cases[] = {
      {{{"title", "OK"}, {"elementKind", 1}}, "Pressed “OK”."},
      {{{"title", "OK"}}, "Pressed “OK”."},  // the label comes first, and presses fine
      {{{"title", "Save..."}}, "Pressed “Save…”."},
      {{{"identifier", "saveButton"}}, "Pressed “Save…”."},
      {{{"title", "save"}, {"matchType", 4}, {"occurrence", 2}}, "Pressed “Save…”."},
      {{{"title", "zoom in"}}, "Pressed “Zoom in”."},
      {{{"title", "Email"}, {"elementKind", 2}}, "Pressed “Email”."},
      {{{"title", "Search"}, {"elementKind", 2}}, "Pressed “Search”."},
  };
  for (const Case& c : cases) EXPECT_EQ(plugin.execute(c.data), PluginResult::success(c.message)) << c.message;
  // Kind 0 takes the label, first in depth-first order; kind 1 the button.
  desktop->clearTrace();
  ASSERT_TRUE(plugin.execute({{"title", "OK"}}).kind() == PluginResult::Kind::success);
  EXPECT_EQ(traced("axAction"), (std::vector<std::string>{"AXPress AXStaticText “OK” pid=300"}));
  desktop->clearTrace();
  ASSERT_TRUE(plugin.execute({{"title", "OK"}, {"elementKind", 1}}).kind() == PluginResult::Kind::success);
  EXPECT_EQ(traced("axAction"), (std::vector<std::string>{"AXPress AXButton “OK” pid=300"}));

  const Case failures[] = {
      {{{"identifier", "SaveButton"}},
       "Found no element with the identifier “SaveButton” in “Forms”. Titles there: OK, Save as Draft, Save…, Zoom in, "
       "Email, Search. Check the title or identifier, or allow a longer time-out, then click Test again."},
      {{{"title", "OK"}, {"elementKind", 1}, {"occurrence", 2}},
       "Found only 1 matching element in “Forms”, so there is no number 2. Titles there: OK, Save as Draft, Save…, "
       "Zoom in. Check the title or identifier, or allow a longer time-out, then click Test again."},
      {{{"title", "Save"}, {"matchType", 4}, {"occurrence", 3}},
       "Found only 2 matching elements in “Forms”, so there is no number 3. Titles there: OK, Save as Draft, Save…, "
       "Zoom in, Email, Search. Check the title or identifier, or allow a longer time-out, then click Test again."},
      {{{"title", "Sub"}, {"matchType", 3}, {"identifier", "go"}, {"elementKind", 6}},
       "Found no link whose title contains “Sub” and with the identifier “go” in “Forms”. Check the title or "
       "identifier, or allow a longer time-out, then click Test again."},
  };
  for (const Case& c : failures)
    EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(c.message)) << c.message;
}

TEST_F(InterfacePluginTest, WaitsForAnElementInQuarterSeconds) {
  SimControl late = control("AXButton", "Continue");
  late.appearsAfter = std::chrono::seconds(1);
  show({late});
  EXPECT_EQ(plugin.execute({{"title", "Continue"}, {"subAction", "read"}, {"timeout", 2}}),
            PluginResult::success("“Continue” is empty."));
  EXPECT_EQ(traced("sleep"), (std::vector<std::string>(4, "250ms")));

  show({late});
  desktop->clearTrace();
  EXPECT_FALSE(plugin.execute({{"title", "Continue"}, {"subAction", "read"}, {"timeout", 0}}).kind() == PluginResult::Kind::success);
  EXPECT_TRUE(traced("sleep").empty());

  // The last pass comes at the deadline itself.
  show({late});
  desktop->clearTrace();
  EXPECT_FALSE(plugin.execute({{"title", "Continue"}, {"subAction", "read"}, {"timeout", 0.6}}).kind() == PluginResult::Kind::success);
  EXPECT_EQ(traced("sleep"), (std::vector<std::string>{"250ms", "250ms", "100ms"}));
}

TEST_F(InterfacePluginTest, SearchStopsAtFiveThousandElements) {
  std::vector<SimControl> many;
  for (int i = 0; i < 6000; ++i) many.push_back(control("AXButton", "Item " + std::to_string(i)));
  show(many);
  const auto result = plugin.execute({{"title", "Item 5500"}, {"timeout", 0}});
  ASSERT_FALSE(result.kind() == PluginResult::Kind::success);
  EXPECT_TRUE(result.message().starts_with("Found no element whose title is “Item 5500” in “Forms”. Titles there: "
                                           "Item 0, Item 1, "))
      << result.message();
  // The window's own three buttons are visited first.
  EXPECT_NE(result.message().find(", Item 11, … (4997 items)."), std::string::npos) << result.message();
  EXPECT_EQ(plugin.execute({{"title", "Item 4996"}, {"timeout", 0}}), PluginResult::success("Pressed “Item 4996”."));
  EXPECT_EQ(plugin.execute({{"title", "Item 4997"}, {"timeout", 0}}).kind(), PluginResult::Kind::failure);
}

TEST_F(InterfacePluginTest, SearchesTheFocusedWindowFirst) {
  show({control("AXButton", "Apply")}, {control("AXButton", "Apply"), control("AXButton", "Close")});
  desktop->clearTrace();
  ASSERT_EQ(plugin.execute({{"title", "Close"}}), PluginResult::success("Pressed “Close”."));
  // Occurrence 2 is the second window's "Apply": windows are searched in turn.
  ASSERT_TRUE(plugin.execute({{"title", "Apply"}, {"occurrence", 2}}).kind() == PluginResult::Kind::success);
  EXPECT_TRUE(plugin.execute({{"title", "Apply"}, {"occurrence", 3}, {"timeout", 0}})
                  .message()
                  .starts_with("Found only 2 matching elements in “Forms”, so there is no number 3."));
}

TEST_F(InterfacePluginTest, SetsTextAndKeepsItOutOfMessages) {
  SimControl field = control("AXTextField", "Name", AXValue("old"));
  SimControl secret = control("AXTextField", "Password", AXValue(""));
  secret.subrole = "AXSecureTextField";
  SimControl locked = control("AXTextField", "Code", AXValue("1234"));
  locked.settable = false;
  SimControl greyed = control("AXTextField", "City", AXValue(""));
  greyed.enabled = false;
  show({field, secret, locked, greyed});

  EXPECT_EQ(plugin.execute({{"subAction", "fill"}, {"title", "Name"}, {"text", "  Ada Lovelace"}}),
            PluginResult::success("Set the text of “Name”."));
  EXPECT_EQ(controls()[0].value, AXValue("  Ada Lovelace"));
  EXPECT_EQ(plugin.execute({{"subAction", "fill"}, {"title", "Name"}}), PluginResult::success("Set the text of “Name”."));
  EXPECT_EQ(controls()[0].value, AXValue(""));
  EXPECT_EQ(plugin.execute({{"subAction", "setText"}, {"title", "Password"}, {"value", "hunter2"}}),
            PluginResult::success("Set the text of “Password”."));
  EXPECT_EQ(controls()[1].value, AXValue("hunter2"));
  EXPECT_EQ(plugin.execute({{"subAction", "read"}, {"title", "Password"}}),
            PluginResult::failure("“Password” is a password field, and Orla never reads password fields. Choose "
                                  "another element."));
  EXPECT_EQ(plugin.execute({{"subAction", "fill"}, {"title", "Code"}, {"text", "0000"}}),
            PluginResult::failure("“Forms” did not accept the text for “Code”. Type it with the Type Text action "
                                  "instead."));
  EXPECT_EQ(plugin.execute({{"subAction", "fill"}, {"title", "City"}, {"text", "Paris"}}),
            PluginResult::failure("“City” is disabled in “Forms” right now (greyed out), so nothing happened. Try "
                                  "again once it is enabled."));
  // Not even the desktop's own record shows what went into a password field.
  for (const auto& entry : desktop->trace()) EXPECT_EQ(entry.text.find("hunter2"), std::string::npos) << entry.text;
  EXPECT_EQ(plugin.execute({{"subAction", "focus"}, {"title", "Name"}}), PluginResult::success("Focused “Name”."));
  EXPECT_EQ(plugin.execute({{"subAction", "focus"}, {"title", "Code"}}),
            PluginResult::failure("“Forms” did not move the focus to “Code”. Click it with the Mouse action instead."));
}

TEST_F(InterfacePluginTest, ReadsValuesAsText) {
  SimControl point = control("AXValueIndicator", "Spot", AXValue(Point{1, 2}));
  show({control("AXTextField", "Note", AXValue("hello")), control("AXSlider", "Volume", AXValue(3.0)),
        control("AXSlider", "Gain", AXValue(0.1)), control("AXCheckBox", "Bold", AXValue(true)),
        control("AXTextField", "Empty", AXValue("")), control("AXButton", "Plain"), point,
        control("AXTextField", "Long", AXValue(std::string(500, 'a')))});
  const std::pair<const char*, PluginResult> cases[] = {
      {"Note", PluginResult::success("hello")},
      {"Volume", PluginResult::success("3")},
      {"Gain", PluginResult::success("0.1")},
      {"Bold", PluginResult::success("1")},
      {"Empty", PluginResult::success("“Empty” is empty.")},
      {"Plain", PluginResult::success("“Plain” is empty.")},
      {"Spot", PluginResult::failure("“Spot” has no value that Orla can read. Choose a text field, checkbox or label.")},
      {"Long", PluginResult::success(std::string(400, 'a') + "… (500 characters)")},
  };
  for (const auto& [title, result] : cases)
    EXPECT_EQ(plugin.execute({{"subAction", "getValue"}, {"title", title}}), result) << title;

  desktop->setClipboardText("before");
  EXPECT_EQ(plugin.execute({{"subAction", "copyValue"}, {"title", "Empty"}, {"copyToClipboard", true}}),
            PluginResult::success("“Empty” is empty, so the clipboard was left as it was."));
  EXPECT_EQ(desktop->clipboardText(), "before");
  EXPECT_TRUE(plugin.execute({{"subAction", "read"}, {"title", "Long"}, {"copyToClipboard", true}}).kind() == PluginResult::Kind::success);
  EXPECT_EQ(desktop->clipboardText(), std::string(500, 'a'));
  // Reading never brings the application forward.
  desktop->setFrontmost(std::nullopt);
  desktop->clearTrace();
  EXPECT_EQ(plugin.execute({{"subAction", "read"}, {"title", "Note"}, {"Application", "Forms"}}),
            PluginResult::success("hello"));
  EXPECT_TRUE(traced("sleep").empty());
}

TEST_F(InterfacePluginTest, TurnsCheckboxesAndRadioButtons) {
  SimControl bold = control("AXCheckBox", "Bold", AXValue(1.0));
  bold.press = "toggle";
  SimControl italic = control("AXCheckBox", "Italic", AXValue(0.0));
  italic.press = "toggle";
  SimControl mixed = control("AXCheckBox", "Mixed", AXValue(2.0));
  mixed.press = "toggle";
  SimControl stuck = control("AXCheckBox", "Stuck", AXValue(false));
  SimControl greyed = control("AXCheckBox", "Greyed", AXValue(0.0));
  greyed.enabled = false;
  greyed.press = "toggle";
  SimControl radio = control("AXRadioButton", "Large", AXValue(1.0));
  radio.press = "toggle";
  show({bold, italic, mixed, stuck, greyed, radio, control("AXButton", "OK")});

  struct Case {
    const char* title;
    bool on;
    PluginResult result;
    std::size_t presses;
  };
  const Case cases[] = {
      {"Bold", true, PluginResult::success("“Bold” was already on."), 0},
      {"Italic", true, PluginResult::success("Turned “Italic” on."), 1},
      {"Italic", false, PluginResult::success("Turned “Italic” off."), 1},
      {"Mixed", true, PluginResult::success("Turned “Mixed” on."), 1},
      {"Stuck", true,
       PluginResult::failure("“Stuck” did not turn on in “Forms”. Check that it can be changed, then click Test again."),
       1},
      {"Greyed", true,
       PluginResult::failure("“Greyed” is disabled in “Forms” right now (greyed out), so nothing happened. Try again "
                             "once it is enabled."),
       0},
      {"Large", false,
       PluginResult::failure("A radio button can't be turned off. Turn on another button of its group instead."), 0},
      {"OK", true, PluginResult::failure("“OK” is not a checkbox or switch. Choose one, then click Test again."), 0},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    EXPECT_EQ(plugin.execute({{"subAction", "setChecked"}, {"title", c.title}, {"checked", c.on}}), c.result) << c.title;
    EXPECT_EQ(traced("axAction").size(), c.presses) << c.title;
  }
  EXPECT_EQ(traced("sleep").size(), 0u);  // the last case pressed nothing
}

TEST_F(InterfacePluginTest, PressFailuresAndTargetsAreSentences) {
  SimControl refusing = control("AXButton", "Send");
  refusing.press = "refuse";
  SimControl opener = control("AXButton", "Show Report");
  opener.press = "open";
  opener.opens = "Report";
  show({refusing, opener});
  EXPECT_EQ(plugin.execute({{"title", "Send"}}),
            PluginResult::failure("“Forms” did not accept the press on “Send”. Click it with the Mouse action instead."));
  EXPECT_EQ(plugin.execute({{"title", "Show Report"}}), PluginResult::success("Pressed “Show Report”."));
  EXPECT_EQ(desktop->ui().windows(kApp).front().title, "Report");
  EXPECT_EQ(plugin.execute({{"title", "Send"}, {"Application", "Mail"}}),
            PluginResult::failure("“Mail” is not running. Launch it, then click Test again."));
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(plugin.execute({{"title", "Send"}}),
            PluginResult::failure("Accessibility permission is required for UI element actions. Enable Orla Pro in "
                                  "System Settings → Privacy & Security → Accessibility."));
}

}  // namespace
}  // namespace orla
