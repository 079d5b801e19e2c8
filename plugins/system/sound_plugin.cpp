#include "plugins/system/sound_plugin.h"

#include <orla/models/text.h>

namespace orla {

SoundPlugin::SoundPlugin() : SoundPlugin(Platform::current()) {}
SoundPlugin::SoundPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t SoundPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, commandNames);
}

std::string SoundPlugin::soundPath(const ActionData& data) { return readStringOr(data, {"soundPath", "Path", "path"}); }

std::string SoundPlugin::soundName(const ActionData& data) {
  return readStringOr(data, {"soundName", "SoundName", "name"});
}

std::string_view SoundPlugin::subAction(std::int64_t number) {
  switch (number) {
    case volumeUp: return "volumeUp";
    case volumeDown: return "volumeDown";
    case mute: return "mute";
    case fullVolume: return "fullVolume";
    default: return "play";
  }
}

std::optional<std::string> SoundPlugin::validate(const ActionData& data) const {
  const std::int64_t number = resolvedActionType(data);
  if (number == volumeUp || number == volumeDown || number == mute || number == fullVolume) return std::nullopt;
  if (number != play) return "Unknown sound command. Choose one from the menu.";
  // Whether the system knows a named sound shows only when it plays.
  if (!soundName(data).empty()) return std::nullopt;
  const std::string path = platform_->environment().expandTilde(soundPath(data));
  if (path.empty()) return "Choose a system sound or sound file to play.";
  if (!platform_->files().itemExists(path))
    return "The sound file " + orla::quoted(path) + " can't be found. Choose it again with Browse…";
  return std::nullopt;
}

PluginResult SoundPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  const std::int64_t command = resolvedActionType(data);
  if (command != play && !platform_->supports(Capability::appleScript) &&
      platform_->supports(Capability::outputVolume)) {
    switch (command) {
      case volumeUp: return changeVolume(command, "Volume increased.");
      case volumeDown: return changeVolume(command, "Volume decreased.");
      case mute: return changeVolume(command, "Mute toggled.");
      default: return changeVolume(command, "Volume set to full.");
    }
  }
  switch (command) {
    case volumeUp: return runVolumeScript(volumeUpScript, "Volume increased.");
    case volumeDown: return runVolumeScript(volumeDownScript, "Volume decreased.");
    case mute: return runVolumeScript(muteScript, "Mute toggled.");
    case fullVolume: return runVolumeScript(fullVolumeScript, "Volume set to full.");
    default: return playSound(data);
  }
}

PluginResult SoundPlugin::playSound(const ActionData& data) const {
  Sounds& sounds = platform_->sounds();
  // The name wins over the path.
  if (const std::string name = soundName(data); !name.empty()) {
    auto sound = sounds.systemSound(name);
    if (!sound) return PluginResult::failure(sound.error());
    if (!sound.value()) return PluginResult::failure("System sound not found: " + name);
    sound.value()->play();
    return PluginResult::success("Played system sound " + orla::quoted(name) + ".");
  }
  const std::string path = platform_->environment().expandTilde(soundPath(data));
  if (path.empty()) return PluginResult::failure("Choose a system sound or sound file to play.");
  if (!platform_->files().itemExists(path)) return PluginResult::failure("Sound file not found: " + path);
  auto sound = sounds.soundFile(path);
  if (!sound) return PluginResult::failure(sound.error());
  if (!sound.value()) return PluginResult::failure("Cannot load sound: " + path);
  sound.value()->play();
  return PluginResult::success("Played sound file.");
}

PluginResult SoundPlugin::runVolumeScript(std::string_view source, std::string success) const {
  const ScriptRun run = runScript(platform_->scripting(), platform_->mainThread(), source);
  switch (run.status) {
    case ScriptRun::Status::unavailable: return PluginResult::failure(run.unavailableReason);
    case ScriptRun::Status::notCompiled: return PluginResult::failure("Could not run volume command.");
    case ScriptRun::Status::failed:
      if (run.error.message && !run.error.message->empty()) return PluginResult::failure(*run.error.message);
      if (run.error.briefMessage && !run.error.briefMessage->empty())
        return PluginResult::failure(*run.error.briefMessage);
      return PluginResult::failure("Could not change system volume.");
    case ScriptRun::Status::finished: break;
  }
  return PluginResult::success(std::move(success));
}

PluginResult SoundPlugin::changeVolume(std::int64_t command, std::string success) const {
  OutputVolumeControl& control = platform_->outputVolume();
  if (command == fullVolume) {
    auto set = control.setPercent(100);
    return set ? PluginResult::success(std::move(success)) : PluginResult::failure(set.error());
  }
  const auto now = control.read();
  if (!now) return PluginResult::failure(now.error());
  Checked<void> changed;
  if (command == mute) changed = control.setMuted(!now->muted);
  // Steps of 10, capped at 100; down never goes below 1, so it never mutes.
  else if (command == volumeUp) changed = control.setPercent(now->percent < 90 ? now->percent + 10 : 100);
  else changed = control.setPercent(now->percent > 10 ? now->percent - 10 : 1);
  return changed ? PluginResult::success(std::move(success)) : PluginResult::failure(changed.error());
}

}  // namespace orla
