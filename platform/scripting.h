// Scripting: AppleScript, compiled from source and run by the system.
// Thread safety: the plugins call it on the main thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "models/checked.h"

namespace orla {

// The error dictionary of a failed run, by its three keys.
struct ScriptError {
  std::optional<std::string> message;       // "NSAppleScriptErrorMessage"
  std::optional<std::string> briefMessage;  // "NSAppleScriptErrorBriefMessage"
  std::optional<std::int64_t> number;       // "NSAppleScriptErrorNumber"
  friend bool operator==(const ScriptError&, const ScriptError&) = default;
};

// How a run ended: the result's string value (none when the result has no
// text, as after `beep`), or the error.
struct ScriptOutcome {
  std::optional<std::string> stringValue;
  std::optional<ScriptError> error;
};

class Script {
 public:
  virtual ~Script() = default;
  virtual ScriptOutcome execute() = 0;
};

class Scripting {
 public:
  virtual ~Scripting() = default;
  // A script made from source text. Fails with a sentence when the backend
  // has no AppleScript; answers a null pointer when the source does not
  // compile.
  virtual Checked<std::unique_ptr<Script>> compile(std::string_view source) = 0;
};

}  // namespace orla
