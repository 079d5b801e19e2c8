// PluginRegistry: the table that binds every action kind ("pluginClass") to
// its plugin. A kind whose plugin is not in this build is still listed, with
// its class name, and answers with one sentence saying it is not available.
#pragma once

#include <orla/export.h>

#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla ORLA_EXPORT {

struct PluginInfo {
  std::string_view pluginClass;
  std::string_view className;
  bool available;
};

class PluginRegistry {
 public:
  // When the plugins are made: all at once (a host that runs for a while:
  // the application plugin follows the front application from its start),
  // or each the first time it is looked up (a host that runs one action and
  // ends, which then pays only for that action's plugin).
  enum class Making { atOnce, onFirstUse };

  PluginRegistry();
  explicit PluginRegistry(std::shared_ptr<Platform> platform, Making making = Making::atOnce);
  ~PluginRegistry();

  // The plugin serving `pluginClass`; null for a kind not in the table.
  ActionPlugin* find(std::string_view pluginClass) const;

  // Every kind, sorted by pluginClass.
  static std::span<const PluginInfo> table();

  // Whether the kind can do its work on this platform: in this build, and
  // the desktop offers what every one of its commands needs (a kind that
  // only talks to AppleScript cannot work where there is none).
  static bool worksOn(const Platform& platform, std::string_view pluginClass);

 private:
  std::unique_ptr<ActionPlugin> make(std::size_t row) const;

  std::shared_ptr<Platform> platform_;
  bool onFirstUse_ = false;
  mutable std::mutex making_;  // with onFirstUse_
  mutable std::vector<std::unique_ptr<ActionPlugin>> plugins_;  // in table order
};

// Calls the plugin and turns anything that escapes it (memory exhaustion, a
// bug) into a failure, so the host never sees an exception.
PluginResult executeAction(ActionPlugin& plugin, const ActionData& data);
std::optional<std::string> validateAction(const ActionPlugin& plugin, const ActionData& data);

}  // namespace orla
