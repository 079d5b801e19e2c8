// SimSounds: the sounds of the simulated desktop. The system sounds are a
// list of names (macOS's own by default); a sound file is the real file at
// its path, which loads when it starts like a sound file of a format the
// system plays (WAVE, AIFF, Core Audio, MP3, MPEG-4 audio, FLAC, Ogg).
// Nothing is heard: each sound started is recorded in the trace (category
// "sound").
// Thread safety: every method may be called from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/sound.h>

namespace orla::sim {

class SimDesktop;

class SimSounds {
 public:
  SimSounds();
  std::vector<std::string> systemSoundNames() const;
  void setSystemSoundNames(std::vector<std::string> names);
  // The listed name that matches `name`, ignoring case as the system's
  // file names do.
  std::optional<std::string> systemSound(std::string_view name) const;

  static const std::vector<std::string>& defaultSystemSoundNames();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> names_;
};

// Whether these first bytes of a file start a sound format the system plays.
bool looksLikeSoundFile(std::string_view header);

std::unique_ptr<Sounds> makeSimSounds(std::shared_ptr<SimDesktop> desktop);

// "systemSounds": ["Basso", "Glass", "Ping"]. Absent: macOS's list. The
// saved state has the key only when the list differs from that default.
Checked<void> loadSoundsState(SimSounds& sounds, const nlohmann::json& state);
void saveSoundsState(const SimSounds& sounds, nlohmann::json& state);

}  // namespace orla::sim
