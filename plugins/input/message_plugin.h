// MessagePlugin ("MessageShortcut"): shows a modal alert with a title, a
// detail and one or two buttons, and lets the shortcut go on or stops it, as
// each button is configured. It is the one plugin that brings the host
// itself to the front, switching a menu-bar host to a regular application
// for as long as the alert is up.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class MessagePlugin : public PluginBase<MessagePlugin> {
 public:
  static constexpr std::string_view pluginClass = "MessageShortcut";
  // Button actions.
  static constexpr std::int64_t continueAction = 0;
  static constexpr std::int64_t stopAction = 1;
  static constexpr std::string_view keepInDockDefault = "orKeepInDockAndAppSwitcher";

  MessagePlugin();
  explicit MessagePlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  static std::string alertTitle(const ActionData& data);
  static std::string alertDetail(const ActionData& data);
  static std::string button1Title(const ActionData& data);
  // None when there is no second button.
  static std::optional<std::string> button2Title(const ActionData& data);
  static bool button1Stops(const ActionData& data);
  static bool button2Stops(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  // Steps 1 to 6 on the main thread: the modal response, or the platform's
  // sentence when it cannot show alerts.
  Checked<int> showAlert(const Alert& alert);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
