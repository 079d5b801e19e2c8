// The names a user knows a running application by. The name it shows
// (an entry's Name=, a bundle's display name) comes first; then the file
// name of its program ("mousepad"), of its bundle or desktop entry without
// the extension ("TextEdit", "org.xfce.mousepad"), and its bundle
// identifier, so the switch, quit and condition commands accept any of
// them for the same application.
#pragma once

#include <filesystem>
#include <string_view>

#include <orla/models/text.h>
#include <orla/platform/workspace.h>

namespace orla {

inline bool isShownName(const RunningApplication& app, std::string_view name) {
  return !app.localizedName.empty() && equalsIgnoringCase(app.localizedName, name);
}

inline bool isOtherName(const RunningApplication& app, std::string_view name) {
  if (name.empty()) return false;
  std::string bundle = app.bundlePath;  // "/Applications/TextEdit.app/" too
  while (bundle.size() > 1 && bundle.back() == '/') bundle.pop_back();
  const std::string bundleStem = std::filesystem::path(bundle).stem().string();
  const std::string id = app.bundleIdentifier.ends_with(".desktop")
                             ? app.bundleIdentifier.substr(0, app.bundleIdentifier.size() - 8)
                             : app.bundleIdentifier;
  for (const std::string& other :
       {std::filesystem::path(app.executablePath).filename().string(), bundleStem, id, app.bundleIdentifier})
    if (!other.empty() && equalsIgnoringCase(other, name)) return true;
  return false;
}

}  // namespace orla
