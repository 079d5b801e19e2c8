#include "plugins/input/target_application.h"

#include <filesystem>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/typing_target_context.h>

namespace orla {

namespace {

std::string standardized(std::string_view path) {
  if (path.empty()) return {};
  std::string normal = std::filesystem::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

// "/Applications/TextEdit.app" is shown as TextEdit; a bundle identifier or
// a name as it stands.
std::string displayNameOf(std::string_view application) {
  if (application.find('/') == std::string_view::npos) return std::string(application);
  std::filesystem::path path(standardized(application));
  std::string name = path.filename().string();
  if (name.ends_with(".app")) name.resize(name.size() - 4);
  return name;
}

}  // namespace

TargetApplication findTargetApplication(Platform& platform, const ActionData& data, std::string_view hostInFront) {
  Workspace& workspace = platform.workspace();
  const ProcessId host = platform.host().processIdentifier();
  const std::string hostId = platform.host().bundleIdentifier();
  const auto usable = [&](const RunningApplication& app) {
    return !app.terminated && app.processIdentifier != host;
  };
  if (const auto application = readString(data, {"applicationPath", "Application"})) {
    const std::string path = standardized(platform.environment().expandTilde(*application));
    const auto running = workspace.runningApplications();
    // By location or identifier first; a name as the user sees it last.
    for (const RunningApplication& app : running)
      if (usable(app) && ((!app.bundlePath.empty() && standardized(app.bundlePath) == path) ||
                          (!app.executablePath.empty() && standardized(app.executablePath) == path) ||
                          app.bundleIdentifier == *application))
        return {app, std::nullopt};
    for (const RunningApplication& app : running)
      if (usable(app) && !app.localizedName.empty() && equalsIgnoringCase(app.localizedName, *application))
        return {app, std::nullopt};
    return {std::nullopt, orla::quoted(displayNameOf(*application)) + " is not running. Launch it, then click Test again."};
  }
  const auto front = workspace.frontmostApplication();
  if (!front) return {};
  const bool hostIsFront = front->processIdentifier == host || (!hostId.empty() && front->bundleIdentifier == hostId);
  if (!hostIsFront) return {front, std::nullopt};
  if (const auto last = TypingTargetContext::lastUserAppBundleID())
    for (const RunningApplication& app : workspace.runningApplications())
      if (usable(app) && app.bundleIdentifier == *last) return {app, std::nullopt};
  return {std::nullopt, std::string(hostInFront)};
}

void bringApplicationToFront(Platform& platform, const RunningApplication& app, std::chrono::milliseconds interval,
                             int polls) {
  Workspace& workspace = platform.workspace();
  const auto isFront = [&] {
    const auto front = workspace.frontmostApplication();
    return front && front->processIdentifier == app.processIdentifier;
  };
  if (isFront()) return;
  workspace.activate(app.processIdentifier, activation_options::ignoringOtherApps);
  for (int poll = 0; poll < polls; ++poll) {
    platform.clock().sleep(interval);
    if (isFront()) return;
  }
}

}  // namespace orla
