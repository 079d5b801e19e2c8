// SettingsPanes: the system's settings application, opened at one pane.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

class SettingsPanes {
 public:
  virtual ~SettingsPanes() = default;
  // Which settings application this desktop has: "macos", "gnome", "kde";
  // none when it has none this build can open.
  virtual std::optional<std::string> desktop() const = 0;
  // Asks the settings application to open the pane with this identifier (the
  // desktop's own name for it) and returns without waiting for the window.
  // Fails with the system's sentence when it refuses or cannot start.
  virtual Checked<void> open(std::string_view identifier) = 0;
};

}  // namespace orla
