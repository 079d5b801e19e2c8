// SpeechPlugin ("SpeechAction"): speaks a typed text, the clipboard's text
// or the selection of the application in front with a chosen voice and
// rate, by default waiting until the speech has ended; or stops the speech
// this process started. A new speech always stops the one before. Messages
// never repeat the spoken text, which may be private clipboard data.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/platform/platform.h>

namespace orla {

class SpeechPlugin : public PluginBase<SpeechPlugin> {
 public:
  static constexpr std::string_view pluginClass = "SpeechAction";
  static constexpr std::int64_t speakText = 1;
  static constexpr std::int64_t speakClipboard = 2;
  static constexpr std::int64_t speakSelection = 3;
  static constexpr std::int64_t stopSpeaking = 4;
  static constexpr std::array<CommandName, 9> commandNames{{
      {"speak", speakText},
      {"speakText", speakText},
      {"text", speakText},
      {"speakClipboard", speakClipboard},
      {"clipboard", speakClipboard},
      {"speakSelection", speakSelection},
      {"selection", speakSelection},
      {"stop", stopSpeaking},
      {"stopSpeaking", stopSpeaking},
  }};

  static constexpr std::size_t characterLimit = 10'000;
  // How far back from the limit a cut looks for white space to end on.
  static constexpr std::size_t cutLookBack = 100;
  static constexpr double slowestRate = 80;
  static constexpr double fastestRate = 400;
  static constexpr auto pollInterval = std::chrono::milliseconds(100);
  static constexpr auto longestWait = std::chrono::minutes(30);

  SpeechPlugin();
  explicit SpeechPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // Trimmed; empty when absent.
  static std::string text(const ActionData& data);
  static std::string voice(const ActionData& data);
  // Words per minute as given; 0 (the system's rate) when absent.
  static double rate(const ActionData& data);
  static bool waitsUntilDone(const ActionData& data);

  // The voice that a voice text names: by identifier, then by name
  // (ignoring case and diacritics), then by language ("en_GB" as "en-GB"),
  // then by the language's primary subtag ("fr").
  static std::optional<Voice> resolveVoice(std::span<const Voice> voices, std::string_view wanted);

  // What is spoken of a text: at most 10,000 characters, cut back to white
  // space in the last 100 of them when there is some there.
  struct Cut {
    std::string_view text;
    std::size_t total = 0;  // characters of the whole text; 0 when not cut
  };
  static Cut cutToLimit(std::string_view text);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

  // Forgets the speech this process started (tests).
  static void resetSpeaker();

 private:
  PluginResult stop();
  PluginResult speak(const std::string& text, const std::optional<Voice>& voice, double rate, bool wait);
  Checked<std::string> selectedText();

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
