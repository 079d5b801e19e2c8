// Simulated global hotkeys: the tests press combinations, hand some to
// "another program" first, and read which ones the host holds.
#pragma once

#include <map>
#include <mutex>
#include <set>

#include <orla/platform/global_hotkeys.h>

namespace orla::sim {

class SimGlobalHotkeys final : public GlobalHotkeys {
 public:
  SimGlobalHotkeys();
  ~SimGlobalHotkeys() override;

  std::optional<GrabProblem> grab(Id id, const Hotkey& hotkey) override;
  void release(Id id) override;
  int descriptor() const override { return pipe_[0]; }
  std::vector<Press> takePresses() override;
  bool waitForModifiersReleased(std::chrono::milliseconds limit) override;

  // Presses `hotkey`; only a held combination reaches the host. Answers
  // whether one did. Any thread.
  bool press(const Hotkey& hotkey);
  // The combinations another program holds, and the keys the keyboard lacks.
  void holdElsewhere(const Hotkey& hotkey);
  void removeKey(std::uint16_t keyCode);
  std::set<Hotkey> held() const;
  int releaseWaits() const;

 private:
  mutable std::mutex mutex_;
  int pipe_[2];
  std::map<Id, Hotkey> grabs_;
  std::set<Hotkey> elsewhere_;
  std::set<std::uint16_t> missingKeys_;
  std::vector<Press> pending_;
  int releaseWaits_ = 0;
};

}  // namespace orla::sim
