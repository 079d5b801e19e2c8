// `orla daemon [FOLDER]` and `orla daemon --check [FOLDER]`.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <orla/platform/platform.h>

namespace orla::cli {

// $XDG_CONFIG_HOME/orla/shortcuts, or ~/.config/orla/shortcuts.
std::filesystem::path defaultShortcutFolder();

// Exit status: 0 when the daemon quit as asked (or --check found nothing
// wrong), 1 when --check found problems or the folder cannot be used, 2
// when there is no desktop to take hotkeys from.
int runDaemon(std::shared_ptr<Platform> platform, const std::filesystem::path& folder);
int checkShortcutFolder(std::shared_ptr<Platform> platform, const std::filesystem::path& folder);

}  // namespace orla::cli
