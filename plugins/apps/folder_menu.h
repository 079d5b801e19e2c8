// The menu of a folder's items that the folder-menu plugin pops up: files
// and packages as entries, subfolders as submenus, built breadth-first within
// bounds on its size and on the time spent listing, so that a huge folder or
// a folder that links back to itself still gives a usable menu at once.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <orla/models/checked.h>
#include <orla/platform/clock.h>
#include <orla/platform/files.h>
#include <orla/platform/popup_menus.h>

namespace orla {

struct FolderMenuEntry {
  enum class Kind {
    openFolder,  // first of each level: opens the folder the level shows
    separator,
    item,        // a file or package: opens with its default application
    folder,      // a subfolder shown as a submenu
    folderItem,  // a subfolder shown as an entry that opens it
    more,        // the items left out of a level: opens the folder
    note,        // disabled text
  };
  Kind kind = Kind::item;
  std::string title;
  std::string path;  // the item or folder it opens, or whose icon it shows
  std::string name;  // what the sentences call it: the display name
  bool package = false;
  // A subfolder with every link resolved: a submenu that would show a folder
  // above it again (a link back up) stays an entry.
  std::string realPath;
  std::vector<FolderMenuEntry> submenu;
};

struct FolderMenuOptions {
  int order = 0;  // 0 by name, 1 by date modified, newest first
  bool foldersFirst = false;
  bool showHidden = false;
  int depth = 3;       // menu levels, the top one included
  std::string locale;  // for comparing names
};

struct FolderMenuLimits {
  std::size_t perLevel = 200;
  std::size_t total = 2000;
  std::chrono::milliseconds listing{2000};
};

// Builds the menu of the folder at `path`. Fails with the listing's sentence
// when the folder itself cannot be read; an unreadable subfolder becomes a
// note in its submenu.
Checked<std::vector<FolderMenuEntry>> buildFolderMenu(const Files& files, const Clock& clock, const std::string& path,
                                                      const FolderMenuOptions& options,
                                                      const FolderMenuLimits& limits = {});

// The pop-up menu that shows `entries`, item for item, separators included,
// so that a chosen path indexes both.
std::vector<MenuItem> folderMenuItems(const std::vector<FolderMenuEntry>& entries);

// The entry at `path`; null when the path leads nowhere.
const FolderMenuEntry* folderMenuEntryAt(const std::vector<FolderMenuEntry>& entries, const MenuItemPath& path);

}  // namespace orla
