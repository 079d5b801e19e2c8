#include "plugins/text/type_text_plugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;
using namespace std::chrono_literals;

class TypeTextTest : public SimTest {
 protected:
  TypeTextTest() : plugin(platform) {
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", 300));
    desktop->setFrontmost(300);
    desktop->setTextField(300, sim::SimTextField{});
    desktop->setLocale("en_US");
    auto instant = parseLocalDateTime("2026-11-21T09:05:07", desktop->timeZone());
    desktop->setNow(*instant);
  }

  std::string previewOf(const ActionData& data) {
    auto result = TypeTextPlugin::preview(data, desktop->now(), *platform);
    return result ? result->sourceLabel + ": " + result->text : "failure: " + result.error();
  }

  std::size_t keyEventCount() const { return desktop->keyEvents().size(); }

  TypeTextPlugin plugin;
};

TEST_F(TypeTextTest, PreviewResolvesEachSource) {
  const auto folder = std::filesystem::temp_directory_path() / ("orla-type-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "note.txt") << "From a file";
  std::ofstream(folder / "empty.txt");
  desktop->setEnvironment({{"HOME", folder.string()}});
  desktop->setClipboardText("On the clipboard");
  struct Case {
    const char* name;
    ActionData data;
    std::string expected;
  };
  const Case cases[] = {
      {"no text key", {}, "failure: No text specified. Enter text in the editor, then click Test."},
      {"empty text wins over Text", {{"text", ""}, {"Text", "x"}},
       "failure: No text specified. Type the text in the box, then click Test."},
      {"text kept as it stands", {{"text", "  Hi\n"}}, "Type custom text:   Hi\n"},
      {"alias", {{"text", 5}, {"TypeText", "legacy"}}, "Type custom text: legacy"},
      {"unlisted number types the custom text", {{"actionType", 7}, {"text", "x"}}, "Type custom text: x"},
      {"date by the legacy key", {{"Action", 2}}, "Type current date/time: 2026-11-21 09:05:07"},
      {"date format held in text", {{"actionType", 2}, {"text", "HH:mm"}}, "Type current date/time: 09:05"},
      {"dateFormat first", {{"actionType", 2}, {"dateFormat", "yyyy"}, {"text", "HH"}}, "Type current date/time: 2026"},
      {"date of only a quote", {{"actionType", 2}, {"dateFormat", "''"}}, "Type current date/time: '"},
      {"file", {{"actionType", 3}, {"filePath", "~/note.txt"}}, "Type file contents: From a file"},
      {"no file", {{"actionType", 3}, {"filePath", "  "}},
       "failure: No file chosen. Click Browse\u2026 and pick a text file (.txt, .rtf, .rtfd)."},
      {"missing file", {{"actionType", 3}, {"path", "~/gone.txt"}}, "failure: File not found: " + (folder / "gone.txt").string()},
      {"empty file", {{"actionType", 3}, {"Path", "~/empty.txt"}},
       "failure: Could not read text from file: " + (folder / "empty.txt").string()},
      {"a folder", {{"actionType", 3}, {"filePath", "~"}}, "failure: Could not read text from file: " + folder.string()},
      {"clipboard", {{"actionType", 4}}, "Type clipboard contents: On the clipboard"},
  };
  for (const auto& c : cases) EXPECT_EQ(previewOf(c.data), c.expected) << c.name;
  desktop->setClipboardText(std::nullopt);
  EXPECT_EQ(previewOf({{"actionType", 4}}), "failure: Clipboard is empty or contains no text.");
  EXPECT_EQ(plugin.validate({{"actionType", 4}}), "Clipboard is empty or contains no text.");
  EXPECT_EQ(TypeTextPlugin::dateFormatForEditing({{"text", "HH"}}), "yyyy-MM-dd HH:mm:ss");
  EXPECT_EQ(TypeTextPlugin::dateFormatForEditing({{"dateFormat", "HH"}}), "HH");
  std::filesystem::remove_all(folder);
}

TEST(TypeTextDelay, SpeedRules) {
  struct Case {
    ActionData data;
    std::chrono::microseconds expected;
  };
  const Case cases[] = {
      {{}, 10ms},
      {{{"charsPerSecond", 0}}, 10ms},
      {{{"charsPerSecond", -3}}, 10ms},
      {{{"charsPerSecond", 5}}, 200ms},
      {{{"charsPerSecond", 2.5}}, 400ms},
      {{{"charsPerSecond", true}}, 1000ms},
      {{{"charsPerSecond", false}}, 10ms},
      {{{"charsPerSecond", "5"}, {"CharSecond", 20}}, 50ms},  // text is no speed
      {{{"charSecond", 1000}}, 1ms},
  };
  for (const auto& c : cases) EXPECT_EQ(TypeTextPlugin::delayPerCharacter(c.data), c.expected);
}

TEST_F(TypeTextTest, EachPerceivedCharacterIsOneEventPair) {
  const std::string text = "e\u0301\U0001F44D\U0001F3FD\U0001F1EB\U0001F1F7a";  // é, 👍🏽, 🇫🇷, a
  EXPECT_EQ(plugin.execute({{"text", text}, {"charsPerSecond", 5}}), PluginResult::silentSuccess());
  const auto events = desktop->keyEvents();
  ASSERT_EQ(events.size(), 8u);
  const std::u16string expected[] = {u"e\u0301", u"\U0001F44D\U0001F3FD", u"\U0001F1EB\U0001F1F7", u"a"};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(events[2 * i], (KeyboardEvent{0, true, 0, expected[i]}));
    EXPECT_EQ(events[2 * i + 1], (KeyboardEvent{0, false, 0, expected[i]}));
  }
  EXPECT_EQ(desktop->textFieldValue(300), text);
  const auto sleeps = desktop->trace("sleep");
  ASSERT_EQ(sleeps.size(), 4u);
  EXPECT_EQ(sleeps[0].text, "200ms");
}

TEST_F(TypeTextTest, PasteRestoresThePreviousText) {
  desktop->setClipboardText("previous");
  EXPECT_EQ(plugin.execute({{"text", "pasted"}, {"usePaste", 1}}), PluginResult::silentSuccess());
  EXPECT_EQ(desktop->textFieldValue(300), "pasted");
  EXPECT_EQ(desktop->keyEvents(), (std::vector<KeyboardEvent>{{9, true, 0x100000, {}}, {9, false, 0x100000, {}}}));
  EXPECT_EQ(desktop->clipboardText(), "pasted") << "restored later, not at once";
  EXPECT_EQ(desktop->trace("schedule"), (std::vector<sim::TraceEntry>{{"schedule", "in 500ms"}}));
  platform->scheduler().waitUntilIdle();
  EXPECT_EQ(desktop->clipboardText(), "previous");

  desktop->setClipboardText(std::nullopt);
  (void)plugin.execute({{"text", "secret"}, {"usePaste", true}});
  platform->scheduler().waitUntilIdle();
  EXPECT_EQ(desktop->clipboardText(), "") << "no text before: the pasted text does not stay";

  desktop->setClipboardText("old");
  (void)plugin.execute({{"text", "new"}, {"usePaste", true}});
  desktop->setClipboardText("copied meanwhile");
  platform->scheduler().waitUntilIdle();
  EXPECT_EQ(desktop->clipboardText(), "copied meanwhile") << "a later copy is not overwritten";
}

TEST_F(TypeTextTest, PasteSwitchIsABooleanOrNumber) {
  (void)plugin.execute({{"text", "ab"}, {"usePaste", "true"}});
  EXPECT_EQ(keyEventCount(), 4u) << "typed, not pasted";
}

TEST_F(TypeTextTest, PermissionAndTargetChecks) {
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(plugin.execute({{"text", "x"}}),
            PluginResult::failure("Accessibility permission is required to type or paste text. Enable Orla "
                                  "Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility."));
  desktop->setAccessibilityTrusted(true);
  desktop->setFrontmost(desktop->host().processIdentifier);
  EXPECT_EQ(plugin.execute({{"text", "x"}}),
            PluginResult::failure("No target app to type into. Click into the app where you want the text, "
                                  "then click Test again."));
  EXPECT_EQ(keyEventCount(), 0u);
  TypingTargetContext::setLastUserAppBundleID("com.apple.TextEdit");
  EXPECT_EQ(plugin.execute({{"text", "x"}}), PluginResult::silentSuccess());
  EXPECT_EQ(desktop->textFieldValue(300), "x");
}

TEST_F(TypeTextTest, AKeyEventThatCannotBeMadeStopsTheTyping) {
  desktop->failKeyEventsAfter(3);
  EXPECT_EQ(plugin.execute({{"text", "abc"}}),
            PluginResult::failure("Typing stopped because a key event could not be created. Try again."));
  EXPECT_EQ(desktop->textFieldValue(300), "ab");
}

}  // namespace
}  // namespace orla
