#include "tools/orla/daemon_log.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace orla::cli {

void DaemonLog::write(int priority, std::string_view line) {
  std::lock_guard lock(mutex_);
  // One event is one line: a sentence holding a line break (a file name, a
  // command's output) would read as two entries.
  std::string flat(line);
  for (char& c : flat)
    if (c == '\n' || c == '\r') c = ' ';
  if (journal_) out_ << '<' << priority << '>' << flat << std::endl;
  else out_ << "orla: " << flat << std::endl;
}

bool DaemonLog::standardErrorIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  if (!stream) return false;
  unsigned long long device = 0, inode = 0;
  if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2) return false;
  struct stat status {};
  if (::fstat(2, &status) != 0) return false;
  return status.st_dev == device && status.st_ino == inode;
}

}  // namespace orla::cli
