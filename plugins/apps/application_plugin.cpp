#include "plugins/apps/application_plugin.h"

#include <algorithm>
#include <filesystem>
#include <mutex>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/apps/application_control.h"
#include "plugins/apps/recent_applications_tracker.h"

namespace orla {

namespace {

using namespace std::chrono_literals;

constexpr auto kForcedQuitLimit = 6s;  // relaunching with Force
constexpr auto kRelaunchPause = 500ms;
constexpr auto kReopenPause = 300ms;
constexpr auto kComeBackLimit = 3s;
constexpr int kReopenAttempts = 4;

// The saved and the previous front applications: process-wide, as the user
// expects "Switch to Saved Application" to work from any shortcut.
struct SharedState {
  std::mutex mutex;
  std::optional<ProcessRef> saved;
  std::optional<ProcessRef> currentFront;
  std::optional<ProcessRef> previousFront;
};

SharedState& shared() {
  static SharedState state;
  return state;
}

void noteFront(const RunningApplication& app) {
  SharedState& state = shared();
  std::lock_guard lock(state.mutex);
  if (state.currentFront && state.currentFront->pid == app.processIdentifier) return;
  if (state.currentFront) state.previousFront = state.currentFront;
  state.currentFront = ProcessRef::from(app);
}

std::string isntRunning(std::string_view name) {
  std::string message = "The application \"";
  message += name;
  message += "\" isn't running.";
  return message;
}

// "Safari.app" -> "Safari": the suffix is added for the look-up and removed
// for display, whatever its case.
std::string withoutAppSuffix(std::string_view name) {
  if (name.size() > 4 && equalsIgnoringCase(name.substr(name.size() - 4), ".app"))
    name.remove_suffix(4);
  return std::string(name);
}

std::string fileName(std::string_view path) {
  return std::filesystem::path(standardizedBundlePath(path)).filename().string();
}

std::vector<std::string> names(const std::vector<RunningApplication>& apps) {
  std::vector<std::string> out;
  for (const RunningApplication& app : apps) out.push_back(ApplicationControl::displayName(app));
  return out;
}

std::string sentence(std::string_view prefix, const std::vector<std::string>& list) {
  std::string text(prefix);
  text += joinNames(list);
  text += '.';
  return text;
}

}  // namespace

ApplicationPlugin::ApplicationPlugin() : ApplicationPlugin(Platform::current()) {}

ApplicationPlugin::ApplicationPlugin(std::shared_ptr<Platform> platform)
    : platform_(std::move(platform)), control_(std::make_unique<ApplicationControl>(*platform_)) {
  RecentApplicationsTracker::shared()->start(platform_);
  if (auto front = control_->front()) noteFront(*front);
  frontObserver_ = platform_->workspace().addActivationObserver(noteFront);
}

ApplicationPlugin::~ApplicationPlugin() {
  platform_->workspace().removeActivationObserver(frontObserver_);
}

std::int64_t ApplicationPlugin::actionTypeNumber(const ActionData& data) {
  return readIntOr(data, {"actionType", "Action"}, 1);
}

std::optional<ApplicationPlugin::Command> ApplicationPlugin::command(const ActionData& data) {
  return applicationCommand(actionTypeNumber(data));
}

std::string ApplicationPlugin::applicationPath(const ActionData& data) {
  return readStringOr(data, {"applicationPath", "AppPath", "appPath", "path"});
}

std::string ApplicationPlugin::appName(const ActionData& data) {
  return readStringOr(data, {"appName", "AppName"});
}

bool ApplicationPlugin::hideOthers(const ActionData& data) {
  return readSwitchOr(data, {"hideOthers", "HideOthers"});
}
bool ApplicationPlugin::force(const ActionData& data) {
  return readSwitchOr(data, {"force", "Force"});
}
std::int64_t ApplicationPlugin::order(const ActionData& data) {
  return readIntOr(data, {"order", "Order"}, 0);
}

std::optional<std::string> ApplicationPlugin::validate(const ActionData& data) const {
  const auto cmd = command(data);
  if (!cmd) {
    return "Unknown application command " + std::to_string(actionTypeNumber(data)) +
           ". Choose a command from the menu.";
  }
  if (needsAppName(*cmd) && applicationPath(data).empty() && appName(data).empty())
    return "Choose the target application with Browse Apps.";
  // A name alone does not launch: it could match another copy.
  if (needsAppPath(*cmd) && applicationPath(data).empty())
    return "Choose the application to launch with Browse Apps.";
  return std::nullopt;
}

PluginResult ApplicationPlugin::execute(const ActionData& data) {
  const auto cmd = command(data);
  if (!cmd)
    return PluginResult::failure("Unknown application action type: " +
                                 std::to_string(actionTypeNumber(data)));
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  if (!platform_->supports(Capability::applicationControl))
    return PluginResult::failure(
        "Launching, switching, hiding and quitting applications is not available on this desktop "
        "in this build of Orla.");
  return run(*cmd, data);
}

PluginResult ApplicationPlugin::run(Command cmd, const ActionData& data) {
  using enum ApplicationCommand;
  switch (cmd) {
    case launch: return this->launch(data);
    case runningMenu: return this->runningMenu(data);
    case recentMenu: return this->recentMenu(data);
    case switchNext: return this->switchNext(true, data);
    case switchPrevious: return this->switchNext(false, data);
    case switchTo: return switchToTarget(data);
    case showFront:
    case showBackground:
    case showAll:
    case showOne: return show(cmd, data);
    case hideFront:
    case hideBackground:
    case hideOne: return hide(cmd, data);
    case quitFront:
    case quitOne: return quit(cmd, data);
    case quitBackground: return this->quitBackground(force(data));
    case relaunchFront:
    case relaunchBackground:
    case relaunchOne: return relaunch(cmd, data);
    case saveFront: return this->saveFront();
    case switchToSaved: return switchToRef(savedApplication(), true, hideOthers(data));
    case switchToPreviousFront:
      return switchToRef(previousFrontApplication(), false, hideOthers(data));
  }
  return PluginResult::failure("Unknown application action type: " + std::to_string(rawValue(cmd)));
}

Checked<ApplicationPlugin::Target> ApplicationPlugin::resolveTarget(const ActionData& data) const {
  Workspace& workspace = platform_->workspace();
  std::string path = applicationPath(data);
  if (!path.empty()) {
    path = platform_->environment().expandTilde(path);
    if (workspace.itemExists(path)) {
      Target target;
      target.running = control_->findByBundlePath(path);
      target.bundlePath = standardizedBundlePath(path);
      target.name = target.running ? ApplicationControl::displayName(*target.running)
                                   : ApplicationControl::displayName({}, path);
      return target;
    }
  }
  const std::string given = appName(data);
  // With no usable name, a path that leads nowhere names the application.
  const std::string name =
      withoutAppSuffix(given.empty() ? ApplicationControl::displayName({}, path) : given);
  if (!given.empty()) {
    if (auto app = control_->findByName(name)) {
      std::string shown = ApplicationControl::displayName(*app);
      return Target{std::move(app), {}, std::move(shown)};
    }
    for (std::string_view folder : applicationFolders) {
      std::string candidate(folder);
      candidate += name;
      candidate += ".app";
      if (workspace.itemExists(candidate)) return Target{std::nullopt, std::move(candidate), name};
    }
    // An installed application the system knows by this name or identifier
    // (a desktop entry's Name= or desktop-file id on Linux) is launched.
    if (auto installed = workspace.applicationPath(name)) return Target{std::nullopt, *installed, name};
  }
  return fail("Application '" + name + "' not found");
}

PluginResult ApplicationPlugin::switched(const RunningApplication& app, bool hideOthersAfter) {
  const std::string name = ApplicationControl::displayName(app);
  if (!control_->switchTo(app, hideOthersAfter))
    return PluginResult::failure("Could not switch to " + name);
  return PluginResult::success("Switched to " + name + ".");
}

PluginResult ApplicationPlugin::launch(const ActionData& data) {
  std::string path = platform_->environment().expandTilde(applicationPath(data));
  // An identifier rather than a path ("org.xfce.mousepad" on Linux) names
  // the installed application, whose path is what its process is found by.
  if (Workspace& workspace = platform_->workspace(); !path.empty() && !workspace.itemExists(path))
    if (auto installed = workspace.applicationPath(path)) path = *installed;
  const bool wasRunning = control_->findByBundlePath(path).has_value();
  const auto app = control_->launch(path);
  if (!app) return PluginResult::failure("Could not launch " + fileName(path));
  if (hideOthers(data)) control_->hideOthers(app->processIdentifier);
  const std::string name = ApplicationControl::displayName(*app);
  return PluginResult::success(wasRunning ? "Brought " + name + " to the front."
                                          : "Launched " + name + ".");
}

PluginResult ApplicationPlugin::switchNext(bool forward, const ActionData& data) {
  auto apps = control_->regular();
  std::erase_if(apps, [&](const RunningApplication& app) { return control_->isHost(app); });
  if (apps.empty()) return PluginResult::failure("No applications running");
  // Oldest first; an application without a launch date counts as the
  // distant past. Stable, so equal dates keep the system's order.
  std::stable_sort(
      apps.begin(), apps.end(), [](const RunningApplication& a, const RunningApplication& b) {
        return a.launchDate.value_or(TimePoint::min()) < b.launchDate.value_or(TimePoint::min());
      });
  const auto frontApp = control_->front();
  std::size_t index = 0;
  if (frontApp) {
    // By process: applications without an identifier of their own (a
    // program with no desktop entry) would all look like the first one.
    auto it = std::find_if(apps.begin(), apps.end(), [&](const RunningApplication& app) {
      return app.processIdentifier == frontApp->processIdentifier;
    });
    if (it != apps.end()) index = static_cast<std::size_t>(it - apps.begin());
  }
  const std::size_t count = apps.size();
  const std::size_t next = forward ? (index + 1) % count : (index + count - 1) % count;
  return switched(apps[next], hideOthers(data));
}

PluginResult ApplicationPlugin::switchToTarget(const ActionData& data) {
  auto target = resolveTarget(data);
  if (!target) return PluginResult::failure(target.error());
  if (target->running) return switched(*target->running, hideOthers(data));
  const auto app = control_->launch(target->bundlePath);
  if (!app) return PluginResult::failure("Could not launch " + fileName(target->bundlePath));
  if (hideOthers(data)) control_->hideOthers(app->processIdentifier);
  return PluginResult::success("Launched " + ApplicationControl::displayName(*app) + ".");
}

PluginResult ApplicationPlugin::show(Command cmd, const ActionData& data) {
  std::vector<RunningApplication> hidden;
  auto keepHidden = [](std::vector<RunningApplication> apps) {
    std::erase_if(apps, [](const RunningApplication& app) { return !app.hidden; });
    return apps;
  };
  switch (cmd) {
    case Command::showFront: {
      const auto frontApp = control_->front();
      if (!frontApp) return PluginResult::failure("No front application to show");
      hidden = {*frontApp};
      break;
    }
    case Command::showBackground:
      hidden = keepHidden(control_->background());
      if (hidden.empty())
        return PluginResult::failure("No hidden background applications to show.");
      break;
    case Command::showAll:
      hidden = keepHidden(control_->regular());
      if (hidden.empty()) return PluginResult::failure("No hidden applications to show.");
      break;
    default: {
      auto target = resolveTarget(data);
      if (!target) return PluginResult::failure(target.error());
      if (!target->running) return PluginResult::failure(isntRunning(target->name));
      if (!target->running->hidden) return PluginResult::success(target->name + " is not hidden.");
      hidden = {*target->running};
    }
  }
  for (const RunningApplication& app : hidden) platform_->workspace().unhide(app.processIdentifier);
  platform_->clock().sleep(ApplicationControl::kPollInterval);
  std::vector<std::string> shown, still;
  for (const RunningApplication& app : hidden) {
    const auto now = control_->find(app.processIdentifier);
    (now && now->hidden ? still : shown).push_back(ApplicationControl::displayName(app));
  }
  if (shown.empty()) return PluginResult::failure(sentence("Could not show ", still));
  std::string report = sentence("Showed ", shown);
  if (!still.empty()) report += " " + sentence("Could not show ", still);
  return PluginResult::success(std::move(report));
}

PluginResult ApplicationPlugin::hide(Command cmd, const ActionData& data) {
  if (cmd == Command::hideBackground) {
    auto apps = control_->background();
    std::erase_if(apps, [](const RunningApplication& app) { return app.hidden; });
    if (apps.empty()) return PluginResult::failure("No background applications to hide.");
    const auto visible = control_->hideAll(apps);
    std::vector<std::string> hid, failed;
    for (const RunningApplication& app : apps) {
      const bool stillVisible =
          std::any_of(visible.begin(), visible.end(), [&](const RunningApplication& v) {
            return v.processIdentifier == app.processIdentifier;
          });
      (stillVisible ? failed : hid).push_back(ApplicationControl::displayName(app));
    }
    if (hid.empty()) return PluginResult::failure(sentence("Could not hide ", failed));
    std::string report = sentence("Hid ", hid);
    if (!failed.empty()) report += " " + sentence("Could not hide ", failed);
    return PluginResult::success(std::move(report));
  }
  std::optional<RunningApplication> app;
  std::string name;
  if (cmd == Command::hideFront) {
    app = control_->front();
    if (!app) return PluginResult::failure("No front application to hide");
    name = ApplicationControl::displayName(*app);
  } else {
    auto target = resolveTarget(data);
    if (!target) return PluginResult::failure(target.error());
    if (!target->running) return PluginResult::failure(isntRunning(target->name));
    app = target->running;
    name = target->name;
  }
  if (!app->hidden && !control_->hide(*app)) return PluginResult::failure("Could not hide " + name);
  return PluginResult::success("Hid " + name + ".");
}

PluginResult ApplicationPlugin::quit(Command cmd, const ActionData& data) {
  std::optional<RunningApplication> app;
  std::string name;
  if (cmd == Command::quitFront) {
    app = control_->front();
    if (!app) return PluginResult::failure("No front application to quit");
    name = ApplicationControl::displayName(*app);
  } else {
    auto target = resolveTarget(data);
    if (!target) return PluginResult::failure(target.error());
    if (!target->running) return PluginResult::failure(isntRunning(target->name));
    app = target->running;
    name = target->name;
  }
  const bool forced = force(data);
  control_->requestQuit(*app, forced);
  if (control_->waitUntilGone(app->processIdentifier, ApplicationControl::kQuitLimit))
    return PluginResult::success("Quit " + name + ".");
  std::string message = name + " did not quit (it may be asking to save documents).";
  if (!forced) message += " Turn on Force to quit without asking.";
  return PluginResult::failure(std::move(message));
}

PluginResult ApplicationPlugin::quitBackground(bool forced) {
  const auto apps = control_->background();
  if (apps.empty()) return PluginResult::failure("No background applications to quit.");
  // All are asked at once and given the one deadline together.
  for (const RunningApplication& app : apps) control_->requestQuit(app, forced);
  auto stillRunning = [&] {
    std::vector<RunningApplication> left;
    for (const RunningApplication& app : apps)
      if (control_->find(app.processIdentifier)) left.push_back(app);
    return left;
  };
  control_->waitFor(ApplicationControl::kQuitLimit, [&] { return stillRunning().empty(); });
  const auto left = stillRunning();
  std::vector<std::string> quitNames, leftNames = names(left);
  for (const RunningApplication& app : apps)
    if (std::none_of(left.begin(), left.end(),
                     [&](auto& l) { return l.processIdentifier == app.processIdentifier; }))
      quitNames.push_back(ApplicationControl::displayName(app));
  std::string stillText;
  if (!left.empty()) {
    stillText = "Still running: ";
    for (std::size_t i = 0; i < leftNames.size(); ++i) stillText += (i ? ", " : "") + leftNames[i];
    stillText += " (may be asking to save documents).";
  }
  if (quitNames.empty()) {
    if (!forced) stillText += " Turn on Force to quit without asking.";
    return PluginResult::failure(std::move(stillText));
  }
  std::string report = sentence("Quit ", quitNames);
  if (!stillText.empty()) report += " " + stillText;
  return PluginResult::success(std::move(report));
}

std::optional<std::string> ApplicationPlugin::relaunchOne(const RunningApplication& app,
                                                          bool forced, bool activates) {
  const std::string name = ApplicationControl::displayName(app);
  if (app.bundlePath.empty()) return "Cannot relaunch " + name + " \u2014 no bundle URL";
  control_->requestQuit(app, forced);
  if (!control_->waitUntilGone(app.processIdentifier,
                               forced ? kForcedQuitLimit : ApplicationControl::kQuitLimit)) {
    platform_->workspace().forceTerminate(app.processIdentifier);
    if (!control_->waitUntilGone(app.processIdentifier, kForcedQuitLimit))
      return "Could not quit " + name + " in order to relaunch it";
  }
  Clock& clock = platform_->clock();
  clock.sleep(kRelaunchPause);
  for (int attempt = 0; attempt < kReopenAttempts; ++attempt) {
    if (attempt > 0) clock.sleep(kReopenPause);
    if (!platform_->workspace().openApplication(app.bundlePath, OpenConfiguration{activates}))
      continue;
    if (control_->waitFor(kComeBackLimit,
                          [&] { return control_->findByBundlePath(app.bundlePath).has_value(); }))
      return std::nullopt;
  }
  return name + " quit but did not come back";
}

PluginResult ApplicationPlugin::relaunch(Command cmd, const ActionData& data) {
  const bool forced = force(data);
  constexpr std::string_view kNotItself = "Orla does not relaunch itself.";
  if (cmd == Command::relaunchBackground) {
    const auto apps = control_->background();
    if (apps.empty()) return PluginResult::failure("No background applications to relaunch.");
    std::vector<std::string> relaunched;
    std::string problems;
    for (const RunningApplication& app : apps) {
      if (auto problem = relaunchOne(app, forced, false)) {
        problems += problems.empty() ? "" : " ";
        problems += *problem + ".";
      } else {
        relaunched.push_back(ApplicationControl::displayName(app));
      }
    }
    if (relaunched.empty()) return PluginResult::failure(std::move(problems));
    std::string report = sentence("Relaunched ", relaunched);
    if (!problems.empty()) report += " " + problems;
    return PluginResult::success(std::move(report));
  }
  std::optional<RunningApplication> app;
  if (cmd == Command::relaunchFront) {
    app = control_->front();
    if (!app) return PluginResult::failure("No front application to relaunch");
  } else {
    auto target = resolveTarget(data);
    if (!target) return PluginResult::failure(target.error());
    if (!target->running) return PluginResult::failure("No application to relaunch");
    app = target->running;
  }
  if (control_->isHost(*app)) return PluginResult::failure(std::string(kNotItself));
  if (auto problem = relaunchOne(*app, forced, true))
    return PluginResult::failure(std::move(*problem));
  return PluginResult::success("Relaunched " + ApplicationControl::displayName(*app) + ".");
}

PluginResult ApplicationPlugin::saveFront() {
  const auto frontApp = control_->front();
  if (!frontApp) return PluginResult::failure("No front application to save");
  {
    SharedState& state = shared();
    std::lock_guard lock(state.mutex);
    state.saved = ProcessRef::from(*frontApp);
  }
  return PluginResult::success("Saved " + ApplicationControl::displayName(*frontApp) +
                               ". Switch to Saved Application will bring it back.");
}

PluginResult ApplicationPlugin::switchToRef(const std::optional<ProcessRef>& ref, bool saved,
                                            bool hideOthersAfter) {
  if (!ref) {
    return PluginResult::failure(
        saved ? "No saved application to switch to. Run Save Front Application first."
              : "No previous application to switch to");
  }
  // The same process when it still runs; process identifiers are reused, so
  // the bundle identifier must agree when it is known.
  auto app = control_->find(ref->pid);
  if (app && ref->bundleID && app->bundleIdentifier != *ref->bundleID) app.reset();
  if (!app) {
    if (saved) return PluginResult::failure("The previous saved application isn't running.");
    return PluginResult::failure("The previous front application (" +
                                 ref->name.value_or("the application") + ") isn't running.");
  }
  return switched(*app, hideOthersAfter);
}

std::optional<ProcessRef> ApplicationPlugin::savedApplication() {
  SharedState& state = shared();
  std::lock_guard lock(state.mutex);
  return state.saved;
}

std::optional<ProcessRef> ApplicationPlugin::previousFrontApplication() {
  SharedState& state = shared();
  std::lock_guard lock(state.mutex);
  return state.previousFront;
}

void ApplicationPlugin::resetSharedState() {
  {
    SharedState& state = shared();
    std::lock_guard lock(state.mutex);
    state.saved.reset();
    state.currentFront.reset();
    state.previousFront.reset();
  }
  RecentApplicationsTracker::shared()->reset();
}

}  // namespace orla
