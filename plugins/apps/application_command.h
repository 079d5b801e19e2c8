// The commands of the application plugin, numbered as saved actions store
// them, with the properties the editor and the plugin ask of each.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace orla {

enum class ApplicationCommand {
  launch = 1,
  runningMenu,
  recentMenu,
  switchNext,
  switchPrevious,
  switchTo,
  showFront,
  showBackground,
  showAll,
  showOne,
  hideFront,
  hideBackground,
  hideOne,
  quitFront,
  quitBackground,
  quitOne,
  relaunchFront,
  relaunchBackground,
  relaunchOne,
  saveFront,
  switchToSaved,
  switchToPreviousFront,
};

inline constexpr std::array<std::string_view, 22> kApplicationCommandTitles{
    "Launch Application",
    "Menu of Running Applications",
    "Menu of Recent Applications",
    "Switch to Next Application",
    "Switch to Previous Application",
    "Switch to Application\u2026",
    "Show Front Application",
    "Show Background Applications",
    "Show All Applications",
    "Show Application\u2026",
    "Hide Front Application",
    "Hide Background Applications",
    "Hide Application\u2026",
    "Quit Front Application",
    "Quit Background Applications",
    "Quit Application\u2026",
    "Relaunch Front Application",
    "Relaunch Background Applications",
    "Relaunch Application\u2026",
    "Save Front Application",
    "Switch to Saved Application",
    "Switch to Previous Front",
};

// 1 to 22 give a command; 0, negatives and 23 or more give none.
constexpr std::optional<ApplicationCommand> applicationCommand(std::int64_t raw) {
  if (raw < 1 || raw > static_cast<std::int64_t>(kApplicationCommandTitles.size()))
    return std::nullopt;
  return static_cast<ApplicationCommand>(raw);
}

constexpr std::int64_t rawValue(ApplicationCommand command) {
  return static_cast<std::int64_t>(command);
}

// The menu title of the command.
constexpr std::string_view title(ApplicationCommand command) {
  return kApplicationCommandTitles[static_cast<std::size_t>(rawValue(command) - 1)];
}

// Only launching needs a path: a name alone may match a different copy.
constexpr bool needsAppPath(ApplicationCommand command) {
  return command == ApplicationCommand::launch;
}

constexpr bool needsAppName(ApplicationCommand command) {
  using enum ApplicationCommand;
  return command == switchTo || command == showOne || command == hideOne || command == quitOne ||
         command == relaunchOne;
}

constexpr bool targetsFrontApp(ApplicationCommand command) {
  using enum ApplicationCommand;
  return command == showFront || command == hideFront || command == quitFront ||
         command == relaunchFront || command == saveFront;
}

}  // namespace orla
