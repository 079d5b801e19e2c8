// OrlaPlugin ("OrlaShortcut"): lets a shortcut control the host itself. It
// acts only by posting "orOrlaPluginAction" on the main thread; the host
// opens its editor, quits, pauses its engine or runs a shortcut by name.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <memory>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla ORLA_EXPORT {

class OrlaPlugin : public PluginBase<OrlaPlugin> {
 public:
  static constexpr std::string_view pluginClass = "OrlaShortcut";
  static constexpr std::string_view notificationName = "orOrlaPluginAction";

  OrlaPlugin();
  explicit OrlaPlugin(std::shared_ptr<Platform> platform);

  // The command number 1 to 9 (or a number outside, which is unknown).
  static std::int64_t resolvedActionType(const ActionData& data);
  // The trimmed name of the shortcut to run; empty when none.
  static std::string shortcutName(const ActionData& data);
  // The sub-action sent to the host; "openEditor" for 1 and unknown numbers.
  static std::string_view subAction(std::int64_t actionType);
  // Commands 6, 7 and 8: repeat the last or previous action, test the edited one.
  static bool isHistoryControl(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  void post(std::int64_t actionType, const std::string& name);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
