// SimSpeech: the simulated desktop's speech synthesiser. Its voices and the
// system voice come from the scene (a few of macOS's by default); each
// speech is recorded (its text, voice and rate, in the trace as category
// "speech" and in the list `spoken`) and lasts words ÷ rate minutes of
// virtual time, at 175 words per minute for the system rate. A scene can
// make the synthesiser stall, so that a speech never ends by itself.
// Thread safety: every method may be called from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/clock.h>
#include <orla/platform/speech.h>

namespace orla::sim {

class SimDesktop;

struct SimSpokenText {
  std::string text;
  std::string voice;           // the identifier of the voice that spoke it
  double wordsPerMinute = 0;   // the rate it was spoken at
  bool stopped = false;        // stopped before its end
  friend bool operator==(const SimSpokenText&, const SimSpokenText&) = default;
};

class SimSpeech {
 public:
  static constexpr double systemRate = 175;

  SimSpeech();
  std::vector<Voice> voices() const;
  void setVoices(std::vector<Voice> voices);
  // The identifier of the voice that speaks when none is chosen: the first
  // voice unless the scene names another.
  std::string systemVoice() const;
  void setSystemVoice(std::string identifier);
  bool stalls() const;
  void setStalls(bool stalls);

  void start(SimSpokenText spoken, Clock::Monotonic endsAt);
  bool speakingAt(Clock::Monotonic now) const;
  // Marks the speech going on at `now` as stopped; false when none was.
  bool stopAt(Clock::Monotonic now);
  std::vector<SimSpokenText> spoken() const;
  void setSpoken(std::vector<SimSpokenText> spoken);

  static const std::vector<Voice>& defaultVoices();

 private:
  mutable std::mutex mutex_;
  std::vector<Voice> voices_;
  std::string systemVoice_;
  bool stalls_ = false;
  std::vector<SimSpokenText> spoken_;
  std::optional<Clock::Monotonic> endsAt_;  // of the last speech; none after a stop
};

std::unique_ptr<SpeechSynthesizer> makeSimSpeech(std::shared_ptr<SimDesktop> desktop);

// "voices": [{"identifier": "…", "name": "Samantha", "language": "en-US"}],
// "systemVoice": "…", "speechStalls": true, "spoken": [{"text": "…",
// "voice": "…", "rate": 175, "stopped": false}]. The voices and the system
// voice are written back only when they differ from the defaults.
Checked<void> loadSpeechState(SimSpeech& speech, const nlohmann::json& state);
void saveSpeechState(const SimSpeech& speech, nlohmann::json& state);

}  // namespace orla::sim
