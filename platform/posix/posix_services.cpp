#include "platform/posix/posix_services.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
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

bool PosixFiles::itemExists(std::string_view path) const {
  // A path with a NUL names nothing: the system would look at a shorter one.
  if (path.empty() || path.find('\0') != std::string_view::npos) return false;
  struct stat info {};
  return ::stat(std::string(path).c_str(), &info) == 0;
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
