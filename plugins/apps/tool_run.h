// Running the system's command-line tools (zip, unzip, the printing tools)
// the way the plugins run them: input from the null device, both outputs
// captured and read as UTF-8, the end status reported.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>
#include <orla/platform/processes.h>

namespace orla {

// A tool's run: how it ended and what it wrote, as UTF-8.
struct ToolRun {
  int status = 0;
  bool signalled = false;
  std::string output;  // standard output
  std::string errors;  // standard error
  // The error output, else the output, trimmed.
  std::string message() const;
};

// Runs the program with its output captured (up to `limit` bytes of each
// stream); fails with the system's sentence when it cannot start, or when
// the output passed the limit.
Checked<ToolRun> runTool(Processes& processes, std::string_view executable, std::vector<std::string> arguments,
                         std::string workingDirectory = {}, std::size_t limit = std::size_t{1} << 20);

}  // namespace orla
