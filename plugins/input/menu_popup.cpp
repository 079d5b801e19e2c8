#include "plugins/input/menu_popup.h"


namespace orla {

namespace {

// One entry of the mirror beside its menu item: the element it stands for.
struct MirrorEntry {
  std::shared_ptr<AXBox> box;  // none for a separator
  bool holdsSubmenu = false;
  std::vector<MirrorEntry> children;
};

void fill(const AXReader& reader, const AXElement& element, int depth, std::vector<MenuItem>& items,
          std::vector<MirrorEntry>& entries) {
  if (depth < 1) return;
  for (const AXElement& child : reader.children(element)) {
    MenuItem item;
    MirrorEntry entry;
    const std::string role = reader.role(child);
    if (role == "AXSeparator" || role == "AXSplitter") {
      item.separator = true;
    } else {
      item.title = reader.title(child);
      item.enabled = reader.isEnabled(child);
      item.on = reader.isMarked(child);
      entry.box = std::make_shared<AXBox>(child);
      if (auto submenu = reader.submenu(child)) {
        entry.holdsSubmenu = true;
        fill(reader, *submenu, depth - 1, item.submenu, entry.children);
      }
    }
    items.push_back(std::move(item));
    entries.push_back(std::move(entry));
  }
}

}  // namespace

void MenuPopupTarget::choose(const AXBox& box, const std::string& title) {
  if (reader_.perform(box.element(), "AXPress") || reader_.perform(box.element(), "AXPick")) return;
  menuResult_ = PluginResult::failure(appName_ + " did not accept the click on “" + title + "”.");
}

PluginResult popUpMenuMirror(Platform& platform, const AXReader& reader, const AXElement& element, int depth,
                             MenuMirror kind, const std::string& appName) {
  return onMainThread(platform.mainThread(), [&]() -> PluginResult {
    std::vector<MenuItem> items;
    std::vector<MirrorEntry> entries;
    fill(reader, element, depth, items, entries);
    if (items.empty())
      return PluginResult::failure(kind == MenuMirror::submenu
                                       ? "That menu in " + appName + " has no items to show."
                                       : "The menu bar of " + appName + " has no items to show.");
    auto chosen = platform.popupMenus().popUpNestedAtMouse(items);
    if (!chosen) return PluginResult::failure(chosen.error());
    MenuPopupTarget target(reader, appName);
    if (*chosen && !(*chosen)->empty()) {
      const std::vector<MenuItem>* level = &items;
      const std::vector<MirrorEntry>* entryLevel = &entries;
      const MenuItem* item = nullptr;
      const MirrorEntry* entry = nullptr;
      for (std::size_t index : **chosen) {
        if (index >= level->size()) break;
        item = &(*level)[index];
        entry = &(*entryLevel)[index];
        level = &item->submenu;
        entryLevel = &entry->children;
      }
      // Entries that open a submenu are not actions.
      if (entry && entry->box && !entry->holdsSubmenu) target.choose(*entry->box, item->title);
    }
    return target.menuResult();
  });
}

}  // namespace orla
