#include "platform/posix/posix_services.h"

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

namespace orla::posix {

TimePoint PosixClock::now() const { return std::chrono::system_clock::now(); }

std::string PosixClock::timeZone() const {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  std::string out;
  if (zone) zone->getID(id).toUTF8String(out);
  return out.empty() || out == UCAL_UNKNOWN_ZONE_ID ? "UTC" : out;
}

std::string PosixClock::locale() const { return icu::Locale::getDefault().getName(); }

Clock::Monotonic PosixClock::monotonicNow() const { return std::chrono::steady_clock::now(); }

void PosixClock::sleep(std::chrono::microseconds duration) {
  if (duration.count() > 0) std::this_thread::sleep_for(duration);
}

std::optional<std::string> PosixEnvironment::variable(std::string_view name) const {
  const char* value = std::getenv(std::string(name).c_str());
  if (!value) return std::nullopt;
  return std::string(value);
}

std::optional<std::string> passwordDatabaseHome(std::string_view user) {
  long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  const int error = user.empty()
                        ? getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found)
                        : getpwnam_r(std::string(user).c_str(), &entry, buffer.data(),
                                     buffer.size(), &found);
  if (error != 0 || !found || !found->pw_dir) return std::nullopt;
  return std::string(found->pw_dir);
}

std::optional<std::string> PosixEnvironment::homeDirectory(std::string_view user) const {
  // The current user's home is $HOME when set, as shells expand "~".
  if (user.empty()) {
    if (auto home = variable("HOME"); home && !home->empty()) return home;
  }
  return passwordDatabaseHome(user);
}

PosixFiles::PosixFiles(std::shared_ptr<const FileWorkspace> workspace) : workspace_(std::move(workspace)) {}

bool PosixFiles::itemExists(std::string_view path) const {
  // A path with a NUL names nothing: the system would look at a shorter one.
  if (path.empty() || path.find('\0') != std::string_view::npos) return false;
  struct stat info {};
  return ::stat(std::string(path).c_str(), &info) == 0;
}

bool PosixFiles::folderExists(std::string_view path) const {
  if (path.empty() || path.find('\0') != std::string_view::npos) return false;
  struct stat info {};
  return ::stat(std::string(path).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::set<std::string> namesMarkedHidden(std::string_view folder) {
  std::set<std::string> names;
  std::ifstream file(std::string(folder) + "/.hidden");
  // A few names a line; a file of megabytes is not a list of hidden names.
  std::string line;
  for (std::size_t read = 0; read < 10000 && std::getline(file, line); ++read)
    if (!line.empty()) names.insert(line);
  return names;
}

namespace {

std::string realPathOf(const std::string& path) {
  std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  return resolved ? std::string(resolved.get()) : std::string();
}

std::string lastComponent(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash + 1 == path.size()) return path;
  return path.substr(slash + 1);
}

}  // namespace

Checked<FolderListing> PosixFiles::listFolder(std::string_view given) const {
  std::string folder(given);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  if (folder.empty() || folder.find('\0') != std::string::npos) return fail("No such file or directory.");
  struct CloseDir {
    void operator()(DIR* d) const { ::closedir(d); }
  };
  std::unique_ptr<DIR, CloseDir> dir(::opendir(folder.c_str()));
  if (!dir) return fail(std::string(std::strerror(errno)) + ".");
  FolderListing listing;
  listing.realPath = realPathOf(folder);
  listing.displayName = workspace_ ? workspace_->displayName(folder) : lastComponent(folder);
  const std::set<std::string> markedHidden = namesMarkedHidden(folder);
  const std::string prefix = folder == "/" ? folder : folder + "/";
  const std::string realPrefix = listing.realPath == "/" ? listing.realPath : listing.realPath + "/";
  errno = 0;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    FolderItem item;
    item.name = name;
    item.path = prefix + name;
    struct stat link {}, target {};
    const bool isLink = ::lstat(item.path.c_str(), &link) == 0 && S_ISLNK(link.st_mode);
    const bool reachable = ::stat(item.path.c_str(), &target) == 0;
    if (!reachable) target = link;
    // Only a link needs resolving; anything else lies where its folder does.
    item.realPath = isLink ? realPathOf(item.path) : realPrefix + name;
    const bool directory = reachable && S_ISDIR(target.st_mode);
    item.package = directory && workspace_ && workspace_->isPackage(item.path);
    item.folder = directory && !item.package;
    item.hidden = name.front() == '.' || markedHidden.count(name) > 0;
    item.displayName = workspace_ ? workspace_->displayName(item.path) : name;
    item.modified = TimePoint(std::chrono::duration_cast<TimePoint::duration>(
        std::chrono::seconds(target.st_mtim.tv_sec) + std::chrono::nanoseconds(target.st_mtim.tv_nsec)));
    listing.items.push_back(std::move(item));
  }
  return listing;
}

}  // namespace orla::posix

namespace orla::posix {

Checked<FileAttributes> fileAttributes(std::string_view path) {
  struct stat info {};
  if (path.empty() || ::lstat(std::string(path).c_str(), &info) != 0) {
    const int error = path.empty() ? ENOENT : errno;
    return fail(std::string(std::strerror(error)) + ": “" + std::string(path) + "”.");
  }
  FileAttributes attributes;
  if (S_ISREG(info.st_mode)) attributes.type = FileAttributes::Type::regular;
  else if (S_ISDIR(info.st_mode)) attributes.type = FileAttributes::Type::directory;
  else if (S_ISLNK(info.st_mode)) attributes.type = FileAttributes::Type::symbolicLink;
  else attributes.type = FileAttributes::Type::other;
  attributes.size = static_cast<std::uint64_t>(info.st_size);
  attributes.modificationDate = TimePoint(std::chrono::duration_cast<TimePoint::duration>(
      std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec)));
  return attributes;
}

}  // namespace orla::posix
