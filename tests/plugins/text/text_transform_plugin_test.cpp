#include "plugins/text/text_transform_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

const PasteboardSnapshot kUserClipboard = {
    {{{"public.rtf", "{\\rtf1 bold}"}, {"public.utf8-plain-text", "bold"}}},
    {{{"public.png", std::string("\x89PNG\r\n\x1a\n\0\0", 10)}}},
};

class TextTransformTest : public SimTest {
 protected:
  TextTransformTest() : plugin(platform) {
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", 300));
    desktop->setFrontmost(300);
    select(u"hello world", 0, 5);
    desktop->setClipboardItems(kUserClipboard);
  }

  void select(std::u16string value, size_t start, size_t length) {
    desktop->setTextField(300, sim::SimTextField{std::move(value), start, length, std::nullopt});
  }
  std::string field() const { return desktop->textFieldValue(300); }

  TextTransformPlugin plugin;
};

TEST(TextTransformResolution, ResolvesTheTransformAndNamesWhatIsUnknown) {
  struct Case {
    const char* name;
    ActionData data;
    std::optional<Transform> expected;
    const char* validation;  // for the unresolved ones
  };
  const std::string tail = ". Choose a transform from the menu.";
  const Case cases[] = {
      {"actionType wins", {{"actionType", 3}, {"transform", "upper"}}, Transform::titleCase, nullptr},
      {"actionType out of range has no fallback", {{"actionType", 42}, {"transform", "upper"}}, std::nullopt, "42"},
      {"actionType as text of a number", {{"actionType", "8"}}, Transform::base64Encode, nullptr},
      {"actionType without a number falls through", {{"actionType", "x"}, {"transform", "upper"}}, Transform::uppercase,
       nullptr},
      {"name normalised", {{"transform", "Base-64"}}, Transform::base64Encode, nullptr},
      {"title as name", {{"transform", "Regex Find & Replace"}}, Transform::regexReplace, nullptr},
      {"shouting name", {{"transform", "REGEX FIND REPLACE"}}, Transform::regexReplace, nullptr},
      {"number as text", {{"transform", "13"}}, Transform::sortLines, nullptr},
      {"number", {{"transform", 16}}, Transform::regexExtract, nullptr},
      {"alias", {{"transform", "uniq"}}, Transform::removeDuplicates, nullptr},
      {"unknown name", {{"transform", "rot13"}}, std::nullopt, "rot13"},
      {"empty name", {{"transform", ""}}, std::nullopt, ""},
      {"nothing", {}, std::nullopt, "?"},
      {"number too large as text", {{"transform", "17"}}, std::nullopt, "17"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TextTransformPlugin::resolvedTransform(c.data), c.expected) << c.name;
    if (c.validation) {
      EXPECT_EQ(TextTransformPlugin().validate(c.data), "Unknown text transform " + std::string(c.validation) + tail)
          << c.name;
    }
  }
}

TEST(TextTransformResolution, SourceAndReplaceFlag) {
  using Kind = Source::Kind;
  struct Case {
    const char* name;
    ActionData data;
    Source source;
    bool replaces;
  };
  const Case cases[] = {
      {"defaults replace the selection", {}, {Kind::selection, ""}, true},
      {"clipboard on: copy and replace", {{"useClipboard", true}}, {Kind::selection, ""}, true},
      {"paste off: the clipboard", {{"pasteAfter", false}}, {Kind::clipboard, ""}, false},
      {"integers count", {{"useClipboard", 1}, {"pasteAfter", 0}}, {Kind::clipboard, ""}, false},
      {"typed input", {{"useClipboard", false}, {"input", "abc"}}, {Kind::input, "abc"}, false},
      {"typed input that is not a string", {{"useClipboard", false}, {"input", 5}}, {Kind::input, ""}, false},
      {"a text is no Boolean", {{"useClipboard", "no"}}, {Kind::selection, ""}, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TextTransformPlugin::source(c.data), c.source) << c.name;
    EXPECT_EQ(TextTransformPlugin().requiresAccessibility(c.data), c.replaces) << c.name;
  }
}

TEST(TextTransformResolution, Validation) {
  struct Case {
    ActionData data;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {{{"transform", "regex"}},
       "Enter a regular expression in the Regex pattern field (the Replacement may stay empty)."},
      {{{"transform", "extract"}}, "Enter a regular expression in the Regex pattern field. The first match is extracted."},
      {{{"transform", "regex"}, {"pattern", "a("}}, "The regex pattern “a(” is not valid: The value “a(” is invalid."},
      {{{"transform", "upper"}, {"useClipboard", false}, {"input", " \n\t"}},
       "Type the text to transform in the box, or turn on “Use clipboard as input”."},
      {{{"transform", "upper"}, {"useClipboard", false}, {"input", "x"}}, std::nullopt},
      {{{"transform", "regex"}, {"pattern", "a+"}}, std::nullopt},
      {{{"transform", "regex"}, {"pattern", "\\d+"}, {"replacement", "US$"}}, std::nullopt},
      {{{"transform", "regex"}, {"pattern", "(b)"}, {"replacement", "$2"}},
       "The replacement “$2” does not fit the regex pattern “(b)”: use $0 for the whole match, $1 for the first "
       "group, and \\$ for a dollar sign."},
      {{{"transform", "extract"}, {"pattern", "(b)"}, {"replacement", "$2"}}, std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(TextTransformPlugin().validate(c.data), c.expected);
}

TEST(TextTransformResolution, TransformMessagesPassThrough) {
  const ActionData data = {{"transform", "json"}};
  EXPECT_EQ(TextTransformPlugin::transform("{a:1}", data).error(), "The text is not valid JSON, so it cannot be prettified.");
  EXPECT_EQ(TextTransformPlugin::apply(Transform::regexExtract, "x", "", "").error(),
            "Enter a regular expression in the Regex pattern field.");
  EXPECT_EQ(TextTransformPlugin::transform("x", {}).error(), "Unknown text transform. Choose a transform from the menu.");
  EXPECT_EQ(title(Transform::removeDuplicates), "Remove Duplicates");
}

TEST_F(TextTransformTest, TypedTextIsShownOrPutOnTheClipboard) {
  const auto shown = plugin.execute({{"transform", "upper"}, {"useClipboard", false}, {"input", "ça va"}, {"writeToClipboard", false}});
  EXPECT_EQ(shown, PluginResult::success("Uppercase result:\nÇA VA"));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);

  const auto kept = plugin.execute({{"transform", "reverse"}, {"useClipboard", false}, {"input", "abc"}});
  EXPECT_EQ(kept, PluginResult::success("Reverse Text result (now on the clipboard):\ncba"));
  EXPECT_EQ(desktop->clipboardText(), "cba");
}

TEST_F(TextTransformTest, ClipboardSource) {
  EXPECT_EQ(plugin.execute({{"transform", "lines"}, {"pasteAfter", false}}),
            PluginResult::success("Count Lines result (now on the clipboard):\n1"));
  desktop->setClipboardItems({{{{"public.png", "\x89PNG"}}}});
  EXPECT_EQ(plugin.execute({{"transform", "upper"}, {"pasteAfter", false}}),
            PluginResult::failure("The clipboard has no text. Copy some text first, or turn off “Use clipboard as "
                                  "input” and type the text to transform."));
  // Bytes that are not UTF-8 are no text either.
  desktop->setClipboardItems({{{{"public.utf8-plain-text", "\xFF\xFE"}}}});
  EXPECT_EQ(plugin.execute({{"transform", "upper"}, {"pasteAfter", false}}).kind(), PluginResult::Kind::failure);
}

TEST_F(TextTransformTest, ReplacesTheSelectionAndRestoresEveryClipboardItem) {
  const auto result = plugin.execute({{"transform", "upper"}, {"writeToClipboard", false}});
  EXPECT_EQ(result, PluginResult::silentSuccess());
  EXPECT_EQ(field(), "HELLO world");
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);
  // ⌘C, the pause after it, ⌘V 50 ms after the write, then 250 ms before the restore.
  std::vector<std::string> steps;
  for (const auto& e : desktop->trace())
    if (e.category == "sleep" || e.category == "key" || e.category == "clipboard") steps.push_back(e.text);
  EXPECT_EQ(steps, (std::vector<std::string>{"down 0x08 flags=0x100000", "copy selection",
                                             "up 0x08 flags=0x100000", "100ms", "setText 5 bytes", "50ms",
                                             "down 0x09 flags=0x100000", "up 0x09 flags=0x100000", "100ms", "250ms",
                                             "restore 2 item(s)"}));
}

TEST_F(TextTransformTest, WithWriteToClipboardTheResultStaysThere) {
  EXPECT_EQ(plugin.execute({{"transform", "upper"}}), PluginResult::silentSuccess());
  EXPECT_EQ(field(), "HELLO world");
  EXPECT_EQ(desktop->clipboardText(), "HELLO");
}

TEST_F(TextTransformTest, ACountPastesItsNumber) {
  select(u"one two three", 0, 13);
  EXPECT_EQ(plugin.execute({{"transform", "words"}, {"writeToClipboard", false}}),
            PluginResult::success("Count Words: 3\n(The number replaced the selection.)"));
  EXPECT_EQ(field(), "3");
}

TEST_F(TextTransformTest, UnchangedTextIsSaid) {
  select(u"HELLO", 0, 5);
  EXPECT_EQ(plugin.execute({{"transform", "upper"}}),
            PluginResult::success("Uppercase: the text was already in that form, nothing changed.\nHELLO"));
}

TEST_F(TextTransformTest, CopyFailuresLeaveTheClipboardAlone) {
  select(u"hello", 5, 0);
  EXPECT_EQ(plugin.execute({{"transform", "upper"}, {"writeToClipboard", false}}),
            PluginResult::failure("Nothing was copied. Select some text in the target app first (the app in front "
                                  "before you clicked Test), then try again."));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);
  EXPECT_EQ(field(), "hello");
  // The second of waiting passed on the virtual clock only.
  EXPECT_EQ(desktop->trace("sleep").size(), 1u + 20u);

  // An image selected: copied, but no text; nothing is pasted.
  sim::SimTextField image{u"[picture]", 0, 9, PasteboardSnapshot{{{{"public.png", "\x89PNG"}}}}};
  desktop->setTextField(300, image);
  desktop->clearKeyEvents();
  EXPECT_EQ(plugin.execute({{"transform", "upper"}, {"writeToClipboard", false}}),
            PluginResult::failure(
                "The selection was copied but it is not text (an image or file). Orla can only transform text."));
  EXPECT_EQ(desktop->keyEvents().size(), 2u);  // ⌘C only
  EXPECT_EQ(desktop->textField(300), image);
}

TEST_F(TextTransformTest, ATransformErrorRestoresTheSnapshot) {
  select(u"{a:1}", 0, 5);
  EXPECT_EQ(plugin.execute({{"transform", "json"}, {"writeToClipboard", false}}),
            PluginResult::failure("The text is not valid JSON, so it cannot be prettified."));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);
  EXPECT_EQ(field(), "{a:1}");
}

TEST_F(TextTransformTest, PermissionTargetAndEventFailures) {
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(plugin.execute({{"transform", "upper"}}),
            PluginResult::failure(
                "Accessibility permission is required to replace the selection (Orla sends ⌘C and ⌘V). Enable Orla "
                "Pro in System Settings → Privacy & Security → Accessibility, or turn off “Replace current selection” "
                "to transform the clipboard only."));
  // Typed text transformed and shown needs no permission.
  EXPECT_TRUE(plugin.execute({{"transform", "upper"}, {"useClipboard", false}, {"input", "x"}}).kind() == PluginResult::Kind::success);
  desktop->setAccessibilityTrusted(true);

  desktop->setFrontmost(desktop->host().processIdentifier);  // only the host, and no app before it
  EXPECT_EQ(plugin.execute({{"transform", "upper"}}),
            PluginResult::failure(
                "No app to read the selection from. Click into the app with the text you want, then click Test again."));
  EXPECT_EQ(plugin.execute({{"transform", "upper"}, {"useClipboard", false}, {"input", "x"}, {"pasteAfter", true}}),
            PluginResult::failure("No app to paste into. Click into the app with the text you want, then click Test again."));
  desktop->setFrontmost(300);

  desktop->setEventSourcesAvailable(false);
  EXPECT_EQ(plugin.execute({{"transform", "upper"}}), PluginResult::failure("Failed to create keyboard events"));
  desktop->setEventSourcesAvailable(true);
  // ⌘C posts, ⌘V does not: the snapshot still comes back.
  desktop->setClipboardItems(kUserClipboard);
  desktop->failKeyEventsAfter(2);
  EXPECT_EQ(plugin.execute({{"transform", "upper"}, {"writeToClipboard", false}}),
            PluginResult::failure("Failed to create keyboard events"));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);
}

}  // namespace
}  // namespace orla
