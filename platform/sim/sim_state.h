// The simulated desktop's state as JSON: `orla --sim STATE.json` seeds it and
// `--state-out` writes it back in the same shape.
//
//   {"accessibilityTrusted": true, "now": "2026-11-21T09:30:00",
//    "timeZone": "Europe/Paris", "locale": "en_US",
//    "environment": {"HOME": "/home/ada"},
//    "clipboard": "a text", or null, or items: [[{"type": "public.rtf", "text": "{\\rtf1 …}"},
//                                                {"type": "public.utf8-plain-text", "text": "…"}],
//                                               [{"type": "public.png", "base64": "iVBORw0…"}]],
//    "scripts": [{"source": "tell application \"Finder\" …", "result": "/Users/ada"},
//                {"source": "…", "error": {"message": "…", "number": -1743}},
//                {"source": "…", "compiles": false}],
//    "host": {"bundleIdentifier": "...", "name": "Orla Pro", "pid": 100,
//             "frontmost": false, "activationPolicy": "accessory",
//             "titledWindow": false},
//    "lastUserApp": "com.apple.TextEdit",
//    "applications": [{"name": "Finder", "bundleIdentifier": "com.apple.finder",
//                      "pid": 200, "path": "/System/Library/CoreServices/Finder.app",
//                      "frontmost": true, "hidden": false,
//                      "textField": {"value": "Dear ", "selection": [5, 0],
//                                    "selectionContent": [[…items…]]},
//                      "activationPolicy": "regular",
//                      "launchDate": "2026-11-21T08:00:00", "quit": "asksToSave",
//                      "refusesActivation": false, "answersAppleEvents": true}],
//    "installedApplications": [{"path": "/Applications/Safari.app",
//                      "bundleIdentifier": "com.apple.Safari", "name": "Safari",
//                      "activationPolicy": "regular", "launchDelayMs": 800,
//                      "quit": "quits", "opensDocuments": true}],
//    "menuChoices": ["Safari", null], "alertAnswers": ["Stop", "1"],
//    "userDefaults": {"orKeepInDockAndAppSwitcher": true}}
//
// "keychain" holds the simulated keychain's items and access (see
// sim_keychain.h); "appleShortcuts", "shortcutsReachHelper" and
// "missingPrograms" the programs (sim_programs.h); "systemSounds" the names
// of the system sounds (sim_sounds.h); "screens", "mainScreen", "pointer"
// and each application's "menuBar", "windows" and "accessible" describe what
// is on screen (see sim_ui_state.h); "urlHandlers", "documentHandlers",
// "recentDocuments", "trashFolder", "printers", "defaultPrinter" and
// "printJobs" the documents side (sim_documents.h); "finder" the Finder's
// selection and windows (sim_finder.h).
//
// A text field's selection is a start and a length in UTF-16 units. "quit"
// is "quits", "asksToSave" (only forced termination ends it) or "refuses".
// An installed application with "launchDelayMs" null never appears after it
// is opened. "menuChoices" answer the pop-up menus in order (an item's title,
// or null to dismiss); "alertAnswers" the alerts (a button's title or
// number); the choices and answers not used are written back.
// "refusesActivation" and "answersAppleEvents" are behaviours of the
// simulation, written back only when they differ from a real application's.
// An installed application with "opensDocuments": false answers requests to
// open documents or addresses with an error. Each application needs a "pid"
// of its own (the host's included), each installed path and each keychain
// item (service and account) appears once, and "launchDelayMs" is a whole
// number of microseconds, so that what is written reads back the same.
//
// Every key is optional; an absent one keeps the desktop's default.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <orla/models/checked.h>
#include "platform/sim/sim_desktop.h"

namespace orla::sim {

// Applies `state` to `desktop`. A key of the wrong type is an error naming
// the key; unknown keys are ignored so that older hosts read newer files.
Checked<void> loadState(SimDesktop& desktop, const nlohmann::json& state);
nlohmann::json saveState(const SimDesktop& desktop);

}  // namespace orla::sim
