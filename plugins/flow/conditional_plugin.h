// ConditionalPlugin ("ConditionalAction"): tests one condition (clipboard
// text, a file, a running application, an environment variable, the hour,
// the weekday, the previous result) and answers its truth, optionally
// negated. The host skips the next action when `skipsFollowingAction` says so.
#pragma once

#include <cstdint>
#include <memory>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class ConditionalPlugin : public PluginBase<ConditionalPlugin> {
 public:
  static constexpr std::string_view pluginClass = "ConditionalAction";
  static constexpr std::string_view skipSuffix = "The next command will be skipped.";

  enum ConditionType : std::int64_t {
    clipboardContains = 0,
    clipboardMatches = 1,
    fileExists = 2,
    appRunning = 3,
    environmentEquals = 4,
    hourBetween = 5,
    dayOfWeek = 6,
    previousResultContains = 7,
  };

  ConditionalPlugin();
  explicit ConditionalPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t conditionType(const ActionData& data);
  // start < end: start <= hour < end. Otherwise the range wraps past
  // midnight (or is empty-to-full): hour >= start or hour < end.
  static bool hour(std::int64_t hour, std::int64_t start, std::int64_t end);
  static bool skipsFollowingAction(std::string_view kind, const PluginResult& result);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  bool evaluate(std::int64_t type, const ActionData& data) const;
  bool isAppRunning(std::string_view name) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
