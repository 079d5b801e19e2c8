// FocusModePlugin ("FocusModeAction"): turns do not disturb or a named
// Focus mode (Work, Sleep, ...) on or off, or toggles it, and waits for the
// system to show the change. The system keeps the modes; the plugin keeps
// nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class FocusModePlugin : public PluginBase<FocusModePlugin> {
 public:
  static constexpr std::string_view pluginClass = "FocusModeAction";

  enum class Wish { toggle = 0, on = 1, off = 2 };

  static constexpr auto pollInterval = std::chrono::milliseconds(200);
  static constexpr auto confirmationTime = std::chrono::seconds(3);

  FocusModePlugin();
  explicit FocusModePlugin(std::shared_ptr<Platform> platform);

  // Trimmed; empty means Focus as a whole.
  static std::string mode(const ActionData& data);
  // None for a state that is neither 0, 1, 2 nor "toggle", "on", "off".
  static std::optional<Wish> state(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult switchMode(const std::string& mode, bool on);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
