// What a Linux desktop calls the things the plugins' sentences name in
// macOS's words.
#pragma once

#include <orla/platform/desktop_words.h>

namespace orla::linux_desktop {

DesktopWords linuxWords();

}  // namespace orla::linux_desktop
