// The printers of the Linux print system, through libcups.
#pragma once

#include <memory>

#include "platform/printers.h"

namespace orla::linux_desktop {

std::unique_ptr<Printers> makeCupsPrinters();

}  // namespace orla::linux_desktop
