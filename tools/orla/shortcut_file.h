// Shortcut files: {"name": "...", "actions": [{"kind": K, "data": {...}}, ...]}.
// A folder of them is a library the control plugin's "run by name" can use.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <orla/models/any_codable.h>
#include <orla/models/checked.h>
#include "tools/orla/input_files.h"

namespace orla::cli {

struct Action {
  std::string kind;
  ActionData data;
};

struct Shortcut {
  std::string name;  // the file's "name", else the file name without ".json"
  std::vector<Action> actions;
  // The daemon's key combination as the file writes it (empty: none), and
  // whether the daemon binds it.
  std::string hotkey;
  bool enabled = true;
  std::filesystem::path file;  // where it was read from, when from a file
};

// Parses one shortcut; every kind must be in the plugin table.
Checked<Shortcut> parseShortcut(std::string_view text, std::string fallbackName);
Checked<Shortcut> loadShortcut(const std::filesystem::path& path);
// Every *.json file of `folder`, in name order.
Checked<std::vector<Shortcut>> loadLibrary(const std::filesystem::path& folder);

}  // namespace orla::cli
