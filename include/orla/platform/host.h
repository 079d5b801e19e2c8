// Host: the application the plugins run in: its identity, its activation
// policy (whether it has a Dock icon and can come to the front) and its
// windows.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <string>

#include <orla/platform/workspace.h>

namespace orla ORLA_EXPORT {

class Host {
 public:
  virtual ~Host() = default;
  // The host's bundle identifier; empty when it has none.
  virtual std::string bundleIdentifier() const = 0;
  virtual ProcessId processIdentifier() const = 0;
  virtual ActivationPolicy activationPolicy() const = 0;
  // Answers whether the policy was taken.
  virtual bool setActivationPolicy(ActivationPolicy policy) = 0;
  // Whether one of the host's windows is on screen with a non-empty title.
  virtual bool hasVisibleTitledWindow() const = 0;
};

}  // namespace orla
