// JavaScript: one script run in a sandboxed engine, with the host carrying
// out the few things the script may ask of the outside world.
//
// Thread safety: `run` may be called from any thread; several runs may go on
// at once, each in a worker of its own. The host functions are called on the
// thread that called `run`.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct JavaScriptLimits {
  std::chrono::duration<double> time{5.0};
  std::size_t memoryBytes = std::size_t{256} << 20;  // the worker's resident memory
  std::size_t resultCharacters = 1'000'000;
  std::size_t consoleLines = 1000;
  std::size_t consoleCharacters = 100'000;
};

// What the script may ask the host for. A function the action does not allow
// does not exist in the script's world at all.
class JavaScriptHostFunctions {
 public:
  virtual ~JavaScriptHostFunctions() = default;
  virtual bool allowsFileRead() const = 0;
  virtual bool allowsNetwork() const = 0;
  // The file's text, or the message of the `Error` the script sees.
  virtual Checked<std::string> readTextFile(const std::string& path) = 0;
  // The body of a 2xx answer, or the message of the `Error` the script sees.
  // `deadline` is how long the run has left; the request never outlasts it.
  virtual Checked<std::string> httpGet(const std::string& url, std::chrono::duration<double> deadline) = 0;
};

struct JavaScriptOutcome {
  enum class Kind {
    value,          // `value` holds the result
    none,           // the script's value was `undefined`
    syntaxError,    // `line` and `message`
    thrown,         // `line` (when known) and `message`: String(error)
    timedOut,
    memoryExceeded,
    neverSettled,
    resultTooLong,
    failedToStart,
    endedUnexpectedly,
  };
  Kind kind = Kind::none;
  std::string value;
  std::vector<std::string> console;
  std::optional<int> line;
  std::string message;
};

class JavaScriptRunner {
 public:
  virtual ~JavaScriptRunner() = default;
  // Runs `script` with `input` as its `input` and answers how it ended;
  // blocks for at most the time limit plus one second.
  virtual JavaScriptOutcome run(const std::string& script, const std::string& input, const JavaScriptLimits& limits,
                                JavaScriptHostFunctions& host) = 0;
};

}  // namespace orla
