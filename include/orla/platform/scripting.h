// Scripting: AppleScript, compiled from source or loaded from a compiled
// script file, and run by the system.
// Thread safety: the plugins call it on the main thread only.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

class MainThread;

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

// A compiled script file, loaded: the script, or (when it is null) the
// error dictionary saying why the file could not be loaded.
struct LoadedScript {
  std::unique_ptr<Script> script;
  ScriptError error;
};

class Scripting {
 public:
  virtual ~Scripting() = default;
  // A script made from source text. Fails with a sentence when the backend
  // has no AppleScript; answers a null pointer when the source does not
  // compile.
  virtual Checked<std::unique_ptr<Script>> compile(std::string_view source) = 0;
  // The compiled script in the file at `path` (".scpt"). Fails with a
  // sentence when the backend has no AppleScript.
  virtual Checked<LoadedScript> load(std::string_view path) = 0;
};

// Compiling and running one source text on the main thread, as every plugin
// that runs a fixed script does; the plugin words each outcome itself.
struct ScriptRun {
  enum class Status {
    unavailable,  // the backend has no AppleScript: `unavailableReason` says so
    notCompiled,  // the source did not compile
    failed,       // it ran and raised `error`
    finished,     // it ran; `stringValue` is its result's text, if any
  };
  Status status = Status::finished;
  std::string unavailableReason;
  ScriptError error;
  std::optional<std::string> stringValue;
};
ScriptRun runScript(Scripting& scripting, MainThread& mainThread, std::string_view source);

// The error text of a failed run: the message, else the brief message, else
// "AppleScript error " with the number, else "AppleScript error.".
std::string scriptErrorText(const ScriptError& error);

}  // namespace orla
