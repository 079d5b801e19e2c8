// Runs JavaScript in the worker executable, one worker per run: the host
// sends the run, answers the worker's file and web questions through the
// action's host functions, watches the worker's resident memory every 50 ms
// and kills it above the ceiling, and kills it when the time limit plus one
// second has passed.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <orla/platform/javascript.h>

namespace orla::posix {

// The worker's name; it is installed beside the `orla` executable.
inline constexpr const char* kJavaScriptWorkerName = "orla-javascript-worker";

// Where the worker is: ORLA_JAVASCRIPT_WORKER when set (for programs that do
// not live beside it, such as the tests), else beside this executable, else
// in the bindir of the installed library (for a host that embeds it).
std::string javaScriptWorkerPath();

// Without a path, the worker is looked for afresh on every run.
std::unique_ptr<JavaScriptRunner> makeWorkerJavaScriptRunner(std::optional<std::string> workerPath = std::nullopt);

}  // namespace orla::posix
