// ActionPlugin: the contract every plugin fulfils. The host finds a plugin by
// its `pluginClass`, asks `validate` while the user edits, and calls `execute`
// when the shortcut fires.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>
#include <orla/models/plugin_result.h>

namespace orla ORLA_EXPORT {

class ActionPlugin {
 public:
  virtual ~ActionPlugin() = default;

  // The action kind this plugin serves. Each concrete plugin also exposes it
  // as the static constant `pluginClass`, usable without an instance.
  virtual std::string_view kind() const = 0;

  // Runs the action. Never throws and never assumes `validate` ran: every
  // problem comes back as `PluginResult::failure` with one sentence.
  virtual PluginResult execute(const ActionData& data) = 0;

  // None when the parameters are usable, otherwise one sentence saying what is
  // missing or wrong. Touches no system service.
  virtual std::optional<std::string> validate(const ActionData& data) const = 0;

  // Whether the action, as configured, needs the Accessibility permission.
  virtual bool requiresAccessibility(const ActionData&) const { return false; }
};

// Supplies `kind()` from the plugin's static `pluginClass` constant, so the
// string is written once per plugin.
template <class Self, class Base = ActionPlugin>
class PluginBase : public Base {
 public:
  std::string_view kind() const final { return Self::pluginClass; }
};

// The one implementation shared by the plugins that always need the
// Accessibility permission.
class AccessibilityPlugin : public ActionPlugin {
 public:
  bool requiresAccessibility(const ActionData&) const override { return true; }
};

}  // namespace orla
