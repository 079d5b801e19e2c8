// Desktop libraries loaded on first use. Linking them would load them, and
// their own dependencies, into every start of the host, also for actions
// that never play a sound or read a secret. A library stays loaded for the
// life of the process once found (most register GObject types and cannot be
// unloaded).
#pragma once

#include <dlfcn.h>

namespace orla::linux_desktop {

inline void* openSharedLibrary(const char* soname) { return dlopen(soname, RTLD_NOW | RTLD_LOCAL); }

// Points `slot` at the library's function `name`; false when it has none.
template <class F>
bool bindSymbol(void* library, F& slot, const char* name) {
  slot = reinterpret_cast<F>(dlsym(library, name));
  return slot != nullptr;
}

}  // namespace orla::linux_desktop
