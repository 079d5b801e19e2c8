// Accessibility: the desktop's accessibility interface.
// Thread safety: every method may be called from any thread.
#pragma once

namespace orla {

class Accessibility {
 public:
  virtual ~Accessibility() = default;
  // Whether this process may use the accessibility interface. Never prompts.
  virtual bool isProcessTrusted() const = 0;
};

}  // namespace orla
