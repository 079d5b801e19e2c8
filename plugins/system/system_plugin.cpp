#include "plugins/system/system_plugin.h"

namespace orla {

namespace {

constexpr std::string_view kUnknown = "Unknown system action. Choose one from the menu.";

}  // namespace

SystemPlugin::SystemPlugin() : SystemPlugin(Platform::current()) {}
SystemPlugin::SystemPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t SystemPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, commandNames);
}

std::optional<std::string_view> SystemPlugin::script(std::int64_t command) {
  switch (command) {
    case restart: return "tell application \"System Events\" to restart";
    case shutDown: return "tell application \"System Events\" to shut down";
    case sleep: return "tell application \"System Events\" to sleep";
    case logOut: return "tell application \"System Events\" to log out";
    case dock: return dockScript;
    case eject: return "tell application \"Finder\" to eject (every disk whose ejectable is true)";
    case emptyTrash: return "tell application \"Finder\" to empty the trash";
    default: return std::nullopt;
  }
}

std::optional<std::string> SystemPlugin::validate(const ActionData& data) const {
  const std::int64_t command = resolvedActionType(data);
  if (command == screenSaver || script(command)) return std::nullopt;
  return std::string(kUnknown);
}

PluginResult SystemPlugin::execute(const ActionData& data) {
  const std::int64_t command = resolvedActionType(data);
  if (command != screenSaver && !script(command)) return PluginResult::failure(std::string(kUnknown));
  std::optional<PluginResult> result;
  platform_->mainThread().runSync([&] { result = perform(command, data); });
  return std::move(*result);
}

PluginResult SystemPlugin::perform(std::int64_t command, const ActionData& data) const {
  if (!platform_->supports(Capability::appleScript) && platform_->supports(Capability::sessionControl))
    return askSession(command, data);
  switch (command) {
    case restart:
      return runSystemScript(*script(command), "Asked macOS to restart. Confirm the dialog if one appears.");
    case shutDown:
      return runSystemScript(*script(command), "Asked macOS to shut down. Confirm the dialog if one appears.");
    case sleep: {
      // No wake time is ever scheduled; a wake type asked for is answered
      // with a sentence rather than ignored.
      std::string message = "Putting the Mac to sleep.";
      if (auto wake = readInt(data, {"sleepWakeType"}); wake && *wake != 0)
        message += " Scheduled wake is not supported by macOS, so no wake time was set.";
      return runSystemScript(*script(command), std::move(message));
    }
    case logOut:
      return runSystemScript(*script(command), "Asked macOS to log out. Confirm the dialog if one appears.");
    case screenSaver:
      return startScreenSaver();
    case dock:
      return runSystemScript(*script(command), "Toggled Dock auto-hide.");
    case eject:
      return runSystemScript(*script(command), "Asked Finder to eject removable disks.");
    default:
      return runSystemScript(*script(command),
                             "Asked Finder to empty the Trash. Confirm the dialog if one appears.");
  }
}

PluginResult SystemPlugin::askSession(std::int64_t command, const ActionData& data) const {
  SessionRequest request = SessionRequest::restart;
  switch (command) {
    case shutDown: request = SessionRequest::shutDown; break;
    case sleep: request = SessionRequest::sleep; break;
    case logOut: request = SessionRequest::logOut; break;
    case screenSaver: request = SessionRequest::startScreenSaver; break;
    case dock: request = SessionRequest::toggleDockHiding; break;
    case eject: request = SessionRequest::ejectRemovableDisks; break;
    case emptyTrash: request = SessionRequest::emptyTrash; break;
    default: break;
  }
  const auto wake = readInt(data, {"sleepWakeType"});
  auto asked = platform_->sessionControl().request(request, wake && *wake != 0);
  return asked ? PluginResult::success(std::move(asked).value()) : PluginResult::failure(asked.error());
}

PluginResult SystemPlugin::runSystemScript(std::string_view source, std::string success) const {
  // Already on the main thread: `execute` hopped there.
  auto compiled = platform_->scripting().compile(source);
  if (!compiled) return PluginResult::failure(compiled.error());
  if (!compiled.value()) return PluginResult::failure("Could not build the system script.");
  const ScriptOutcome outcome = compiled.value()->execute();
  if (outcome.error) {
    if (outcome.error->message && !outcome.error->message->empty())
      return PluginResult::failure(*outcome.error->message);
    return PluginResult::failure("System Events could not run this command.");
  }
  return PluginResult::success(std::move(success));
}

PluginResult SystemPlugin::startScreenSaver() const {
  const std::string started = "Started the screen saver.";
  // The first way that works: System Events, the engine application where
  // either system version keeps it, then the open tool by name.
  const PluginResult byScript = runSystemScript(screenSaverScript, started);
  if (!byScript.isFailure()) return byScript;
  Workspace& workspace = platform_->workspace();
  for (std::string_view engine : {screenSaverEngine, frameworkScreenSaverEngine})
    if (workspace.itemExists(engine) && workspace.openApplication(engine, OpenConfiguration{}))
      return PluginResult::success(started);
  // The open tool ends as soon as it has launched the engine, so its exit
  // status is waited for: where /usr/bin/open is some other program (Linux
  // has one that refuses "-a"), a refusal must not count as started.
  CapturedOutput out, err;
  const auto opened = platform_->processes().run({"/usr/bin/open", {"-a", "ScreenSaverEngine"}, {}}, out, err);
  if (opened && opened->reason == ProcessExit::Reason::exited && opened->status == 0)
    return PluginResult::success(started);
  // When every way failed, the script's reason is the one worth reading.
  return PluginResult::failure("Could not start the screen saver: " + byScript.message());
}

}  // namespace orla
