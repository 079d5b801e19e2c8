#include "plugins/input/message_plugin.h"

#include <array>

#include <orla/models/parameter_readers.h>

namespace orla {

namespace {

constexpr std::array<CommandName, 4> kCommandNames{{
    {"show", 1},
    {"alert", 1},
    {"message", 1},
    {"dialog", 1},
}};

std::string titleText(const ActionData& d) { return readStringOr(d, {"title", "Title"}); }
std::string messageText(const ActionData& d) {
  return readStringOr(d, {"message1", "Message1", "message", "Message"});
}
std::string secondMessageText(const ActionData& d) {
  return readStringOr(d, {"message2", "Message2"});
}

}  // namespace

MessagePlugin::MessagePlugin() : MessagePlugin(Platform::current()) {}
MessagePlugin::MessagePlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t MessagePlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, kCommandNames);
}

std::string MessagePlugin::alertTitle(const ActionData& data) {
  if (auto title = titleText(data); !title.empty()) return title;
  if (auto message = messageText(data); !message.empty()) return message;
  return "Orla";
}

std::string MessagePlugin::alertDetail(const ActionData& data) {
  // Without a title the first message has become the title.
  if (titleText(data).empty()) return secondMessageText(data);
  std::string detail = messageText(data);
  if (const std::string second = secondMessageText(data); !second.empty()) {
    if (!detail.empty()) detail += '\n';
    detail += second;
  }
  return detail;
}

std::string MessagePlugin::button1Title(const ActionData& data) {
  return readStringOr(data, {"button1Label", "button1", "Button1"}, "OK");
}

std::optional<std::string> MessagePlugin::button2Title(const ActionData& data) {
  return readString(data, {"button2Label", "button2", "Button2"});
}

bool MessagePlugin::button1Stops(const ActionData& data) {
  return readInt(data, {"button1Action", "ButtonAction1"}) == stopAction;
}

bool MessagePlugin::button2Stops(const ActionData& data) {
  return readInt(data, {"button2Action", "ButtonAction2"}) == stopAction;
}

std::optional<std::string> MessagePlugin::validate(const ActionData& data) const {
  if (resolvedActionType(data) != 1) return "Unknown message command.";
  return std::nullopt;
}

PluginResult MessagePlugin::execute(const ActionData& data) {
  if (const auto type = resolvedActionType(data); type != 1)
    return PluginResult::failure("Unknown message action: " + std::to_string(type));

  Alert alert;
  alert.messageText = alertTitle(data);
  alert.informativeText = alertDetail(data);
  alert.style = AlertStyle::informational;
  alert.buttons.push_back(button1Title(data));
  const auto second = button2Title(data);
  if (second) alert.buttons.push_back(*second);

  const Checked<int> response = showAlert(alert);
  if (!response) return PluginResult::failure(response.error());
  const bool secondPressed = *response == alertSecondButtonReturn && second.has_value();
  if (secondPressed ? button2Stops(data) : button1Stops(data)) return PluginResult::stopSequence();
  std::string message = "Clicked ";
  message += secondPressed ? *second : alert.buttons.front();
  message += ". The shortcut continues.";
  return PluginResult::success(std::move(message));
}

Checked<int> MessagePlugin::showAlert(const Alert& alert) {
  if (!platform_->supports(Capability::alerts)) return platform_->alerts().runModal(alert);
  Checked<int> response = 0;
  auto work = [&] {
    Host& host = platform_->host();
    // A menu-bar host cannot bring a window to the front: it becomes a
    // regular application while the alert is up.
    const bool wasAccessory = host.activationPolicy() == ActivationPolicy::accessory;
    if (wasAccessory) host.setActivationPolicy(ActivationPolicy::regular);
    platform_->workspace().activate(host.processIdentifier(),
                                    activation_options::ignoringOtherApps);
    response = platform_->alerts().runModal(alert);
    // It stays in the Dock when the user asked for that, or while one of its
    // windows (the editor) is open, which the user would otherwise lose.
    if (wasAccessory && !platform_->userDefaults().boolValue(keepInDockDefault) &&
        !host.hasVisibleTitledWindow())
      host.setActivationPolicy(ActivationPolicy::accessory);
  };
  onMainThread(platform_->mainThread(), work);
  return response;
}

}  // namespace orla
