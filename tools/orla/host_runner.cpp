#include "tools/orla/host_runner.h"

#include "plugins/flow/conditional_plugin.h"
#include <orla/plugins/framework/orla_plugin.h>

namespace orla::cli {

HostRunner::HostRunner(std::shared_ptr<Platform> platform, Output& output, PluginRegistry::Making making)
    : platform_(std::move(platform)),
      output_(output),
      registry_(platform_, making),
      words_(DesktopWords::of(platform_->name())) {
  observer_ = platform_->notifications().addObserver(
      std::string(OrlaPlugin::notificationName), [this](const Notification& n) {
        auto field = [&](const char* key) {
          auto it = n.userInfo.find(key);
          return it == n.userInfo.end() ? std::string() : it->second;
        };
        std::lock_guard lock(requestsMutex_);
        requests_.push_back({field("action"), field("shortcutName")});
      });
}

HostRunner::~HostRunner() {
  // Work an action scheduled for later (a clipboard restore) still happens
  // before the host goes away.
  platform_->scheduler().waitUntilIdle();
  platform_->notifications().removeObserver(observer_);
}

const Shortcut* HostRunner::findShortcut(std::string_view name) const {
  for (const Shortcut& shortcut : *library_)
    if (shortcut.name == name) return &shortcut;
  return nullptr;
}

// The sentence as the user reads it on this desktop.
PluginResult HostRunner::inDesktopWords(PluginResult result) const {
  switch (result.kind()) {
    case PluginResult::Kind::success:
      return PluginResult::success(words_.adapt(result.message()));
    case PluginResult::Kind::failure:
      return PluginResult::failure(words_.adapt(result.message()));
    default:
      return result;
  }
}

bool HostRunner::validate(std::string_view kind, const ActionData& data) {
  ActionPlugin* plugin = registry_.find(kind);
  if (!plugin) return false;
  auto problem = validateAction(*plugin, data);
  if (problem) problem = words_.adapt(*problem);
  output_.validation(kind, problem);
  return !problem;
}

bool HostRunner::run(std::string_view kind, const ActionData& data) {
  PluginResult result = PluginResult::silentSuccess();
  return runAction(kind, data, result) && handleRequests(0);
}

bool HostRunner::runShortcut(const Shortcut& shortcut) {
  // Each top-level run has its own action budget and its own first failure,
  // so that a host that runs many (the daemon) treats each one alike.
  actionsStarted_ = 0;
  exhausted_ = false;
  failed_ = false;
  quitting_ = false;
  return runShortcut(shortcut, 0);
}

bool HostRunner::runAction(std::string_view kind, const ActionData& data, PluginResult& result) {
  ActionPlugin* plugin = registry_.find(kind);
  if (!plugin) return false;
  if (++actionsStarted_ > kMaxActions) {
    exhausted_ = true;
    result = PluginResult::failure("This run has started " + std::to_string(kMaxActions) +
                                   " actions, the most one run may; the rest do not run.");
    output_.result(kind, result);
    if (resultObserver_) resultObserver_(kind, result);
    return false;
  }
  result = inDesktopWords(executeAction(*plugin, data));
  output_.result(kind, result);
  if (resultObserver_) resultObserver_(kind, result);
  // Work the plugin queued for the main thread (a notification posted from
  // another thread) runs before the next action, as the host's run loop would.
  // Run on another thread while the main thread serves its loop (the
  // daemon), the hop waits until the main thread has run what was queued
  // before it.
  MainThread& mainThread = platform_->mainThread();
  if (!mainThread.isMainThread()) mainThread.runSync([] {});
  mainThread.runPending();
  return !result.isFailure();
}

bool HostRunner::runShortcut(const Shortcut& shortcut, int depth) {
  bool ok = true;
  bool skipNext = false;
  std::string previousMessage;
  for (const Action& action : shortcut.actions) {
    // A failure in a nested shortcut stops the shortcuts around it too.
    if (quitting_ || exhausted_ || (failed_ && !keepGoing_)) break;
    if (skipNext) {
      output_.skipped(action.kind);
      skipNext = false;
      continue;
    }
    ActionData data = action.data;
    if (action.kind == ConditionalPlugin::pluginClass) data["_previousResult"] = previousMessage;
    PluginResult result = PluginResult::silentSuccess();
    if (!runAction(action.kind, data, result)) {
      ok = false;
      failed_ = true;
      if (!keepGoing_) break;
    }
    ok = handleRequests(depth) && ok;
    if (result.kind() == PluginResult::Kind::stopSequence) break;
    skipNext = ConditionalPlugin::skipsFollowingAction(action.kind, result);
    previousMessage = result.message();
  }
  return ok;
}

bool HostRunner::handleRequests(int depth) {
  bool ok = true;
  for (;;) {
    Request request;
    {
      std::lock_guard lock(requestsMutex_);
      if (requests_.empty() || exhausted_) break;
      request = std::move(requests_.front());
      requests_.erase(requests_.begin());
    }
    if (request.action != "runByName") {
      output_.host(request.action);
      if (request.action == "quit") quitting_ = true;
      if (requestHandler_) requestHandler_(request.action);
      continue;
    }
    const Shortcut* target = findShortcut(request.shortcutName);
    if (!target) {
      // The action itself succeeded; only the host could not follow it up,
      // which is said but does not count as a failed result.
      output_.host(request.action, request.shortcutName,
                   library_->empty() ? "no shortcut library; give `orla sequence` a folder"
                                    : "no shortcut has this name");
      continue;
    }
    if (depth + 1 > kMaxNesting) {
      output_.host(request.action, request.shortcutName, "shortcuts run each other too deeply");
      continue;
    }
    output_.host(request.action, request.shortcutName);
    // The nested shortcut has its own requests; keep ours until it is done.
    std::vector<Request> pending;
    {
      std::lock_guard lock(requestsMutex_);
      pending = std::move(requests_);
      requests_.clear();
    }
    ok = runShortcut(*target, depth + 1) && ok;
    std::lock_guard lock(requestsMutex_);
    requests_.insert(requests_.end(), std::make_move_iterator(pending.begin()),
                     std::make_move_iterator(pending.end()));
  }
  return ok;
}

}  // namespace orla::cli
