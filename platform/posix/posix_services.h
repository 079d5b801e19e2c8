// The services that are real on every Unix: the wall and monotonic clocks
// with the ICU default time zone and locale, the process environment with
// the password database's home folders, and the file system.
#pragma once

#include <memory>
#include <set>
#include <string>

#include <orla/platform/clock.h>
#include <orla/platform/environment.h>
#include <orla/platform/file_manager.h>
#include <orla/platform/file_workspace.h>
#include <orla/platform/files.h>

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

// Lists folders with readdir(2) and stat(2). Hidden items are those whose
// name begins with "." and those a folder's ".hidden" file names, as the
// Linux file managers read it. What is a package and what the file manager
// calls an item come from `workspace` when given (the simulated desktop's
// bundles); without one no folder is a package and names show as they are.
class PosixFiles : public Files {
 public:
  explicit PosixFiles(std::shared_ptr<const FileWorkspace> workspace = nullptr);
  bool itemExists(std::string_view path) const override;
  bool folderExists(std::string_view path) const override;
  Checked<FolderListing> listFolder(std::string_view path) const override;

 private:
  std::shared_ptr<const FileWorkspace> workspace_;
};

// The names a folder's ".hidden" file lists, one a line.
std::set<std::string> namesMarkedHidden(std::string_view folder);

// The item's own attributes by lstat(2); fails with the system's sentence.
Checked<FileAttributes> fileAttributes(std::string_view path);

// The home folder of `user` in the password database (the current user's
// when empty); none when there is no such user.
std::optional<std::string> passwordDatabaseHome(std::string_view user);

}  // namespace orla::posix
