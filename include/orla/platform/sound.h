// Sounds: the system's named alert sounds and sound files, played without
// waiting for them to end.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <memory>
#include <string_view>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

// A sound ready to play.
class Sound {
 public:
  virtual ~Sound() = default;
  // Starts playing and returns at once; the sound goes on in the
  // background, also after this object is gone.
  virtual void play() = 0;
};

class Sounds {
 public:
  virtual ~Sounds() = default;
  // The system sound with this name ("Ping", "Glass", ...). Fails with a
  // sentence when the backend cannot play sounds; answers a null pointer
  // when the system has no sound of that name.
  virtual Checked<std::unique_ptr<Sound>> systemSound(std::string_view name) = 0;
  // The sound in the file at `path`, read from the file when it plays.
  // Fails with a sentence when the backend cannot play sounds; answers a
  // null pointer when the file cannot be loaded as a sound.
  virtual Checked<std::unique_ptr<Sound>> soundFile(std::string_view path) = 0;
};

}  // namespace orla
