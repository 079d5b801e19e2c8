// Focus modes: the system's do-not-disturb switch and its named modes (Work,
// Sleep, ...), of which at most one is on at a time.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

// The name of the do-not-disturb mode on every backend.
inline constexpr std::string_view kDoNotDisturb = "Do Not Disturb";

struct FocusModeState {
  std::vector<std::string> modes;     // in the system's order
  std::optional<std::string> active;  // the mode that is on, if any
  friend bool operator==(const FocusModeState&, const FocusModeState&) = default;
};

class FocusModes {
 public:
  virtual ~FocusModes() = default;
  // Fails (the sentence is for diagnostics only) when the state cannot be
  // read.
  virtual Checked<FocusModeState> state() = 0;
  // Asks the system to turn the mode `name` (as `state()` spells it) on or
  // off; the switch may take effect later. Fails when the system refuses.
  virtual Checked<void> setMode(std::string_view name, bool on) = 0;
  // Whether switching drives another application's interface, which needs
  // the accessibility permission.
  virtual bool needsAccessibility() const = 0;
};

}  // namespace orla
