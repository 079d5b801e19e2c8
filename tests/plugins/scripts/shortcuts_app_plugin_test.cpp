// The Shortcuts plugin against the simulated desktop's Shortcuts tool, and
// on the native Linux desktop, where the tool does not exist.
#include "plugins/scripts/shortcuts_app_plugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::SimTest;
using sim::AppleShortcut;

class ShortcutsAppTest : public SimTest {
 protected:
  ShortcutsAppTest() : plugin(platform) {
    temporary = fs::temp_directory_path() / ("orla-shortcuts-" + std::to_string(::getpid()) + "-" +
                                             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(temporary);
    desktop->setEnvironment({{"HOME", "/home/ada"}, {"TMPDIR", temporary.string()}});
    desktop->programs().setAppleShortcuts({
        {"Translate", "  Bonjour\n", 0, ""},
        {"Make PDF", std::nullopt, 0, ""},
        {"Broken", std::nullopt, 1, "Error: The action “Get File” could not run.\n"},
        {"Silent failure", std::nullopt, 1, ""},
        {"Lost helper", std::nullopt, 1, "Error: Couldn't communicate with a helper application.\n"},
    });
  }
  ~ShortcutsAppTest() override { fs::remove_all(temporary); }

  // What the runs left in the temporary folder.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(temporary)) names.push_back(entry.path().filename().string());
    return names;
  }

  std::vector<std::string> traceTexts(std::string_view category) const {
    std::vector<std::string> texts;
    for (const auto& entry : desktop->trace(category)) texts.push_back(entry.text);
    return texts;
  }

  ShortcutsAppPlugin plugin;
  fs::path temporary;
};

TEST_F(ShortcutsAppTest, ValidatesTheNameAgainstTheListWhenThereIsOne) {
  EXPECT_EQ(ShortcutsAppPlugin::listShortcutNames(*platform),
            (std::vector<std::string>{"Translate", "Make PDF", "Broken", "Silent failure", "Lost helper"}));
  const std::string noSuch =
      "No shortcut named “Translte”. Pick one from the menu, or check the name in the Shortcuts app.";
  EXPECT_EQ(plugin.validate({}), "Choose an Apple Shortcut to run.");
  EXPECT_EQ(plugin.validate({{"shortcutName", "  "}, {"Name", " "}}), "Choose an Apple Shortcut to run.");
  EXPECT_EQ(plugin.validate({{"Shortcut", " translate "}}), std::nullopt);
  EXPECT_EQ(plugin.validate({{"name", "Translte"}}), noSuch);
  // A tool that cannot answer must not block editing.
  desktop->programs().setShortcutsReachHelper(false);
  EXPECT_EQ(plugin.validate({{"name", "Translte"}}), std::nullopt);
  desktop->programs().setShortcutsReachHelper(true);
  desktop->programs().setMissing(std::string(ShortcutsAppPlugin::tool));
  EXPECT_EQ(plugin.validate({{"name", "Translte"}}), std::nullopt);
  EXPECT_EQ(plugin.execute({}), PluginResult::failure("Choose an Apple Shortcut to run."));
}

TEST_F(ShortcutsAppTest, RunsInTheBackgroundAndReportsTheShortcutsText) {
  struct Case {
    ActionData data;
    PluginResult expected;
    std::string ran;
  };
  const Case cases[] = {
      {{{"shortcutName", "translate"}, {"input", " Hello "}}, PluginResult::success("Bonjour"),
       "run “Translate” with input “Hello”"},
      {{{"shortcutName", "TRANSLATE"}, {"input", "   "}}, PluginResult::success("Bonjour"), "run “Translate”"},
      {{{"Name", "Make PDF"}, {"Text", "page"}}, PluginResult::success("Ran “Make PDF”. It produced no text."),
       "run “Make PDF” with input “page”"},
      {{{"name", "Broken"}}, PluginResult::failure("Error: The action “Get File” could not run."), "run “Broken”"},
      {{{"name", "Silent failure"}},
       PluginResult::failure("Apple Shortcut “Silent failure” failed. Check the name in the Shortcuts app."),
       "run “Silent failure”"},
      // Not in the list: still tried, under the name as typed.
      {{{"name", "Nowhere"}}, PluginResult::failure("Error: The shortcut “Nowhere” couldn’t be found."),
       "run “Nowhere”"},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    EXPECT_EQ(plugin.execute(c.data), c.expected) << c.ran;
    EXPECT_EQ(traceTexts("shortcuts"), (std::vector<std::string>{"list", c.ran}));
    EXPECT_TRUE(desktop->trace("open").empty()) << c.ran;
    EXPECT_EQ(leftovers(), std::vector<std::string>{}) << c.ran;
  }
}

TEST_F(ShortcutsAppTest, PassesTheFilesAndTheTypeToTheTool) {
  ASSERT_EQ(plugin.execute({{"name", "Translate"}, {"input", "Hi"}}), PluginResult::success("Bonjour"));
  const auto runs = traceTexts("process");
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0], "run /usr/bin/shortcuts list");
  const std::string prefix = "run /usr/bin/shortcuts run Translate --output-path " +
                             (temporary / "orla-shortcuts-out-").string();
  EXPECT_TRUE(runs[1].starts_with(prefix)) << runs[1];
  EXPECT_NE(runs[1].find(".txt --output-type public.plain-text --input-path " +
                         (temporary / "orla-shortcuts-in-").string()),
            std::string::npos)
      << runs[1];
}

TEST_F(ShortcutsAppTest, OpensTheAppWhenAskedOrWhenTheToolCannotRunIt) {
  const std::string opened = "Opened the Shortcuts app to run “Translate”.";
  // Asked to: the typed name, no tool at all.
  EXPECT_EQ(plugin.execute({{"name", "translate"}, {"runInApp", true}}),
            PluginResult::success("Opened the Shortcuts app to run “translate”."));
  EXPECT_EQ(traceTexts("open"), std::vector<std::string>{"shortcuts://run-shortcut?name=translate"});
  EXPECT_TRUE(desktop->trace("process").empty());

  struct Case {
    const char* name;
    std::function<void()> arrange;
    ActionData data;
    std::string message;
    std::string address;
  };
  const Case cases[] = {
      {"tool without its helper", [&] { desktop->programs().setShortcutsReachHelper(false); },
       {{"name", "Translate"}, {"input", "Hi there"}}, opened + "\nInput: Hi there",
       "shortcuts://run-shortcut?name=Translate&input=Hi%20there"},
      {"helper error from the run", [] {}, {{"name", "Lost helper"}},
       "Opened the Shortcuts app to run “Lost helper”.", "shortcuts://run-shortcut?name=Lost%20helper"},
      {"no tool", [&] { desktop->programs().setMissing(std::string(ShortcutsAppPlugin::tool)); },
       {{"name", "Translate"}, {"openInShortcuts", 0}}, opened, "shortcuts://run-shortcut?name=Translate"},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    c.arrange();
    EXPECT_EQ(plugin.execute(c.data), PluginResult::success(c.message)) << c.name;
    EXPECT_EQ(traceTexts("open"), std::vector<std::string>{c.address}) << c.name;
    EXPECT_EQ(leftovers(), std::vector<std::string>{}) << c.name;
  }

  desktop->documents().setURLHandler("shortcuts", std::nullopt);
  EXPECT_EQ(plugin.execute({{"name", "Translate"}, {"runInApp", 1}}),
            PluginResult::failure("Could not open Shortcuts to run “Translate”."));
}

TEST_F(ShortcutsAppTest, TheAddressCarriesNameAndInputAsTyped) {
  EXPECT_EQ(ShortcutsAppPlugin::shortcutsURL("Say & Do = 100%", "a+b #1\nnext"),
            "shortcuts://run-shortcut?name=Say%20%26%20Do%20%3D%20100%25&input=a%2Bb%20%231%0Anext");
  EXPECT_EQ(ShortcutsAppPlugin::shortcutsURL("Café", ""), "shortcuts://run-shortcut?name=Caf%C3%A9");
  EXPECT_EQ(ShortcutsAppPlugin::shortcutsURL("bad \xFF", ""), std::nullopt);
  EXPECT_EQ(plugin.execute({{"name", "bad \xFF"}, {"runInApp", true}}),
            PluginResult::failure("Could not build a Shortcuts URL for “bad \xFF”."));
}

TEST_F(ShortcutsAppTest, AnInputThatCannotBeWrittenIsReported) {
  desktop->setEnvironment({{"TMPDIR", (temporary / "gone").string()}});
  const auto result = plugin.execute({{"name", "Translate"}, {"input", "Hi"}});
  EXPECT_EQ(result, PluginResult::failure("Could not write shortcut input: The folder “" +
                                          (temporary / "gone").string() + "” doesn’t exist."));
}

TEST(ShortcutsAppNative, WithoutTheToolItFallsBackToTheAppAndSaysWhatFailed) {
  // This machine has no Shortcuts tool: the launch fails, the app is opened
  // instead, and the desktop cannot open the address either.
  ASSERT_FALSE(std::filesystem::exists(ShortcutsAppPlugin::tool));
  ShortcutsAppPlugin plugin(makeNativePlatform());
  EXPECT_EQ(plugin.validate({{"name", "Anything"}}), std::nullopt);
  EXPECT_EQ(plugin.execute({{"name", "Anything"}, {"input", "x"}}),
            PluginResult::failure("Could not open Shortcuts to run “Anything”."));
}

}  // namespace
}  // namespace orla
