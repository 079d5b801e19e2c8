// Speech on the Linux desktop, against the PulseAudio server of the
// headless desktop: a speech shows up on the server as a stream of this
// process (read with pactl) until it ends or is stopped; voices come from
// espeak-ng; a missing server and a megabyte of text give their sentences
// without hanging.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/linux/espeak_speech.h"
#include <orla/platform/platform.h>
#include "plugins/system/speech_plugin.h"
#include "tests/support/command_output.h"

namespace orla {
namespace {

using testing::outputOf;

bool serverShowsSpeech() { return outputOf("pactl list sink-inputs").find("Orla speech") != std::string::npos; }

// Whether the server shows (or no longer shows) our stream within `limit`.
bool speechStreamBecomes(bool shown, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  do {
    if (serverShowsSpeech() == shown) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  } while (std::chrono::steady_clock::now() < end);
  return false;
}

std::string words(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    if (i) text += ' ';
    text += "speaking";
  }
  return text;
}

class EspeakSpeechTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("ORLA_HARNESS_SINK"))
      GTEST_SKIP() << "no sound server: the headless desktop's PulseAudio is not running";
    SpeechPlugin::resetSpeaker();
    if (platform->speech().voices().empty()) GTEST_SKIP() << "espeak-ng or its voice data is not installed";
  }
  void TearDown() override {
    platform->speech().stop();
    SpeechPlugin::resetSpeaker();
    linux_desktop::setFirstSpeechBufferObserver(nullptr);
  }

  std::shared_ptr<Platform> platform = makeNativePlatform();
  SpeechPlugin plugin{platform};
};

TEST_F(EspeakSpeechTest, ASpeechPlaysOnTheServerUntilItIsStopped) {
  std::atomic<int> buffers{0};
  linux_desktop::setFirstSpeechBufferObserver([&] { ++buffers; });
  EXPECT_EQ(plugin.execute({{"text", words(60)}, {"wait", false}}), PluginResult::success("Speaking 60 words."));
  EXPECT_TRUE(speechStreamBecomes(true, std::chrono::seconds(2)));
  EXPECT_EQ(buffers.load(), 1);
  EXPECT_TRUE(platform->speech().isSpeaking());
  // Listing the voices does not wait for the speech.
  const auto listing = std::chrono::steady_clock::now();
  EXPECT_FALSE(platform->speech().voices().empty());
  EXPECT_LT(std::chrono::steady_clock::now() - listing, std::chrono::seconds(1));

  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Stopped speaking."));
  EXPECT_FALSE(platform->speech().isSpeaking());
  EXPECT_TRUE(speechStreamBecomes(false, std::chrono::seconds(1)));
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Nothing was being spoken."));
}

TEST_F(EspeakSpeechTest, WaitingEndsWithTheSpeechAndANewSpeechReplacesTheOld) {
  EXPECT_EQ(plugin.execute({{"text", words(200)}, {"wait", false}}), PluginResult::success("Speaking 200 words."));
  EXPECT_TRUE(speechStreamBecomes(true, std::chrono::seconds(2)));
  // The second one stops the first: one stream at a time, ended by the
  // end of its text.
  const auto voice = SpeechPlugin::resolveVoice(platform->speech().voices(), "en_GB");
  ASSERT_TRUE(voice);
  EXPECT_EQ(plugin.execute({{"text", "Done."}, {"rate", 400}, {"voice", "en_GB"}}),
            PluginResult::success("Spoke 1 word with the voice \u201c" + voice->name + "\u201d."));
  EXPECT_FALSE(platform->speech().isSpeaking());
  EXPECT_TRUE(speechStreamBecomes(false, std::chrono::seconds(1))) << outputOf("pactl list sink-inputs");
}

TEST_F(EspeakSpeechTest, VoicesComeFromEspeakByNameOrLanguage) {
  const std::vector<Voice> voices = platform->speech().voices();
  for (const char* wanted : {"en_GB", "fr", "de"}) {
    const auto voice = SpeechPlugin::resolveVoice(voices, wanted);
    ASSERT_TRUE(voice) << wanted;
    EXPECT_EQ(plugin.execute({{"text", "Hello"}, {"voice", wanted}, {"rate", 300}}),
              PluginResult::success("Spoke 1 word with the voice \u201c" + voice->name + "\u201d."));
    // The same voice by its name, whatever the case.
    std::string shouted = voice->name;
    for (char& c : shouted) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(SpeechPlugin::resolveVoice(voices, shouted), voice);
  }
  EXPECT_EQ(SpeechPlugin::resolveVoice(voices, "en-GB")->language.rfind("en-GB", 0), 0u);
  EXPECT_TRUE(plugin.execute({{"text", "Hello"}, {"voice", "no such voice"}}).isFailure());
}

TEST_F(EspeakSpeechTest, AMegabyteOfTextSpeaksItsFirstTenThousandCharacters) {
  std::string text;
  while (text.size() < (1u << 20)) text += "word ";
  const auto started = std::chrono::steady_clock::now();
  const PluginResult result = plugin.execute({{"text", text}, {"wait", false}});
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
  EXPECT_EQ(result, PluginResult::success("Speaking 2000 words (the first 9999 of " +
                                          std::to_string(text.size() - 1) + " characters)."));
  EXPECT_TRUE(speechStreamBecomes(true, std::chrono::seconds(2)));
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Stopped speaking."));
}

TEST_F(EspeakSpeechTest, WithoutAServerNothingIsSpokenAndASentenceSaysSo) {
  const std::string saved = std::getenv("PULSE_SERVER") ? std::getenv("PULSE_SERVER") : "";
  setenv("PULSE_SERVER", "unix:/nonexistent/orla-no-pulse", 1);
  const auto started = std::chrono::steady_clock::now();
  const PluginResult result = plugin.execute({{"text", "Hello"}});
  const auto took = std::chrono::steady_clock::now() - started;
  if (saved.empty()) unsetenv("PULSE_SERVER");
  else setenv("PULSE_SERVER", saved.c_str(), 1);
  EXPECT_EQ(result, PluginResult::failure("The sound server did not answer, so nothing was spoken. Start PulseAudio "
                                          "or PipeWire, then click Test again."));
  EXPECT_LT(took, std::chrono::seconds(3));
  EXPECT_FALSE(platform->speech().isSpeaking());
  EXPECT_EQ(plugin.execute({{"subAction", "stop"}}), PluginResult::success("Nothing was being spoken."));
}

}  // namespace
}  // namespace orla
