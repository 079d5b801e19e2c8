// ApplicationPlugin ("ApplicationShortcut"): launches, switches to, shows,
// hides, quits, relaunches and remembers applications, and pops up menus of
// the running and the recently used ones.
//
// Process-wide state, each piece guarded by a lock: the saved application
// (Save Front Application), the previous front application (followed by an
// activation observer of every plugin instance) and the recent-applications
// tracker. `resetSharedState` clears all three for tests.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>
#include "plugins/apps/application_command.h"
#include "plugins/apps/process_ref.h"

namespace orla {

class ApplicationControl;

class ApplicationPlugin : public PluginBase<ApplicationPlugin> {
 public:
  using Command = ApplicationCommand;
  static constexpr std::string_view pluginClass = "ApplicationShortcut";
  // Where a name is looked up as "<name>.app", in this order: the user's
  // applications first, then the system's, then the utilities.
  static constexpr std::array<std::string_view, 5> applicationFolders{
      "/Applications/", "/System/Applications/", "/System/Library/CoreServices/",
      "/Applications/Utilities/", "/System/Applications/Utilities/"};

  ApplicationPlugin();
  explicit ApplicationPlugin(std::shared_ptr<Platform> platform);
  ~ApplicationPlugin() override;
  ApplicationPlugin(const ApplicationPlugin&) = delete;
  ApplicationPlugin& operator=(const ApplicationPlugin&) = delete;

  // The number read from "actionType", else "Action", else 1.
  static std::int64_t actionTypeNumber(const ActionData& data);
  static std::optional<Command> command(const ActionData& data);
  // Trimmed, with "~" not yet expanded.
  static std::string applicationPath(const ActionData& data);
  static std::string appName(const ActionData& data);
  static bool hideOthers(const ActionData& data);
  static bool force(const ActionData& data);
  static std::int64_t order(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

  static std::optional<ProcessRef> savedApplication();
  static std::optional<ProcessRef> previousFrontApplication();
  static void resetSharedState();

  // The application an action names, running or not.
  struct Target {
    std::optional<RunningApplication> running;
    std::string bundlePath;  // empty when only a running application matched
    std::string name;        // for messages
  };
  // By path when one exists there, else by name among the running
  // applications and then in the application folders. Fails with
  // "Application '…' not found".
  Checked<Target> resolveTarget(const ActionData& data) const;

 private:
  PluginResult run(Command command, const ActionData& data);
  PluginResult launch(const ActionData& data);
  PluginResult switchNext(bool forward, const ActionData& data);
  PluginResult switchToTarget(const ActionData& data);
  PluginResult show(Command command, const ActionData& data);
  PluginResult hide(Command command, const ActionData& data);
  PluginResult quit(Command command, const ActionData& data);
  PluginResult quitBackground(bool force);
  PluginResult relaunch(Command command, const ActionData& data);
  PluginResult saveFront();
  PluginResult switchToRef(const std::optional<ProcessRef>& ref, bool saved, bool hideOthers);
  PluginResult runningMenu(const ActionData& data);
  PluginResult recentMenu(const ActionData& data);
  // One application's relaunch: none on success, else the sentence.
  std::optional<std::string> relaunchOne(const RunningApplication& app, bool force, bool activates);
  PluginResult switched(const RunningApplication& app, bool hideOthers);

  std::shared_ptr<Platform> platform_;
  std::unique_ptr<ApplicationControl> control_;
  Workspace::ObserverToken frontObserver_ = 0;
};

}  // namespace orla
