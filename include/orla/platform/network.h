// NetworkVolumes and NetworkLocations: the system's mounts of server shares
// and its network locations (sets of network settings the user switches
// between). The network plugin decides what the answers mean; these only
// say what the system did.
// Thread safety: every method may be called from any thread; mount and
// unmount block until the system answers or the deadline passes.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/export.h>
#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct MountedNetworkVolume {
  // The server address the volume comes from, as the system reports it,
  // without user or password ("smb://server/Public").
  std::string address;
  // The folder the volume is reachable at on disk, or its address where the
  // system gives it none.
  std::string mountPath;
};

struct NetworkMountRequest {
  // The address without user or password; the scheme lowercased.
  std::string address;
  std::string user;                     // empty: none
  std::optional<std::string> password;  // from the keychain only
  // Whether the system may show its own password dialog.
  bool allowDialog = false;
  std::chrono::milliseconds deadline{60'000};
};

enum class NetworkMountOutcome {
  mounted,
  credentialsRefused,
  dialogCancelled,
  needsPassword,
  unreachable,
  timedOut,  // the request was cancelled at the deadline
  unsupportedScheme,
  failed,  // `systemText` says why
};

struct NetworkMountResult {
  NetworkMountOutcome outcome = NetworkMountOutcome::failed;
  std::string mountPath;   // with `mounted`
  std::string systemText;  // with `failed`: the system's own words
};

class NetworkVolumes {
 public:
  virtual ~NetworkVolumes() = default;
  // The network volumes mounted now; fails when the system cannot say.
  virtual Checked<std::vector<MountedNetworkVolume>> mounted() = 0;
  virtual NetworkMountResult mount(const NetworkMountRequest& request) = 0;
  // Asks the system to unmount, never forcing it. True when the volume is
  // gone when the call returns; false when the system refused or did not
  // answer by the deadline.
  virtual bool unmount(const MountedNetworkVolume& volume, std::chrono::milliseconds deadline) = 0;
};

class NetworkLocations {
 public:
  virtual ~NetworkLocations() = default;
  // The locations' names in the system's order; fails (with a sentence for
  // the user) when the system's network service cannot be reached.
  virtual Checked<std::vector<std::string>> list() = 0;
  // The location in use, if any.
  virtual Checked<std::optional<std::string>> current() = 0;
  // Asks the system to switch to `name` (as `list()` spells it); the switch
  // may take effect later. Fails when the system refuses.
  virtual Checked<void> activate(std::string_view name) = 0;
};

}  // namespace orla
