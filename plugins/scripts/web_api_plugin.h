// WebAPIPlugin ("WebAPIAction"): sends one HTTP request that the user
// configured (address, method, headers as JSON, body, time-out) and reports
// the status and the beginning of the answer.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/models/checked.h>
#include <orla/platform/platform.h>

namespace orla {

class WebAPIPlugin : public PluginBase<WebAPIPlugin> {
 public:
  static constexpr std::string_view pluginClass = "WebAPIAction";
  static inline const std::set<std::string_view> methods{"GET", "POST", "PUT", "PATCH", "DELETE"};
  static constexpr double defaultTimeout = 30;
  // The answer is shown up to this many characters, then "...".
  static constexpr std::size_t displayLimit = 2000;
  // At most this much of an answer is read; the display cut and the UTF-8
  // check apply to this beginning, and the rest is never downloaded.
  static constexpr std::size_t maxAnswerBytes = std::size_t{1} << 20;

  WebAPIPlugin();
  explicit WebAPIPlugin(std::shared_ptr<Platform> platform);

  // Trimmed and uppercased; "GET" when absent or empty.
  static std::string httpMethod(const ActionData& data);
  // The address, checked: http or https with a host.
  static Checked<std::string> url(const ActionData& data);
  // The "headers" JSON object as a list, checked; empty when absent.
  static Checked<std::vector<HttpHeader>> headers(const ActionData& data);
  // Seconds; 30 unless "timeout" is a number or a switch.
  static double timeout(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
