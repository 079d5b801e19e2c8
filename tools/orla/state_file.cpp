#include "tools/orla/state_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace orla::cli {

namespace {

std::string failureText(std::string_view step, const std::string& path) {
  return std::string(step) + " " + path + ": " + std::strerror(errno);
}

}  // namespace

StateFileWriter::StateFileWriter(std::string target, std::string fresh, int fd)
    : target_(std::move(target)), fresh_(std::move(fresh)), fd_(fd) {}

StateFileWriter::StateFileWriter(StateFileWriter&& other) noexcept
    : target_(std::move(other.target_)), fresh_(std::exchange(other.fresh_, {})), fd_(std::exchange(other.fd_, -1)) {}

StateFileWriter::~StateFileWriter() {
  if (fd_ >= 0) ::close(fd_);
  if (!fresh_.empty()) ::unlink(fresh_.c_str());
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
  fresh_.clear();
  return {};
}

}  // namespace orla::cli
