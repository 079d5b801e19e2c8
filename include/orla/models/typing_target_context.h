// TypingTargetContext: the application the user last worked in before
// switching to the host, so that actions tested from the host's editor can
// send their keys back to it. Kept in memory for the life of the process.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>

namespace orla ORLA_EXPORT {

class TypingTargetContext {
 public:
  // The bundle identifier of that application; none when unknown.
  static std::optional<std::string> lastUserAppBundleID();
  static void setLastUserAppBundleID(std::optional<std::string> bundleIdentifier);
};

}  // namespace orla
