// Files: the file system as the plugins see it.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <string>
#include <string_view>
#include <vector>

#include <orla/models/calendar.h>
#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

// One item of a folder, as the file manager shows it.
struct FolderItem {
  std::string name;         // the name on disk
  std::string displayName;  // the name the file manager shows
  std::string path;         // the folder's path, "/", the name
  // The item with every symbolic link resolved; empty when a link dangles.
  std::string realPath;
  bool folder = false;   // a folder (through a link too) that is not a package
  bool package = false;  // a folder shown as one item (an application bundle)
  bool hidden = false;   // a name beginning with ".", or marked hidden by the system
  TimePoint modified{};
};

struct FolderListing {
  std::string displayName;  // the folder's own
  std::string realPath;     // the folder with every symbolic link resolved
  std::vector<FolderItem> items;  // in no particular order
};

class Files {
 public:
  virtual ~Files() = default;
  // Whether a file, folder or other item exists at `path` (symbolic links
  // followed; a dangling link does not count).
  virtual bool itemExists(std::string_view path) const = 0;
  // Whether a folder exists at `path` (symbolic links followed).
  virtual bool folderExists(std::string_view path) const = 0;
  // The items of the folder at `path`. Fails with the system's sentence when
  // it cannot be read.
  virtual Checked<FolderListing> listFolder(std::string_view path) const = 0;
};

}  // namespace orla
