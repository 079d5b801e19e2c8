#include "platform/posix/service_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

namespace orla::posix {

namespace {

std::filesystem::path programFolder() {
  std::error_code ec;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::path() : self.parent_path();
}

std::vector<std::filesystem::path> moduleFolders() {
  std::vector<std::filesystem::path> folders;
  if (const char* dir = std::getenv("ORLA_MODULE_DIR"); dir && *dir) folders.emplace_back(dir);
  if (const auto bin = programFolder(); !bin.empty())
    folders.push_back(bin.parent_path() / ORLA_MODULE_INSTALL_SUBDIR);
  folders.emplace_back(ORLA_MODULE_BUILD_DIR);
  return folders;
}

}  // namespace

Checked<void*> loadServiceModule(const std::string& file, const std::string& purpose) {
  static std::mutex mutex;
  static std::map<std::string, void*> loaded;
  std::lock_guard lock(mutex);
  if (auto it = loaded.find(file); it != loaded.end()) return it->second;
  std::string looked;
  for (const auto& folder : moduleFolders()) {
    const auto path = folder / file;
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) {
      looked += looked.empty() ? "" : ", ";
      looked += folder.string();
      continue;
    }
    // Loaded with its own symbols kept to itself: the module carries its
    // own copy of the helpers it uses.
    if (void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
      loaded.emplace(file, module);
      return module;
    }
    return fail("Orla's module " + file + ", which " + purpose + " need, could not be loaded: " + ::dlerror() +
                ".");
  }
  return fail("Orla's module " + file + ", which " + purpose + " need, is missing (looked in " + looked +
              "); reinstall Orla.");
}

void* moduleSymbol(void* module, const char* name) { return ::dlsym(module, name); }

}  // namespace orla::posix
