// The services that are real on every Unix: the wall and monotonic clocks
// with the ICU default time zone and locale, the process environment with
// the password database's home folders, and the file system.
#pragma once

#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/file_manager.h"
#include "platform/files.h"

namespace orla::posix {

class PosixClock : public Clock {
 public:
  TimePoint now() const override;
  std::string timeZone() const override;
  std::string locale() const override;
  Monotonic monotonicNow() const override;
  void sleep(std::chrono::microseconds duration) override;
};

class PosixEnvironment : public Environment {
 public:
  std::optional<std::string> variable(std::string_view name) const override;
  std::optional<std::string> homeDirectory(std::string_view user = {}) const override;
};

class PosixFiles : public Files {
 public:
  bool itemExists(std::string_view path) const override;
};

// The item's own attributes by lstat(2); fails with the system's sentence.
Checked<FileAttributes> fileAttributes(std::string_view path);

// The home folder of `user` in the password database (the current user's
// when empty); none when there is no such user.
std::optional<std::string> passwordDatabaseHome(std::string_view user);

}  // namespace orla::posix
