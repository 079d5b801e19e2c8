// PausePlugin ("PauseShortcut"): holds the running shortcut for a fixed
// time, or until an application runs, is in front or has quit, or until a
// window whose title matches is open, in front or closed. Every wait goes
// through the clock; a wait for a condition never outlasts its time-out,
// after which the user's choice decides: fail, go on, or end quietly.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class PausePlugin : public PluginBase<PausePlugin> {
 public:
  static constexpr std::string_view pluginClass = "PauseShortcut";
  static constexpr std::int64_t waitTime = 1;
  static constexpr std::int64_t waitApplication = 2;
  static constexpr std::int64_t waitWindow = 3;
  static constexpr double longestWait = 3600;  // seconds
  static constexpr double defaultTimeout = 30;
  static constexpr auto pollInterval = std::chrono::milliseconds(200);

  PausePlugin();
  explicit PausePlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  static std::optional<double> seconds(const ActionData& data);
  // The time-out given, or the default.
  static double timeout(const ActionData& data);
  // 1 gives "1 second", 1.5 "1.5 seconds", 0.25 "0.25 seconds".
  static std::string formatSeconds(double seconds);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;
  bool requiresAccessibility(const ActionData& data) const override {
    return resolvedActionType(data) == waitWindow;
  }

 private:
  struct Condition;
  std::optional<std::string> test(const Condition& condition) const;
  std::optional<std::string> testApplication(const Condition& condition) const;
  std::optional<std::string> testWindow(const Condition& condition) const;
  bool applicationMatches(const RunningApplication& app, const Condition& condition) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
