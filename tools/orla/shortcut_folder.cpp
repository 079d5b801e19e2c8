#include "tools/orla/shortcut_folder.h"

#include <algorithm>
#include <map>
#include <system_error>

#include <orla/models/text.h>

namespace orla::cli {
namespace {

std::vector<std::filesystem::path> shortcutFiles(const std::filesystem::path& folder, std::vector<FolderProblem>& problems) {
  std::vector<std::filesystem::path> files;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    // Editors' temporary and backup files (".name.json.swp", "name.json~")
    // are left alone; hidden files are never shortcuts.
    const std::string name = entry.path().filename().string();
    if (entry.path().extension() == ".json" && !name.starts_with(".") && entry.is_regular_file(ec))
      files.push_back(entry.path());
  }
  if (ec) problems.push_back({folder, "the folder cannot be read (" + ec.message() + ")"});
  std::sort(files.begin(), files.end());
  return files;
}

void checkActions(const Shortcut& shortcut, const PluginRegistry& registry, std::vector<FolderProblem>& problems) {
  std::size_t index = 0;
  for (const Action& action : shortcut.actions) {
    ++index;
    const ActionPlugin* plugin = registry.find(action.kind);
    if (!plugin) continue;  // an unknown kind does not read at all
    if (auto problem = validateAction(*plugin, action.data))
      problems.push_back({shortcut.file, "action " + std::to_string(index) + " (" + action.kind + "): " + *problem});
  }
}

}  // namespace

ShortcutFolder readShortcutFolder(const std::filesystem::path& folder, const std::vector<Shortcut>* previous,
                                  const PluginRegistry* registry) {
  ShortcutFolder result;
  std::map<std::string, std::filesystem::path> names;
  std::map<Hotkey, const std::string*> owners;
  for (const auto& file : shortcutFiles(folder, result.problems)) {
    auto loaded = loadShortcut(file);
    if (!loaded) {
      std::string reason = loaded.error().substr(std::min(loaded.error().size(), file.string().size() + 2));
      const Shortcut* kept = nullptr;
      if (previous)
        for (const Shortcut& old : *previous)
          if (old.file == file) kept = &old;
      if (kept) reason += "; its last good version stays in use";
      result.problems.push_back({file, std::move(reason)});
      if (!kept) continue;
      loaded = *kept;
    }
    Shortcut shortcut = std::move(loaded).value();
    if (auto [it, fresh] = names.emplace(shortcut.name, file); !fresh) {
      result.problems.push_back({file, "the shortcut " + orla::quoted(shortcut.name) + " of " +
                                           it->second.filename().string() + " has this name already"});
      continue;
    }
    if (registry) checkActions(shortcut, *registry, result.problems);
    result.shortcuts.push_back(std::move(shortcut));
  }
  // Hotkeys after the names, so that a pointer into `shortcuts` stays put.
  for (const Shortcut& shortcut : result.shortcuts) {
    if (shortcut.hotkey.empty()) continue;
    auto hotkey = parseHotkey(shortcut.hotkey);
    if (!hotkey) {
      result.problems.push_back({shortcut.file, hotkey.error()});
      continue;
    }
    if (!shortcut.enabled) continue;
    if (auto [it, fresh] = owners.emplace(*hotkey, &shortcut.name); !fresh) {
      result.problems.push_back({shortcut.file, "the hotkey " + hotkeyText(*hotkey) + " is already the hotkey of " +
                                                    orla::quoted(*it->second) + ", which keeps it"});
      continue;
    }
    result.bindings.push_back({*hotkey, shortcut.name});
  }
  return result;
}

}  // namespace orla::cli
