// The pop-up mirror of an application's menus: built from its accessibility
// elements, shown at the pointer, and acting on the real item when an entry
// is chosen.
#pragma once

#include <string>

#include <orla/models/plugin_result.h>
#include "plugins/input/accessibility_readers.h"

namespace orla {

// The target of the mirror's entries: presses the real item behind the
// chosen entry, and keeps what came of it.
class MenuPopupTarget {
 public:
  MenuPopupTarget(const AXReader& reader, std::string appName)
      : reader_(reader), appName_(std::move(appName)) {}

  // Presses the element, or picks it when it will not be pressed.
  void choose(const AXBox& box, const std::string& title);
  const PluginResult& menuResult() const { return menuResult_; }

 private:
  const AXReader& reader_;
  std::string appName_;
  PluginResult menuResult_ = PluginResult::silentSuccess();
};

enum class MenuMirror { menuBar, submenu };

// Mirrors `element` (the menu bar, or a menu) down to `depth` levels, pops
// it up on the main thread and answers once it has closed: what the chosen
// entry did, or nothing when it was dismissed.
PluginResult popUpMenuMirror(Platform& platform, const AXReader& reader, const AXElement& element, int depth,
                             MenuMirror kind, const std::string& appName);

}  // namespace orla
