#include <orla/plugins/framework/orla_plugin.h>

#include <array>

#include <orla/models/parameter_readers.h>

namespace orla {

namespace {

constexpr std::array<CommandName, 19> kCommandNames{{
    {"openEditor", 1}, {"editor", 1},
    {"openPreferences", 2}, {"preferences", 2},
    {"quit", 3},
    {"showReport", 4}, {"report", 4}, {"activity", 4},
    {"toggleEngine", 5}, {"stopShortcuts", 5}, {"pause", 5},
    {"lastAction", 6}, {"last", 6},
    {"previousAction", 7}, {"previous", 7},
    {"testEdited", 8}, {"test", 8},
    {"runByName", 9}, {"runShortcut", 9},
}};

// The result of commands 1 to 8; the history controls report nothing because
// the host's own action shows the outcome.
constexpr std::array<std::string_view, 9> kSuccessMessages{
    "Opened the editor.",
    "Opened Preferences.",
    "Quitting Orla.",
    "Opened the activity report.",
    "Toggled the engine (shortcuts pause or resume).",
    "", "", "", "",
};

constexpr std::string_view kUnknown = "Unknown Orla Control command. Choose one from the menu.";
constexpr std::string_view kNoName = "Enter the exact name of the shortcut to run.";

}  // namespace

OrlaPlugin::OrlaPlugin() : OrlaPlugin(Platform::current()) {}
OrlaPlugin::OrlaPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t OrlaPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, kCommandNames);
}

std::string OrlaPlugin::shortcutName(const ActionData& data) {
  return readStringOr(data, {"shortcutName", "shortcut", "Name"});
}

std::string_view OrlaPlugin::subAction(std::int64_t actionType) {
  switch (actionType) {
    case 2: return "openPreferences";
    case 3: return "quit";
    case 4: return "showReport";
    case 5: return "toggleEngine";
    case 6: return "lastAction";
    case 7: return "previousAction";
    case 8: return "testEdited";
    case 9: return "runByName";
    default: return "openEditor";
  }
}

bool OrlaPlugin::isHistoryControl(const ActionData& data) {
  const auto type = resolvedActionType(data);
  return type >= 6 && type <= 8;
}

std::optional<std::string> OrlaPlugin::validate(const ActionData& data) const {
  const auto type = resolvedActionType(data);
  if (type >= 1 && type <= 8) return std::nullopt;
  if (type == 9) {
    if (shortcutName(data).empty()) return std::string(kNoName);
    return std::nullopt;
  }
  return std::string(kUnknown);
}

PluginResult OrlaPlugin::execute(const ActionData& data) {
  const auto type = resolvedActionType(data);
  if (type < 1 || type > 9) return PluginResult::failure(std::string(kUnknown));
  if (type <= 8) {
    post(type, {});
    const auto message = kSuccessMessages[static_cast<size_t>(type - 1)];
    return message.empty() ? PluginResult::silentSuccess()
                           : PluginResult::success(std::string(message));
  }
  const std::string name = shortcutName(data);
  if (name.empty()) return PluginResult::failure(std::string(kNoName));
  post(type, name);
  return PluginResult::silentSuccess();
}

void OrlaPlugin::post(std::int64_t actionType, const std::string& name) {
  Notification notification{std::string(notificationName),
                            {{"action", std::string(subAction(actionType))}}};
  if (actionType == 9) notification.userInfo["shortcutName"] = name;
  auto platform = platform_;
  postToMainThread(platform->mainThread(), [platform, notification = std::move(notification)] {
    platform->notifications().post(notification);
  });
}

}  // namespace orla
