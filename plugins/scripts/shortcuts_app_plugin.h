// ShortcutsAppPlugin ("ShortcutsAppAction"): runs a shortcut of the
// system's Shortcuts app by name through its command-line tool, with an
// optional input text, and reports the text the shortcut produced. It opens
// the Shortcuts app on the shortcut instead when asked to, or when the tool
// cannot be started or cannot reach the Shortcuts service.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class ShortcutsAppPlugin : public PluginBase<ShortcutsAppPlugin> {
 public:
  static constexpr std::string_view pluginClass = "ShortcutsAppAction";
  static constexpr std::string_view tool = "/usr/bin/shortcuts";

  ShortcutsAppPlugin();
  explicit ShortcutsAppPlugin(std::shared_ptr<Platform> platform);

  // The shortcut's name and the input text, trimmed; empty when absent.
  static std::string shortcutName(const ActionData& data);
  static std::string input(const ActionData& data);
  static bool runInApp(const ActionData& data);

  // The names of the user's shortcuts, as the tool lists them; empty when
  // the tool cannot be started or its answer cannot be read.
  static std::vector<std::string> listShortcutNames();
  static std::vector<std::string> listShortcutNames(Platform& platform);

  // "shortcuts://run-shortcut?name=…[&input=…]"; none when the name or the
  // input is not text.
  static std::optional<std::string> shortcutsURL(std::string_view name, std::string_view input);

  PluginResult execute(const ActionData& data) override;
  // Also asks the tool for the list of names: the one check of this
  // library that starts a program.
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult runInBackground(const std::string& name, const std::string& input) const;
  PluginResult openInApp(const std::string& name, const std::string& input) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
