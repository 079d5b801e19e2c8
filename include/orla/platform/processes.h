// Processes: programs started by path, their output streamed back to the
// caller as it comes, and their end reported as the system reports it.
//
// Thread safety: every method may be called from any thread, and several
// runs may go on at once. A sink is called on the thread that called `run`.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct ProcessLaunch {
  std::string executable;              // an absolute path; the search path is not used
  std::vector<std::string> arguments;  // after the program's own name
  std::string workingDirectory;        // empty: this process's own
};

// Receives one output stream of a child in chunks, in order, as the child
// writes them.
class OutputSink {
 public:
  virtual ~OutputSink() = default;
  virtual void append(std::string_view bytes) = 0;
};

// How a child ended.
struct ProcessExit {
  enum class Reason { exited, signalled };
  Reason reason = Reason::exited;
  // The exit status; for a child ended by a signal, that signal's number
  // (what the system's termination status reports in either case).
  int status = 0;
  friend bool operator==(const ProcessExit&, const ProcessExit&) = default;
};

class Processes {
 public:
  virtual ~Processes() = default;

  // Runs the program to its end. Its standard input is the null device, so a
  // program that reads it sees the end at once; its standard output and
  // standard error each go to a pipe of their own, and both pipes are read
  // as they fill, so that a program that floods either never blocks on it.
  // There is no time limit: this returns when the program has ended and both
  // pipes are closed (a program that leaves a background child holding them
  // open is waited for too). Fails with a sentence saying why when the
  // program cannot be started.
  virtual Checked<ProcessExit> run(const ProcessLaunch& launch, OutputSink& standardOutput,
                                   OutputSink& standardError) = 0;

  // Starts the program and returns at once, for programs nobody waits for:
  // its input and output are the null device, it is not a child of the
  // caller's terminal session, and its end is collected in the background.
  virtual Checked<void> start(const ProcessLaunch& launch) = 0;
};

// A sink that keeps the first `limit` bytes and counts them all.
class CapturedOutput : public OutputSink {
 public:
  explicit CapturedOutput(std::size_t limit = std::size_t{1} << 20) : limit_(limit) {}
  void append(std::string_view bytes) override {
    total_ += bytes.size();
    if (kept_.size() < limit_) kept_.append(bytes.substr(0, limit_ - kept_.size()));
  }
  const std::string& bytes() const { return kept_; }
  std::uint64_t total() const { return total_; }
  bool cut() const { return total_ > kept_.size(); }

 private:
  std::size_t limit_;
  std::string kept_;
  std::uint64_t total_ = 0;
};

}  // namespace orla
