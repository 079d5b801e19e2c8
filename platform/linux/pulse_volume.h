// The output volume on Linux: the default sink of the sound server, through
// libpulse (which PipeWire's pipewire-pulse answers too), loaded on first use.
#pragma once

#include <chrono>
#include <memory>

#include <orla/platform/volume.h>

namespace orla::linux_desktop {

// Each call connects, asks and disconnects, all within `deadline`.
std::unique_ptr<OutputVolumeControl> makePulseVolumeControl(
    std::chrono::milliseconds deadline = std::chrono::milliseconds(3000));

}  // namespace orla::linux_desktop
