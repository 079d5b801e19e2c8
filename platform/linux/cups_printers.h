// The printers of the Linux print system, through libcups, which is loaded
// the first time they are asked for: it lives in the module orla_cups.so
// (see platform/posix/service_module.h).
#pragma once

#include <memory>

#include <orla/platform/printers.h>

namespace orla::linux_desktop {

std::unique_ptr<Printers> makeCupsPrinters();

}  // namespace orla::linux_desktop
