// PreferencePlugin ("PreferenceShortcut"): opens a pane of the system's
// settings application. A pane is named by a key of a table that is the same
// on every desktop ("sound" opens the Sound pane on macOS, GNOME and KDE),
// or by the desktop's own identifier for a pane the table lacks.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class PreferencePlugin : public PluginBase<PreferencePlugin> {
 public:
  static constexpr std::string_view pluginClass = "PreferenceShortcut";

  // One row of the table; an empty column is a pane that desktop lacks.
  struct Pane {
    std::string_view key;
    std::string_view title;
    std::string_view macos;
    std::string_view gnome;
    std::string_view kde;
  };
  // A row of the table, or a desktop's own identifier passed on as it is.
  using Resolved = std::variant<const Pane*, std::string>;

  PreferencePlugin();
  explicit PreferencePlugin(std::shared_ptr<Platform> platform);

  // The pane text as given (trimmed); empty when none.
  static std::string paneText(const ActionData& data);
  static std::optional<Resolved> resolvedPane(const ActionData& data);
  static std::optional<Resolved> resolvedPane(std::string_view text);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
