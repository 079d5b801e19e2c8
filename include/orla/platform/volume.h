// Output volume: the level and mute state of the system's default output,
// as the user's volume control shows them.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct OutputVolume {
  int percent = 0;  // 0 to 100 (a sound server may go above; it is reported as is)
  bool muted = false;
};

class OutputVolumeControl {
 public:
  virtual ~OutputVolumeControl() = default;
  virtual Checked<OutputVolume> read() = 0;
  // Sets the level, keeping the balance between channels.
  virtual Checked<void> setPercent(int percent) = 0;
  virtual Checked<void> setMuted(bool muted) = 0;
};

}  // namespace orla
