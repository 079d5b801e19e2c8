#include <orla/plugins/framework/plugin_registry.h>
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <cmath>
#include <limits>
#include <set>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

TEST(PluginRegistryTable, ListsAllThirtyOneKindsOnce) {
  auto table = PluginRegistry::table();
  EXPECT_EQ(table.size(), 31u);
  std::set<std::string_view> kinds, classes;
  for (const PluginInfo& info : table) {
    kinds.insert(info.pluginClass);
    classes.insert(info.className);
    EXPECT_TRUE(info.className.ends_with("Plugin")) << info.className;
  }
  EXPECT_EQ(kinds.size(), 31u);
  EXPECT_EQ(classes.size(), 31u);
  // Saved actions carry these strings; the ones that do not follow their
  // class names are the easiest to break.
  const std::pair<std::string_view, std::string_view> pinned[] = {
      {"KeyboardShortcut", "TypeTextPlugin"},   {"CommandShortcut", "ShellCommandPlugin"},
      {"OrlaShortcut", "OrlaPlugin"},           {"ConditionalAction", "ConditionalPlugin"},
      {"TextTransformAction", "TextTransformPlugin"}, {"URLShortcut", "URLPlugin"},
      {"AIAction", "AIActionPlugin"},           {"WebAPIAction", "WebAPIPlugin"},
  };
  for (auto [kind, className] : pinned) {
    auto it = std::find_if(table.begin(), table.end(), [&](auto& i) { return i.pluginClass == kind; });
    ASSERT_NE(it, table.end()) << kind;
    EXPECT_EQ(it->className, className);
  }
}

class PluginRegistryTest : public SimTest {
 protected:
  PluginRegistryTest() : registry(platform) {}
  PluginRegistry registry;
};

TEST_F(PluginRegistryTest, FindsEveryKindByItsExactString) {
  for (const PluginInfo& info : PluginRegistry::table()) {
    ActionPlugin* plugin = registry.find(info.pluginClass);
    ASSERT_NE(plugin, nullptr) << info.pluginClass;
    EXPECT_EQ(plugin->kind(), info.pluginClass);
  }
  for (std::string_view miss : {"", "orlashortcut", "OrlaShortcut ", "Zzz", "AAA"})
    EXPECT_EQ(registry.find(miss), nullptr) << miss;
}

TEST_F(PluginRegistryTest, KindsNotInThisBuildSaySoInOneSentence) {
  for (const PluginInfo& info : PluginRegistry::table()) {
    if (info.available) continue;
    ActionPlugin* plugin = registry.find(info.pluginClass);
    const std::string message =
        "The " + std::string(info.pluginClass) + " action is not available in this build of Orla.";
    EXPECT_EQ(plugin->validate({}), message);
    EXPECT_EQ(plugin->execute({{"actionType", 1}}), PluginResult::failure(message));
    EXPECT_FALSE(plugin->requiresAccessibility({}));
  }
}

// Every key the available plugins read, each given every case of value, and
// values at the edges: nothing may crash, throw or break the contract.
TEST_F(PluginRegistryTest, SurvivesEmptyWrongAndHugeParameters) {
  const std::string huge(1 << 20, 'a');
  AnyArray bigList(10000, AnyCodable("x"));
  const AnyCodable values[] = {
      AnyCodable("text"), AnyCodable(""), AnyCodable(huge), AnyCodable("\xFF\xFE broken utf-8"),
      AnyCodable(std::numeric_limits<std::int64_t>::min()), AnyCodable(std::numeric_limits<std::int64_t>::max()),
      AnyCodable(-1), AnyCodable(std::nan("")), AnyCodable(-1e308), AnyCodable(true),
      AnyCodable(Bytes(1000, 0xFF)), AnyCodable(bigList), AnyCodable(AnyDictionary{{"k", AnyCodable(1)}}),
      AnyCodable(Null{}),
  };
  const char* keys[] = {"subAction", "actionType", "Action", "shortcutName", "shortcut", "Name",
                        "conditionType", "negate", "pattern", "path", "appName", "envVar",
                        "expected", "startHour", "endHour", "dayOfWeek", "_previousResult",
                        "keyDown", "keyUp", "keycode", "Keycode", "modifiers", "command", "shift",
                        "option", "control", "capsLock", "function", "hasKey", "asciiCode",
                        "text", "Text", "string", "TypeText", "dateFormat", "Format", "filePath",
                        "Path", "charsPerSecond", "charSecond", "usePaste", "transform", "replacement",
                        "useClipboard", "pasteAfter", "writeToClipboard", "input", "paste", "Paste",
                        "appendToClipboard", "rules", "Rules", "applicationPath",
                        "AppPath", "appPath", "AppName", "hideOthers", "HideOthers", "force", "Force",
                        "order", "Order", "title", "Title", "message1", "Message1", "message",
                        "Message", "message2", "Message2", "button1Label", "button1", "Button1",
                        "button2Label", "button2", "Button2", "button1Action", "ButtonAction1",
                        "button2Action", "ButtonAction2", "provider",
                        "prompt", "systemPrompt", "model", "temperature", "maxTokens", "apiKey",
                        "endpoint", "url", "method", "headers", "body", "timeout", "menuPath",
                        "MenuPath", "matchType", "items", "Items", "MenuName", "MenuIndex",
                        "MenuSelection", "SubmenuName", "SubmenuIndex", "SubmenuSelection", "ItemName",
                        "ItemIndex", "ItemSelection", "Application", "onlyDisplayMenu",
                        "OnlyDisplayMenu", "displayOnly", "tile", "position", "x", "XValue", "y",
                        "YValue", "width", "height", "widthPercent", "heightPercent", "origin",
                        "Origin", "scrollCount", "Count", "scrollUnit", "Unit", "centerH", "centerV",
                        "coordSystem", "movements", "Movements", "operation", "source",
                        "destination", "newName", "folderPath", "documentPath", "DocPath", "address", "to",
                        "subject", "application", "printerName", "printer", "viewType", "newWindow", "closeAll",
                        "customWindow", "windowRect", "windowX", "windowW"};
  // The file actions take relative paths relative to the working folder:
  // a scratch one, so that the folders they make go away.
  struct ScratchWorkingFolder {
    testing::TempFolder folder{"orla-registry"};
    std::filesystem::path previous = std::filesystem::current_path();
    ScratchWorkingFolder() { std::filesystem::current_path(folder.path()); }
    ~ScratchWorkingFolder() { std::filesystem::current_path(previous); }
  } scratch;
  desktop->documents().setTrashFolder(scratch.folder / "Trash");

  desktop->setClipboardText(huge);
  // Typing a megabyte dozens of times would only time the simulation; the
  // typing plugin's readers still run in validate, and typing has tests of
  // its own.
  desktop->setAccessibilityTrusted(false);
  auto everyKind = [&](const ActionData& data) {
    for (const PluginInfo& info : PluginRegistry::table()) {
      ActionPlugin* plugin = registry.find(info.pluginClass);
      auto problem = validateAction(*plugin, data);
      PluginResult result = executeAction(*plugin, data);
      // Invalid parameters never run. (The sentence may differ: a missing
      // permission is reported before the parameters are read.)
      if (problem) {
        EXPECT_TRUE(result.isFailure()) << info.pluginClass << ": " << *problem;
      }
      if (result.hasMessage()) {
        EXPECT_FALSE(result.message().empty()) << info.pluginClass;
      }
    }
  };
  // One input at a time, each given to every kind, then changed in place:
  // the megabyte under every key is built once, not once per action type
  // (held all at once, the inputs took gigabytes and most of the time).
  everyKind(ActionData{});
  for (const AnyCodable& value : values) {
    ActionData all;
    for (const char* key : keys) all[key] = value;
    everyKind(all);
    for (std::int64_t type : {0, 1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 12, 13, 14, 15, 16, 19, 22}) {
      all["actionType"] = type;
      all["conditionType"] = type;
      everyKind(all);
    }
  }
  ActionData manyKeys;
  for (int i = 0; i < 20000; ++i) manyKeys["key" + std::to_string(i)] = AnyCodable(i);
  everyKind(manyKeys);
}

}  // namespace
}  // namespace orla
