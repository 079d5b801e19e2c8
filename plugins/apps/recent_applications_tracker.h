// RecentApplicationsTracker: the applications the user brought to the front
// lately, most recent first, for the menu of recent applications. One
// instance per process, in memory only; it starts following activations
// the first time an application plugin is made.
// Thread safety: every method may be called from any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/platform/platform.h>

namespace orla {

class RecentApplicationsTracker : public std::enable_shared_from_this<RecentApplicationsTracker> {
 public:
  static constexpr std::size_t maxItems = 15;

  static std::shared_ptr<RecentApplicationsTracker> shared();

  // Once per process (until `reset`): records the frontmost application,
  // then every application that comes to the front on `platform`.
  void start(std::shared_ptr<Platform> platform);
  // Puts `bundleID` first, once; the host's own identifier and an empty one
  // are ignored.
  void record(std::string_view bundleID);
  std::vector<std::string> bundleIDs() const;
  bool started() const;
  // Forgets the list and stops following activations, for tests.
  void reset();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> bundleIDs_;
  bool started_ = false;
  std::optional<Workspace::ObserverToken> observer_;
  std::shared_ptr<Platform> platform_;  // the one observed
};

}  // namespace orla
