// The speech plugin on the simulated desktop: which text is spoken, with
// which voice and rate, how long the action waits, and how a speech ends.
#include "plugins/system/speech_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

const std::string kSamantha = "com.apple.voice.compact.en-US.Samantha";

class SpeechTest : public SimTest {
 protected:
  SpeechTest() : plugin(platform) {
    SpeechPlugin::resetSpeaker();
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", 300));
    desktop->setFrontmost(300);
  }
  ~SpeechTest() override { SpeechPlugin::resetSpeaker(); }

  std::vector<sim::SimSpokenText> spoken() const { return desktop->speech().spoken(); }
  std::size_t sleeps() const { return desktop->trace("sleep").size(); }

  SpeechPlugin plugin;
};

TEST_F(SpeechTest, ValidationNamesTheFirstProblem) {
  const std::string rateSentence =
      "The rate must be between 80 and 400 words per minute, or 0 for the system's rate.";
  const struct {
    ActionData data;
    std::optional<std::string> problem;
  } cases[] = {
      {{}, "Type the text to speak in the box."},
      {{{"text", "  \n "}}, "Type the text to speak in the box."},
      {{{"actionType", 5}}, "Unknown speech command. Choose one from the menu."},
      {{{"actionType", -1}}, "Unknown speech command. Choose one from the menu."},
      {{{"text", "hi"}, {"rate", 50}}, rateSentence},
      {{{"text", "hi"}, {"rate", 400.5}}, rateSentence},
      {{{"subAction", "stop"}, {"rate", 79}}, rateSentence},
      {{{"text", "hi"}, {"rate", 0}}, std::nullopt},
      {{{"text", "hi"}, {"rate", 80}}, std::nullopt},
      {{{"text", "hi"}, {"Rate", "400"}}, std::nullopt},
      {{{"subAction", "stopSpeaking"}}, std::nullopt},
      {{{"subAction", "clipboard"}}, std::nullopt},
      {{{"Message", "hi"}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.problem) << ::testing::PrintToString(c.data);
    if (c.problem) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.problem));
    }
  }
  EXPECT_TRUE(spoken().empty());
}

TEST_F(SpeechTest, VoicesResolveByIdentifierNameAndLanguage) {
  const struct {
    const char* wanted;
    const char* name;  // none: not installed
  } cases[] = {
      {"com.apple.voice.compact.de-DE.Anna", "Anna"},
      {"samantha", "Samantha"},
      {"  amelie ", "Amélie"},  // trimmed; diacritics do not matter
      {"en_GB", "Daniel"},
      {"FR-ca", "Amélie"},
      {"fr", "Thomas"},  // the first French voice
      {"de", "Anna"},
      {"Klingon", nullptr},
      {"en-AU", nullptr},
  };
  for (const auto& c : cases) {
    const ActionData data{{"text", "Hello there"}, {"voice", c.wanted}};
    const PluginResult result = plugin.execute(data);
    if (!c.name) {
      EXPECT_EQ(result, PluginResult::failure("The voice \u201c" + std::string(c.wanted) +
                                              "\u201d is not installed. Choose one from the menu, or leave Voice "
                                              "empty to use the system voice."));
      continue;
    }
    EXPECT_EQ(result, PluginResult::success("Spoke 2 words with the voice \u201c" + std::string(c.name) + "\u201d."))
        << c.wanted;
    ASSERT_FALSE(spoken().empty());
    for (const Voice& v : desktop->speech().voices())
      if (v.name == c.name) {
        EXPECT_EQ(spoken().back().voice, v.identifier) << c.wanted;
      }
  }
}

TEST_F(SpeechTest, WaitsForTheSpeechAtItsRate) {
  // 35 words at 175 words per minute last 12 s; at 350, 6 s.
  std::string text;
  for (int i = 0; i < 35; ++i) text += "word ";
  const struct {
    AnyCodable rate;
    double spokenAt;
    std::size_t polls;
  } cases[] = {{0, 175, 120}, {AnyCodable(std::string("350")), 350, 60}, {80.0, 80, 263}};
  for (const auto& c : cases) {
    desktop->clearTrace();
    EXPECT_EQ(plugin.execute({{"text", text}, {"rate", c.rate}}), PluginResult::success("Spoke 35 words."));
    EXPECT_EQ(spoken().back().wordsPerMinute, c.spokenAt);
    EXPECT_EQ(spoken().back().voice, kSamantha);
    EXPECT_EQ(spoken().back().text, text.substr(0, text.size() - 1));
    EXPECT_EQ(sleeps(), c.polls);
    for (const auto& entry : desktop->trace("sleep")) EXPECT_EQ(entry.text, "100ms");
  }
  EXPECT_EQ(plugin.execute({{"text", "one"}}), PluginResult::success("Spoke 1 word."));
}

TEST_F(SpeechTest, LongTextsAreCutAtTheLimitAndBackToASpace) {
  std::string spaced;
  for (int i = 0; i < 2399; ++i) spaced += "abcd ";
  spaced += "abcde";  // 12,000 characters
  // Decomposed accents: two code points, one character each.
  std::string accents;
  for (int i = 0; i < 12'000; ++i) accents += "e\u0301";
  const struct {
    std::string text;
    std::size_t kept;  // characters spoken
    const char* message;
  } cases[] = {
      {spaced, 9'999, "Speaking 2000 words (the first 9999 of 12000 characters)."},
      {std::string(12'000, 'a'), 10'000, "Speaking 1 word (the first 10000 of 12000 characters)."},
      {accents, 10'000, "Speaking 1 word (the first 10000 of 12000 characters)."},
      {std::string(10'000, 'a'), 10'000, "Speaking 1 word."},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.execute({{"text", c.text}, {"wait", false}}), PluginResult::success(c.message));
    EXPECT_EQ(spoken().back().text, c.text.substr(0, spoken().back().text.size()));
    EXPECT_EQ(SpeechPlugin::cutToLimit(c.text).text.size(), spoken().back().text.size());
  }
  EXPECT_EQ(spoken()[0].text.size(), 9'999u);
  EXPECT_EQ(spoken()[2].text.size(), 30'000u);
  // A long text of one word ends where the limit is, not at a space 101
  // characters back.
  std::string farSpace = std::string(9'899, 'a') + " " + std::string(2'000, 'b');
  EXPECT_EQ(SpeechPlugin::cutToLimit(farSpace).text.size(), 10'000u);
  std::string nearSpace = std::string(9'900, 'a') + " " + std::string(2'000, 'b');
  EXPECT_EQ(SpeechPlugin::cutToLimit(nearSpace).text.size(), 9'900u);
}

TEST_F(SpeechTest, StopEndsOnlyTheSpeechThisProcessStarted) {
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Nothing was being spoken."));
  EXPECT_EQ(plugin.execute({{"text", "one two three"}, {"waitUntilDone", 0}}),
            PluginResult::success("Speaking 3 words."));
  EXPECT_EQ(plugin.execute({{"actionType", 4}}), PluginResult::success("Stopped speaking."));
  EXPECT_TRUE(spoken().back().stopped);
  EXPECT_EQ(plugin.execute({{"subAction", "stopSpeaking"}}), PluginResult::success("Nothing was being spoken."));

  // A speech that has ended by itself is not stopped.
  EXPECT_EQ(plugin.execute({{"text", "one two three"}, {"wait", false}}), PluginResult::success("Speaking 3 words."));
  desktop->sleep(std::chrono::seconds(2));
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Nothing was being spoken."));
  EXPECT_FALSE(spoken().back().stopped);
}

TEST_F(SpeechTest, ANewSpeechStopsTheOneBefore) {
  desktop->clearTrace();
  EXPECT_EQ(plugin.execute({{"text", "first speech here"}, {"wait", false}}),
            PluginResult::success("Speaking 3 words."));
  EXPECT_EQ(plugin.execute({{"text", "second"}, {"wait", false}}), PluginResult::success("Speaking 1 word."));
  const auto trace = desktop->trace("speech");
  ASSERT_EQ(trace.size(), 3u);
  EXPECT_EQ(trace[0].text.rfind("speak 3 words", 0), 0u);
  EXPECT_EQ(trace[1].text, "stop");
  EXPECT_EQ(trace[2].text.rfind("speak 1 words", 0), 0u);
  EXPECT_TRUE(spoken()[0].stopped);
  EXPECT_FALSE(spoken()[1].stopped);
}

TEST_F(SpeechTest, AWaitEndsWhenAnotherActionStopsTheSpeechOrAfterThirtyMinutes) {
  desktop->atTime(std::chrono::milliseconds(450), [this] {
    EXPECT_EQ(SpeechPlugin(platform).execute({{"subAction", "stop"}}), PluginResult::success("Stopped speaking."));
  });
  EXPECT_EQ(plugin.execute({{"text", "one two three four five six"}}),
            PluginResult::success("The speech was stopped before the end."));
  EXPECT_EQ(sleeps(), 5u);

  // A synthesiser that stalls is stopped at the deadline.
  desktop->clearTrace();
  desktop->speech().setStalls(true);
  EXPECT_EQ(plugin.execute({{"text", "one"}}),
            PluginResult::failure("Stopped speaking after 30 minutes. Speak a shorter text, or turn off \u201cWait "
                                  "until done\u201d."));
  EXPECT_EQ(sleeps(), 18'000u);
  EXPECT_EQ(desktop->trace("speech").back().text, "stop");
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Nothing was being spoken."));
}

TEST_F(SpeechTest, TheClipboardIsSpokenTrimmed) {
  const struct {
    std::optional<std::string> clipboard;
    std::optional<std::string> spokenText;
  } cases[] = {
      {"  read this aloud \n", "read this aloud"},
      {std::nullopt, std::nullopt},
      {" \n\t", std::nullopt},
  };
  for (const auto& c : cases) {
    desktop->setClipboardText(c.clipboard);
    const PluginResult result = plugin.execute({{"subAction", "speakClipboard"}});
    if (!c.spokenText) {
      EXPECT_EQ(result,
                PluginResult::failure("The clipboard has no text. Copy some text first, then click Test again."));
      continue;
    }
    EXPECT_EQ(result, PluginResult::success("Spoke 3 words."));
    EXPECT_EQ(spoken().back().text, *c.spokenText);
  }
}

TEST_F(SpeechTest, TheSelectionIsCopiedAndTheClipboardPutBack) {
  const PasteboardSnapshot userClipboard{{{{"public.rtf", "{\\rtf1 mine}"}, {"public.utf8-plain-text", "mine"}}}};
  const PasteboardSnapshot image{{{{"public.png", std::string("\x89PNG\r\n", 6)}}}};
  const struct {
    sim::SimTextField field;
    std::optional<std::string> spokenText;
    const char* failure;
  } cases[] = {
      {{u"secret words here", 0, 12, std::nullopt}, "secret words", nullptr},
      {{u"nothing selected", 0, 0, std::nullopt}, std::nullopt,
       "Nothing was copied. Select some text in the target app first (the app in front before you clicked Test), "
       "then try again."},
      {{u"picture", 0, 7, image}, std::nullopt,
       "The selection is not text (an image or file). Orla can only speak text."},
      {{u"a  b", 1, 2, std::nullopt}, std::nullopt, "The selection is empty. Select some text first."},
  };
  for (const auto& c : cases) {
    desktop->setClipboardItems(userClipboard);
    desktop->setTextField(300, c.field);
    const PluginResult result = plugin.execute({{"subAction", "selection"}});
    if (c.spokenText) {
      EXPECT_EQ(result, PluginResult::success("Spoke 2 words."));
      EXPECT_EQ(spoken().back().text, *c.spokenText);
      // The message never repeats what was spoken.
      EXPECT_EQ(result.message().find("secret"), std::string::npos);
    } else {
      EXPECT_EQ(result, PluginResult::failure(c.failure));
    }
    EXPECT_EQ(desktop->clipboardItems(), userClipboard);
  }
}

TEST_F(SpeechTest, TheSelectionNeedsTrustAndAnApp) {
  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(plugin.execute({{"subAction", "speakSelection"}}),
            PluginResult::failure("Accessibility permission is required to speak the selection. Enable Orla Pro in "
                                  "System Settings \u2192 Privacy & Security \u2192 Accessibility."));
  desktop->setAccessibilityTrusted(true);
  desktop->setFrontmost(desktop->host().processIdentifier);
  EXPECT_EQ(plugin.execute({{"subAction", "speakSelection"}}),
            PluginResult::failure(
                "No app to read the selection from. Click into the app with the text you want, then click Test again."));
  EXPECT_TRUE(desktop->keyEvents().empty());
  EXPECT_TRUE(spoken().empty());
}

}  // namespace
}  // namespace orla
