#include "plugins/input/typing_target.h"

#include <orla/models/typing_target_context.h>

namespace orla {

namespace {

constexpr int kActivationPolls = 20;
constexpr auto kActivationPollInterval = std::chrono::milliseconds(50);

}  // namespace

bool ensureTypingTarget(Platform& platform) {
  Workspace& workspace = platform.workspace();
  const std::string hostId = platform.host().bundleIdentifier();
  const auto front = workspace.frontmostApplication();
  // With no application in front (no active window on X11) typed text and
  // keys would go nowhere: bring back the one the user last worked in, or
  // fail rather than report a success nothing received.
  if (front && (hostId.empty() || front->bundleIdentifier != hostId)) return true;

  const auto target = TypingTargetContext::lastUserAppBundleID();
  if (!target) return false;
  std::optional<ProcessId> pid;
  for (const RunningApplication& app : workspace.runningApplications()) {
    if (app.bundleIdentifier == *target) {
      pid = app.processIdentifier;
      break;
    }
  }
  if (!pid) return false;
  workspace.activate(*pid, activation_options::ignoringOtherApps);
  for (int attempt = 0; attempt < kActivationPolls; ++attempt) {
    platform.clock().sleep(kActivationPollInterval);
    const auto now = workspace.frontmostApplication();
    if (now && now->processIdentifier == *pid) return true;
  }
  return false;
}

}  // namespace orla
