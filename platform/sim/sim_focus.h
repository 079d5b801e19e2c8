// SimFocus: the simulated desktop's Focus modes. The modes and the one
// that is on come from the scene (by default only "Do Not Disturb", off).
// A switch is recorded (trace category "focus") and takes effect after the
// scene's delay of virtual time, at once by default, or never; a scene can
// also have the system refuse switches, or drive Focus through the
// accessibility interface as macOS does (the default).
// Thread safety: every method may be called from any thread.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/focus_modes.h>

namespace orla::sim {

class SimDesktop;

class SimFocus {
 public:
  FocusModeState state() const;
  void setState(FocusModeState state);
  // Turns `name` on (replacing the active mode) or off; a name not among
  // the modes changes nothing.
  void apply(const std::string& name, bool on);
  // None: a switch never takes effect.
  std::optional<std::chrono::microseconds> switchDelay() const;
  void setSwitchDelay(std::optional<std::chrono::microseconds> delay);
  bool refuses() const;
  void setRefuses(bool refuses);
  bool needsAccessibility() const;
  void setNeedsAccessibility(bool needs);

 private:
  mutable std::mutex mutex_;
  FocusModeState state_{{"Do Not Disturb"}, std::nullopt};
  std::optional<std::chrono::microseconds> switchDelay_ = std::chrono::microseconds(0);
  bool refuses_ = false;
  bool needsAccessibility_ = true;
};

std::unique_ptr<FocusModes> makeSimFocusModes(std::shared_ptr<SimDesktop> desktop);

// "focus": {"modes": ["Do Not Disturb", "Work"], "active": "Work" or null,
// "switchDelayMs": 500 or null (never), "refuses": false,
// "needsAccessibility": true}. Written back only when it differs from the
// default.
Checked<void> loadFocusState(SimFocus& focus, const nlohmann::json& state);
void saveFocusState(const SimFocus& focus, nlohmann::json& state);

}  // namespace orla::sim
