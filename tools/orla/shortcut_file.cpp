#include "tools/orla/shortcut_file.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include <orla/models/input_limits.h>
#include <orla/models/json_codable.h>
#include <orla/models/text.h>
#include <orla/plugins/framework/plugin_registry.h>

namespace orla::cli {

namespace {

bool isKnownKind(std::string_view kind) {
  auto table = PluginRegistry::table();
  return std::any_of(table.begin(), table.end(),
                     [&](const PluginInfo& info) { return info.pluginClass == kind; });
}

}  // namespace

Checked<Shortcut> parseShortcut(std::string_view text, std::string fallbackName) {
  if (auto deep = jsonNestingProblem(text, "The shortcut")) return fail(std::move(*deep));
  auto parsed = parseJsonText(text);
  if (!parsed) return fail("not valid JSON " + parsed.error());
  const nlohmann::json& json = *parsed;
  if (!json.is_object() || !json.contains("actions") || !json["actions"].is_array())
    return fail(R"(a shortcut must be an object with an "actions" list)");
  Shortcut shortcut;
  shortcut.name = json.contains("name") && json["name"].is_string() ? json["name"].get<std::string>()
                                                                    : std::move(fallbackName);
  if (json.contains("hotkey")) {
    if (!json["hotkey"].is_string()) return fail(R"("hotkey" must be a text such as "ctrl+alt+u")");
    shortcut.hotkey = json["hotkey"].get<std::string>();
  }
  if (json.contains("enabled")) {
    if (!json["enabled"].is_boolean()) return fail(R"("enabled" must be true or false)");
    shortcut.enabled = json["enabled"].get<bool>();
  }
  size_t index = 0;
  for (const auto& item : json["actions"]) {
    ++index;
    const std::string where = "action " + std::to_string(index);
    if (!item.is_object() || !item.contains("kind") || !item["kind"].is_string())
      return fail(where + R"( needs a "kind" text)");
    Action action;
    action.kind = item["kind"].get<std::string>();
    if (!isKnownKind(action.kind)) return fail(where + ": unknown kind " + orla::quoted(action.kind));
    if (item.contains("data")) {
      if (!item["data"].is_object()) return fail(where + R"(: "data" must be an object)");
      auto value = anyFromJson(item["data"]);
      if (!value) return fail(where + ": " + value.error());
      if (!value->asDictionary()) return fail(where + R"(: "data" must be an object)");
      action.data = *value->asDictionary();
    }
    shortcut.actions.push_back(std::move(action));
  }
  return shortcut;
}

Checked<Shortcut> loadShortcut(const std::filesystem::path& path) {
  auto text = readTextFile(path);
  if (!text) return fail(text.error());
  auto shortcut = parseShortcut(*text, path.stem().string());
  if (!shortcut) return fail(path.string() + ": " + shortcut.error());
  Shortcut loaded = std::move(shortcut).value();
  loaded.file = path;
  return loaded;
}

Checked<std::vector<Shortcut>> loadLibrary(const std::filesystem::path& folder) {
  std::error_code ec;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec))
    if (entry.is_regular_file() && entry.path().extension() == ".json") files.push_back(entry.path());
  if (ec) return fail("cannot read the folder " + folder.string());
  std::sort(files.begin(), files.end());
  std::vector<Shortcut> library;
  for (const auto& file : files) {
    auto shortcut = loadShortcut(file);
    if (!shortcut) return fail(shortcut.error());
    for (const Shortcut& other : library)
      if (other.name == shortcut->name)
        return fail(file.string() + ": another shortcut of the folder is also named " +
                    orla::quoted(other.name));
    library.push_back(std::move(shortcut).value());
  }
  return library;
}

}  // namespace orla::cli
