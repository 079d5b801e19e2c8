#include "platform/posix/install_locations.h"

#include <dlfcn.h>

#include <initializer_list>
#include <system_error>

// Set by the build from the install layout; these defaults are for a build
// that does not set them (a plain prefix).
#ifndef ORLA_MODULES_FROM_BIN
#define ORLA_MODULES_FROM_BIN "../lib/orla"
#endif
#ifndef ORLA_MODULES_FROM_LIB
#define ORLA_MODULES_FROM_LIB "orla"
#endif
#ifndef ORLA_BIN_FROM_LIB
#define ORLA_BIN_FROM_LIB "../bin"
#endif
#ifndef ORLA_INSTALLED_MODULEDIR
#define ORLA_INSTALLED_MODULEDIR "/usr/local/lib/orla"
#endif
#ifndef ORLA_INSTALLED_BINDIR
#define ORLA_INSTALLED_BINDIR "/usr/local/bin"
#endif

namespace orla {
namespace {

void anchor() {}

std::optional<std::filesystem::path> firstExisting(std::initializer_list<std::filesystem::path> candidates) {
  std::error_code error;
  for (const auto& candidate : candidates)
    if (!candidate.empty() && candidate.is_absolute() && std::filesystem::is_regular_file(candidate, error))
      return candidate.lexically_normal();
  return std::nullopt;
}

}  // namespace

std::filesystem::path programDirectory() {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path{} : self.parent_path();
}

std::filesystem::path libraryDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&anchor), &info) == 0 || !info.dli_fname) return {};
  std::error_code error;
  const auto path = std::filesystem::canonical(info.dli_fname, error);
  return error ? std::filesystem::path{} : path.parent_path();
}

std::optional<std::filesystem::path> findInstalledModule(std::string_view fileName,
                                                         const std::filesystem::path& buildPath) {
  const auto program = programDirectory();
  const auto library = libraryDirectory();
  return firstExisting({
      program.empty() ? program : program / ORLA_MODULES_FROM_BIN / fileName,
      library.empty() ? library : library / ORLA_MODULES_FROM_LIB / fileName,
      buildPath,
      std::filesystem::path(ORLA_INSTALLED_MODULEDIR) / fileName,
  });
}

std::optional<std::filesystem::path> findInstalledProgram(std::string_view fileName) {
  const auto program = programDirectory();
  const auto library = libraryDirectory();
  return firstExisting({
      program.empty() ? program : program / fileName,
      library.empty() ? library : library / ORLA_BIN_FROM_LIB / fileName,
      std::filesystem::path(ORLA_INSTALLED_BINDIR) / fileName,
  });
}

}  // namespace orla
