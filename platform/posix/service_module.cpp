#include "platform/posix/service_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>

#include "platform/posix/install_locations.h"

namespace orla::posix {

namespace {

// ORLA_MODULE_DIR first (a test or a relocated install points there), then
// the places every installed file is looked for: beside the program, beside
// the shared library, the build tree, the configured install folder.
std::optional<std::filesystem::path> findModule(const std::string& file) {
  if (const char* dir = std::getenv("ORLA_MODULE_DIR"); dir && *dir) {
    std::error_code ec;
    if (const auto path = std::filesystem::path(dir) / file; std::filesystem::is_regular_file(path, ec)) return path;
  }
  return findInstalledModule(file, std::filesystem::path(ORLA_MODULE_BUILD_DIR) / file);
}

}  // namespace

Checked<void*> loadServiceModule(const std::string& file, const std::string& purpose) {
  static std::mutex mutex;
  static std::map<std::string, void*> loaded;
  std::lock_guard lock(mutex);
  if (auto it = loaded.find(file); it != loaded.end()) return it->second;
  const auto path = findModule(file);
  if (!path)
    return fail("Orla's module " + file + ", which " + purpose + " need, is missing; reinstall Orla.");
  // Loaded with its own symbols kept to itself: the module carries its own
  // copy of the helpers it uses.
  void* module = ::dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module)
    return fail("Orla's module " + file + ", which " + purpose + " need, could not be loaded: " + ::dlerror() + ".");
  loaded.emplace(file, module);
  return module;
}

void* moduleSymbol(void* module, const char* name) { return ::dlsym(module, name); }

}  // namespace orla::posix
