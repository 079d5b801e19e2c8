// SoundPlugin ("SoundShortcut"): plays a system sound by name or a sound
// file, and turns the output volume up or down, toggles mute, or sets it to
// full through small AppleScript programs (or, on a desktop without
// AppleScript, the same steps through its sound server).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/platform/platform.h>

namespace orla {

class SoundPlugin : public PluginBase<SoundPlugin> {
 public:
  static constexpr std::string_view pluginClass = "SoundShortcut";
  // The numbers are fixed by saved actions; 2 to 9 and 13 are not used.
  static constexpr std::int64_t play = 1;
  static constexpr std::int64_t volumeUp = 10;
  static constexpr std::int64_t volumeDown = 11;
  static constexpr std::int64_t mute = 12;
  static constexpr std::int64_t fullVolume = 14;
  static constexpr std::array<CommandName, 13> commandNames{{
      {"play", play},
      {"playFile", play},
      {"playSound", play},
      {"volumeUp", volumeUp},
      {"soundUp", volumeUp},
      {"volumeDown", volumeDown},
      {"soundDown", volumeDown},
      {"mute", mute},
      {"soundMute", mute},
      {"toggleMute", mute},
      {"fullVolume", fullVolume},
      {"volumeFull", fullVolume},
      {"soundFull", fullVolume},
  }};

  // Steps of 10 up to 100.
  static constexpr std::string_view volumeUpScript =
      "set curVolume to output volume of (get volume settings)\n"
      "if curVolume < 90 then\n"
      "    set newVolume to curVolume + 10\n"
      "else\n"
      "    set newVolume to 100\n"
      "end if\n"
      "set volume output volume newVolume";
  // Steps of 10 down to 1, not 0: turning the volume down never mutes.
  static constexpr std::string_view volumeDownScript =
      "set curVolume to output volume of (get volume settings)\n"
      "if curVolume > 10 then\n"
      "    set newVolume to curVolume - 10\n"
      "else\n"
      "    set newVolume to 1\n"
      "end if\n"
      "set volume output volume newVolume";
  static constexpr std::string_view muteScript =
      "set isMuted to output muted of (get volume settings)\n"
      "set newMuted to not isMuted\n"
      "set volume output muted newMuted";
  static constexpr std::string_view fullVolumeScript = "set volume output volume 100";

  SoundPlugin();
  explicit SoundPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // Trimmed; empty when absent. The path's "~" is expanded on use.
  static std::string soundPath(const ActionData& data);
  static std::string soundName(const ActionData& data);
  // The first name of a command: "volumeUp", "volumeDown", "mute",
  // "fullVolume", and "play" for every other number.
  static std::string_view subAction(std::int64_t number);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult playSound(const ActionData& data) const;
  PluginResult runVolumeScript(std::string_view source, std::string success) const;
  // The same steps as the scripts, through the sound server, on a desktop
  // without AppleScript.
  PluginResult changeVolume(std::int64_t command, std::string success) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
