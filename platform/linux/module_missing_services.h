// Stand-ins for the desktop services of orla_desktop.so when that module
// cannot be loaded (a broken install): each answers with the sentence that
// says which module is missing, instead of failing in some other way.
#pragma once

#include <memory>
#include <string>

#include <orla/platform/file_manager.h>
#include <orla/platform/file_workspace.h>
#include <orla/platform/files.h>
#include <orla/platform/workspace.h>

namespace orla::linux_desktop {

std::unique_ptr<Workspace> makeModuleMissingWorkspace(std::string problem);
std::unique_ptr<Files> makeModuleMissingFiles(std::string problem);
std::unique_ptr<FileWorkspace> makeModuleMissingFileWorkspace(std::string problem);
std::unique_ptr<FileManager> makeModuleMissingFileManager(std::string problem);

}  // namespace orla::linux_desktop
