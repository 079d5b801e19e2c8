// ProcessRef: enough of a running application to find it again later: the
// saved application and the previous front one.
#pragma once

#include <optional>
#include <string>

#include <orla/platform/workspace.h>

namespace orla {

struct ProcessRef {
  ProcessId pid = 0;
  std::optional<std::string> bundleID;
  std::optional<std::string> bundleURL;  // the bundle's path
  std::optional<std::string> name;       // the localized name

  static ProcessRef from(const RunningApplication& app) {
    auto present = [](const std::string& s) { return s.empty() ? std::nullopt : std::optional(s); };
    return {app.processIdentifier, present(app.bundleIdentifier), present(app.bundlePath),
            present(app.localizedName)};
  }

  friend bool operator==(const ProcessRef&, const ProcessRef&) = default;
};

}  // namespace orla
