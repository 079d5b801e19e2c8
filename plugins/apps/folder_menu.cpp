#include "plugins/apps/folder_menu.h"

#include <unicode/coll.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <deque>
#include <memory>

#include <orla/models/text.h>

namespace orla {

namespace {

using Kind = FolderMenuEntry::Kind;

// Compares names as the file manager sorts them: by the user's language,
// ignoring case, with the numbers inside names read as numbers ("File 2"
// before "File 10"). Sort keys are made once per item: a folder of tens of
// thousands of items is sorted in a few comparisons of bytes each.
class NameOrder {
 public:
  explicit NameOrder(const std::string& locale) {
    UErrorCode status = U_ZERO_ERROR;
    collator_.reset(icu::Collator::createInstance(icu::Locale(locale.c_str()), status));
    if (U_FAILURE(status)) collator_.reset();
    if (!collator_) return;
    collator_->setStrength(icu::Collator::SECONDARY);
    collator_->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
  }
  std::string key(const std::string& name) const {
    if (!collator_) return name;
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(name);
    std::string key(64, '\0');
    for (;;) {
      const int32_t size = collator_->getSortKey(text, reinterpret_cast<uint8_t*>(key.data()),
                                                 static_cast<int32_t>(key.size()));
      if (size <= static_cast<int32_t>(key.size())) {
        key.resize(static_cast<std::size_t>(size));
        return key;
      }
      key.resize(static_cast<std::size_t>(size));
    }
  }

 private:
  std::unique_ptr<icu::Collator> collator_;
};

struct Sorted {
  const FolderItem* item;
  std::string key;
  bool groupedFirst;
};

// The items to show, in order: only the first `wanted` are put in order,
// the rest only counted.
std::vector<const FolderItem*> visibleInOrder(const FolderListing& listing, const FolderMenuOptions& options,
                                              const NameOrder& names, std::size_t wanted, std::size_t& visible) {
  std::vector<Sorted> rows;
  rows.reserve(listing.items.size());
  for (const FolderItem& item : listing.items)
    if (options.showHidden || !item.hidden)
      rows.push_back({&item, names.key(item.displayName), options.foldersFirst && item.folder});
  visible = rows.size();
  const auto before = [&](const Sorted& a, const Sorted& b) {
    if (a.groupedFirst != b.groupedFirst) return a.groupedFirst;
    if (options.order == 1 && a.item->modified != b.item->modified) return a.item->modified > b.item->modified;
    if (a.key != b.key) return a.key < b.key;
    return a.item->name < b.item->name;  // the same display name: still one order
  };
  const std::size_t shown = std::min(wanted, rows.size());
  std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(shown), rows.end(), before);
  std::vector<const FolderItem*> out;
  out.reserve(shown);
  for (std::size_t i = 0; i < shown; ++i) out.push_back(rows[i].item);
  return out;
}

FolderMenuEntry entry(Kind kind, std::string title, std::string path, std::string name) {
  FolderMenuEntry e;
  e.kind = kind;
  e.title = std::move(title);
  e.path = std::move(path);
  e.name = std::move(name);
  return e;
}

// The head of every level: the entry that opens the folder, and a line.
void beginLevel(std::vector<FolderMenuEntry>& level, const std::string& path, const std::string& name) {
  level.push_back(entry(Kind::openFolder, "Open " + quoted(name), path, name));
  level.push_back(entry(Kind::separator, "", "", ""));
}

// A subfolder waiting for its own level, with the real paths of the
// folders above it (a link back to one of them would never end).
struct Pending {
  FolderMenuEntry* folder;
  int level;  // of its submenu, the top one being 1
  std::vector<std::string> chain;
};

// Fills one level from its listing; returns the number of items placed.
std::size_t fillLevel(std::vector<FolderMenuEntry>& level, const FolderListing& listing, const std::string& path,
                      const std::string& name, const FolderMenuOptions& options, const NameOrder& names,
                      std::size_t allowed) {
  beginLevel(level, path, name);
  std::size_t visible = 0;
  const auto shown = visibleInOrder(listing, options, names, allowed, visible);
  if (visible == 0) {
    level.push_back(entry(Kind::note, "Empty folder", "", ""));
    return 0;
  }
  for (const FolderItem* item : shown) {
    FolderMenuEntry e = entry(item->folder ? Kind::folder : Kind::item, item->displayName, item->path,
                              item->displayName);
    e.package = item->package;
    e.realPath = item->realPath;
    level.push_back(std::move(e));
  }
  if (visible > shown.size())
    level.push_back(entry(Kind::more, "Show all " + std::to_string(visible) + " items in " + quoted(name) + "\u2026",
                          path, name));
  return shown.size();
}

// Every subfolder of `level` to a pending level below it, or to an entry
// when the depth allows no more levels.
void queueSubfolders(std::vector<FolderMenuEntry>& level, int levelNumber, const std::vector<std::string>& chain,
                     int depth, std::deque<Pending>& queue) {
  for (FolderMenuEntry& e : level) {
    if (e.kind != Kind::folder) continue;
    if (levelNumber + 1 > depth) {
      e.kind = Kind::folderItem;
      continue;
    }
    queue.push_back({&e, levelNumber + 1, chain});
  }
}

}  // namespace

Checked<std::vector<FolderMenuEntry>> buildFolderMenu(const Files& files, const Clock& clock, const std::string& path,
                                                      const FolderMenuOptions& options,
                                                      const FolderMenuLimits& limits) {
  const Clock::Monotonic start = clock.monotonicNow();
  auto top = files.listFolder(path);
  if (!top) return fail(top.error());
  const NameOrder names(options.locale);
  std::vector<FolderMenuEntry> menu;
  std::size_t used = fillLevel(menu, *top, path, top->displayName, options, names,
                               std::min(limits.perLevel, limits.total));
  std::deque<Pending> queue;
  queueSubfolders(menu, 1, {top->realPath}, options.depth, queue);
  // Breadth-first: shallow levels are complete before deep ones when a
  // limit is reached.
  while (!queue.empty()) {
    Pending next = std::move(queue.front());
    queue.pop_front();
    FolderMenuEntry& folder = *next.folder;
    const std::string& realPath = folder.realPath;
    const bool loops =
        realPath.empty() || std::find(next.chain.begin(), next.chain.end(), realPath) != next.chain.end();
    if (loops || used >= limits.total || clock.monotonicNow() - start >= limits.listing) {
      folder.kind = Kind::folderItem;
      continue;
    }
    auto listing = files.listFolder(folder.path);
    if (!listing) {
      beginLevel(folder.submenu, folder.path, folder.name);
      folder.submenu.push_back(entry(Kind::note, "Can't read this folder", "", ""));
      continue;
    }
    used += fillLevel(folder.submenu, *listing, folder.path, folder.name, options, names,
                      std::min(limits.perLevel, limits.total - used));
    next.chain.push_back(realPath);
    queueSubfolders(folder.submenu, next.level, next.chain, options.depth, queue);
  }
  return menu;
}

std::vector<MenuItem> folderMenuItems(const std::vector<FolderMenuEntry>& entries) {
  std::vector<MenuItem> items;
  items.reserve(entries.size());
  for (const FolderMenuEntry& e : entries) {
    MenuItem item;
    item.title = e.title;
    item.separator = e.kind == Kind::separator;
    item.enabled = e.kind != Kind::note;
    item.payload = e.path;
    if (e.kind != Kind::note && e.kind != Kind::separator) item.iconFilePath = e.path;
    if (e.kind == Kind::folder) item.submenu = folderMenuItems(e.submenu);
    items.push_back(std::move(item));
  }
  return items;
}

const FolderMenuEntry* folderMenuEntryAt(const std::vector<FolderMenuEntry>& entries, const MenuItemPath& path) {
  const std::vector<FolderMenuEntry>* level = &entries;
  const FolderMenuEntry* at = nullptr;
  for (std::size_t index : path) {
    if (index >= level->size()) return nullptr;
    at = &(*level)[index];
    level = &at->submenu;
  }
  return at;
}

}  // namespace orla
