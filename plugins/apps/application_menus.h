// The pop-up menus of running and of recent applications, and the target
// that acts on the item chosen in either.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <orla/models/plugin_result.h>
#include "plugins/apps/application_control.h"

namespace orla {

// One item of either menu and the application behind it.
struct ApplicationMenuEntry {
  MenuItem item;  // its payload is the application's bundle identifier
  std::optional<RunningApplication> running;
  std::string name;  // the display name, without ".app"
};

// Receives the choice made in a menu. It carries the `hideOthers` switch of
// the action that opened the menu.
class ApplicationPopupTarget {
 public:
  ApplicationPopupTarget(ApplicationControl& control, bool hideOthers)
      : control_(control), hideOthers_(hideOthers) {}

  // Switches to the chosen application, or launches it by its bundle
  // identifier when it no longer runs.
  PluginResult choose(const ApplicationMenuEntry& entry);

  bool hideOthers() const { return hideOthers_; }

 private:
  ApplicationControl& control_;
  bool hideOthers_;
};

// Sorts entries by display name, case-insensitively in the user's locale.
void sortByName(std::vector<ApplicationMenuEntry>& entries, const std::string& locale);

// Pops the menu up and hands the choice to `target`; a dismissed menu
// reports nothing.
PluginResult popUpApplicationMenu(Platform& platform,
                                  const std::vector<ApplicationMenuEntry>& entries,
                                  ApplicationPopupTarget& target);

}  // namespace orla
