#include <orla/platform/scripting.h>

#include <orla/platform/main_thread.h>

namespace orla {

ScriptRun runScript(Scripting& scripting, MainThread& mainThread, std::string_view source) {
  ScriptRun run;
  onMainThread(mainThread, [&] {
    auto script = scripting.compile(source);
    if (!script) {
      run.status = ScriptRun::Status::unavailable;
      run.unavailableReason = script.error();
      return;
    }
    if (!script.value()) {
      run.status = ScriptRun::Status::notCompiled;
      return;
    }
    ScriptOutcome outcome = script.value()->execute();
    if (outcome.error) {
      run.status = ScriptRun::Status::failed;
      run.error = std::move(*outcome.error);
      return;
    }
    run.status = ScriptRun::Status::finished;
    run.stringValue = std::move(outcome.stringValue);
  });
  return run;
}

std::string scriptErrorText(const ScriptError& error) {
  if (error.message && !error.message->empty()) return *error.message;
  if (error.briefMessage && !error.briefMessage->empty()) return *error.briefMessage;
  if (error.number) return "AppleScript error " + std::to_string(*error.number) + ".";
  return "AppleScript error.";
}

}  // namespace orla
