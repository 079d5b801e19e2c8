// SimNetwork: the simulated desktop's servers, mounted network volumes and
// network locations, from the scene. A server answers after its delay of
// virtual time (or never), may fail in a set way, and accepts one user and
// password; the scene also says what the user does in the system's password
// dialog. Mount requests are recorded (trace category "network") with the
// user and "•••" in place of any password. The model keeps no password:
// only a digest it compares against, so no state written out holds one.
// Thread safety: every method may be called from any thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include <orla/platform/network.h>

namespace orla::sim {

class SimDesktop;

struct SimNetworkServer {
  // scheme + "://" + host (+ ":" + port): the shares are its paths.
  std::string address;
  // The shares it offers ("Public"); none: any path is served.
  std::vector<std::string> shares;
  std::string user;            // the user it accepts; empty: anyone
  std::string passwordDigest;  // empty: no password needed
  // None: the server accepts the connection and never answers.
  std::optional<std::chrono::milliseconds> delay = std::chrono::milliseconds(0);
  // "" (none), "unreachable", "unsupported", or the system's text of
  // another error.
  std::string failure;
  friend bool operator==(const SimNetworkServer&, const SimNetworkServer&) = default;
};

struct SimNetworkVolume {
  std::string address;    // the share's address without user
  std::string mountPath;  // "/Volumes/" + the share's name
  bool busy = false;      // files open on it: an unmount is refused
  friend bool operator==(const SimNetworkVolume&, const SimNetworkVolume&) = default;
};

struct SimNetworkState {
  std::vector<SimNetworkServer> servers;
  std::vector<SimNetworkVolume> volumes;
  std::vector<std::string> locations;  // in the system's order
  std::optional<std::string> currentLocation;
  // None: a switch never takes effect.
  std::optional<std::chrono::milliseconds> switchDelay = std::chrono::milliseconds(0);
  bool refusesSwitch = false;
  // What the user does in the system's password dialog: types the right
  // password, or cancels it.
  bool dialogEntersPassword = false;
  friend bool operator==(const SimNetworkState&, const SimNetworkState&) = default;
};

// The digest the model keeps instead of a password (FNV-1a, 64 bits, in
// hex after "fnv1a64:"): enough to tell a right password from a wrong one
// in a simulation, and no copy of the password itself.
std::string passwordDigest(std::string_view password);

class SimNetwork {
 public:
  SimNetworkState state() const;
  void setState(SimNetworkState state);
  void update(const std::function<void(SimNetworkState&)>& change);

 private:
  mutable std::mutex mutex_;
  SimNetworkState state_;
};

std::unique_ptr<NetworkVolumes> makeSimNetworkVolumes(std::shared_ptr<SimDesktop> desktop);
std::unique_ptr<NetworkLocations> makeSimNetworkLocations(std::shared_ptr<SimDesktop> desktop);

// "network": {"servers": [{"address": "smb://server", "shares": ["Public"],
// "user": "anna", "password": "…" (read only; kept and written back as
// "passwordDigest"), "delayMs": 0 or null (never answers), "failure": ""}],
// "volumes": [{"address": "smb://server/Public", "mountPath":
// "/Volumes/Public", "busy": false}], "locations": ["Automatic", "Home"],
// "currentLocation": "Automatic" or null, "switchDelayMs": 0 or null,
// "refusesSwitch": false, "passwordDialog": "cancel" or "enter"}. Written
// back only when it differs from the default.
Checked<void> loadNetworkState(SimNetwork& network, const nlohmann::json& state);
void saveNetworkState(const SimNetwork& network, nlohmann::json& state);

}  // namespace orla::sim
