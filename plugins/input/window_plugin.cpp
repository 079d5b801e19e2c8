#include "plugins/input/window_plugin.h"

#include <algorithm>
#include <cmath>

#include "plugins/input/window_commands.h"

namespace orla {

WindowPlugin::WindowPlugin() : WindowPlugin(Platform::current()) {}
WindowPlugin::WindowPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t WindowPlugin::resolvedActionType(const ActionData& data) {
  if (auto sub = readRawString(data, "subAction"))
    for (const CommandName& entry : commandNames)
      if (entry.name == *sub) return entry.number;
  const auto number = readInt(data, {"actionType", "Action"});
  if (!number && tilePosition(data)) return tile;
  return number.value_or(zoom);
}

std::string WindowPlugin::successText(std::int64_t command) {
  static constexpr std::array<std::string_view, commandCount> kTexts{
      "Zoomed the front window",       "Zoomed every window",
      "Minimized the front window",    "Minimized every window",
      "Showed every window",           "Toggled the toolbar",
      "Closed the front window",       "Closed every window",
      "Moved the front window",        "Moved the front window",
      "Resized the front window",      "Resized the front window",
      "Resized the front window",      "Switched to the next window",
      "Switched to the previous window", "Scrolled down",
      "Scrolled up",                   "Scrolled to the bottom",
      "Scrolled to the top",           "Scrolled right",
      "Scrolled left",                 "Scrolled to the right end",
      "Scrolled to the left end",      "Centered the front window",
      "Resized the front window to the screen", "Tiled the front window",
  };
  if (command < 0 || command >= commandCount) return "Did the window command";
  return std::string(kTexts[static_cast<std::size_t>(command)]);
}

double WindowPlugin::number(const ActionData& data, Keys keys) {
  for (std::string_view key : keys) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (auto whole = value->intValue()) return static_cast<double>(*whole);
    if (const double* d = value->asDouble(); d && std::isfinite(*d)) return *d;
    if (const bool* b = value->asBool()) return *b ? 1 : 0;
  }
  return 0;
}

std::optional<WindowTilePosition> WindowPlugin::tilePosition(const ActionData& data) {
  const auto text = readString(data, {"tile", "position"});
  if (!text) return std::nullopt;
  return WindowTilePosition::parse(*text);
}

std::optional<std::string> WindowPlugin::validate(const ActionData& data) const {
  const std::int64_t command = resolvedActionType(data);
  if (command < 0 || command >= commandCount) return unknownCommandMessage("window action");
  if (command == tile && !tilePosition(data)) return "Choose a tile position, for example left or right.";
  return std::nullopt;
}

PluginResult WindowPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  if (auto allowed = requireAccessibility(
          *platform_,
          "Accessibility permission is required for window actions. Enable Orla in System Settings → Privacy & "
          "Security → Accessibility.");
      !allowed)
    return PluginResult::failure(allowed.error());
  const auto front = onMainThread(platform_->mainThread(), [&] { return platform_->workspace().frontmostApplication(); });
  AXReader reader(platform_->accessibility());
  const auto window = front ? reader.window(front->processIdentifier, "AXFocusedWindow") : std::nullopt;
  if (!window)
    return PluginResult::failure("No front window to act on. Click a window in another app, then click Test again.");

  const std::int64_t command = resolvedActionType(data);
  WindowCommands commands(*platform_, reader, front->processIdentifier, *window);
  if (auto done = commands.run(command, data); !done) return PluginResult::failure(done.error());
  std::string text = successText(command);
  text += " in ";
  text += front->localizedName.empty() ? "the front app" : front->localizedName;
  text += ".";
  return PluginResult::success(std::move(text));
}

}  // namespace orla
