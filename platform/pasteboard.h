// Pasteboard: the general clipboard.
// Thread safety: every method may be called from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "models/checked.h"

namespace orla {

class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  // The plain text on the clipboard; none when it holds no text.
  virtual std::optional<std::string> text() const = 0;
  // Clears the clipboard and puts `text` on it as plain text.
  virtual Checked<void> setText(std::string_view text) = 0;
  // Moves on every change of the clipboard's content, by anyone.
  virtual std::int64_t changeCount() const = 0;
};

}  // namespace orla
