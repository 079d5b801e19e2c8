// The daemon's folder of shortcut files: every file that reads, the hotkeys
// of the enabled ones, and one problem per file that is wrong. A bad file
// never stops the others.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <orla/models/hotkey.h>
#include <orla/plugins/framework/plugin_registry.h>
#include "tools/orla/shortcut_file.h"

namespace orla::cli {

struct FolderProblem {
  std::filesystem::path file;
  std::string reason;

  std::string line() const { return file.string() + ": " + reason; }
  bool operator==(const FolderProblem&) const = default;
};

struct Binding {
  Hotkey hotkey;
  std::string shortcut;  // its name
};

struct ShortcutFolder {
  std::vector<Shortcut> shortcuts;  // in file-name order; run by name too
  std::vector<Binding> bindings;    // of the enabled shortcuts; one per hotkey
  std::vector<FolderProblem> problems;
};

// Reads every *.json file of `folder`. A file that no longer reads keeps
// the version in `previous` (the last good read), so that a file caught half
// written, or saved with a typo, does not take a working hotkey away. With
// `registry`, every action's parameters are checked as well.
ShortcutFolder readShortcutFolder(const std::filesystem::path& folder, const std::vector<Shortcut>* previous = nullptr,
                                  const PluginRegistry* registry = nullptr);

}  // namespace orla::cli
