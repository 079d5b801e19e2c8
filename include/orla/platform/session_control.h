// The session: asking the system to restart, shut down, sleep or log out,
// starting the screen saver, ejecting removable disks and emptying the
// Trash, each through the service the desktop itself uses for it. Nothing is
// forced: the system's own policy decides, and may ask the user.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <string>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

enum class SessionRequest {
  restart,
  shutDown,
  sleep,
  logOut,
  startScreenSaver,
  ejectRemovableDisks,
  emptyTrash,
  toggleDockHiding,
};

class SessionControl {
 public:
  virtual ~SessionControl() = default;
  // Asks for `what`. Answers the sentence that says what was asked, in
  // this desktop's words, or fails with the sentence that says why the
  // system refused or could not be asked. `wakeAsked` (sleep only): the
  // user asked for a scheduled wake, which no backend sets.
  virtual Checked<std::string> request(SessionRequest what, bool wakeAsked = false) = 0;
};

}  // namespace orla
