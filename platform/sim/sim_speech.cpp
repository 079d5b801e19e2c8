#include "platform/sim/sim_speech.h"

#include <nlohmann/json.hpp>

#include "platform/sim/sim_desktop.h"

namespace orla::sim {

SimSpeech::SimSpeech() : voices_(defaultVoices()), systemVoice_(voices_.front().identifier) {}

const std::vector<Voice>& SimSpeech::defaultVoices() {
  static const std::vector<Voice> voices{
      {"com.apple.voice.compact.en-US.Samantha", "Samantha", "en-US"},
      {"com.apple.voice.compact.en-GB.Daniel", "Daniel", "en-GB"},
      {"com.apple.voice.compact.fr-FR.Thomas", "Thomas", "fr-FR"},
      {"com.apple.voice.compact.fr-CA.Amélie", "Amélie", "fr-CA"},
      {"com.apple.voice.compact.de-DE.Anna", "Anna", "de-DE"},
  };
  return voices;
}

std::vector<Voice> SimSpeech::voices() const {
  std::lock_guard lock(mutex_);
  return voices_;
}
void SimSpeech::setVoices(std::vector<Voice> voices) {
  std::lock_guard lock(mutex_);
  voices_ = std::move(voices);
}
std::string SimSpeech::systemVoice() const {
  std::lock_guard lock(mutex_);
  return systemVoice_;
}
void SimSpeech::setSystemVoice(std::string identifier) {
  std::lock_guard lock(mutex_);
  systemVoice_ = std::move(identifier);
}
bool SimSpeech::stalls() const {
  std::lock_guard lock(mutex_);
  return stalls_;
}
void SimSpeech::setStalls(bool stalls) {
  std::lock_guard lock(mutex_);
  stalls_ = stalls;
}

void SimSpeech::start(SimSpokenText spoken, Clock::Monotonic endsAt) {
  std::lock_guard lock(mutex_);
  spoken_.push_back(std::move(spoken));
  endsAt_ = endsAt;
}

bool SimSpeech::speakingAt(Clock::Monotonic now) const {
  std::lock_guard lock(mutex_);
  return endsAt_ && (stalls_ || now < *endsAt_);
}

bool SimSpeech::stopAt(Clock::Monotonic now) {
  std::lock_guard lock(mutex_);
  const bool speaking = endsAt_ && (stalls_ || now < *endsAt_);
  if (speaking && !spoken_.empty()) spoken_.back().stopped = true;
  endsAt_.reset();
  return speaking;
}

std::vector<SimSpokenText> SimSpeech::spoken() const {
  std::lock_guard lock(mutex_);
  return spoken_;
}
void SimSpeech::setSpoken(std::vector<SimSpokenText> spoken) {
  std::lock_guard lock(mutex_);
  spoken_ = std::move(spoken);
}

namespace {

std::size_t wordCount(std::string_view text) {
  std::size_t words = 0;
  bool inWord = false;
  for (char c : text) {
    const bool space = c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
    if (!space && !inWord) ++words;
    inWord = !space;
  }
  return words;
}

class SimSpeechService : public SpeechSynthesizer {
 public:
  explicit SimSpeechService(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  std::vector<Voice> voices() override { return desktop_->speech().voices(); }

  Checked<void> speak(std::string_view text, const std::optional<std::string>& voice,
                      std::optional<double> wordsPerMinute) override {
    SimSpeech& speech = desktop_->speech();
    const auto now = desktop_->monotonicNow();
    if (speech.stopAt(now)) desktop_->record("speech", "stop");
    SimSpokenText spoken{std::string(text), voice.value_or(speech.systemVoice()),
                         wordsPerMinute.value_or(SimSpeech::systemRate)};
    const double minutes = static_cast<double>(wordCount(text)) / spoken.wordsPerMinute;
    const auto length = std::chrono::microseconds(static_cast<std::int64_t>(minutes * 60e6));
    desktop_->record("speech", "speak " + std::to_string(wordCount(text)) + " words with " + spoken.voice + " at " +
                                   std::to_string(static_cast<int>(spoken.wordsPerMinute)) + " wpm");
    speech.start(std::move(spoken), now + length);
    return {};
  }

  bool isSpeaking() override { return desktop_->speech().speakingAt(desktop_->monotonicNow()); }

  void stop() override {
    if (desktop_->speech().stopAt(desktop_->monotonicNow())) desktop_->record("speech", "stop");
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

Failure badSpeech(std::string_view key, std::string_view expected) {
  return fail("Simulated desktop state: \u201c" + std::string(key) + "\u201d must be " + std::string(expected) + ".");
}

}  // namespace

std::unique_ptr<SpeechSynthesizer> makeSimSpeech(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimSpeechService>(std::move(desktop));
}

Checked<void> loadSpeechState(SimSpeech& speech, const nlohmann::json& state) {
  if (auto it = state.find("voices"); it != state.end()) {
    constexpr std::string_view kVoices = "a list of voices, each with a text \u201cidentifier\u201d, \u201cname\u201d and \u201clanguage\u201d";
    if (!it->is_array() || it->empty()) return badSpeech("voices", kVoices);
    std::vector<Voice> voices;
    for (const auto& item : *it) {
      if (!item.is_object()) return badSpeech("voices", kVoices);
      Voice v;
      for (auto [key, field] : {std::pair{"identifier", &v.identifier}, {"name", &v.name}, {"language", &v.language}}) {
        auto value = item.find(key);
        if (value == item.end() || !value->is_string()) return badSpeech("voices", kVoices);
        *field = value->get<std::string>();
      }
      for (const Voice& other : voices)
        if (other.identifier == v.identifier) return badSpeech("voices", "a list of voices with different identifiers");
      voices.push_back(std::move(v));
    }
    speech.setSystemVoice(voices.front().identifier);
    speech.setVoices(std::move(voices));
  }
  if (auto it = state.find("systemVoice"); it != state.end()) {
    if (!it->is_string()) return badSpeech("systemVoice", "the identifier of one of the voices");
    const auto voices = speech.voices();
    const std::string wanted = it->get<std::string>();
    if (std::none_of(voices.begin(), voices.end(), [&](const Voice& v) { return v.identifier == wanted; }))
      return badSpeech("systemVoice", "the identifier of one of the voices");
    speech.setSystemVoice(wanted);
  }
  if (auto it = state.find("speechStalls"); it != state.end()) {
    if (!it->is_boolean()) return badSpeech("speechStalls", "true or false");
    speech.setStalls(it->get<bool>());
  }
  if (auto it = state.find("spoken"); it != state.end()) {
    constexpr std::string_view kSpoken =
        "a list of speeches, each with a text \u201ctext\u201d and \u201cvoice\u201d, a \u201crate\u201d and "
        "\u201cstopped\u201d true or false";
    if (!it->is_array()) return badSpeech("spoken", kSpoken);
    std::vector<SimSpokenText> spoken;
    for (const auto& item : *it) {
      if (!item.is_object()) return badSpeech("spoken", kSpoken);
      const auto text = item.find("text"), voice = item.find("voice"), rate = item.find("rate"),
                 stopped = item.find("stopped");
      if (text == item.end() || !text->is_string() || voice == item.end() || !voice->is_string() ||
          rate == item.end() || !rate->is_number() || (stopped != item.end() && !stopped->is_boolean()))
        return badSpeech("spoken", kSpoken);
      spoken.push_back({text->get<std::string>(), voice->get<std::string>(), rate->get<double>(),
                        stopped != item.end() && stopped->get<bool>()});
    }
    speech.setSpoken(std::move(spoken));
  }
  return {};
}

void saveSpeechState(const SimSpeech& speech, nlohmann::json& state) {
  const auto voices = speech.voices();
  if (voices != SimSpeech::defaultVoices()) {
    auto list = nlohmann::json::array();
    for (const Voice& v : voices) list.push_back({{"identifier", v.identifier}, {"name", v.name}, {"language", v.language}});
    state["voices"] = std::move(list);
  }
  if (speech.systemVoice() != voices.front().identifier) state["systemVoice"] = speech.systemVoice();
  if (speech.stalls()) state["speechStalls"] = true;
  if (auto spoken = speech.spoken(); !spoken.empty()) {
    auto list = nlohmann::json::array();
    for (const SimSpokenText& s : spoken)
      list.push_back({{"text", s.text}, {"voice", s.voice}, {"rate", s.wordsPerMinute}, {"stopped", s.stopped}});
    state["spoken"] = std::move(list);
  }
}

}  // namespace orla::sim
