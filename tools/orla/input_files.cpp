#include "tools/orla/input_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <orla/models/input_limits.h>
#include <orla/models/json_codable.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla::cli {

namespace {

struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
};

enum class ReadFailure { none, tooLarge, error };

// Reads `fd` to its end into `text`, at most `limit` bytes. A regular file
// is read into a buffer of its size at once, with room past the end for
// the JSON parser to read ahead (kJsonReadPadding); a pipe or a device
// grows the buffer by doubling. One byte past the limit is asked for, so
// that a file of exactly the limit is taken and a larger one is not.
ReadFailure readAll(int fd, std::size_t limit, std::string& text) {
  struct stat info {};
  std::size_t capacity = std::size_t{1} << 16;
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0)
    capacity = std::min(static_cast<std::size_t>(info.st_size), limit) + 1 + kJsonReadPadding;
  // resize_and_overwrite is not in this standard library yet: the bytes
  // are zeroed once, which costs far less than the reading.
  text.resize(capacity);
  std::size_t used = 0;
  for (;;) {
    if (used == text.size()) {
      if (text.size() > limit) break;
      text.resize(std::min(text.size() * 2, limit + 1));
    }
    const ssize_t got = ::read(fd, text.data() + used, text.size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return ReadFailure::error;
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  if (used > limit) return ReadFailure::tooLarge;
  text.resize(used);
  return ReadFailure::none;
}

Checked<std::string> readBounded(int fd, const std::string& name) {
  std::string text;
  switch (readAll(fd, kInputFileLimit, text)) {
    case ReadFailure::none: return text;
    case ReadFailure::tooLarge:
      return fail(name + " is larger than " + std::string(kInputFileLimitWords) + ", more than orla reads");
    case ReadFailure::error: break;
  }
  return fail("cannot read " + name);
}

}  // namespace

Checked<std::string> readTextFile(const std::filesystem::path& path) {
  Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0) return fail("cannot read " + path.string());
  return readBounded(file.fd, path.string());
}

Checked<std::string> readStandardInput() { return readBounded(STDIN_FILENO, "standard input"); }

Checked<std::string> readParameterFile(const std::string& path, const std::string& key) {
  const std::string forKey = key.empty() ? std::string() : " for the parameter " + orla::quoted(key);
  Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0) return fail("cannot read " + path + forKey + ": " + std::strerror(errno));
  std::string text;
  switch (readAll(file.fd, kTextSizeLimit, text)) {
    case ReadFailure::none: break;
    case ReadFailure::tooLarge:
      return fail(path + forKey + " is larger than " + std::string(kTextSizeLimitWords) + ", more than orla reads");
    case ReadFailure::error: return fail("cannot read " + path + forKey + ": " + std::strerror(errno));
  }
  if (!isValidUtf8(text)) return fail(path + forKey + " is not UTF-8 text");
  return text;
}

}  // namespace orla::cli
