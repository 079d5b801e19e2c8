// PopupMenus: a context menu popped up at the mouse, answering the item the
// user chose.
// Thread safety: may be called from any thread; the menu runs on the main
// thread and the call blocks until it closes.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct MenuItem {
  std::string title{};
  // The application bundle whose icon the item shows (a copy of the icon,
  // scaled to menu size); empty for none.
  std::string iconApplicationPath{};
  bool on = false;  // the check mark
  bool enabled = true;
  // What the chooser acts on, for example a bundle identifier.
  std::string payload{};
  // A separator line instead of an item; its other fields are not shown.
  bool separator = false;
  // The items of its submenu (shown by `popUpNestedAtMouse` only); an item
  // with a submenu opens it rather than being chosen.
  std::vector<MenuItem> submenu{};
  // Or the file or folder whose icon the item shows (the workspace's icon
  // for that item, scaled to menu size); empty for none.
  std::string iconFilePath;
};

// Where the chosen item sits: its index in the top menu, then in each
// submenu down to it.
using MenuItemPath = std::vector<std::size_t>;

class PopupMenus {
 public:
  virtual ~PopupMenus() = default;
  // Pops the menu up at the mouse and answers the index of the chosen item,
  // or none when the menu was dismissed. Fails when the desktop cannot show
  // menus.
  virtual Checked<std::optional<std::size_t>> popUpAtMouse(std::span<const MenuItem> items) = 0;
  // The same for a menu with submenus and separators, answering the path of
  // the chosen item.
  virtual Checked<std::optional<MenuItemPath>> popUpNestedAtMouse(std::span<const MenuItem> items) = 0;
};

}  // namespace orla
