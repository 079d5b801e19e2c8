// GlobalHotkeys: key combinations taken for the whole desktop, whichever
// window has the focus, reported to the host when pressed. The host waits
// on `descriptor()` in its own loop (poll or select), so an idle host wakes
// for nothing but a press.
//
// On X11 a combination is a passive grab on the root window; on macOS it
// would be a registered hot key.
//
// Thread safety: `waitForModifiersReleased` may run on any thread; the
// other methods belong to the thread that runs the host's loop.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include <orla/models/checked.h>
#include <orla/models/hotkey.h>

namespace orla ORLA_EXPORT {

class GlobalHotkeys {
 public:
  using Id = int;

  enum class GrabProblem {
    noSuchKey,             // the keyboard map has no key for it
    heldByAnotherProgram,  // another program took the combination first
  };

  struct Press {
    Id id;
    std::chrono::steady_clock::time_point when;  // when the host read it
  };

  virtual ~GlobalHotkeys() = default;

  // Takes `hotkey` for the desktop; its presses come back as `id`.
  virtual std::optional<GrabProblem> grab(Id id, const Hotkey& hotkey) = 0;
  // Gives the combination of `id` back; nothing when it holds none.
  virtual void release(Id id) = 0;

  // Readable when presses may be waiting.
  virtual int descriptor() const = 0;
  // The presses that arrived since the last call, in order; never blocks.
  virtual std::vector<Press> takePresses() = 0;

  // Returns once no modifier key and no key of a held combination is down,
  // or when `limit` has passed; answers whether they were all let go of.
  virtual bool waitForModifiersReleased(std::chrono::milliseconds limit) = 0;
};

// The desktop's own global hotkeys; fails with a sentence when there is no
// desktop to take them from.
Checked<std::unique_ptr<GlobalHotkeys>> openNativeGlobalHotkeys();

}  // namespace orla
