#include "plugins/input/focus_mode_plugin.h"

#include <algorithm>
#include <cctype>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/input/menu_path.h"

namespace orla {

namespace {

std::string curlyQuoted(std::string_view name) { return "\u201c" + std::string(name) + "\u201d"; }
std::string_view onOff(bool on) { return on ? "on" : "off"; }

}  // namespace

FocusModePlugin::FocusModePlugin() : FocusModePlugin(Platform::current()) {}
FocusModePlugin::FocusModePlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string FocusModePlugin::mode(const ActionData& data) {
  return readStringOr(data, {"focusMode", "mode", "Mode", "name"});
}

std::optional<FocusModePlugin::Wish> FocusModePlugin::state(const ActionData& data) {
  for (std::string_view key : {"state", "State"}) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (const auto* text = value->asString()) {
      std::string word(trimWhitespaceAndNewlines(*text));
      std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
      if (word == "toggle") return Wish::toggle;
      if (word == "on") return Wish::on;
      if (word == "off") return Wish::off;
      // Otherwise a number written as text, as every integer is read.
    }
    const auto number = value->intValue();
    if (!number) return std::nullopt;
    if (*number >= 0 && *number <= 2) return static_cast<Wish>(*number);
    return std::nullopt;
  }
  return Wish::toggle;
}

std::optional<std::string> FocusModePlugin::validate(const ActionData& data) const {
  if (!state(data)) return "Choose whether to turn the Focus mode on, off, or toggle it.";
  return std::nullopt;
}

PluginResult FocusModePlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  Platform& p = *platform_;
  if (!p.supports(Capability::focusModes))
    return PluginResult::failure("Switching Focus modes is not available on this desktop in this build of Orla.");
  FocusModes& focus = p.focusModes();
  if (focus.needsAccessibility() && !p.accessibility().isProcessTrusted())
    return PluginResult::failure(
        "Accessibility permission is required to switch Focus through Control Center. Enable Orla Pro in System "
        "Settings \u2192 Privacy & Security \u2192 Accessibility.");
  const Checked<FocusModeState> now = focus.state();
  if (!now)
    return PluginResult::failure(
        "Could not read the current Focus mode. Open Control Center once so that Focus appears there, then click "
        "Test again.");

  const std::string wanted = mode(data);
  const Wish wish = *state(data);
  std::string name;  // the mode as the system spells it
  if (!wanted.empty()) {
    const NameMatcher matcher(wanted, Selection::nameFull);
    const auto found = std::find_if(now->modes.begin(), now->modes.end(),
                                    [&](const std::string& m) { return matcher.matches(m); });
    if (found == now->modes.end()) {
      std::string list;
      for (const std::string& m : now->modes) list += (list.empty() ? "" : ", ") + m;
      return PluginResult::failure("There is no Focus mode named " + curlyQuoted(wanted) + ". Modes here: " + list +
                                   ". Check the name in System Settings \u2192 Focus, then click Test again.");
    }
    name = *found;
  }

  const bool isOn = !name.empty() && now->active == name;
  if (name.empty()) {
    // Focus as a whole: off ends whatever mode is on; on, and toggle with
    // nothing on, start do not disturb.
    if (wish == Wish::off || (wish == Wish::toggle && now->active)) {
      if (!now->active) return PluginResult::success("No Focus mode was on.");
      return switchMode(*now->active, false);
    }
    name = std::string(kDoNotDisturb);
    if (now->active == name) return PluginResult::success(curlyQuoted(name) + " is already on.");
    return switchMode(name, true);
  }
  if (wish == Wish::on && isOn) return PluginResult::success(curlyQuoted(name) + " is already on.");
  if (wish == Wish::off && !isOn) return PluginResult::success(curlyQuoted(name) + " was not on.");
  return switchMode(name, wish == Wish::toggle ? !isOn : wish == Wish::on);
}

PluginResult FocusModePlugin::switchMode(const std::string& name, bool on) {
  Platform& p = *platform_;
  FocusModes& focus = p.focusModes();
  if (!focus.setMode(name, on))
    return PluginResult::failure("The system refused to turn " + curlyQuoted(name) + " " + std::string(onOff(on)) +
                                 ". Switch it in Control Center yourself, then click Test again.");
  // Read at once, then every 0.2 s until three seconds have passed.
  Clock& clock = p.clock();
  const auto start = clock.monotonicNow();
  for (;;) {
    if (const Checked<FocusModeState> now = focus.state(); now && (now->active == name) == on)
      return PluginResult::success("Turned " + curlyQuoted(name) + " " + std::string(onOff(on)) + ".");
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(clock.monotonicNow() - start);
    if (elapsed >= confirmationTime) break;
    clock.sleep(std::min<std::chrono::microseconds>(pollInterval, confirmationTime - elapsed));
  }
  return PluginResult::failure("The system did not turn " + curlyQuoted(name) + " " + std::string(onOff(on)) +
                               " within 3 seconds. Switch it in Control Center yourself, then click Test again.");
}

}  // namespace orla
