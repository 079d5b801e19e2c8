// Modules: the backends of services whose libraries are large (libcurl,
// libcups), built as shared modules of their own and loaded the first time
// the service is used, so that a run that never sends a web request or
// lists printers does not load those libraries and theirs at its start.
//
// A module is looked for, in order:
//  1. in ORLA_MODULE_DIR, when set (a packager's or a test's override);
//  2. where every installed file is looked for (install_locations.h): the
//     installed <libdir>/orla relative to the program, then relative to the
//     shared library (a host that embeds it), then where this build put it
//     (<build>/modules), then the configured install folder.
// Thread safety: may be called from any thread.
#pragma once

#include <string>

#include <orla/models/checked.h>

namespace orla::posix {

// The module `file` ("orla_curl.so"), loaded once and kept for the life of
// the process; the failure sentence says which module is missing and what
// it is needed for (`purpose`: "web requests").
Checked<void*> loadServiceModule(const std::string& file, const std::string& purpose);

// The function `name` of a loaded module; nullptr when it has none.
void* moduleSymbol(void* module, const char* name);

}  // namespace orla::posix
