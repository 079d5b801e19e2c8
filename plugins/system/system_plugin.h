// SystemPlugin ("SystemShortcut"): asks the system to restart, shut down,
// sleep or log out, starts the screen saver, toggles the Dock's automatic
// hiding, ejects removable disks and empties the Trash. Almost every command
// is a one-line AppleScript for System Events or Finder; the system may then
// ask the user to confirm, which the plugin does not wait for.
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

class SystemPlugin : public PluginBase<SystemPlugin> {
 public:
  static constexpr std::string_view pluginClass = "SystemShortcut";
  // 7 and 8 are not used, on purpose: saved actions never had them.
  static constexpr std::int64_t restart = 1;
  static constexpr std::int64_t shutDown = 2;
  static constexpr std::int64_t sleep = 3;
  static constexpr std::int64_t logOut = 4;
  static constexpr std::int64_t screenSaver = 5;
  static constexpr std::int64_t dock = 6;
  static constexpr std::int64_t eject = 9;
  static constexpr std::int64_t emptyTrash = 10;
  static constexpr std::array<CommandName, 14> commandNames{{
      {"restart", restart},
      {"shutdown", shutDown},
      {"shutDown", shutDown},
      {"sleep", sleep},
      {"logout", logOut},
      {"logOut", logOut},
      {"screensaver", screenSaver},
      {"screenSaver", screenSaver},
      {"dock", dock},
      {"showHideDock", dock},
      {"hideDock", dock},
      {"eject", eject},
      {"emptyTrash", emptyTrash},
      {"trash", emptyTrash},
  }};

  static constexpr std::string_view dockScript =
      "tell application \"System Events\"\n"
      "    tell dock preferences\n"
      "        set autohide to not autohide\n"
      "    end tell\n"
      "end tell";
  static constexpr std::string_view screenSaverScript =
      "tell application \"System Events\" to start current screen saver";
  // Where the screen saver's application lives, newer systems first.
  static constexpr std::string_view screenSaverEngine = "/System/Library/CoreServices/ScreenSaverEngine.app";
  static constexpr std::string_view frameworkScreenSaverEngine =
      "/System/Library/Frameworks/ScreenSaver.framework/Resources/ScreenSaverEngine.app";

  SystemPlugin();
  explicit SystemPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // The script of a command that is one script; none for the screen saver
  // and unknown numbers.
  static std::optional<std::string_view> script(std::int64_t command);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult perform(std::int64_t command, const ActionData& data) const;
  PluginResult runSystemScript(std::string_view source, std::string success) const;
  PluginResult startScreenSaver() const;
  // A desktop without AppleScript asks its own services instead.
  PluginResult askSession(std::int64_t command, const ActionData& data) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
