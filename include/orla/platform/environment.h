// Environment: the process environment and the users' home folders.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <optional>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

class Environment {
 public:
  virtual ~Environment() = default;
  virtual std::optional<std::string> variable(std::string_view name) const = 0;
  // The home folder of `user`; the empty name means the current user.
  virtual std::optional<std::string> homeDirectory(std::string_view user = {}) const = 0;

  // A leading "~" or "~user" of `path` expanded to that home folder.
  std::string expandTilde(std::string_view path) const;
};

}  // namespace orla
