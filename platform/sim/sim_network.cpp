#include "platform/sim/sim_network.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include <orla/models/server_address.h>
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

std::string passwordDigest(std::string_view password) {
  std::uint64_t hash = 0xcbf29ce484222325ULL;
  for (unsigned char c : password) {
    hash ^= c;
    hash *= 0x100000001b3ULL;
  }
  char hex[17];
  std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
  return "fnv1a64:" + std::string(hex);
}

SimNetworkState SimNetwork::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}
void SimNetwork::setState(SimNetworkState state) {
  std::lock_guard lock(mutex_);
  state_ = std::move(state);
}
void SimNetwork::update(const std::function<void(SimNetworkState&)>& change) {
  std::lock_guard lock(mutex_);
  change(state_);
}

namespace {

// The server a share address belongs to.
std::optional<SimNetworkServer> serverFor(const SimNetworkState& state, const ServerAddress& address) {
  for (const SimNetworkServer& server : state.servers) {
    auto base = parseMountedAddress(server.address);
    if (!base) continue;
    base->path = address.path;
    if (base->sameVolume(address)) return server;
  }
  return std::nullopt;
}

bool offersShare(const SimNetworkServer& server, const ServerAddress& address) {
  if (server.shares.empty()) return true;
  std::string_view path = address.path;
  while (!path.empty() && path.front() == '/') path.remove_prefix(1);
  const std::string first(path.substr(0, path.find('/')));
  return std::find(server.shares.begin(), server.shares.end(), first) != server.shares.end();
}

std::string freeMountPath(const SimNetworkState& state, const std::string& name) {
  auto taken = [&](const std::string& path) {
    return std::any_of(state.volumes.begin(), state.volumes.end(),
                       [&](const SimNetworkVolume& v) { return v.mountPath == path; });
  };
  std::string path = "/Volumes/" + name;
  for (int n = 1; taken(path); ++n) path = "/Volumes/" + name + "-" + std::to_string(n);
  return path;
}

class SimNetworkVolumes : public NetworkVolumes {
 public:
  explicit SimNetworkVolumes(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<std::vector<MountedNetworkVolume>> mounted() override {
    std::vector<MountedNetworkVolume> out;
    for (const SimNetworkVolume& v : desktop_->network().state().volumes) out.push_back({v.address, v.mountPath});
    return out;
  }

  NetworkMountResult mount(const NetworkMountRequest& request) override {
    desktop_->record("network", "mount " + request.address + " as " +
                                    (request.user.empty() ? std::string("no user") : request.user) +
                                    (request.password ? " with \u2022\u2022\u2022" : " without password") +
                                    (request.allowDialog ? ", dialog allowed" : ""));
    const auto address = parseMountedAddress(request.address);
    const SimNetworkState state = desktop_->network().state();
    const auto server = address ? serverFor(state, *address) : std::nullopt;
    if (!server || server->failure == "unreachable") return {NetworkMountOutcome::unreachable, {}, {}};
    if (!server->delay || *server->delay >= request.deadline) {
      desktop_->sleep(request.deadline);
      desktop_->record("network", "cancelled mount " + request.address);
      return {NetworkMountOutcome::timedOut, {}, {}};
    }
    desktop_->sleep(*server->delay);
    if (server->failure == "unsupported") return {NetworkMountOutcome::unsupportedScheme, {}, {}};
    if (!server->failure.empty()) return {NetworkMountOutcome::failed, {}, server->failure};
    if (!offersShare(*server, *address)) return {NetworkMountOutcome::failed, {}, "The share does not exist."};
    if (auto refused = checkCredentials(*server, request)) return {*refused, {}, {}};
    std::string path;
    desktop_->network().update([&](SimNetworkState& s) {
      path = freeMountPath(s, address->shareName());
      s.volumes.push_back({address->display(), path, false});
    });
    return {NetworkMountOutcome::mounted, path, {}};
  }

  bool unmount(const MountedNetworkVolume& volume, std::chrono::milliseconds) override {
    bool gone = false;
    bool busy = false;
    desktop_->network().update([&](SimNetworkState& s) {
      auto it = std::find_if(s.volumes.begin(), s.volumes.end(), [&](const SimNetworkVolume& v) {
        return v.address == volume.address && v.mountPath == volume.mountPath;
      });
      if (it == s.volumes.end()) gone = true;
      else if (it->busy) busy = true;
      else {
        s.volumes.erase(it);
        gone = true;
      }
    });
    desktop_->record("network", std::string(busy ? "refused unmount " : "unmount ") + volume.mountPath);
    return gone;
  }

 private:
  std::optional<NetworkMountOutcome> checkCredentials(const SimNetworkServer& server,
                                                      const NetworkMountRequest& request) {
    if (server.passwordDigest.empty()) return std::nullopt;
    if (request.password) {
      const bool right = (server.user.empty() || server.user == request.user) &&
                         passwordDigest(*request.password) == server.passwordDigest;
      return right ? std::nullopt : std::optional(NetworkMountOutcome::credentialsRefused);
    }
    if (!request.allowDialog) return NetworkMountOutcome::needsPassword;
    const bool enters = desktop_->network().state().dialogEntersPassword;
    desktop_->record("network", enters ? "password dialog answered" : "password dialog cancelled");
    return enters ? std::nullopt : std::optional(NetworkMountOutcome::dialogCancelled);
  }

  std::shared_ptr<SimDesktop> desktop_;
};

class SimNetworkLocations : public NetworkLocations {
 public:
  explicit SimNetworkLocations(std::shared_ptr<SimDesktop> d) : desktop_(std::move(d)) {}

  Checked<std::vector<std::string>> list() override { return desktop_->network().state().locations; }
  Checked<std::optional<std::string>> current() override { return desktop_->network().state().currentLocation; }

  Checked<void> activate(std::string_view name) override {
    const SimNetworkState state = desktop_->network().state();
    const std::string location(name);
    desktop_->record("network", std::string(state.refusesSwitch ? "refused location " : "location ") + "\u201c" +
                                    location + "\u201d");
    if (state.refusesSwitch) return fail("The system refused the switch.");
    if (std::find(state.locations.begin(), state.locations.end(), location) == state.locations.end())
      return fail("There is no such location.");
    if (!state.switchDelay) return {};
    std::weak_ptr<SimDesktop> weak = desktop_;
    auto apply = [weak, location] {
      if (auto desktop = weak.lock())
        desktop->network().update([&](SimNetworkState& s) { s.currentLocation = location; });
    };
    if (state.switchDelay->count() == 0) apply();
    else desktop_->atTime(*state.switchDelay, apply);
    return {};
  }

 private:
  std::shared_ptr<SimDesktop> desktop_;
};

}  // namespace

std::unique_ptr<NetworkVolumes> makeSimNetworkVolumes(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimNetworkVolumes>(std::move(desktop));
}
std::unique_ptr<NetworkLocations> makeSimNetworkLocations(std::shared_ptr<SimDesktop> desktop) {
  return std::make_unique<SimNetworkLocations>(std::move(desktop));
}

}  // namespace orla::sim
