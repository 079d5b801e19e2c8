// Host: the identity of the application the plugins run in.
// Thread safety: every method may be called from any thread.
#pragma once

#include <string>

#include "platform/workspace.h"

namespace orla {

class Host {
 public:
  virtual ~Host() = default;
  // The host's bundle identifier; empty when it has none.
  virtual std::string bundleIdentifier() const = 0;
  virtual ProcessId processIdentifier() const = 0;
};

}  // namespace orla
