#include "platform/sim/sim_sounds.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include <orla/models/text.h>
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

SimSounds::SimSounds() : names_(defaultSystemSoundNames()) {}

const std::vector<std::string>& SimSounds::defaultSystemSoundNames() {
  static const std::vector<std::string> names{"Basso", "Blow",   "Bottle", "Frog",      "Funk",
                                              "Glass", "Hero",   "Morse",  "Ping",      "Pop",
                                              "Purr",  "Sosumi", "Submarine", "Tink"};
  return names;
}

std::vector<std::string> SimSounds::systemSoundNames() const {
  std::lock_guard lock(mutex_);
  return names_;
}

void SimSounds::setSystemSoundNames(std::vector<std::string> names) {
  std::lock_guard lock(mutex_);
  names_ = std::move(names);
}

std::optional<std::string> SimSounds::systemSound(std::string_view name) const {
  std::lock_guard lock(mutex_);
  for (const std::string& known : names_)
    if (equalsIgnoringCase(known, name)) return known;
  return std::nullopt;
}

bool looksLikeSoundFile(std::string_view h) {
  const auto at = [&](std::size_t offset, std::string_view tag) {
    return h.size() >= offset + tag.size() && h.substr(offset, tag.size()) == tag;
  };
  if (at(0, "RIFF") && at(8, "WAVE")) return true;
  if (at(0, "FORM") && (at(8, "AIFF") || at(8, "AIFC"))) return true;
  if (at(0, "caff") || at(0, "fLaC") || at(0, "OggS") || at(0, "ID3")) return true;
  // An MPEG audio frame: eleven set bits of frame sync.
  if (h.size() >= 2 && static_cast<unsigned char>(h[0]) == 0xFF && (static_cast<unsigned char>(h[1]) & 0xE0) == 0xE0)
    return true;
  // MPEG-4 audio: a file-type box of an audio brand.
  return at(4, "ftyp") && (at(8, "M4A ") || at(8, "M4B ") || at(8, "mp42") || at(8, "isom"));
}

namespace {

class SimSound : public Sound {
 public:
  SimSound(std::shared_ptr<SimDesktop> d, std::string description)
      : desktop_(std::move(d)), description_(std::move(description)) {}
  void play() override { desktop_->record("sound", "play " + description_); }

 private:
  std::shared_ptr<SimDesktop> desktop_;
  std::string description_;
};

class SimSoundsService : public Sounds {
 public:
  explicit SimSoundsService(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<std::unique_ptr<Sound>> systemSound(std::string_view name) override {
    auto known = desktop_->sounds().systemSound(name);
    if (!known) return std::unique_ptr<Sound>();
    return std::unique_ptr<Sound>(std::make_unique<SimSound>(desktop_, "system sound “" + *known + "”"));
  }

  Checked<std::unique_ptr<Sound>> soundFile(std::string_view path) override {
    std::ifstream file{std::string(path), std::ios::binary};
    char header[16] = {};
    file.read(header, sizeof header);
    if (!file && file.gcount() == 0) return std::unique_ptr<Sound>();
    if (!looksLikeSoundFile(std::string_view(header, static_cast<std::size_t>(file.gcount()))))
      return std::unique_ptr<Sound>();
    return std::unique_ptr<Sound>(std::make_unique<SimSound>(desktop_, "file " + std::string(path)));
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

}  // namespace

std::unique_ptr<Sounds> makeSimSounds(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimSoundsService>(std::move(desktop));
}

Checked<void> loadSoundsState(SimSounds& sounds, const nlohmann::json& state) {
  auto it = state.find("systemSounds");
  if (it == state.end()) return {};
  const auto bad = [] { return fail("Simulated desktop state: “systemSounds” must be a list of sound names."); };
  if (!it->is_array()) return bad();
  std::vector<std::string> names;
  for (const auto& name : *it) {
    if (!name.is_string()) return bad();
    names.push_back(name.get<std::string>());
  }
  sounds.setSystemSoundNames(std::move(names));
  return {};
}

void saveSoundsState(const SimSounds& sounds, nlohmann::json& state) {
  if (auto names = sounds.systemSoundNames(); names != SimSounds::defaultSystemSoundNames())
    state["systemSounds"] = names;
}

}  // namespace orla::sim
