// Printers: the printers set up on this system. Printing itself, and the
// default printer, go through the system's command-line printing tools.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <string>
#include <vector>

namespace orla ORLA_EXPORT {

class Printers {
 public:
  virtual ~Printers() = default;
  // The names of the printers (and printer classes), in the system's order;
  // empty when none is set up or the print system cannot be reached.
  virtual std::vector<std::string> printerNames() const = 0;
};

}  // namespace orla
