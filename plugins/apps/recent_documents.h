// The recent documents of the document plugin: its own list of the
// documents it opened (RecentDocumentsTracker), and the menu that shows them
// first and then the system's recent documents.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <orla/platform/platform.h>

namespace orla {

// The documents opened through the document plugin, most recent first, at
// most 15. One instance per process, made on first use; in memory only.
// Thread safety: every method may be called from any thread.
class RecentDocumentsTracker {
 public:
  static constexpr std::size_t maxItems = 15;

  static RecentDocumentsTracker& shared();

  // Puts the standardized `path` first, once, and keeps the first 15.
  void record(std::string_view path);
  std::vector<std::string> stored() const;
  // Forgets the list, for tests.
  void reset();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> stored_;
};

// One entry of the recent-documents menu.
struct RecentDocumentItem {
  std::string name;
  std::string path;  // standardized, absolute
  friend bool operator==(const RecentDocumentItem&, const RecentDocumentItem&) = default;
};

// "/a/./b/" is "/a/b": no dot segments, no trailing slash.
std::string standardizedDocumentPath(std::string_view path);

// Whether the item at `path` is a document: a regular file, or a package
// that is not an application; nothing whose extension is "app".
bool isDocument(Platform& platform, const std::string& path);

// The menu's entries: the tracker's documents, then the system's recent
// ones, each kept once and only while it exists and is a document; named by
// the list, else by the file manager. With `byName`, sorted by name without
// regard to case in the user's locale.
std::vector<RecentDocumentItem> recentDocumentItems(Platform& platform, bool byName);

}  // namespace orla
