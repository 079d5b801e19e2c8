#include <orla/plugins/framework/plugin_registry.h>

#include <algorithm>
#include <array>
#include <new>

#include "plugins/apps/application_plugin.h"
#include "plugins/apps/document_plugin.h"
#include "plugins/apps/file_operation_plugin.h"
#include "plugins/apps/finder_window_plugin.h"
#include "plugins/apps/folder_plugin.h"
#include "plugins/apps/network_plugin.h"
#include "plugins/apps/preference_plugin.h"
#include "plugins/apps/print_plugin.h"
#include "plugins/apps/url_plugin.h"
#include "plugins/flow/conditional_plugin.h"
#include "plugins/flow/pause_plugin.h"
#include <orla/plugins/framework/orla_plugin.h>
#include "plugins/input/focus_mode_plugin.h"
#include "plugins/input/interface_plugin.h"
#include "plugins/input/key_shortcut_plugin.h"
#include "plugins/input/menu_plugin.h"
#include "plugins/input/message_plugin.h"
#include "plugins/input/mouse_plugin.h"
#include "plugins/input/window_plugin.h"
#include "plugins/text/clipboard_plugin.h"
#include "plugins/text/text_transform_plugin.h"
#include "plugins/scripts/ai_action_plugin.h"
#include "plugins/scripts/apple_script_plugin.h"
#include "plugins/scripts/javascript_plugin.h"
#include "plugins/scripts/shell_command_plugin.h"
#include "plugins/scripts/shortcuts_app_plugin.h"
#include "plugins/system/sound_plugin.h"
#include "plugins/system/speech_plugin.h"
#include "plugins/system/system_plugin.h"
#include "plugins/scripts/web_api_plugin.h"
#include "plugins/text/type_text_plugin.h"

namespace orla {

namespace {

using Factory = std::unique_ptr<ActionPlugin> (*)(std::shared_ptr<Platform>);

template <class P>
std::unique_ptr<ActionPlugin> make(std::shared_ptr<Platform> platform) {
  return std::make_unique<P>(std::move(platform));
}

struct Row {
  PluginInfo info;
  Factory factory;  // null: not in this build
};

// Sorted by pluginClass. Saved actions carry these strings: never rename one.
constexpr std::array<Row, 31> kTable{{
    {{"AIAction", "AIActionPlugin", true}, &make<AIActionPlugin>},
    {{"AppleScriptShortcut", "AppleScriptPlugin", true}, &make<AppleScriptPlugin>},
    {{"ApplicationShortcut", "ApplicationPlugin", true}, &make<ApplicationPlugin>},
    {{"ClipboardShortcut", "ClipboardPlugin", true}, &make<ClipboardPlugin>},
    {{"CommandShortcut", "ShellCommandPlugin", true}, &make<ShellCommandPlugin>},
    {{"ConditionalAction", "ConditionalPlugin", true}, &make<ConditionalPlugin>},
    {{"DocumentShortcut", "DocumentPlugin", true}, &make<DocumentPlugin>},
    {{"FileOperationAction", "FileOperationPlugin", true}, &make<FileOperationPlugin>},
    {{"FinderWindowShortcut", "FinderWindowPlugin", true}, &make<FinderWindowPlugin>},
    {{"FocusModeAction", "FocusModePlugin", true}, &make<FocusModePlugin>},
    {{"FolderShortcut", "FolderPlugin", true}, &make<FolderPlugin>},
    {{"InterfaceShortcut", "InterfacePlugin", true}, &make<InterfacePlugin>},
    {{"JavaScriptAction", "JavaScriptPlugin", true}, &make<JavaScriptPlugin>},
    {{"KeyShortcut", "KeyShortcutPlugin", true}, &make<KeyShortcutPlugin>},
    {{"KeyboardShortcut", "TypeTextPlugin", true}, &make<TypeTextPlugin>},
    {{"MenuShortcut", "MenuPlugin", true}, &make<MenuPlugin>},
    {{"MessageShortcut", "MessagePlugin", true}, &make<MessagePlugin>},
    {{"MouseShortcut", "MousePlugin", true}, &make<MousePlugin>},
    {{"NetworkShortcut", "NetworkPlugin", true}, &make<NetworkPlugin>},
    {{"OrlaShortcut", "OrlaPlugin", true}, &make<OrlaPlugin>},
    {{"PauseShortcut", "PausePlugin", true}, &make<PausePlugin>},
    {{"PreferenceShortcut", "PreferencePlugin", true}, &make<PreferencePlugin>},
    {{"PrintShortcut", "PrintPlugin", true}, &make<PrintPlugin>},
    {{"ShortcutsAppAction", "ShortcutsAppPlugin", true}, &make<ShortcutsAppPlugin>},
    {{"SoundShortcut", "SoundPlugin", true}, &make<SoundPlugin>},
    {{"SpeechAction", "SpeechPlugin", true}, &make<SpeechPlugin>},
    {{"SystemShortcut", "SystemPlugin", true}, &make<SystemPlugin>},
    {{"TextTransformAction", "TextTransformPlugin", true}, &make<TextTransformPlugin>},
    {{"URLShortcut", "URLPlugin", true}, &make<URLPlugin>},
    {{"WebAPIAction", "WebAPIPlugin", true}, &make<WebAPIPlugin>},
    {{"WindowShortcut", "WindowPlugin", true}, &make<WindowPlugin>},
}};

// What a kind needs of the desktop for any of its commands to work. Kinds
// not named here have commands that work with what every backend offers.
struct Need {
  std::string_view pluginClass;
  std::array<Capability, 2> capabilities;
  size_t count;
};
constexpr std::array<Need, 13> kNeeds{{
    {"AppleScriptShortcut", {Capability::appleScript}, 1},
    {"ClipboardShortcut", {Capability::pasteboard}, 1},
    {"FocusModeAction", {Capability::focusModes}, 1},
    {"FolderShortcut", {Capability::popUpMenus}, 1},
    // Controls are read the way menus are.
    {"InterfaceShortcut", {Capability::accessibility, Capability::menuBars}, 2},
    {"KeyShortcut", {Capability::keyboardEvents}, 1},
    {"KeyboardShortcut", {Capability::keyboardEvents}, 1},
    {"MenuShortcut", {Capability::accessibility, Capability::menuBars}, 2},
    {"MessageShortcut", {Capability::alerts}, 1},
    {"MouseShortcut", {Capability::mouseEvents}, 1},
    // The Shortcuts app is macOS's, as AppleScript is.
    {"ShortcutsAppAction", {Capability::appleScript}, 1},
    {"SpeechAction", {Capability::speech}, 1},
    {"TextTransformAction", {Capability::pasteboard, Capability::keyboardEvents}, 2},
}};

constexpr bool isSorted() {
  for (size_t i = 1; i < kTable.size(); ++i)
    if (!(kTable[i - 1].info.pluginClass < kTable[i].info.pluginClass)) return false;
  return true;
}
static_assert(isSorted(), "the plugin table must stay sorted by pluginClass");

constexpr std::array<PluginInfo, kTable.size()> makeInfos() {
  std::array<PluginInfo, kTable.size()> infos{};
  for (size_t i = 0; i < kTable.size(); ++i) infos[i] = kTable[i].info;
  return infos;
}
constexpr auto kInfos = makeInfos();

// Stands in for a plugin that this build does not include.
class UnavailablePlugin : public ActionPlugin {
 public:
  explicit UnavailablePlugin(std::string_view pluginClass)
      : pluginClass_(pluginClass),
        message_("The " + std::string(pluginClass) + " action is not available in this build of Orla.") {}

  std::string_view kind() const override { return pluginClass_; }
  PluginResult execute(const ActionData&) override { return PluginResult::failure(message_); }
  std::optional<std::string> validate(const ActionData&) const override { return message_; }

 private:
  std::string_view pluginClass_;
  std::string message_;
};

}  // namespace

PluginRegistry::PluginRegistry() : PluginRegistry(Platform::current()) {}

PluginRegistry::PluginRegistry(std::shared_ptr<Platform> platform, Making making)
    : platform_(std::move(platform)), onFirstUse_(making == Making::onFirstUse) {
  plugins_.resize(kTable.size());
  if (onFirstUse_) return;
  for (std::size_t row = 0; row < kTable.size(); ++row) plugins_[row] = make(row);
}

std::unique_ptr<ActionPlugin> PluginRegistry::make(std::size_t row) const {
  if (kTable[row].factory) return kTable[row].factory(platform_);
  return std::make_unique<UnavailablePlugin>(kTable[row].info.pluginClass);
}

PluginRegistry::~PluginRegistry() = default;

ActionPlugin* PluginRegistry::find(std::string_view pluginClass) const {
  auto it = std::lower_bound(kInfos.begin(), kInfos.end(), pluginClass,
                             [](const PluginInfo& info, std::string_view key) {
                               return info.pluginClass < key;
                             });
  if (it == kInfos.end() || it->pluginClass != pluginClass) return nullptr;
  const auto row = static_cast<std::size_t>(it - kInfos.begin());
  if (!onFirstUse_) return plugins_[row].get();
  std::lock_guard lock(making_);
  if (!plugins_[row]) plugins_[row] = make(row);
  return plugins_[row].get();
}

std::span<const PluginInfo> PluginRegistry::table() { return kInfos; }

bool PluginRegistry::worksOn(const Platform& platform, std::string_view pluginClass) {
  const auto row = std::find_if(kInfos.begin(), kInfos.end(),
                                [&](const PluginInfo& info) { return info.pluginClass == pluginClass; });
  if (row == kInfos.end() || !row->available) return false;
  for (const Need& need : kNeeds)
    if (need.pluginClass == pluginClass)
      for (size_t i = 0; i < need.count; ++i)
        if (!platform.supports(need.capabilities[i])) return false;
  return true;
}

PluginResult executeAction(ActionPlugin& plugin, const ActionData& data) {
  try {
    return plugin.execute(data);
  } catch (const std::bad_alloc&) {
    return PluginResult::failure("Orla ran out of memory while running this action.");
  } catch (...) {
    return PluginResult::failure("This action stopped on an internal error. Please report it.");
  }
}

std::optional<std::string> validateAction(const ActionPlugin& plugin, const ActionData& data) {
  try {
    return plugin.validate(data);
  } catch (const std::bad_alloc&) {
    return "Orla ran out of memory while checking this action.";
  } catch (...) {
    return "This action could not be checked because of an internal error. Please report it.";
  }
}

}  // namespace orla
