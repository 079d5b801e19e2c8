// The simulated desktop's interface in the state file (see sim_state.h):
//
//   "screens": [{"frame": [0, 0, 1920, 1080], "visibleFrame": [0, 25, 1920, 1055]}],
//   "mainScreen": 0, "pointer": [960, 540],
//
// and in each application:
//
//   "accessible": true,
//   "menuBar": [{"title": "", "items": ["About TextEdit", "-", "Quit TextEdit"]},
//               {"title": "File", "items": [
//                  "New", {"title": "Open Recent", "fillsWhenOpened": true, "items": ["notes.txt"]},
//                  "-", {"title": "Save…", "enabled": false}, {"title": "Wrap", "mark": "✓"},
//                  {"title": "Print…", "actions": ["AXPick"]}]}],
//   "windows": [{"title": "Untitled", "frame": [100, 100, 800, 600], "minimized": false,
//                "subrole": "AXStandardWindow", "buttons": ["close", "minimize", "zoom", "toolbar"],
//                "toolbar": true, "movable": true, "resizable": true,
//                "scrollBars": {"vertical": 0, "horizontal": {"value": 0.5, "arrows": false, "pages": true}}}]
//
// Frames and points are in accessibility coordinates: from the top left of
// the primary screen, y growing downwards. A menu item is its title, "-" for
// a separator, or an object; "menuBar": null is an application without a
// menu bar. Windows are listed front to back.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include "platform/sim/sim_user_interface.h"

namespace orla::sim {

Checked<void> loadUserInterfaceState(SimUserInterface& ui, const nlohmann::json& state);
void saveUserInterfaceState(const SimUserInterface& ui, nlohmann::json& state);

Checked<void> loadApplicationInterface(SimUserInterface& ui, ProcessId pid, const nlohmann::json& app);
// Writes the keys only for an application whose interface was described.
void saveApplicationInterface(const SimUserInterface& ui, ProcessId pid, nlohmann::json& app);

}  // namespace orla::sim
