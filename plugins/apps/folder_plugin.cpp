#include "plugins/apps/folder_plugin.h"

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/url.h>

namespace orla {

namespace {

using Kind = FolderMenuEntry::Kind;


int readNumber(const ActionData& data, Keys keys, int fallback) {
  const auto value = readInt(data, keys);
  if (!value) return fallback;
  // Far outside any range: kept outside it, never wrapped into it.
  if (*value < -1000 || *value > 1000) return -1;
  return static_cast<int>(*value);
}

}  // namespace

FolderPlugin::FolderPlugin() : FolderPlugin(Platform::current()) {}
FolderPlugin::FolderPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string FolderPlugin::folderPath(const ActionData& data, const Environment& environment) {
  const std::string given = readStringOr(data, {"folderPath", "path", "Path", "folder"});
  std::string path(trimWhitespaceAndNewlines(given));
  if (path.starts_with("file:")) {
    if (auto decoded = filePathFromURL(path)) path = *decoded;
  }
  if (path.starts_with('~')) path = environment.expandTilde(path);
  return path;
}

FolderMenuOptions FolderPlugin::options(const ActionData& data) {
  FolderMenuOptions options;
  options.order = readNumber(data, {"order", "Order"}, 0);
  options.foldersFirst = readSwitchOr(data, {"foldersFirst"});
  options.showHidden = readSwitchOr(data, {"showHidden"});
  options.depth = readNumber(data, {"depth", "Depth"}, 3);
  return options;
}

std::optional<std::string> FolderPlugin::validate(const ActionData& data) const {
  const std::string path = folderPath(data, platform_->environment());
  if (path.empty()) return "Choose the folder to show as a menu with Browse\u2026";
  const Files& files = platform_->files();
  if (!files.itemExists(path))
    return "The folder " + quoted(path) + " can't be found. Choose it again with Browse\u2026";
  if (!files.folderExists(path))
    return quoted(path) + " is a file, not a folder. Choose a folder with Browse\u2026";
  const FolderMenuOptions given = options(data);
  if (given.depth < 1 || given.depth > 5) return "The depth must be between 1 and 5 levels.";
  if (given.order < 0 || given.order > 1) return "Choose the order from the menu.";
  return std::nullopt;
}

Checked<std::vector<FolderMenuEntry>> FolderPlugin::buildMenu(const std::string& folder,
                                                              const FolderMenuOptions& options) const {
  FolderMenuOptions withLocale = options;
  if (withLocale.locale.empty()) withLocale.locale = platform_->clock().locale();
  return buildFolderMenu(platform_->files(), platform_->clock(), folder, withLocale);
}

PluginResult FolderPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  const std::string path = folderPath(data, platform_->environment());
  const auto menu = buildMenu(path, options(data));
  if (!menu)
    return PluginResult::failure("Orla can't read the folder " + quoted(path) +
                                 ". Check its permissions (on macOS allow Orla Pro in System Settings \u2192 Privacy & "
                                 "Security \u2192 Files and Folders), then click Test again.");
  const auto chosen = platform_->popupMenus().popUpNestedAtMouse(folderMenuItems(*menu));
  if (!chosen) return PluginResult::failure(chosen.error());
  if (!*chosen) return PluginResult::silentSuccess();
  const FolderMenuEntry* entry = folderMenuEntryAt(*menu, **chosen);
  if (!entry || entry->kind == Kind::separator || entry->kind == Kind::note || entry->kind == Kind::folder)
    return PluginResult::silentSuccess();
  return open(*entry);
}

PluginResult FolderPlugin::open(const FolderMenuEntry& chosen) {
  if (!platform_->files().itemExists(chosen.path))
    return PluginResult::failure(quoted(chosen.name) +
                                 " is no longer there. Run the folder menu again to see the folder as it is now.");
  if (chosen.kind == Kind::item) {
    // An application bundle launches; anything else opens in the application
    // the system has for its kind.
    const bool application = chosen.package && platform_->fileWorkspace().bundleIdentifier(chosen.path);
    const auto opened = application ? platform_->workspace().openApplication(chosen.path, OpenConfiguration{})
                                    : platform_->fileWorkspace().openDocument(chosen.path);
    if (!opened)
      return PluginResult::failure("Unable to open " + quoted(chosen.name) +
                                   ". No application is set to open this kind of file. Use Open Document with App to "
                                   "choose one.");
    return PluginResult::success("Opened " + quoted(chosen.name) + ".");
  }
  if (!platform_->fileWorkspace().reveal(chosen.path))
    return PluginResult::failure("The file manager could not open " + quoted(chosen.name) +
                                 ". Open it yourself, then click Test again.");
  return PluginResult::success("Opened the folder " + quoted(chosen.name) + ".");
}

}  // namespace orla
