// Writing the simulated desktop's state at the end of a run: into a fresh
// private file beside the target (mode 0600: it holds keychain passwords),
// renamed over the target only once whole. An interrupted or failed run
// leaves the old file as it was, and runs that end together each leave a
// whole file, never a mix.
#pragma once

#include <string>

#include <orla/models/checked.h>

namespace orla::cli {

class StateFileWriter {
 public:
  // Makes the fresh file now, so that a folder that cannot be written is
  // said before the run.
  static Checked<StateFileWriter> open(const std::string& target);

  StateFileWriter(StateFileWriter&& other) noexcept;
  StateFileWriter& operator=(StateFileWriter&&) = delete;
  StateFileWriter(const StateFileWriter&) = delete;
  StateFileWriter& operator=(const StateFileWriter&) = delete;
  // Removes the fresh file when it was never committed.
  ~StateFileWriter();

  // Writes `text`, flushes it to the disk and puts it in the target's place.
  Checked<void> commit(const std::string& text);

 private:
  StateFileWriter(std::string target, std::string fresh, int fd);
  std::string target_;
  std::string fresh_;
  int fd_ = -1;
};

}  // namespace orla::cli
