// The file system as the Linux desktop shows it: folders listed through GIO,
// with the file manager's display names and its idea of hidden items (a
// leading "." and the folder's ".hidden" file).
#pragma once

#include <memory>

#include <orla/platform/files.h>

namespace orla::linux_desktop {

std::unique_ptr<Files> makeGioFiles();

}  // namespace orla::linux_desktop
