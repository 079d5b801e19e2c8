// Workspace: the running applications and the frontmost one.
// Thread safety: every method may be called from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "models/calendar.h"

namespace orla {

using ProcessId = std::int32_t;

enum class ActivationPolicy { regular, accessory, prohibited };

struct RunningApplication {
  ProcessId processIdentifier = 0;
  std::string bundleIdentifier;  // empty when the application has none
  std::string bundlePath;        // the application's bundle or install location
  std::string executablePath;
  std::string localizedName;     // empty when the application has none
  ActivationPolicy activationPolicy = ActivationPolicy::regular;
  std::optional<TimePoint> launchDate;
  bool hidden = false;
  bool active = false;
  bool terminated = false;
};

// Options of `activate`, as bits.
namespace activation_options {
inline constexpr unsigned allWindows = 1;
inline constexpr unsigned ignoringOtherApps = 2;
}  // namespace activation_options

class Workspace {
 public:
  virtual ~Workspace() = default;
  // In the order the system reports them.
  virtual std::vector<RunningApplication> runningApplications() const = 0;
  virtual std::optional<RunningApplication> frontmostApplication() const = 0;
  // Asks the application to come to the front; answers whether the request
  // was accepted. It may take a moment to happen, or not happen at all: a
  // caller that needs it polls `frontmostApplication`.
  virtual bool activate(ProcessId pid, unsigned options) = 0;
};

}  // namespace orla
