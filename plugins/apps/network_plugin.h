// NetworkPlugin ("NetworkShortcut"): mounts and unmounts network volumes
// (server shares given by their address) and switches the network
// location, directly or from a pop-up menu. Mount passwords come only from
// the keychain: one typed into the action is moved there on its first run.
// No sentence shows a password or the address as typed, only its display
// form without the user.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/server_address.h>
#include <orla/platform/platform.h>

namespace orla {

class NetworkPlugin : public PluginBase<NetworkPlugin> {
 public:
  static constexpr std::string_view pluginClass = "NetworkShortcut";
  static constexpr std::int64_t mountVolume = 1;
  static constexpr std::int64_t unmountVolume = 2;
  static constexpr std::int64_t switchLocation = 3;
  static constexpr std::int64_t locationMenu = 4;
  static constexpr std::array<CommandName, 11> commandNames{{
      {"mount", mountVolume},
      {"connect", mountVolume},
      {"mountVolume", mountVolume},
      {"unmount", unmountVolume},
      {"eject", unmountVolume},
      {"unmountVolume", unmountVolume},
      {"location", switchLocation},
      {"switchLocation", switchLocation},
      {"setLocation", switchLocation},
      {"locationMenu", locationMenu},
      {"menu", locationMenu},
  }};

  static constexpr auto mountDeadline = std::chrono::seconds(60);
  static constexpr auto unmountDeadline = std::chrono::seconds(30);
  static constexpr auto switchDeadline = std::chrono::seconds(30);
  static constexpr auto pollInterval = std::chrono::milliseconds(200);

  NetworkPlugin();
  explicit NetworkPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // The action's address: none when it has none, else the parsed address
  // or what is wrong with it.
  static std::optional<std::variant<ServerAddress, ServerAddressProblem>> serverAddress(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult mount(const ActionData& data, const ServerAddress& address);
  PluginResult unmount(const ActionData& data, const std::optional<ServerAddress>& address);
  PluginResult switchTo(const std::string& wanted);
  PluginResult chooseLocation();
  PluginResult activate(const std::string& name);
  // The success of a mount, with the folder revealed when asked.
  PluginResult mounted(std::string sentence, const std::string& path, bool reveal);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
