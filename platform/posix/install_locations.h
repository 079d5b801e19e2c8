// Where the files installed with the library are found at run time: the
// JavaScript worker program and the modules loaded on first use. They are
// looked for relative to the program and to the shared library this code was
// loaded from (so an installed tree moved as a whole, a package or a staging
// folder, still finds them), then in the build tree, then at the absolute
// install paths the build was configured with.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace orla {

// The first of the usual places that holds the module `fileName` (such as
// "orla_gtk.so"); `buildPath` is where the build put it.
std::optional<std::filesystem::path> findInstalledModule(std::string_view fileName,
                                                         const std::filesystem::path& buildPath);

// The first of the usual places that holds the program `fileName`: beside
// the running program, then in the installed bindir.
std::optional<std::filesystem::path> findInstalledProgram(std::string_view fileName);

// The folders of the running program and of the shared library holding this
// code (the same folder when the library is linked in statically).
std::filesystem::path programDirectory();
std::filesystem::path libraryDirectory();

}  // namespace orla
