// The application a plugin that works on another application's interface
// (its menus, its controls) acts on: the one the action names, else the one
// in front, else, when Orla itself is in front, the one the user worked in
// last. Shared by the menu and UI-element plugins.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/any_codable.h>
#include <orla/platform/platform.h>

namespace orla {

struct TargetApplication {
  std::optional<RunningApplication> app;
  std::optional<std::string> problem;  // why there is none, when there is a reason to tell
};

// `hostInFront` is the sentence for Orla itself in front with no other
// application to fall back on; it names what the command works on.
TargetApplication findTargetApplication(Platform& platform, const ActionData& data, std::string_view hostInFront);

// Activates the application unless it is already in front, then polls until
// it is, at most `polls` times; the caller goes on either way.
void bringApplicationToFront(Platform& platform, const RunningApplication& app, std::chrono::milliseconds interval,
                             int polls);

}  // namespace orla
