#include "platform/sim/sim_hotkeys.h"

#include <fcntl.h>
#include <unistd.h>

namespace orla::sim {

SimGlobalHotkeys::SimGlobalHotkeys() {
  if (::pipe(pipe_) != 0) pipe_[0] = pipe_[1] = -1;
  ::fcntl(pipe_[0], F_SETFL, O_NONBLOCK);
}

SimGlobalHotkeys::~SimGlobalHotkeys() {
  ::close(pipe_[0]);
  ::close(pipe_[1]);
}

std::optional<GlobalHotkeys::GrabProblem> SimGlobalHotkeys::grab(Id id, const Hotkey& hotkey) {
  std::lock_guard lock(mutex_);
  grabs_.erase(id);
  if (missingKeys_.count(hotkey.keyCode)) return GrabProblem::noSuchKey;
  if (elsewhere_.count(hotkey)) return GrabProblem::heldByAnotherProgram;
  grabs_[id] = hotkey;
  return std::nullopt;
}

void SimGlobalHotkeys::release(Id id) {
  std::lock_guard lock(mutex_);
  grabs_.erase(id);
}

std::vector<GlobalHotkeys::Press> SimGlobalHotkeys::takePresses() {
  std::lock_guard lock(mutex_);
  char drain[64];
  while (::read(pipe_[0], drain, sizeof drain) > 0) {
  }
  return std::exchange(pending_, {});
}

bool SimGlobalHotkeys::waitForModifiersReleased(std::chrono::milliseconds) {
  std::lock_guard lock(mutex_);
  ++releaseWaits_;
  return true;
}

bool SimGlobalHotkeys::press(const Hotkey& hotkey) {
  std::lock_guard lock(mutex_);
  for (const auto& [id, held] : grabs_)
    if (held == hotkey) {
      pending_.push_back({id, std::chrono::steady_clock::now()});
      const char byte = 1;
      (void)!::write(pipe_[1], &byte, 1);
      return true;
    }
  return false;
}

void SimGlobalHotkeys::holdElsewhere(const Hotkey& hotkey) {
  std::lock_guard lock(mutex_);
  elsewhere_.insert(hotkey);
}

void SimGlobalHotkeys::removeKey(std::uint16_t keyCode) {
  std::lock_guard lock(mutex_);
  missingKeys_.insert(keyCode);
}

std::set<Hotkey> SimGlobalHotkeys::held() const {
  std::lock_guard lock(mutex_);
  std::set<Hotkey> out;
  for (const auto& [id, hotkey] : grabs_) out.insert(hotkey);
  return out;
}

int SimGlobalHotkeys::releaseWaits() const {
  std::lock_guard lock(mutex_);
  return releaseWaits_;
}

}  // namespace orla::sim
