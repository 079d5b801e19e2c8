#include "plugins/apps/tool_run.h"

#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla {

namespace {

std::string asUtf8(std::string bytes) {
  if (isValidUtf8(bytes)) return bytes;
  return toUtf8(toUtf16(bytes));
}

}  // namespace

std::string ToolRun::message() const {
  std::string_view text = trimWhitespaceAndNewlines(errors);
  if (text.empty()) text = trimWhitespaceAndNewlines(output);
  return std::string(text);
}

Checked<ToolRun> runTool(Processes& processes, std::string_view executable, std::vector<std::string> arguments,
                         std::string workingDirectory, std::size_t limit) {
  CapturedOutput out(limit), err(limit);
  auto exit = processes.run({std::string(executable), std::move(arguments), std::move(workingDirectory)}, out, err);
  if (!exit) return fail(exit.error());
  if (out.cut() || err.cut()) return fail("The output of " + std::string(executable) + " is too long to read.");
  ToolRun run;
  run.status = exit->status;
  run.signalled = exit->reason == ProcessExit::Reason::signalled;
  run.output = asUtf8(out.bytes());
  run.errors = asUtf8(err.bytes());
  return run;
}

}  // namespace orla
