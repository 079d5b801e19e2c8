#include "plugins/apps/application_control.h"

#include "plugins/apps/application_names.h"

#include <filesystem>

#include <orla/models/text.h>

namespace orla {

namespace {

// How long a switch waits for the activation to show, in activation polls.
constexpr auto kActivationPoll = std::chrono::milliseconds(50);
constexpr int kActivationPolls = 10;

}  // namespace

std::string joinNames(const std::vector<std::string>& names) {
  std::string joined;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) joined += i + 1 == names.size() ? " and " : ", ";
    joined += names[i];
  }
  return joined;
}

std::string standardizedBundlePath(std::string_view path) {
  if (path.empty()) return {};
  std::string normal = std::filesystem::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
  return normal;
}

std::vector<RunningApplication> ApplicationControl::running() const {
  auto apps = platform_.workspace().runningApplications();
  std::erase_if(apps, [](const RunningApplication& app) { return app.terminated; });
  return apps;
}

std::vector<RunningApplication> ApplicationControl::regular() const {
  auto apps = running();
  std::erase_if(apps, [](const RunningApplication& app) {
    return app.activationPolicy != ActivationPolicy::regular;
  });
  return apps;
}

std::optional<RunningApplication> ApplicationControl::front() const {
  return platform_.workspace().frontmostApplication();
}

std::optional<RunningApplication> ApplicationControl::find(ProcessId pid) const {
  for (RunningApplication& app : running())
    if (app.processIdentifier == pid) return std::move(app);
  return std::nullopt;
}

std::optional<RunningApplication> ApplicationControl::findByBundlePath(
    std::string_view bundlePath) const {
  const std::string wanted = standardizedBundlePath(bundlePath);
  if (wanted.empty()) return std::nullopt;
  for (RunningApplication& app : running())
    if (standardizedBundlePath(app.bundlePath) == wanted) return std::move(app);
  return std::nullopt;
}

std::optional<RunningApplication> ApplicationControl::findByBundleID(
    std::string_view bundleID) const {
  if (bundleID.empty()) return std::nullopt;
  for (RunningApplication& app : running())
    if (app.bundleIdentifier == bundleID) return std::move(app);
  return std::nullopt;
}

std::optional<RunningApplication> ApplicationControl::findByName(std::string_view name) const {
  auto apps = running();
  for (RunningApplication& app : apps)
    if (isShownName(app, name)) return std::move(app);
  for (RunningApplication& app : apps)
    if (isOtherName(app, name)) return std::move(app);
  return std::nullopt;
}

bool ApplicationControl::isHost(const RunningApplication& app) const {
  Host& host = platform_.host();
  if (app.processIdentifier == host.processIdentifier()) return true;
  const std::string hostID = host.bundleIdentifier();
  return !hostID.empty() && app.bundleIdentifier == hostID;
}

std::vector<RunningApplication> ApplicationControl::background() const {
  const auto frontApp = front();
  auto apps = regular();
  std::erase_if(apps, [&](const RunningApplication& app) {
    return isHost(app) || (frontApp && app.processIdentifier == frontApp->processIdentifier);
  });
  return apps;
}

std::string ApplicationControl::displayName(const RunningApplication& app) {
  return displayName(app.localizedName, app.bundlePath);
}

std::string ApplicationControl::displayName(std::string_view localizedName,
                                            std::string_view bundlePath) {
  if (!localizedName.empty()) return std::string(localizedName);
  const std::string stem =
      std::filesystem::path(standardizedBundlePath(bundlePath)).stem().string();
  if (!stem.empty()) return stem;
  return "the application";
}

bool ApplicationControl::waitFor(std::chrono::milliseconds limit,
                                 const std::function<bool()>& done) {
  Clock& clock = platform_.clock();
  const auto deadline = clock.monotonicNow() + limit;
  for (;;) {
    if (done()) return true;
    if (clock.monotonicNow() >= deadline) return false;
    clock.sleep(kPollInterval);
  }
}

std::optional<RunningApplication> ApplicationControl::launch(std::string_view bundlePath,
                                                             bool activates) {
  if (!platform_.workspace().openApplication(bundlePath, OpenConfiguration{activates}))
    return std::nullopt;
  std::optional<RunningApplication> launched;
  waitFor(kLaunchLimit, [&] { return (launched = findByBundlePath(bundlePath)).has_value(); });
  return launched;
}

std::optional<RunningApplication> ApplicationControl::launchBundleID(std::string_view bundleID) {
  if (!platform_.workspace().openApplicationWithBundleIdentifier(bundleID, OpenConfiguration{true}))
    return std::nullopt;
  std::optional<RunningApplication> launched;
  waitFor(kLaunchLimit, [&] { return (launched = findByBundleID(bundleID)).has_value(); });
  return launched;
}

bool ApplicationControl::isFront(ProcessId pid) const {
  const auto frontApp = front();
  return frontApp && frontApp->processIdentifier == pid;
}

bool ApplicationControl::isHidden(ProcessId pid) const {
  const auto app = find(pid);
  return app && app->hidden;
}

bool ApplicationControl::switchTo(const RunningApplication& app, bool hideOthersAfter) {
  Workspace& workspace = platform_.workspace();
  const ProcessId pid = app.processIdentifier;
  if (app.hidden) workspace.unhide(pid);
  workspace.yieldActivation(pid);
  workspace.activate(pid, activation_options::ignoringOtherApps);
  // Activation takes effect a moment later; a short series of activation
  // polls tells a slow application from one that will not come.
  bool inFront = isFront(pid);
  for (int poll = 0; !inFront && poll < kActivationPolls; ++poll) {
    platform_.clock().sleep(kActivationPoll);
    inFront = isFront(pid);
  }
  if (!inFront) {
    if (app.bundlePath.empty()) return false;
    if (!workspace.openApplication(app.bundlePath, OpenConfiguration{true})) return false;
  }
  if (hideOthersAfter) hideOthers(pid);
  return true;
}

bool ApplicationControl::hide(const RunningApplication& app) { return hideAll({app}).empty(); }

std::vector<RunningApplication> ApplicationControl::hideAll(std::vector<RunningApplication> apps) {
  Workspace& workspace = platform_.workspace();
  const std::function<bool(ProcessId)> ways[] = {
      [&](ProcessId pid) { return workspace.hide(pid); },
      [&](ProcessId pid) { return workspace.setHiddenThroughAccessibility(pid, true).ok(); },
      [&](ProcessId pid) { return workspace.setHiddenThroughProcessManager(pid, true).ok(); },
  };
  for (const auto& way : ways) {
    if (apps.empty()) break;
    bool requested = false;
    for (const RunningApplication& app : apps) requested = way(app.processIdentifier) || requested;
    if (!requested) continue;
    // Hiding takes effect a moment later.
    platform_.clock().sleep(kPollInterval);
    std::erase_if(apps, [&](const RunningApplication& app) {
      return !find(app.processIdentifier) || isHidden(app.processIdentifier);
    });
  }
  return apps;
}

void ApplicationControl::hideOthers(ProcessId keep) {
  std::vector<RunningApplication> others;
  for (const RunningApplication& other : regular())
    if (other.processIdentifier != keep && !isHost(other) && !other.hidden) others.push_back(other);
  hideAll(std::move(others));
}

void ApplicationControl::requestQuit(const RunningApplication& app, bool force) {
  Workspace& workspace = platform_.workspace();
  if (force) {
    workspace.forceTerminate(app.processIdentifier);
    return;
  }
  if (!workspace.sendQuitEvent(app.processIdentifier, kQuitEventTimeout))
    workspace.terminate(app.processIdentifier);
}

bool ApplicationControl::waitUntilGone(ProcessId pid, std::chrono::milliseconds limit) {
  return waitFor(limit, [&] { return !find(pid).has_value(); });
}

}  // namespace orla
