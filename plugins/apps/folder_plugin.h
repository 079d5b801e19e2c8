// FolderPlugin ("FolderShortcut"): pops up, at the mouse, a menu of a
// folder's items, with subfolders as submenus, and opens the item chosen with
// its default application (a folder in the file manager). It keeps no state.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>
#include "plugins/apps/folder_menu.h"

namespace orla {

class FolderPlugin : public PluginBase<FolderPlugin> {
 public:
  static constexpr std::string_view pluginClass = "FolderShortcut";

  FolderPlugin();
  explicit FolderPlugin(std::shared_ptr<Platform> platform);

  // The folder's path as given: trimmed, a "file:" URL read as its path, a
  // leading "~" expanded with `environment`.
  static std::string folderPath(const ActionData& data, const Environment& environment);
  // The options as given; out-of-range numbers are kept for validation.
  static FolderMenuOptions options(const ActionData& data);

  // The menu of `folder` as it would pop up.
  Checked<std::vector<FolderMenuEntry>> buildMenu(const std::string& folder, const FolderMenuOptions& options) const;

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult open(const FolderMenuEntry& chosen);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
