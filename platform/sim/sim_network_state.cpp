// The "network" key of the simulated desktop's state file.
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include <orla/models/server_address.h>
#include "platform/sim/sim_network.h"

namespace orla::sim {

namespace {

using nlohmann::json;

// An hour of virtual time is the longest delay a scene may ask for.
constexpr std::uint64_t kLongestDelayMs = 3'600'000;

Failure bad(std::string_view expected) {
  return fail("Simulated desktop state: \u201cnetwork\u201d must be " + std::string(expected) + ".");
}

bool isDigest(const std::string& text) {
  return text.size() == 24 && text.starts_with("fnv1a64:") &&
         std::all_of(text.begin() + 8, text.end(), [](unsigned char c) { return std::isxdigit(c) && !std::isupper(c); });
}

// A delay in milliseconds, or null for never; `out` unchanged when absent.
bool readDelay(const json& object, const char* key, std::optional<std::chrono::milliseconds>& out) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (it->is_null()) out.reset();
  else if (it->is_number_integer() && it->get<std::int64_t>() >= 0 && it->get<std::uint64_t>() <= kLongestDelayMs)
    out = std::chrono::milliseconds(it->get<std::uint64_t>());
  else return false;
  return true;
}

bool readText(const json& object, const char* key, std::string& out) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (!it->is_string()) return false;
  out = it->get<std::string>();
  return true;
}

Checked<SimNetworkServer> readServer(const json& item) {
  static constexpr std::string_view kServer =
      "an object whose \u201cservers\u201d are objects with a server \u201caddress\u201d, a list of "
      "\u201cshares\u201d, texts \u201cuser\u201d, \u201cpassword\u201d and \u201cfailure\u201d, and "
      "\u201cdelayMs\u201d up to an hour or null";
  if (!item.is_object()) return bad(kServer);
  SimNetworkServer server;
  std::string password;
  if (!readText(item, "address", server.address) || !readText(item, "user", server.user) ||
      !readText(item, "password", password) || !readText(item, "passwordDigest", server.passwordDigest) ||
      !readText(item, "failure", server.failure) || !readDelay(item, "delayMs", server.delay))
    return bad(kServer);
  auto base = parseMountedAddress(server.address);
  if (!base || !base->path.empty()) return bad(kServer);
  if (!server.passwordDigest.empty() && !isDigest(server.passwordDigest)) return bad(kServer);
  if (!password.empty()) server.passwordDigest = passwordDigest(password);
  if (auto shares = item.find("shares"); shares != item.end()) {
    if (!shares->is_array()) return bad(kServer);
    for (const json& share : *shares) {
      if (!share.is_string() || share.get<std::string>().empty()) return bad(kServer);
      server.shares.push_back(share.get<std::string>());
    }
  }
  return server;
}

Checked<SimNetworkVolume> readVolume(const json& item) {
  static constexpr std::string_view kVolume =
      "an object whose \u201cvolumes\u201d are objects with a server \u201caddress\u201d, a "
      "\u201cmountPath\u201d and \u201cbusy\u201d true or false";
  if (!item.is_object()) return bad(kVolume);
  SimNetworkVolume volume;
  if (!readText(item, "address", volume.address) || !readText(item, "mountPath", volume.mountPath))
    return bad(kVolume);
  if (!parseMountedAddress(volume.address) || volume.mountPath.empty()) return bad(kVolume);
  if (auto busy = item.find("busy"); busy != item.end()) {
    if (!busy->is_boolean()) return bad(kVolume);
    volume.busy = busy->get<bool>();
  }
  return volume;
}

Checked<void> readLocations(const json& object, SimNetworkState& out) {
  static constexpr std::string_view kLocations =
      "an object whose \u201clocations\u201d are different names and whose \u201ccurrentLocation\u201d is one of "
      "them, or null";
  if (auto list = object.find("locations"); list != object.end()) {
    if (!list->is_array()) return bad(kLocations);
    for (const json& name : *list) {
      if (!name.is_string() || name.get<std::string>().empty() ||
          std::count(out.locations.begin(), out.locations.end(), name.get<std::string>()))
        return bad(kLocations);
      out.locations.push_back(name.get<std::string>());
    }
  }
  if (auto current = object.find("currentLocation"); current != object.end() && !current->is_null()) {
    if (!current->is_string() || !std::count(out.locations.begin(), out.locations.end(), current->get<std::string>()))
      return bad(kLocations);
    out.currentLocation = current->get<std::string>();
  }
  return {};
}

}  // namespace

Checked<void> loadNetworkState(SimNetwork& network, const json& state) {
  auto it = state.find("network");
  if (it == state.end()) return {};
  if (!it->is_object()) return bad("an object");
  SimNetworkState out;
  for (const char* key : {"servers", "volumes"}) {
    auto list = it->find(key);
    if (list == it->end()) continue;
    if (!list->is_array()) return bad("an object whose \u201c" + std::string(key) + "\u201d is a list");
    for (const json& item : *list) {
      if (key == std::string_view("servers")) {
        auto server = readServer(item);
        if (!server) return fail(server.error());
        out.servers.push_back(std::move(*server));
      } else {
        auto volume = readVolume(item);
        if (!volume) return fail(volume.error());
        out.volumes.push_back(std::move(*volume));
      }
    }
  }
  if (auto locations = readLocations(*it, out); !locations) return fail(locations.error());
  if (!readDelay(*it, "switchDelayMs", out.switchDelay))
    return bad("an object whose \u201cswitchDelayMs\u201d is a whole number of milliseconds up to an hour, or null");
  if (auto refuses = it->find("refusesSwitch"); refuses != it->end()) {
    if (!refuses->is_boolean()) return bad("an object whose \u201crefusesSwitch\u201d is true or false");
    out.refusesSwitch = refuses->get<bool>();
  }
  if (auto dialog = it->find("passwordDialog"); dialog != it->end()) {
    if (*dialog == "enter") out.dialogEntersPassword = true;
    else if (*dialog != "cancel") return bad("an object whose \u201cpasswordDialog\u201d is \u201center\u201d or \u201ccancel\u201d");
  }
  network.setState(std::move(out));
  return {};
}

void saveNetworkState(const SimNetwork& network, json& state) {
  const SimNetworkState s = network.state();
  if (s == SimNetworkState{}) return;
  auto delay = [](const std::optional<std::chrono::milliseconds>& d) {
    return d ? json(static_cast<std::uint64_t>(d->count())) : json(nullptr);
  };
  json servers = json::array();
  for (const SimNetworkServer& server : s.servers)
    servers.push_back({{"address", server.address},
                       {"shares", server.shares},
                       {"user", server.user},
                       {"passwordDigest", server.passwordDigest},
                       {"delayMs", delay(server.delay)},
                       {"failure", server.failure}});
  json volumes = json::array();
  for (const SimNetworkVolume& volume : s.volumes)
    volumes.push_back({{"address", volume.address}, {"mountPath", volume.mountPath}, {"busy", volume.busy}});
  state["network"] = {{"servers", std::move(servers)},
                      {"volumes", std::move(volumes)},
                      {"locations", s.locations},
                      {"currentLocation", s.currentLocation ? json(*s.currentLocation) : json(nullptr)},
                      {"switchDelayMs", delay(s.switchDelay)},
                      {"refusesSwitch", s.refusesSwitch},
                      {"passwordDialog", s.dialogEntersPassword ? "enter" : "cancel"}};
}

}  // namespace orla::sim
