// orla-host-example: the smallest host of OrlaPlugins. It loads the plugin
// table, validates every action of a shortcut file, runs them in order on
// this desktop with the shortcut rules every host follows, and handles what
// the control action (OrlaShortcut) asks of the host.
//
//   orla-host-example SHORTCUT.json
//
// Exit status: 0 when every action succeeded, 1 when one was invalid or
// failed, 2 when the file could not be read.
#include <fstream>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <orla/models/json_codable.h>
#include <orla/platform/main_thread.h>
#include <orla/platform/notifications.h>
#include <orla/platform/platform.h>
#include <orla/plugins/framework/orla_plugin.h>
#include <orla/plugins/framework/plugin_registry.h>
#include <orla/plugins/framework/shortcut_rules.h>
#include <orla/version.h>

namespace {

struct Action {
  std::string kind;
  orla::ActionData data;
};

// Reads {"name": ..., "actions": [{"kind": K, "data": {...}}, ...]}.
bool readShortcut(const char* path, std::vector<Action>& actions) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  auto json = orla::parseJsonText(text.str());
  if (!file || !json || !json->contains("actions")) {
    std::cerr << path << " is not a shortcut file\n";
    return false;
  }
  for (const auto& entry : (*json)["actions"]) {
    auto data = orla::actionDataFromJsonText(entry.value("data", nlohmann::json::object()).dump());
    if (!data) {
      std::cerr << data.error() << "\n";
      return false;
    }
    actions.push_back({entry.value("kind", ""), std::move(data).value()});
  }
  return true;
}

// What the control action asked; the plugin posts it on the main thread.
struct HostRequests {
  std::mutex mutex;
  std::vector<std::string> pending;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: orla-host-example SHORTCUT.json\n";
    return 2;
  }
  std::vector<Action> actions;
  if (!readShortcut(argv[1], actions)) return 2;

  // The desktop this process runs on; a host may install its own first
  // (orla::Platform::setCurrent) before making the registry.
  std::shared_ptr<orla::Platform> platform = orla::Platform::current();
  orla::PluginRegistry registry(platform);
  std::cout << "OrlaPlugins " << orla::kVersion << " on " << platform->name() << ", "
            << orla::PluginRegistry::table().size() << " action kinds\n";

  HostRequests requests;
  const auto token = platform->notifications().addObserver(
      std::string(orla::OrlaPlugin::notificationName), [&](const orla::Notification& note) {
        auto action = note.userInfo.find("action");
        std::lock_guard lock(requests.mutex);
        requests.pending.push_back(action == note.userInfo.end() ? "" : action->second);
      });

  // Validate everything first: a shortcut with a bad action does not start.
  for (const Action& action : actions) {
    orla::ActionPlugin* plugin = registry.find(action.kind);
    if (!plugin) {
      std::cout << action.kind << ": not an action kind\n";
      return 1;
    }
    if (auto problem = orla::validateAction(*plugin, action.data)) {
      std::cout << action.kind << ": invalid: " << *problem << "\n";
      return 1;
    }
  }

  bool quit = false;
  bool skipNext = false;
  std::string previousMessage;
  for (const Action& action : actions) {
    if (quit) break;
    if (skipNext) {
      std::cout << action.kind << ": skipped\n";
      skipNext = false;
      continue;
    }
    orla::ActionData data = action.data;
    if (action.kind == "ConditionalAction") data[std::string(orla::kPreviousResultKey)] = previousMessage;
    const orla::PluginResult result = orla::executeAction(*registry.find(action.kind), data);
    const bool isCondition = result.kind() == orla::PluginResult::Kind::conditionResult;
    const std::string said = isCondition ? (result.conditionValue() ? "true" : "false") : result.message();
    std::cout << action.kind << ": " << orla::kindName(result.kind()) << ": " << said << "\n";
    // What the plugin queued for the main thread (the host request) runs
    // here, between actions, as a host's run loop would run it.
    platform->mainThread().runPending();
    {
      std::lock_guard lock(requests.mutex);
      for (const std::string& request : requests.pending) {
        std::cout << "host request: " << request << "\n";
        if (request == "quit") quit = true;  // a real host would quit here
      }
      requests.pending.clear();
    }
    if (result.isFailure()) return 1;  // nothing after a failed action runs
    if (result.kind() == orla::PluginResult::Kind::stopSequence) break;
    skipNext = orla::skipsFollowingAction(action.kind, result);
    previousMessage = result.message();
  }
  platform->scheduler().waitUntilIdle();
  platform->notifications().removeObserver(token);
  return 0;
}
