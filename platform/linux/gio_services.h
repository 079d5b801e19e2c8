// The documents side of the Linux desktop through GIO: the desktop's MIME
// associations and desktop entries for opening, the freedesktop Trash, the
// freedesktop recently-used list, and the file manager over D-Bus.
#pragma once

#include <memory>

#include "platform/file_manager.h"
#include "platform/file_workspace.h"

namespace orla::linux_desktop {

std::unique_ptr<FileWorkspace> makeGioFileWorkspace();
std::unique_ptr<FileManager> makeGioFileManager();

// Opens an address with the desktop's default handler for its scheme.
Checked<void> openURIWithDefaultHandler(std::string_view uri);

}  // namespace orla::linux_desktop
