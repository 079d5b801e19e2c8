// FolderWatch: tells a host that the files of a folder changed (one added,
// written, renamed, removed), so it can read them again without a restart.
// The host waits on `descriptor()` in its own loop.
//
// Thread safety: one thread uses a watch.
#pragma once

#include <orla/export.h>

#include <filesystem>
#include <memory>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

class FolderWatch {
 public:
  virtual ~FolderWatch() = default;
  // Readable when changes may be waiting.
  virtual int descriptor() const = 0;
  // Reads what arrived; answers whether any file of the folder changed.
  // Never blocks.
  virtual bool takeChanges() = 0;
};

Checked<std::unique_ptr<FolderWatch>> watchFolder(const std::filesystem::path& folder);

}  // namespace orla
