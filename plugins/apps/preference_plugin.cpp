#include "plugins/apps/preference_plugin.h"

#include <array>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>

namespace orla {

namespace {

using Pane = PreferencePlugin::Pane;

// The panes every desktop can name. Keep one row per pane and one column per
// desktop; an empty column is a pane that desktop lacks.
constexpr std::array<Pane, 25> kPanes{{
    {"accessibility", "Accessibility", "com.apple.preference.universalaccess", "universal-access", "kcm_access"},
    {"accessibilityPermission", "Privacy & Security → Accessibility",
     "com.apple.preference.security?Privacy_Accessibility", "", ""},
    {"automationPermission", "Privacy & Security → Automation", "com.apple.preference.security?Privacy_Automation",
     "", ""},
    {"screenRecordingPermission", "Privacy & Security → Screen Recording",
     "com.apple.preference.security?Privacy_ScreenCapture", "", ""},
    {"privacy", "Privacy & Security", "com.apple.preference.security", "", ""},
    {"bluetooth", "Bluetooth", "com.apple.preferences.Bluetooth", "bluetooth", "kcm_bluetooth"},
    {"dateTime", "Date & Time", "com.apple.preference.datetime", "datetime", "kcm_clock"},
    {"displays", "Displays", "com.apple.preference.displays", "display", "kcm_kscreen"},
    {"keyboard", "Keyboard", "com.apple.preference.keyboard", "keyboard", "kcm_keyboard"},
    {"mouse", "Mouse", "com.apple.preference.mouse", "mouse", "kcm_mouse"},
    {"trackpad", "Trackpad", "com.apple.preference.trackpad", "mouse", "kcm_touchpad"},
    {"network", "Network", "com.apple.preference.network", "network", "kcm_networkmanagement"},
    {"wifi", "Wi-Fi", "com.apple.wifi-settings-extension", "wifi", "kcm_networkmanagement"},
    {"notifications", "Notifications", "com.apple.preference.notifications", "notifications", "kcm_notifications"},
    {"focus", "Focus", "com.apple.Focus-Settings.extension", "notifications", "kcm_notifications"},
    {"sound", "Sound", "com.apple.preference.sound", "sound", "kcm_pulseaudio"},
    {"printers", "Printers & Scanners", "com.apple.preference.printfax", "printers", "kcm_printer_manager"},
    {"users", "Users & Groups", "com.apple.preferences.users", "user-accounts", "kcm_users"},
    {"lockScreen", "Lock Screen", "com.apple.Lock-Screen-Settings.extension", "screen", "kcm_screenlocker"},
    {"battery", "Battery", "com.apple.preference.battery", "power", "kcm_powerdevilprofilesconfig"},
    {"sharing", "Sharing", "com.apple.preferences.sharing", "sharing", ""},
    {"wallpaper", "Wallpaper", "com.apple.preference.desktopscreeneffect", "background", ""},
    {"region", "Language & Region", "com.apple.Localization-Settings.extension", "region", "kcm_regionandlang"},
    {"softwareUpdate", "Software Update", "com.apple.preferences.softwareupdate", "", ""},
    {"about", "About", "com.apple.SystemProfiler.AboutExtension", "info-overview", "kcm_about-distro"},
}};

constexpr std::string_view kURLPrefix = "x-apple.systempreferences:";

bool isAsciiAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// A letter or digit first, then letters, digits, ".", "-" and "_", and
// optionally "?" with an anchor of letters, digits and "_": never an option
// for a command line, never other parts of an address.
bool isPlatformIdentifier(std::string_view text) {
  if (text.empty() || !isAsciiAlnum(text.front())) return false;
  const std::size_t question = text.find('?');
  const std::string_view name = text.substr(0, question);
  for (char c : name)
    if (!isAsciiAlnum(c) && c != '.' && c != '-' && c != '_') return false;
  if (question == std::string_view::npos) return true;
  const std::string_view anchor = text.substr(question + 1);
  if (anchor.empty()) return false;
  for (char c : anchor)
    if (!isAsciiAlnum(c) && c != '_') return false;
  return true;
}

std::string_view column(const Pane& pane, std::string_view desktop) {
  if (desktop == "macos") return pane.macos;
  if (desktop == "gnome") return pane.gnome;
  if (desktop == "kde") return pane.kde;
  return {};
}

constexpr const char* kUnavailable = "Opening settings panes is not available on this desktop in this build of Orla.";

}  // namespace

PreferencePlugin::PreferencePlugin() : PreferencePlugin(Platform::current()) {}
PreferencePlugin::PreferencePlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string PreferencePlugin::paneText(const ActionData& data) {
  return readStringOr(data, {"pane", "Pane", "paneID", "preferencePane", "identifier"});
}

std::optional<PreferencePlugin::Resolved> PreferencePlugin::resolvedPane(const ActionData& data) {
  return resolvedPane(paneText(data));
}

std::optional<PreferencePlugin::Resolved> PreferencePlugin::resolvedPane(std::string_view given) {
  const std::string_view text = trimWhitespaceAndNewlines(given);
  const std::string name = normalisedName(text);
  if (!name.empty())
    for (const Pane& pane : kPanes)
      if (normalisedName(pane.key) == name || normalisedName(pane.title) == name) return Resolved(&pane);
  std::string_view identifier = text;
  if (identifier.starts_with(kURLPrefix)) identifier.remove_prefix(kURLPrefix.size());
  if (isPlatformIdentifier(identifier)) return Resolved(std::string(identifier));
  return std::nullopt;
}

std::optional<std::string> PreferencePlugin::validate(const ActionData& data) const {
  const std::string text = paneText(data);
  if (text.empty()) return "Choose a settings pane from the menu, or enter its identifier.";
  if (!resolvedPane(text))
    return "“" + text +
           "” is not a settings pane Orla knows. Choose one from the menu, or enter the system's identifier for it "
           "(for example com.apple.preference.sound or sound).";
  return std::nullopt;
}

PluginResult PreferencePlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  const Resolved pane = *resolvedPane(data);
  if (!platform_->supports(Capability::settingsPanes)) return PluginResult::failure(kUnavailable);
  const auto desktop = platform_->settingsPanes().desktop();
  if (!desktop) return PluginResult::failure(kUnavailable);
  std::string identifier, named;
  if (const auto* row = std::get_if<const Pane*>(&pane)) {
    identifier = column(**row, *desktop);
    named = (*row)->title;
    if (identifier.empty())
      return PluginResult::failure("This desktop has no “" + named +
                                   "” settings. Open the system settings and look for it there.");
  } else {
    identifier = std::get<std::string>(pane);
    named = identifier;
  }
  if (!platform_->settingsPanes().open(identifier))
    return PluginResult::failure("The system settings did not open “" + named +
                                 "”. Open the system settings yourself and choose it there.");
  if (std::holds_alternative<std::string>(pane))
    return PluginResult::success("Opened the settings pane “" + identifier + "”.");
  return PluginResult::success("Opened the “" + named + "” settings.");
}

}  // namespace orla
