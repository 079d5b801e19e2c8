#include "platform/sim/sim_state.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <orla/models/typing_target_context.h>

namespace orla::sim {
namespace {

using nlohmann::json;

TEST(SimState, LoadsEveryKeyAndWritesTheSameShape) {
  const json state = json::parse(R"({
    "accessibilityTrusted": false,
    "now": "2026-11-21T09:30:00",
    "timeZone": "Europe/Paris",
    "locale": "fr_FR",
    "environment": {"HOME": "/home/ada", "MODE": "work"},
    "clipboard": "hello",
    "host": {"bundleIdentifier": "pro.orla.Test", "name": "Orla Test", "pid": 42, "frontmost": false,
             "activationPolicy": "accessory", "titledWindow": true},
    "lastUserApp": "com.apple.TextEdit",
    "applications": [
      {"name": "Finder", "bundleIdentifier": "com.apple.finder", "pid": 200,
       "path": "/System/Library/CoreServices/Finder.app", "frontmost": false, "hidden": false,
       "activationPolicy": "regular", "quit": "quits"},
      {"name": "TextEdit", "bundleIdentifier": "com.apple.TextEdit", "pid": 201,
       "path": "/Applications/TextEdit.app", "frontmost": true, "hidden": true,
       "activationPolicy": "regular", "quit": "asksToSave", "launchDate": "2026-11-21T08:15:00"}
    ],
    "installedApplications": [
      {"path": "/Applications/Safari.app", "bundleIdentifier": "com.apple.Safari", "name": "Safari",
       "activationPolicy": "regular", "quit": "quits", "launchDelayMs": 800},
      {"path": "/Applications/TextEdit.app", "bundleIdentifier": "com.apple.TextEdit", "name": "TextEdit",
       "activationPolicy": "regular", "quit": "quits", "launchDelayMs": 0},
      {"path": "/System/Library/CoreServices/Finder.app", "bundleIdentifier": "com.apple.finder",
       "name": "Finder", "activationPolicy": "regular", "quit": "quits", "launchDelayMs": null}
    ],
    "menuChoices": ["Safari", null],
    "alertAnswers": ["Stop"],
    "userDefaults": {"orKeepInDockAndAppSwitcher": true},
    "screens": [{"frame": [0, 0, 1920, 1080], "visibleFrame": [0, 25, 1920, 1055]}],
    "mainScreen": 0, "pointer": [960, 540]
    })");
  SimDesktop desktop;
  auto loaded = loadState(desktop, state);
  ASSERT_TRUE(loaded) << loaded.error();
  EXPECT_FALSE(desktop.accessibilityTrusted());
  EXPECT_EQ(desktop.clipboardText(), "hello");
  EXPECT_EQ(desktop.frontmostApplication()->localizedName, "TextEdit");
  EXPECT_EQ(desktop.applications().size(), 3u);  // the host runs too
  EXPECT_EQ(TypingTargetContext::lastUserAppBundleID(), "com.apple.TextEdit");
  EXPECT_EQ(desktop.host().activationPolicy, ActivationPolicy::accessory);
  EXPECT_EQ(desktop.quitBehaviour(201), QuitBehaviour::asksToSave);
  EXPECT_TRUE(desktop.userDefaults().boolValue("orKeepInDockAndAppSwitcher"));
  EXPECT_EQ(desktop.applicationPath("com.apple.Safari"), "/Applications/Safari.app");
  EXPECT_EQ(saveState(desktop), state);
  TypingTargetContext::setLastUserAppBundleID(std::nullopt);
}

TEST(SimState, ClipboardItemsTextFieldsAndScriptsRoundTrip) {
  const json state = json::parse(R"({
    "clipboard": [[{"type": "public.rtf", "text": "{\\rtf1 hi}"}, {"type": "public.utf8-plain-text", "text": "hi"}],
                  [{"type": "public.png", "base64": "iVBORw0KGgo="}]],
    "scripts": [{"source": "(", "compiles": false},
                {"source": "error", "error": {"message": "Nope.", "number": -1743}},
                {"source": "return 1", "result": "1"}],
    "applications": [{"name": "Preview", "pid": 300, "frontmost": true,
      "textField": {"value": "[image]", "selection": [0, 7],
                    "selectionContent": [[{"type": "public.png", "base64": "iVBORw0KGgo="}]]}}]})");
  SimDesktop desktop;
  auto loaded = loadState(desktop, state);
  ASSERT_TRUE(loaded) << loaded.error();
  const PasteboardSnapshot items = desktop.clipboardItems();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(*items[1].bytes("public.png"), std::string("\x89PNG\r\n\x1a\n", 8));
  EXPECT_EQ(desktop.clipboardText(), "hi");
  EXPECT_EQ(desktop.scriptAnswer("error")->error->number, -1743);
  EXPECT_FALSE(desktop.scriptAnswer("(")->compiles);
  EXPECT_TRUE(desktop.textField(300)->selectionContent);
  const json saved = saveState(desktop);
  EXPECT_EQ(saved["clipboard"], state["clipboard"]);
  EXPECT_EQ(saved["scripts"], state["scripts"]);
  EXPECT_EQ(saved["applications"][0]["textField"], state["applications"][0]["textField"]);

  // One item of plain text is written as the text itself; none as null.
  desktop.setClipboardText("plain");
  EXPECT_EQ(saveState(desktop)["clipboard"], "plain");
  desktop.setClipboardItems({});
  EXPECT_EQ(saveState(desktop)["clipboard"], nullptr);
}

TEST(SimState, ProgramsAndSoundsRoundTripAndKeepTheirDefaultsOutOfTheFile) {
  const json state = json::parse(R"({
    "appleShortcuts": [{"name": "Translate", "output": "Bonjour"},
                       {"name": "Broken", "output": null, "exitStatus": 1, "errorOutput": "Error: no."}],
    "shortcutsReachHelper": false,
    "missingPrograms": ["/usr/bin/open", "/usr/bin/shortcuts"],
    "systemSounds": ["Glass", "Ping"]})");
  SimDesktop desktop;
  auto loaded = loadState(desktop, state);
  ASSERT_TRUE(loaded) << loaded.error();
  EXPECT_EQ(desktop.programs().appleShortcuts()[1],
            (AppleShortcut{"Broken", std::nullopt, 1, "Error: no."}));
  EXPECT_TRUE(desktop.programs().isMissing("/usr/bin/open"));
  EXPECT_EQ(desktop.sounds().systemSound("ping"), "Ping");
  EXPECT_EQ(desktop.sounds().systemSound("Basso"), std::nullopt);
  const json saved = saveState(desktop);
  for (const char* key : {"appleShortcuts", "shortcutsReachHelper", "missingPrograms", "systemSounds"})
    EXPECT_EQ(saved[key], state[key]) << key;

  const json fresh = saveState(SimDesktop());
  for (const char* key : {"appleShortcuts", "shortcutsReachHelper", "missingPrograms", "systemSounds"})
    EXPECT_FALSE(fresh.contains(key)) << key;
}

TEST(SimState, SpeechAndFocusRoundTripAndKeepTheirDefaultsOutOfTheFile) {
  const json state = json::parse(R"({
    "voices": [{"identifier": "en-x", "name": "Ada", "language": "en-GB"},
               {"identifier": "fr-x", "name": "Zoé", "language": "fr-FR"}],
    "systemVoice": "fr-x",
    "speechStalls": true,
    "spoken": [{"text": "bonjour", "voice": "fr-x", "rate": 175.0, "stopped": true}],
    "focus": {"modes": ["Do Not Disturb", "Work"], "active": "Work", "switchDelayMs": null,
              "refuses": true, "needsAccessibility": false}})");
  SimDesktop desktop;
  auto loaded = loadState(desktop, state);
  ASSERT_TRUE(loaded) << loaded.error();
  EXPECT_EQ(desktop.speech().systemVoice(), "fr-x");
  EXPECT_EQ(desktop.focus().state().active, "Work");
  EXPECT_EQ(desktop.focus().switchDelay(), std::nullopt);
  const json saved = saveState(desktop);
  for (const char* key : {"voices", "systemVoice", "speechStalls", "spoken", "focus"})
    EXPECT_EQ(saved[key], state[key]) << key;

  const json fresh = saveState(SimDesktop());
  for (const char* key : {"voices", "systemVoice", "speechStalls", "spoken", "focus"})
    EXPECT_FALSE(fresh.contains(key)) << key;
}

TEST(SimState, HostMarkedFrontmostWinsOverAnApplication) {
  SimDesktop desktop;
  ASSERT_TRUE(loadState(desktop, json::parse(R"({"host": {"frontmost": true},
      "applications": [{"name": "Finder", "frontmost": true}]})")));
  EXPECT_TRUE(desktop.hostIsFrontmost());
  EXPECT_EQ(desktop.frontmostApplication()->bundleIdentifier, desktop.host().bundleIdentifier);
}

TEST(SimState, NamesTheKeyThatIsWrong) {
  struct Case {
    const char* state;
    const char* message;
  };
  const Case cases[] = {
      {"[]", "Simulated desktop state must be a JSON object."},
      {R"({"accessibilityTrusted": "yes"})", "Simulated desktop state: “accessibilityTrusted” must be true or false."},
      {R"({"now": "tomorrow"})", "Simulated desktop state: “now” must be an ISO local date-time such as 2026-11-21T09:30:00."},
      {R"({"timeZone": "Mars/Olympus"})", "Simulated desktop state: the time zone “Mars/Olympus” is not known."},
      {R"({"environment": {"A": 1}})", "Simulated desktop state: “environment” must be an object of texts."},
      {R"({"clipboard": 5})", "Simulated desktop state: “clipboard” must be a text, null, or a list of items."},
      {R"({"clipboard": [{"type": "public.png"}]})",
       "Simulated desktop state: “clipboard” must be a list of items, each a list of {\"type\", \"text\" or \"base64\"}."},
      {R"({"clipboard": [[{"type": "public.png", "base64": "!!"}]]})",
       "Simulated desktop state: “clipboard” must be items whose “base64” is valid Base64."},
      {R"({"scripts": [{"source": 1}]})", "Simulated desktop state: “source” must be a text."},
      {R"({"applications": {}})", "Simulated desktop state: “applications” must be a list."},
      {R"({"applications": [{"pid": "200"}]})", "Simulated desktop state: “pid” must be an integer."},
      {R"({"host": {"name": false}})", "Simulated desktop state: “name” must be a text."},
      {R"({"host": {"activationPolicy": "dock"}})",
       "Simulated desktop state: “activationPolicy” must be “regular”, “accessory” or “prohibited”."},
      {R"({"applications": [{"quit": "never"}]})",
       "Simulated desktop state: “quit” must be “quits”, “asksToSave” or “refuses”."},
      {R"({"applications": [{"launchDate": "yesterday"}]})",
       "Simulated desktop state: “launchDate” must be an ISO local date-time such as 2026-11-21T09:30:00, or null."},
      {R"({"installedApplications": [{"name": "Safari"}]})",
       "Simulated desktop state: “path” must be the application's path."},
      {R"({"installedApplications": [{"path": "/A.app", "launchDelayMs": -1}]})",
       "Simulated desktop state: “launchDelayMs” must be a number of milliseconds from 0 to 10¹², in whole microseconds, "
       "or null."},
      {R"({"menuChoices": [1]})", "Simulated desktop state: “menuChoices” must be a list of item titles or nulls."},
      {R"({"alertAnswers": "OK"})", "Simulated desktop state: “alertAnswers” must be a list of button titles or numbers."},
      {R"({"userDefaults": []})", "Simulated desktop state: “userDefaults” must be an object."},
      {R"({"appleShortcuts": [{"output": "x"}]})",
       "Simulated desktop state: “appleShortcuts” must be a list of objects with a “name” text and optional "
       "“output”, “exitStatus” and “errorOutput”."},
      {R"({"appleShortcuts": [{"name": "A", "exitStatus": "1"}]})",
       "Simulated desktop state: “appleShortcuts” must be a list of objects with a “name” text and optional "
       "“output”, “exitStatus” and “errorOutput”."},
      {R"({"shortcutsReachHelper": 0})", "Simulated desktop state: “shortcutsReachHelper” must be true or false."},
      {R"({"missingPrograms": "/usr/bin/open"})", "Simulated desktop state: “missingPrograms” must be a list of paths."},
      {R"({"systemSounds": ["Ping", 2]})", "Simulated desktop state: “systemSounds” must be a list of sound names."},
      {R"({"voices": []})",
       "Simulated desktop state: “voices” must be a list of voices, each with a text “identifier”, “name” and "
       "“language”."},
      {R"({"voices": [{"identifier": "a", "name": "A", "language": ""}, {"identifier": "a", "name": "B", "language": ""}]})",
       "Simulated desktop state: “voices” must be a list of voices with different identifiers."},
      {R"({"systemVoice": "nobody"})", "Simulated desktop state: “systemVoice” must be the identifier of one of the voices."},
      {R"({"spoken": [{"text": "hi"}]})",
       "Simulated desktop state: “spoken” must be a list of speeches, each with a text “text” and “voice”, a “rate” "
       "and “stopped” true or false."},
      {R"({"focus": {"modes": ["Work", "Work"]}})",
       "Simulated desktop state: “focus” must be an object whose “modes” is a list of different names."},
      {R"({"focus": {"active": "Gym"}})",
       "Simulated desktop state: “focus” must be an object whose “active” is one of its modes, or null."},
      {R"({"focus": {"switchDelayMs": -5}})",
       "Simulated desktop state: “focus” must be an object whose “switchDelayMs” is a whole number of milliseconds "
       "up to an hour, or null."},
      {R"({"focus": {"refuses": "no"}})",
       "Simulated desktop state: “focus” must be an object whose “refuses” is true or false."},
  };
  for (const auto& c : cases) {
    SimDesktop desktop;
    auto loaded = loadState(desktop, json::parse(c.state));
    ASSERT_FALSE(loaded) << c.state;
    EXPECT_EQ(loaded.error(), c.message);
  }
}

}  // namespace
}  // namespace orla::sim
