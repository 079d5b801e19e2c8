// FileManager: the file system's desktop side: the Trash, the attributes
// the info report shows and their formatting, and the system's list of
// recently used documents.
//
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/calendar.h>
#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct FileAttributes {
  enum class Type { regular, directory, symbolicLink, other };
  Type type = Type::regular;
  std::uint64_t size = 0;  // in bytes, as the file system reports it
  std::optional<TimePoint> modificationDate;
  friend bool operator==(const FileAttributes&, const FileAttributes&) = default;
};

// One entry of the system's recent documents, most recent first.
struct RecentDocument {
  std::string path;
  std::string name;  // the name the list gives it; empty when it gives none
  friend bool operator==(const RecentDocument&, const RecentDocument&) = default;
};

class FileManager {
 public:
  virtual ~FileManager() = default;

  // Moves the item to the user's Trash (never deletes it outright). Fails
  // with the system's sentence.
  virtual Checked<void> moveToTrash(std::string_view path) = 0;

  // The item's own attributes (a symbolic link is not followed). Fails with
  // the system's sentence, for example when nothing is there.
  virtual Checked<FileAttributes> attributes(std::string_view path) const = 0;

  // A byte count as the file manager shows sizes ("12 KB", "1.2 MB").
  virtual std::string formatByteCount(std::uint64_t bytes) const = 0;
  // A date and time in the medium date style and the short time style of
  // the user's locale and time zone.
  virtual std::string formatDate(TimePoint date) const = 0;

  // The documents the user opened recently, as the system lists them, most
  // recent first. Entries are not checked: they may name items since gone.
  virtual std::vector<RecentDocument> recentDocuments() const = 0;
};

}  // namespace orla
