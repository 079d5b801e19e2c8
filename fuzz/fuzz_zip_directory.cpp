// The archive guard's reading of a zip's central directory and its checks:
// any bytes, read by the zip library, never crash the guard, and an entry
// it passes, in an archive without links, stays below the folder by plain
// path arithmetic too.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "plugins/apps/zip_archive.h"

using namespace orla;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The input is rewritten for every run: in memory (/dev/shm) where there is
  // one, since on disk each rewrite waits on the device and the search gets a
  // fraction of a processor. The folder goes when the search ends.
  struct Scratch {
    std::filesystem::path folder;
    Scratch() {
      std::error_code error;
      const std::filesystem::path base = std::filesystem::is_directory("/dev/shm", error)
                                             ? std::filesystem::path("/dev/shm")
                                             : std::filesystem::temp_directory_path();
      folder = base / ("orla-fuzz-zip-" + std::to_string(::getpid()));
      std::filesystem::create_directories(folder);
    }
    ~Scratch() {
      std::error_code error;
      std::filesystem::remove_all(folder, error);
    }
  };
  static const Scratch scratch;
  static const std::string path = (scratch.folder / "input.zip").string();
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  auto entries = readArchiveEntries(path);
  if (!entries) return 0;
  (void)firstDuplicateEntry(*entries);
  const std::filesystem::path root = "/target/folder";
  if (firstUnsafeEntry(*entries, root, {})) return 0;
  // With links, ".." steps are taken after the link, as the system takes
  // them, so plain path arithmetic is no judge; without, it is.
  for (const ArchiveEntry& entry : *entries)
    if (entry.linkTarget) return 0;
  for (const ArchiveEntry& entry : *entries) {
    std::string name = entry.name;
    for (char& c : name)
      if (c == '\\') c = '/';
    const std::string placed = (root / name).lexically_normal().string();
    if (!placed.starts_with(root.string() + "/")) {
      std::fprintf(stderr, "passed an entry that lands outside: %s\n", entry.name.c_str());
      std::abort();
    }
  }
  return 0;
}
