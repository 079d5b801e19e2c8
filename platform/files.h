// Files: the file system as the plugins see it.
// Thread safety: every method may be called from any thread.
#pragma once

#include <string_view>

namespace orla {

class Files {
 public:
  virtual ~Files() = default;
  // Whether a file, folder or other item exists at `path` (symbolic links
  // followed; a dangling link does not count).
  virtual bool itemExists(std::string_view path) const = 0;
};

}  // namespace orla
