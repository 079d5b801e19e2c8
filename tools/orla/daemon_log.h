// The daemon's log: one line per event on standard error. Started by
// systemd with standard error on the journal (JOURNAL_STREAM names it), each
// line carries its priority the way the journal reads it ("<3>" for an
// error), and the journal adds the time and the program's name; otherwise
// lines start with "orla: ".
//
// Thread safety: every method may be called from any thread.
#pragma once

#include <mutex>
#include <ostream>
#include <string_view>

namespace orla::cli {

class DaemonLog {
 public:
  // `journal`: whether lines carry priorities; see `standardErrorIsJournal`.
  DaemonLog(std::ostream& out, bool journal) : out_(out), journal_(journal) {}

  void info(std::string_view line) { write(6, line); }
  void warning(std::string_view line) { write(4, line); }
  void error(std::string_view line) { write(3, line); }

  // Whether standard error is the stream JOURNAL_STREAM names (its device
  // and inode), rather than a terminal or file a child inherited it as.
  static bool standardErrorIsJournal();

 private:
  void write(int priority, std::string_view line);

  std::mutex mutex_;
  std::ostream& out_;
  bool journal_;
};

}  // namespace orla::cli
