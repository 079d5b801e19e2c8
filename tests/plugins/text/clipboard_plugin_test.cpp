#include "plugins/text/clipboard_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;
using Command = ClipboardPlugin::Command;

class ClipboardTest : public SimTest {
 protected:
  ClipboardTest() : plugin(platform) {
    ClipboardPlugin::resetSavedClipboard();
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", 300));
    desktop->setFrontmost(300);
    select(u"hello World", 0, 5);
    desktop->setClipboardText("before ");
    auto instant = parseLocalDateTime("2026-11-21T09:05:07", desktop->timeZone());
    desktop->setNow(*instant);
  }
  ~ClipboardTest() override { ClipboardPlugin::resetSavedClipboard(); }

  void select(std::u16string value, size_t start, size_t length) {
    desktop->setTextField(300, sim::SimTextField{std::move(value), start, length, std::nullopt});
  }
  std::string field() const { return desktop->textFieldValue(300); }
  size_t pastes() const {
    size_t count = 0;
    for (const KeyboardEvent& e : desktop->keyEvents()) count += e.keyDown && e.keyCode == 9;
    return count;
  }

  ClipboardPlugin plugin;
};

TEST(ClipboardCommands, NumbersValidationAndPermission) {
  struct Case {
    const char* name;
    ActionData data;
    std::optional<Command> command;
    std::optional<std::string> validation;
    bool accessibility;
  };
  const Case cases[] = {
      {"no number: set text", {{"text", "x"}}, Command::setText, std::nullopt, false},
      {"0 is unknown", {{"actionType", 0}}, std::nullopt, "Unknown clipboard command 0. Choose a command from the menu.", false},
      {"13 is unknown", {{"actionType", 13}}, std::nullopt, "Unknown clipboard command 13. Choose a command from the menu.", false},
      {"negative", {{"Action", -2}}, std::nullopt, "Unknown clipboard command -2. Choose a command from the menu.", false},
      {"legacy key", {{"Action", 5}}, Command::paste, std::nullopt, true},
      {"number as text", {{"actionType", "3"}}, Command::copy, std::nullopt, true},
      {"blank text", {{"text", "  \n"}}, Command::setText,
       "No text specified. Type the text to place on the clipboard in the box. This command does not copy the current "
       "selection — use Copy (⌘C) for that.", false},
      {"set text and paste", {{"text", "x"}, {"pasteAfter", 1}}, Command::setText, std::nullopt, true},
      {"date, paste by old key", {{"actionType", 2}, {"Paste", true}}, Command::setDate, std::nullopt, true},
      {"rules missing", {{"actionType", 9}}, Command::replaceInSelection, "Enter the text to find in the Search field.", true},
      {"rule without search", {{"actionType", 9}, {"rules", AnyArray{AnyDictionary{{"replace", "x"}}}}},
       Command::replaceInSelection, "Enter the text to find in the Search field.", true},
      {"finder", {{"actionType", 10}}, Command::finderSelectionPaths, std::nullopt, false},
      {"restore", {{"actionType", 12}}, Command::restore, std::nullopt, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ClipboardPlugin::resolvedActionType(c.data), c.command) << c.name;
    EXPECT_EQ(ClipboardPlugin().validate(c.data), c.validation) << c.name;
    EXPECT_EQ(ClipboardPlugin().requiresAccessibility(c.data), c.accessibility) << c.name;
  }
}

TEST(ClipboardCommands, ReplaceRules) {
  struct Case {
    std::vector<ReplaceRule> rules;
    const char* text;
    const char* expected;
  };
  const Case cases[] = {
      {{}, "unchanged", "unchanged"},
      {{{"a", "b", false}, {"b", "c", false}}, "a", "c"},
      {{{"cat", "dog", false}}, "Cat and CAT and cat", "dog and dog and dog"},
      {{{"cat", "dog", true}}, "Cat and cat", "Cat and dog"},
      {{{".", "!", false}}, "a.b", "a!b"},  // literal, not a pattern
      {{{"é", "e", false}}, "CAFÉ café", "CAFe cafe"},
      {{{"aa", "a", false}}, "aaaa", "aa"},  // no match inside a replacement
  };
  for (const Case& c : cases) EXPECT_EQ(ReplaceRule::apply(c.rules, c.text).value(), c.expected) << c.text;
  // Rules that would grow the text past 1 GB stop with a sentence, before
  // the memory is spent, with and without regard to case.
  const std::string huge(std::size_t{1} << 16, 'b');
  const std::string many(20000, 'a');
  for (bool caseSensitive : {true, false}) {
    auto grown = ReplaceRule::apply({{"a", huge, caseSensitive}}, many);
    ASSERT_FALSE(grown) << caseSensitive;
    EXPECT_EQ(grown.error(), "The replacements would make the text larger than 1 GB, which is too large to use. "
                             "Nothing was changed.");
  }
  const ActionData data = {{"Rules", AnyArray{AnyDictionary{{"searchText", "x"}, {"Replace", "y"}, {"caseSensitive", 1}}}}};
  EXPECT_EQ(ReplaceRule::rules(data), (std::vector<ReplaceRule>{{"x", "y", true}}));
}

TEST_F(ClipboardTest, SetTextAndDate) {
  desktop->setAccessibilityTrusted(false);  // not needed without paste
  EXPECT_EQ(plugin.execute({{"text", "Hi"}}), PluginResult::success("Clipboard now contains:\nHi"));
  EXPECT_EQ(desktop->clipboardText(), "Hi");
  EXPECT_EQ(plugin.execute({{"text", "Hi"}, {"pasteAfter", true}}),
            PluginResult::failure("Accessibility permission is required for clipboard commands that send keystrokes. "
                                  "Enable Orla Pro in System Settings → Privacy & Security → Accessibility."));
  desktop->setAccessibilityTrusted(true);
  EXPECT_EQ(plugin.execute({{"text", "Hi"}, {"pasteAfter", true}}), PluginResult::silentSuccess());
  EXPECT_EQ(field(), "Hi World");
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"dateFormat", "d MMM yyyy"}}),
            PluginResult::success("Clipboard now contains the date: 21 Nov 2026"));
  EXPECT_EQ(desktop->clipboardText(), "21 Nov 2026");
}

TEST_F(ClipboardTest, CopyCutAndAppend) {
  EXPECT_EQ(plugin.execute({{"actionType", 3}}), PluginResult::success("Copied:\nhello"));
  EXPECT_EQ(desktop->clipboardText(), "hello");
  desktop->setClipboardText("before ");
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"appendToClipboard", true}}),
            PluginResult::success("Cut and appended. Clipboard now contains:\nbefore hello"));
  EXPECT_EQ(field(), " World");
  EXPECT_EQ(desktop->clipboardText(), "before hello");

  select(u"hello", 5, 0);
  EXPECT_EQ(plugin.execute({{"actionType", 3}}),
            PluginResult::failure("Nothing was copied. Select some text in the target app first (the app in front "
                                  "before you clicked Test), then try again."));
  desktop->setTextField(300, sim::SimTextField{u"[file]", 0, 6, PasteboardSnapshot{{{{"public.file-url", "file:///a"}}}}});
  EXPECT_EQ(plugin.execute({{"actionType", 3}}),
            PluginResult::failure(
                "The selection was copied but it is not text (an image or file). Orla can only work with text here."));
}

TEST_F(ClipboardTest, CaseChangesPasteOnlyWhatChanged) {
  EXPECT_EQ(plugin.execute({{"actionType", 6}}), PluginResult::success("Selection changed to UPPERCASE:\nHELLO"));
  EXPECT_EQ(field(), "HELLO World");
  EXPECT_EQ(pastes(), 1u);
  select(u"HELLO", 0, 5);
  EXPECT_EQ(plugin.execute({{"actionType", 6}}),
            PluginResult::success("UPPERCASE: the selection was already in that form, nothing changed."));
  EXPECT_EQ(pastes(), 1u);
  select(u"ǆEMAL ÇA", 0, 8);
  EXPECT_EQ(plugin.execute({{"actionType", 8}}), PluginResult::success("Selection changed to Capitalized:\nǅemal Ça"));
  select(u"ǅemal Ça", 0, 8);
  EXPECT_EQ(plugin.execute({{"actionType", 7}}), PluginResult::success("Selection changed to lowercase:\nǆemal ça"));
  // An application that copies an empty text.
  desktop->setTextField(300, sim::SimTextField{u"x", 0, 1, PasteboardSnapshot{{{{"public.utf8-plain-text", ""}}}}});
  EXPECT_EQ(plugin.execute({{"actionType", 7}}), PluginResult::failure("The selection is empty. Select some text first."));
}

TEST_F(ClipboardTest, ReplaceInSelection) {
  select(u"The cat sat", 0, 11);
  const AnyArray rules = {AnyDictionary{{"search", "CAT"}, {"replace", "dog"}}};
  EXPECT_EQ(plugin.execute({{"actionType", 9}, {"rules", rules}}), PluginResult::success("Replaced in the selection:\nThe dog sat"));
  EXPECT_EQ(field(), "The dog sat");
  select(u"no match", 0, 8);
  EXPECT_EQ(plugin.execute({{"actionType", 9}, {"rules", rules}}),
            PluginResult::success("Replaced nothing: the search text does not occur in the selection."));
  // The search text occurs, even if replacing it changes nothing, and even
  // if a later rule undoes what an earlier one did.
  const AnyArray same = {AnyDictionary{{"search", "cat"}, {"replace", "cat"}}};
  const AnyArray undone = {AnyDictionary{{"search", "cat"}, {"replace", "dog"}, {"caseSensitive", true}},
                           AnyDictionary{{"search", "dog"}, {"replace", "cat"}, {"caseSensitive", true}}};
  for (const AnyArray& r : {same, undone}) {
    select(u"The cat sat", 0, 11);
    EXPECT_EQ(plugin.execute({{"actionType", 9}, {"rules", r}}),
              PluginResult::success(
                  "Replaced in the selection; the result reads the same, so the selection was left as it was:\nThe cat sat"));
    EXPECT_EQ(field(), "The cat sat");
  }
}

TEST_F(ClipboardTest, FinderSelection) {
  const std::string script(ClipboardPlugin::finderSelectionScript());
  struct Case {
    const char* name;
    sim::SimScriptAnswer answer;
    PluginResult expected;
  };
  const Case cases[] = {
      {"paths", {true, "/Users/ada/a.txt\n/Users/ada/b c.pdf\n", std::nullopt},
       PluginResult::success("Clipboard now contains the Finder path(s):\n/Users/ada/a.txt\n/Users/ada/b c.pdf")},
      {"nothing", {true, "", std::nullopt},
       PluginResult::failure("Nothing is selected in the Finder and no Finder window is open. Select a file or folder first.")},
      {"no answer", {true, std::nullopt, std::nullopt}, PluginResult::failure("Finder did not answer.")},
      {"not allowed", {true, std::nullopt, ScriptError{"Not authorized to send Apple events to Finder.", std::nullopt, -1743}},
       PluginResult::failure("Could not read the Finder selection: Not authorized to send Apple events to Finder. If "
                             "macOS asked to let Orla Pro control Finder, click OK and test again.")},
      {"number only", {true, std::nullopt, ScriptError{std::nullopt, std::nullopt, -600}},
       PluginResult::failure("Could not read the Finder selection: AppleScript error -600.")},
      {"does not compile", {false, std::nullopt, std::nullopt}, PluginResult::failure("Could not build the Finder script.")},
  };
  for (const Case& c : cases) {
    desktop->setScriptAnswer(script, c.answer);
    EXPECT_EQ(plugin.execute({{"actionType", 10}}), c.expected) << c.name;
  }
  EXPECT_EQ(desktop->clipboardText(), "/Users/ada/a.txt\n/Users/ada/b c.pdf");
  // A desktop without AppleScript says so.
  EXPECT_EQ(ClipboardPlugin(makeNativePlatform()).execute({{"actionType", 10}}),
            PluginResult::failure("AppleScript is not available on this desktop; it needs macOS."));
}

TEST_F(ClipboardTest, SaveAndRestoreEveryItem) {
  EXPECT_EQ(plugin.execute({{"actionType", 12}}),
            PluginResult::failure("Nothing has been saved yet. Run a Save Clipboard command first, then Restore Clipboard."));
  const PasteboardSnapshot items = {{{{"public.utf8-plain-text", "caption"}, {"public.html", "<b>caption</b>"}}},
                                    {{{"public.png", std::string("\x89PNG\0\1", 6)}}}};
  desktop->setClipboardItems(items);
  EXPECT_EQ(plugin.execute({{"actionType", 11}}), PluginResult::success("Clipboard saved:\ncaption\n(+ 1 non-text item(s))"));
  desktop->setClipboardText("other");
  EXPECT_EQ(plugin.execute({{"actionType", 12}}),
            PluginResult::success("Clipboard restored to the saved contents:\ncaption\n(+ 1 non-text item(s))"));
  EXPECT_EQ(desktop->clipboardItems(), items);
  // Kept after a restore, shared by every clipboard action.
  desktop->setClipboardText("again");
  EXPECT_EQ(ClipboardPlugin(platform).execute({{"actionType", 12}}).kind(), PluginResult::Kind::success);
  EXPECT_EQ(desktop->clipboardItems(), items);
}

}  // namespace
}  // namespace orla
