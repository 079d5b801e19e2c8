// Speech: the system's speech synthesiser, which speaks a text aloud on the
// default sound output without holding up the caller.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct Voice {
  std::string identifier;  // the system's own, unique among the voices
  std::string name;        // as the user sees it
  std::string language;    // BCP 47 ("en-GB"); empty when the voice names none
  friend bool operator==(const Voice&, const Voice&) = default;
};

class SpeechSynthesizer {
 public:
  virtual ~SpeechSynthesizer() = default;
  // The installed voices in the system's order; empty when none can be
  // listed.
  virtual std::vector<Voice> voices() = 0;
  // Starts speaking `text` and returns once it has started. `voice` is an
  // identifier from `voices()`, none for the system voice; `wordsPerMinute`
  // none for the system rate. Whatever this synthesiser was speaking stops
  // first. Fails with a sentence when speech cannot start.
  virtual Checked<void> speak(std::string_view text, const std::optional<std::string>& voice,
                              std::optional<double> wordsPerMinute) = 0;
  virtual bool isSpeaking() = 0;
  // Ends the speech at once; nothing happens when none is going on.
  virtual void stop() = 0;
};

}  // namespace orla
