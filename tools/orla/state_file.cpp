#include "tools/orla/state_file.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>

namespace orla::cli {

namespace {

std::string failureText(std::string_view step, const std::string& path) {
  return std::string(step) + " " + path + ": " + std::strerror(errno);
}

// A run ended by Ctrl+C, `kill` or a closed terminal runs no destructor, so
// the fresh file would stay beside the target. The handler can only do what
// is safe inside a signal handler: the path is copied here beforehand, and
// the handler unlinks it, then lets the signal end the process as it would
// have. One state file per process, so one slot.
constexpr int kCleanedUpSignals[] = {SIGINT, SIGTERM, SIGHUP};
char pendingPath[PATH_MAX];
volatile std::sig_atomic_t pendingSet = 0;
struct sigaction previousActions[std::size(kCleanedUpSignals)];
bool handlersInstalled = false;

extern "C" void removeFreshFileAndEnd(int signal) {
  if (pendingSet) ::unlink(pendingPath);
  ::signal(signal, SIG_DFL);
  // Blocked while the handler runs, so it ends the process on return.
  ::raise(signal);
}

void removeOnSignal(const std::string& path) {
  if (path.size() >= sizeof pendingPath) return;  // mkstemp would have refused it already
  pendingSet = 0;
  std::memcpy(pendingPath, path.c_str(), path.size() + 1);
  pendingSet = 1;
  if (handlersInstalled) return;
  for (std::size_t i = 0; i < std::size(kCleanedUpSignals); ++i) {
    struct sigaction action {};
    action.sa_handler = removeFreshFileAndEnd;
    sigemptyset(&action.sa_mask);
    ::sigaction(kCleanedUpSignals[i], nullptr, &previousActions[i]);
    // A signal the caller ignores (`nohup` ignores SIGHUP) stays ignored.
    if (previousActions[i].sa_handler == SIG_IGN) continue;
    ::sigaction(kCleanedUpSignals[i], &action, nullptr);
  }
  handlersInstalled = true;
}

void stopRemovingOnSignal() {
  pendingSet = 0;
  if (!handlersInstalled) return;
  for (std::size_t i = 0; i < std::size(kCleanedUpSignals); ++i)
    if (previousActions[i].sa_handler != SIG_IGN) ::sigaction(kCleanedUpSignals[i], &previousActions[i], nullptr);
  handlersInstalled = false;
}

}  // namespace

StateFileWriter::StateFileWriter(std::string target, std::string fresh, int fd)
    : target_(std::move(target)), fresh_(std::move(fresh)), fd_(fd) {}

StateFileWriter::StateFileWriter(StateFileWriter&& other) noexcept
    : target_(std::move(other.target_)), fresh_(std::exchange(other.fresh_, {})), fd_(std::exchange(other.fd_, -1)) {}

StateFileWriter::~StateFileWriter() {
  if (fd_ >= 0) ::close(fd_);
  if (!fresh_.empty()) {
    ::unlink(fresh_.c_str());
    stopRemovingOnSignal();
  }
}

Checked<StateFileWriter> StateFileWriter::open(const std::string& target) {
  std::error_code ec;
  // A link is written through, as writing a file in place would.
  const std::filesystem::path path =
      std::filesystem::is_symlink(target, ec) ? std::filesystem::weakly_canonical(target, ec) : std::filesystem::path(target);
  const auto status = std::filesystem::status(path, ec);
  // Only a file is replaced: a device or a folder never is.
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    return fail("cannot write " + target + ": it is not a file");
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  // Appended in steps: GCC 12 at -O3 warns falsely on "." + name.
  std::string name = ".";
  name += path.filename().string();
  name += ".orla-XXXXXX";
  std::string fresh = (folder / name).string();
  // mkstemp makes the file for this user alone (0600).
  const int fd = ::mkstemp(fresh.data());
  if (fd < 0) return fail(failureText("cannot write", target));
  ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  removeOnSignal(fresh);
  return StateFileWriter(path.string(), std::move(fresh), fd);
}

Checked<void> StateFileWriter::commit(const std::string& text) {
  for (std::size_t written = 0; written < text.size();) {
    const ssize_t n = ::write(fd_, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail(failureText("could not finish writing", target_));
    written += static_cast<std::size_t>(n);
  }
  const int fd = std::exchange(fd_, -1);
  if (::fsync(fd) != 0 || ::close(fd) != 0) return fail(failureText("could not finish writing", target_));
  if (::rename(fresh_.c_str(), target_.c_str()) != 0) return fail(failureText("could not write", target_));
  // A signal between the rename and here unlinks a name that is gone.
  stopRemovingOnSignal();
  fresh_.clear();
  return {};
}

}  // namespace orla::cli
