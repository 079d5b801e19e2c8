// ApplicationControl: the mechanics the application commands share: which
// applications run, launching and waiting for them, switching, hiding in
// turn by each way the system offers, quitting and waiting for the end.
// Every wait is a poll of the platform's clock, every 0.2 seconds.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/platform/platform.h>

namespace orla {

class ApplicationControl {
 public:
  static constexpr auto kPollInterval = std::chrono::milliseconds(200);
  static constexpr auto kLaunchLimit = std::chrono::seconds(5);
  static constexpr auto kQuitLimit = std::chrono::seconds(12);
  static constexpr auto kQuitEventTimeout = std::chrono::seconds(1);

  explicit ApplicationControl(Platform& platform) : platform_(platform) {}

  // Running applications (none terminated), in the system's order.
  std::vector<RunningApplication> running() const;
  // Those with a Dock icon.
  std::vector<RunningApplication> regular() const;
  std::optional<RunningApplication> front() const;
  std::optional<RunningApplication> find(ProcessId pid) const;
  std::optional<RunningApplication> findByBundlePath(std::string_view bundlePath) const;
  std::optional<RunningApplication> findByBundleID(std::string_view bundleID) const;
  std::optional<RunningApplication> findByName(std::string_view name) const;
  bool isHost(const RunningApplication& app) const;
  // The regular applications other than the frontmost one and the host.
  std::vector<RunningApplication> background() const;

  // The name shown in messages: the localized name, else the bundle's file
  // name without extension, else "the application".
  static std::string displayName(const RunningApplication& app);
  static std::string displayName(std::string_view localizedName, std::string_view bundlePath);

  // Polls every 0.2 seconds until `done` holds or `limit` has passed;
  // answers whether it held.
  bool waitFor(std::chrono::milliseconds limit, const std::function<bool()>& done);

  // Opens the bundle and waits up to 5 seconds for it to run: the running
  // application, or none when it could not be opened or did not appear.
  std::optional<RunningApplication> launch(std::string_view bundlePath, bool activates = true);
  std::optional<RunningApplication> launchBundleID(std::string_view bundleID);

  // Brings a running application to the front: unhides it, lets the front
  // application yield to it and activates it, and opens its bundle when it
  // still is not in front. With `hideOthers` the others are hidden after.
  bool switchTo(const RunningApplication& app, bool hideOthers);
  // Hides by the application's own request, then "AXHidden", then the
  // process manager, stopping at the first that leaves it hidden.
  bool hide(const RunningApplication& app);
  // The same for several at once: each way is tried on all that are still
  // visible, with one look after each round. Answers those still visible.
  std::vector<RunningApplication> hideAll(std::vector<RunningApplication> apps);
  // Hides the regular applications other than `keep` and the host.
  void hideOthers(ProcessId keep);

  // Asks the application to quit: the quit event (the termination request
  // when the event cannot be sent), or with `force` forced termination.
  void requestQuit(const RunningApplication& app, bool force);
  // Polls until the process has ended; answers whether it did.
  bool waitUntilGone(ProcessId pid, std::chrono::milliseconds limit);

  Platform& platform() const { return platform_; }

 private:
  bool isFront(ProcessId pid) const;
  bool isHidden(ProcessId pid) const;

  Platform& platform_;
};

// "A", "A and B", "A, B and C".
std::string joinNames(const std::vector<std::string>& names);

// The same bundle whatever the spelling: no dot segments, no trailing slash.
std::string standardizedBundlePath(std::string_view path);

}  // namespace orla
