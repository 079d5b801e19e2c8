// PopupMenus: a context menu popped up at the mouse, answering the item the
// user chose.
// Thread safety: may be called from any thread; the menu runs on the main
// thread and the call blocks until it closes.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "models/checked.h"

namespace orla {

struct MenuItem {
  std::string title;
  // The application bundle whose icon the item shows (a copy of the icon,
  // scaled to menu size); empty for none.
  std::string iconApplicationPath;
  bool on = false;  // the check mark
  bool enabled = true;
  // What the chooser acts on, for example a bundle identifier.
  std::string payload;
  // Or the file or folder whose icon the item shows (the workspace's icon
  // for that item, scaled to menu size); empty for none.
  std::string iconFilePath;
};

class PopupMenus {
 public:
  virtual ~PopupMenus() = default;
  // Pops the menu up at the mouse and answers the index of the chosen item,
  // or none when the menu was dismissed. Fails when the desktop cannot show
  // menus.
  virtual Checked<std::optional<std::size_t>> popUpAtMouse(std::span<const MenuItem> items) = 0;
};

}  // namespace orla
