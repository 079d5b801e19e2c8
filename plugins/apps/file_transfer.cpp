#include "plugins/apps/file_transfer.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <vector>
#include <cctype>
#include <filesystem>
#include <optional>

namespace orla {

namespace fs = std::filesystem;

namespace {

bool itemAt(const fs::path& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

fs::path resolved(std::string_view path) {
  std::error_code ec;
  fs::path absolute = fs::absolute(fs::path(path), ec);
  fs::path canonical = fs::weakly_canonical(absolute, ec);
  return ec ? absolute.lexically_normal() : canonical;
}

// Where the item at `path` is: its folder with links resolved, and its own
// name (a link at the end is the link, not what it points to).
fs::path place(std::string_view path) {
  fs::path item = fs::path(path).lexically_normal();
  if (!item.has_filename() && item.has_parent_path() && item != item.root_path()) item = item.parent_path();
  if (!item.has_filename()) return resolved(path);
  return resolved(item.parent_path().string()) / item.filename();
}

// Whether replacing `target` would remove `needed`: a folder (not a link
// to one) that holds it.
bool holds(const std::string& target, const std::string& needed) {
  std::error_code ec;
  const auto status = fs::symlink_status(target, ec);
  return !ec && fs::is_directory(status) && isInside(needed, target);
}

std::string holdsText(const std::string& target) { return "“" + target + "” holds the original, so it cannot be replaced."; }

// Puts the item at `fresh` in the place of `target`. Where the file system
// can, in one rename over what is there (a file or link over a file or
// link, a folder over an empty folder); else what is there is set aside
// first and removed only once `fresh` has taken its place. A folder that
// holds `needed` is never replaced.
Checked<void> placeReplacing(const std::string& fresh, const std::string& target, const std::string& needed) {
  std::error_code ec;
  if (holds(target, needed)) {
    fs::remove_all(fresh, ec);
    return fail(holdsText(target));
  }
  if (::rename(fresh.c_str(), target.c_str()) == 0) return {};
  const int renameError = errno;
  if (renameError != EISDIR && renameError != ENOTDIR && renameError != ENOTEMPTY && renameError != EEXIST) {
    fs::remove_all(fresh, ec);
    return fail(fileErrorText({renameError, std::generic_category()}, target));
  }
  const std::string aside = uniqueSiblingPath(target);
  fs::rename(target, aside, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    return fail(fileErrorText(ec, target));
  }
  fs::rename(fresh, target, ec);
  if (ec) {
    std::error_code ignored;
    fs::rename(aside, target, ignored);
    fs::remove_all(fresh, ignored);
    return fail(fileErrorText(ec, target));
  }
  fs::remove_all(aside, ec);
  return {};
}

// Whether the item at `path` can be removed once copied: its folder lets
// go of it, and every folder inside it of what it holds. Checked before a
// move between volumes starts, so that it never ends with both copies
// half there.
std::optional<std::string> unremovablePart(const fs::path& path) {
  const fs::path folder = path.parent_path().empty() ? fs::path(".") : path.parent_path();
  if (::access(folder.c_str(), W_OK | X_OK) != 0) return folder.string();
  std::error_code ec;
  if (!fs::is_directory(fs::symlink_status(path, ec))) return std::nullopt;
  if (::access(path.c_str(), W_OK | X_OK) != 0) return path.string();
  for (fs::recursive_directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_directory(ec) && !it->is_symlink(ec) && ::access(it->path().c_str(), W_OK | X_OK) != 0)
      return it->path().string();
  if (ec) return path.string();
  return std::nullopt;
}

// The folder that is to hold `target` must be there: said up front, so the
// sentence names the missing folder rather than a step of the copy.
std::optional<Failure> missingFolderOf(const std::string& target) {
  const fs::path folder = fs::path(target).parent_path();
  std::error_code ec;
  if (folder.empty() || fs::is_directory(folder, ec)) return std::nullopt;
  const auto error = std::make_error_code(itemAt(folder) ? std::errc::not_a_directory
                                                         : std::errc::no_such_file_or_directory);
  return fail(fileErrorText(error, folder.string()));
}

std::error_code lastError() { return {errno, std::generic_category()}; }

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  // Closes now, so that a failed close (a full disk on a network volume)
  // is seen.
  bool close() {
    const int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }

 private:
  int fd_;
};

// The bytes of `in` into `out`: in the kernel, cloned where the file system
// can (copy_file_range), else spliced (sendfile), else read and written.
bool copyBytes(int in, int out, off_t size, std::error_code& ec) {
  enum class Way { range, splice, readWrite } way = Way::range;
  off_t copied = 0;
  std::vector<char> buffer;
  for (;;) {
    ssize_t n = 0;
    if (way == Way::range) {
      n = ::copy_file_range(in, nullptr, out, nullptr, std::size_t{1} << 30, 0);
      // Some file systems answer nothing or refuse between volumes: take the next way.
      if ((n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) ||
          (n == 0 && copied < size)) {
        way = Way::splice;
        continue;
      }
    } else if (way == Way::splice) {
      n = ::sendfile(out, in, nullptr, std::size_t{1} << 30);
      if ((n < 0 && (errno == EINVAL || errno == ENOSYS)) || (n == 0 && copied < size)) {
        way = Way::readWrite;
        continue;
      }
    } else {
      if (buffer.empty()) buffer.resize(std::size_t{256} << 10);
      n = ::read(in, buffer.data(), buffer.size());
      for (ssize_t written = 0; n > 0 && written < n;) {
        const ssize_t w = ::write(out, buffer.data() + written, static_cast<std::size_t>(n - written));
        if (w < 0 && errno == EINTR) continue;
        if (w < 0) {
          ec = lastError();
          return false;
        }
        written += w;
      }
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ec = lastError();
      return false;
    }
    if (n == 0) return true;
    copied += n;
  }
}

bool copyFile(const fs::path& from, const fs::path& to, std::error_code& ec) {
  FileDescriptor in(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat info {};
  if (in.get() < 0 || ::fstat(in.get(), &info) != 0) {
    ec = lastError();
    return false;
  }
  FileDescriptor out(::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (out.get() < 0) {
    ec = lastError();
    return false;
  }
  if (!copyBytes(in.get(), out.get(), info.st_size, ec)) return false;
  // The source's permissions exactly, whatever the umask.
  if (::fchmod(out.get(), info.st_mode & 07777) != 0 || !out.close()) {
    ec = lastError();
    return false;
  }
  return true;
}

// The item at `from` (a folder with everything in it, a link as a link)
// copied to the new path `to`.
bool copyItem(const fs::path& from, const fs::path& to, std::error_code& ec) {
  const auto status = fs::symlink_status(from, ec);
  if (ec) return false;
  if (fs::is_symlink(status)) {
    const fs::path target = fs::read_symlink(from, ec);
    if (!ec) fs::create_symlink(target, to, ec);
    return !ec;
  }
  if (fs::is_regular_file(status)) return copyFile(from, to, ec);
  if (!fs::is_directory(status)) {
    ec = std::make_error_code(std::errc::operation_not_supported);
    return false;
  }
  if (::mkdir(to.c_str(), S_IRWXU) != 0) {
    ec = lastError();
    return false;
  }
  for (fs::directory_iterator it(from, ec), end; !ec && it != end; it.increment(ec))
    if (!copyItem(it->path(), to / it->path().filename(), ec)) return false;
  if (ec) return false;
  fs::permissions(to, status.permissions(), fs::perm_options::replace, ec);
  return !ec;
}

// Copies into `fresh`, a new name beside `target`; a failure names the target.
Checked<void> copyTo(const std::string& source, const std::string& fresh, const std::string& target) {
  std::error_code ec;
  copyItem(source, fresh, ec);
  if (!ec) return {};
  std::error_code ignored;
  fs::remove_all(fresh, ignored);
  return fail(fileErrorText(ec, target));
}

}  // namespace

std::string uniqueSiblingPath(std::string_view path, std::string_view suffix) {
  static std::atomic<unsigned> counter{0};
  fs::path target = fs::path(path).lexically_normal();
  if (!target.has_filename()) target = target.parent_path();
  // Appended in steps: GCC 12 at -O3 warns falsely on "literal" + string.
  std::string name = ".";
  name += target.filename().string();
  name += ".orla-";
  name += std::to_string(::getpid());
  name += '-';
  name += std::to_string(counter.fetch_add(1));
  name += suffix;
  return (target.parent_path() / name).string();
}

bool samePlace(std::string_view a, std::string_view b) {
  const fs::path placeOfB = place(b);
  if (place(a) == placeOfB) return true;
  // A link put where the item it points to was would point to itself.
  std::error_code ec;
  return fs::is_symlink(fs::path(a), ec) && resolved(a) == placeOfB;
}

bool isInside(std::string_view inner, std::string_view outer) {
  const std::string in = resolved(inner).string();
  std::string out = resolved(outer).string();
  if (out.empty() || out.back() != '/') out += '/';
  return in.starts_with(out);
}

std::string fileErrorText(const std::error_code& error, std::string_view path) {
  std::string text = error.message();
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  text += ": “";
  text += path;
  text += "”.";
  return text;
}

Checked<void> copyReplacing(const std::string& source, const std::string& target) {
  if (auto missing = missingFolderOf(target)) return *missing;
  if (holds(target, source)) return fail(holdsText(target));
  const std::string fresh = uniqueSiblingPath(target);
  if (auto copied = copyTo(source, fresh, target); !copied) return copied;
  return placeReplacing(fresh, target, source);
}

namespace {

// Another volume: the copy is made whole beside the target, the source set
// aside in its own folder, the copy put in place, and only then the source
// let go of. A failure at any step puts back what was moved.
Checked<void> moveBetweenVolumes(const std::string& source, const std::string& target) {
  if (auto part = unremovablePart(fs::path(source)))
    return fail(fileErrorText(std::make_error_code(std::errc::permission_denied), *part));
  const std::string fresh = uniqueSiblingPath(target);
  if (auto copied = copyTo(source, fresh, target); !copied) return copied;
  std::error_code ec;
  const std::string aside = uniqueSiblingPath(source);
  fs::rename(source, aside, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    return fail(fileErrorText(ec, source));
  }
  if (auto placed = placeReplacing(fresh, target, aside); !placed) {
    fs::rename(aside, source, ec);
    return placed;
  }
  fs::remove_all(aside, ec);
  return {};
}

}  // namespace

Checked<void> moveReplacing(const std::string& source, const std::string& target) {
  if (auto missing = missingFolderOf(target)) return *missing;
  if (holds(target, source)) return fail(holdsText(target));
  std::error_code ec;
  // A file or link over a file or link, a folder over an empty folder: one
  // rename, nothing in between.
  struct stat from {}, to {};
  if (::lstat(source.c_str(), &from) == 0 && ::lstat(target.c_str(), &to) == 0 && from.st_dev == to.st_dev &&
      from.st_ino == to.st_ino && !S_ISDIR(from.st_mode)) {
    // Two names of one file, where a rename does nothing: the source's name goes.
    if (::unlink(source.c_str()) == 0) return {};
    return fail(fileErrorText(lastError(), source));
  }
  if (::rename(source.c_str(), target.c_str()) == 0) return {};
  const int renameError = errno;
  if (renameError == EXDEV) return moveBetweenVolumes(source, target);
  if (renameError != EISDIR && renameError != ENOTDIR && renameError != ENOTEMPTY && renameError != EEXIST)
    return fail(fileErrorText({renameError, std::generic_category()}, source));
  const std::string aside = uniqueSiblingPath(target);
  fs::rename(target, aside, ec);
  if (ec) return fail(fileErrorText(ec, target));
  fs::rename(source, target, ec);
  std::error_code ignored;
  if (!ec) {
    fs::remove_all(aside, ignored);
    return {};
  }
  fs::rename(aside, target, ignored);
  if (ec != std::errc::cross_device_link) return fail(fileErrorText(ec, source));
  return moveBetweenVolumes(source, target);
}

Checked<void> symlinkReplacing(const std::string& original, const std::string& link) {
  if (auto missing = missingFolderOf(link)) return *missing;
  // Checked before the link is made: a folder holding the original is
  // never removed to make room for a link to it.
  const fs::path originalPath(original);
  const std::string needed =
      originalPath.is_absolute() ? original : (fs::path(link).parent_path() / originalPath).string();
  if (holds(link, needed)) return fail(holdsText(link));
  const std::string fresh = uniqueSiblingPath(link);
  std::error_code ec;
  fs::create_symlink(original, fresh, ec);
  if (ec) return fail(fileErrorText(ec, link));
  return placeReplacing(fresh, link, needed);
}

}  // namespace orla
