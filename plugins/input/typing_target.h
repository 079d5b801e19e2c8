// ensureTypingTarget: makes sure the keys or text about to be posted reach
// the application the user works in, not the host. When the user pressed
// Test in the host's editor the host is in front; the application used
// before it is brought back first.
#pragma once

#include <orla/platform/platform.h>

namespace orla {

// True when an application other than the host is in front, or (the host
// or nothing being in front) the one used before could be
// brought there within about a second.
bool ensureTypingTarget(Platform& platform);

}  // namespace orla
