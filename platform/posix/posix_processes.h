// Child processes on every Unix, through posix_spawn and pipes read with
// poll on the calling thread: no helper threads for a run, and no shell
// between the caller and the program.
#pragma once

#include <orla/platform/processes.h>

namespace orla::posix {

class PosixProcesses : public Processes {
 public:
  Checked<ProcessExit> run(const ProcessLaunch& launch, OutputSink& standardOutput,
                           OutputSink& standardError) override;
  Checked<void> start(const ProcessLaunch& launch) override;
};

// The sentence for a program that could not be started, from the error the
// system gave (ENOENT, EACCES, ...).
std::string launchErrorDescription(int error, std::string_view executable);

}  // namespace orla::posix
