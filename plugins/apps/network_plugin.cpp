#include "plugins/apps/network_plugin.h"

#include <algorithm>

#include <orla/models/text.h>
#include "plugins/input/menu_path.h"
#include "plugins/scripts/network_credential_store.h"
#include "plugins/scripts/secret_store.h"

namespace orla {

namespace {

std::optional<std::string> addressText(const ActionData& data) {
  return readString(data, {"serverURL", "url", "URL", "server", "Server"});
}
bool allVolumes(const ActionData& data) { return readSwitchOr(data, {"allNetworkVolumes"}, false); }
std::string locationName(const ActionData& data) {
  return readStringOr(data, {"location", "locationName", "Location", "name"});
}

std::string_view addressProblem(ServerAddressProblem problem) {
  switch (problem) {
    case ServerAddressProblem::notAnAddress:
      return "That is not a server address. Enter it in the form smb://server/Public.";
    case ServerAddressProblem::unsupportedScheme:
      return "Orla mounts smb, afp, nfs, sftp, ftp and WebDAV (http or https) addresses. Enter the address with one "
             "of these, for example smb://server/Public.";
    case ServerAddressProblem::passwordInside:
      return "Remove the password from the address. Orla keeps mount passwords in the keychain, not in actions.";
    case ServerAddressProblem::noShare:
      return "Add the share to the address, for example smb://server/Public.";
  }
  return "That is not a server address. Enter it in the form smb://server/Public.";
}

bool hasPlainPassword(const ActionData& data) {
  for (std::string_view key : {"password", "Password"})
    if (auto raw = readRawString(data, key)) return SecretMarker::isPlaintextSecret(raw);
  return false;
}

// What a mounted volume is called in sentences: the share of its address,
// else the last component of its mount path.
std::string volumeName(const MountedNetworkVolume& volume) {
  if (auto address = parseMountedAddress(volume.address)) return address->shareName();
  std::string_view path = volume.mountPath;
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const auto slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

// Where `address` is reached through a mounted volume: at the volume's own
// folder when it is the same volume; inside it when the volume is a whole
// server (GVfs mounts an sftp, ftp or WebDAV server whole, whatever path
// was asked for); none when the volume holds another share.
std::optional<std::string> pathThrough(const MountedNetworkVolume& volume, const ServerAddress& address) {
  auto source = parseMountedAddress(volume.address);
  if (!source) return std::nullopt;
  if (source->sameVolume(address)) return volume.mountPath;
  ServerAddress server = address;
  server.path.clear();
  if (!source->sameVolume(server)) return std::nullopt;
  std::string path = volume.mountPath;
  if (!path.starts_with('/')) return path;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  std::string inside = address.decodedPath();
  while (inside.size() > 1 && inside.back() == '/') inside.pop_back();
  return inside == "/" ? path : path + inside;
}

// The system's words for a failed mount, fit to stand inside a sentence: a
// final full stop goes, and a text that holds the password is not shown.
std::string systemWords(std::string text, const std::optional<std::string>& password) {
  if (password && !password->empty() && text.find(*password) != std::string::npos)
    return "the system reported an error";
  std::string_view trimmed = trimWhitespaceAndNewlines(text);
  while (!trimmed.empty() && trimmed.back() == '.') trimmed.remove_suffix(1);
  if (trimmed.empty()) return "the system reported an error";
  return std::string(trimmed);
}

}  // namespace

NetworkPlugin::NetworkPlugin() : NetworkPlugin(Platform::current()) {}
NetworkPlugin::NetworkPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t NetworkPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, commandNames);
}

std::optional<std::variant<ServerAddress, ServerAddressProblem>> NetworkPlugin::serverAddress(
    const ActionData& data) {
  const auto text = addressText(data);
  if (!text) return std::nullopt;
  return parseServerAddress(*text);
}

std::optional<std::string> NetworkPlugin::validate(const ActionData& data) const {
  const std::int64_t command = resolvedActionType(data);
  if (command < mountVolume || command > locationMenu) return unknownCommandMessage("network command");
  const bool usesAddress = command == mountVolume || (command == unmountVolume && !allVolumes(data));
  const auto address = usesAddress ? serverAddress(data) : std::nullopt;
  if (command == mountVolume && !address) return "Enter the server address, for example smb://server/Public.";
  if (command == unmountVolume && usesAddress && !address)
    return "Enter the server address of the volume to unmount, or turn on \u201cAll network volumes\u201d.";
  if (address)
    if (const auto* problem = std::get_if<ServerAddressProblem>(&*address))
      return std::string(addressProblem(*problem));
  if (command == mountVolume && hasPlainPassword(data)) {
    const auto& parsed = std::get<ServerAddress>(*address);
    if (readStringOr(data, {"user", "username", "User"}, parsed.user).empty())
      return "Enter the user name for this password, or remove the password.";
  }
  if (command == switchLocation && locationName(data).empty())
    return "Enter the network location to switch to, for example Home.";
  return std::nullopt;
}

PluginResult NetworkPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  const std::int64_t command = resolvedActionType(data);
  const Platform& p = *platform_;
  if (command == mountVolume || command == unmountVolume) {
    if (!p.supports(Capability::networkVolumes))
      return PluginResult::failure("Network volumes are not available on this desktop in this build of Orla.");
    const auto address = serverAddress(data);
    if (command == mountVolume) return mount(data, std::get<ServerAddress>(*address));
    if (allVolumes(data)) return unmount(data, std::nullopt);
    return unmount(data, std::get<ServerAddress>(*address));
  }
  if (!p.supports(Capability::networkLocations))
    return PluginResult::failure("Network locations are not available on this desktop in this build of Orla.");
  if (command == switchLocation) return switchTo(locationName(data));
  return chooseLocation();
}

PluginResult NetworkPlugin::mounted(std::string sentence, const std::string& path, bool reveal) {
  if (reveal && !platform_->fileWorkspace().reveal(path))
    sentence += " It could not be shown in the file manager.";
  return PluginResult::success(std::move(sentence));
}

PluginResult NetworkPlugin::mount(const ActionData& data, const ServerAddress& address) {
  NetworkVolumes& volumes = platform_->networkVolumes();
  const std::string name = address.shareName();
  const bool reveal = readSwitchOr(data, {"openAfterMount", "reveal"}, false);
  // A list the system cannot give is no reason not to try: the mount
  // itself then says whether the volume is there.
  if (const auto now = volumes.mounted(); now)
    for (const MountedNetworkVolume& volume : *now)
      if (const auto path = pathThrough(volume, address))
        return mounted(quoted(name) + " is already mounted at " + *path + ".", *path, reveal);

  NetworkMountRequest request;
  request.address = address.display();
  request.user = readStringOr(data, {"user", "username", "User"}, address.user);
  request.password = NetworkCredentialStore::resolvePassword(data);
  request.allowDialog = readSwitchOr(data, {"askForPassword"}, true);
  request.deadline = mountDeadline;
  const NetworkMountResult result = volumes.mount(request);
  switch (result.outcome) {
    case NetworkMountOutcome::mounted:
      return mounted("Mounted " + quoted(name) + " at " + result.mountPath + ".", result.mountPath, reveal);
    case NetworkMountOutcome::credentialsRefused:
      return PluginResult::failure("The server refused the user name or password for " + quoted(name) +
                                   ". Save the right password in the keychain, or type it into the action once "
                                   "(Orla moves it there), then click Test again.");
    case NetworkMountOutcome::dialogCancelled:
      return PluginResult::failure("The password dialog was cancelled, so " + quoted(name) +
                                   " was not mounted. Run the action again and enter the password.");
    case NetworkMountOutcome::needsPassword:
      return PluginResult::failure(quoted(name) +
                                   " needs a password. Type it into the action once (Orla keeps it in the "
                                   "keychain), or turn on \u201cAsk for password\u201d.");
    case NetworkMountOutcome::unreachable:
      return PluginResult::failure("Could not reach the server " + address.host +
                                   ". Check the address and the network, then click Test again.");
    case NetworkMountOutcome::timedOut:
      return PluginResult::failure("The server " + address.host +
                                   " did not answer within 60 seconds. Check the address and the network, then "
                                   "click Test again.");
    case NetworkMountOutcome::unsupportedScheme:
      return PluginResult::failure("This desktop cannot mount " + address.scheme +
                                   " addresses. Use an smb:// address instead.");
    case NetworkMountOutcome::failed:
      break;
  }
  return PluginResult::failure("Could not mount " + quoted(name) + ": " + systemWords(result.systemText, request.password) +
                               ". Check the address, then click Test again.");
}

PluginResult NetworkPlugin::unmount(const ActionData&, const std::optional<ServerAddress>& address) {
  NetworkVolumes& volumes = platform_->networkVolumes();
  const auto now = volumes.mounted();
  if (!now) return PluginResult::failure(now.error());
  std::vector<MountedNetworkVolume> targets;
  for (const MountedNetworkVolume& volume : *now)
    if (!address || pathThrough(volume, *address)) targets.push_back(volume);
  if (targets.empty())
    return PluginResult::success(address ? quoted(address->shareName()) + " was not mounted."
                                         : std::string("No network volumes were mounted."));
  std::vector<std::string> stuck;
  for (const MountedNetworkVolume& volume : targets)
    if (!volumes.unmount(volume, unmountDeadline)) stuck.push_back(volumeName(volume));
  const std::string one = address ? address->shareName() : volumeName(targets.front());
  if (stuck.empty())
    return PluginResult::success(targets.size() == 1
                                     ? "Unmounted " + quoted(one) + "."
                                     : "Unmounted " + std::to_string(targets.size()) + " network volumes.");
  if (targets.size() == 1)
    return PluginResult::failure(quoted(one) +
                                 " could not be unmounted; it may be in use. Close the files open on it, then try "
                                 "again.");
  std::string names;
  for (const std::string& name : stuck) names += (names.empty() ? "" : ", ") + quoted(name);
  return PluginResult::failure("These volumes could not be unmounted; they may be in use: " + names +
                               ". Close the files open on them, then try again.");
}

PluginResult NetworkPlugin::switchTo(const std::string& wanted) {
  NetworkLocations& locations = platform_->networkLocations();
  const auto names = locations.list();
  if (!names) return PluginResult::failure(names.error());
  const NameMatcher matcher(wanted, Selection::nameFull);
  const auto found =
      std::find_if(names->begin(), names->end(), [&](const std::string& name) { return matcher.matches(name); });
  if (found == names->end()) {
    std::string list;
    for (const std::string& name : *names) list += (list.empty() ? "" : ", ") + name;
    return PluginResult::failure("There is no network location named " + quoted(wanted) + ". Locations here: " + list +
                                 ". Check the name, then click Test again.");
  }
  return activate(*found);
}

PluginResult NetworkPlugin::activate(const std::string& name) {
  NetworkLocations& locations = platform_->networkLocations();
  if (const auto current = locations.current(); current && *current == name)
    return PluginResult::success("The network location is already " + quoted(name) + ".");
  if (!locations.activate(name))
    return PluginResult::failure("The system refused to switch to " + quoted(name) +
                                 ". Switch it in System Settings \u2192 Network, then try again.");
  // Read at once, then every 0.2 s until the deadline.
  Clock& clock = platform_->clock();
  const auto start = clock.monotonicNow();
  for (;;) {
    if (const auto current = locations.current(); current && *current == name)
      return PluginResult::success("Switched the network location to " + quoted(name) + ".");
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(clock.monotonicNow() - start);
    if (elapsed >= switchDeadline) break;
    clock.sleep(std::min<std::chrono::microseconds>(pollInterval, switchDeadline - elapsed));
  }
  return PluginResult::failure("The system did not switch to " + quoted(name) +
                               " within 30 seconds. Check it in System Settings \u2192 Network, then try again.");
}

PluginResult NetworkPlugin::chooseLocation() {
  NetworkLocations& locations = platform_->networkLocations();
  const auto names = locations.list();
  if (!names) return PluginResult::failure(names.error());
  if (names->empty())
    return PluginResult::failure(
        "No network locations are set up. Add one in System Settings \u2192 Network, then try again.");
  const auto current = locations.current();
  std::vector<MenuItem> items;
  for (const std::string& name : *names) {
    MenuItem item;
    item.title = name;
    item.on = current && *current == name;
    items.push_back(std::move(item));
  }
  const auto chosen = platform_->popupMenus().popUpAtMouse(items);
  if (!chosen) return PluginResult::failure(chosen.error());
  if (!*chosen || **chosen >= names->size()) return PluginResult::silentSuccess();
  return activate((*names)[**chosen]);
}

}  // namespace orla
