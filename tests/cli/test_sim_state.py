#!/usr/bin/env python3
"""The simulated desktop's state file, end to end: what `--sim` reads,
`--state-out` writes back, and what the loader refuses.

    python3 tests/cli/test_sim_state.py --orla build/dev/tools/orla/orla --examples examples
"""

import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import test_orla  # noqa: E402
from test_orla import OrlaTestCase  # noqa: E402

# Every key the loader documents, each with a value other than its default
# where it has one. "TRASH" becomes a real folder of the test.
EVERY_KEY = {'accessibilityTrusted': False,
     'now': '2026-11-21T09:30:00',
     'timeZone': 'America/New_York',
     'locale': 'fr_FR',
     'environment': {'HOME': '/Users/ada', 'LANG': 'fr_FR.UTF-8'},
     'clipboard': [[{'type': 'public.rtf', 'text': '{\\rtf1 hi}'},
                    {'type': 'public.utf8-plain-text', 'text': 'hi'}],
                   [{'type': 'public.png', 'base64': 'iVBORw0KGgo='}]],
     'scripts': [{'source': 'return 1', 'result': '1'},
                 {'source': 'error',
                  'error': {'message': 'Not allowed.', 'briefMessage': 'No.', 'number': -1743}},
                 {'source': 'broken', 'compiles': False}],
     'host': {'bundleIdentifier': 'pro.orla.Test',
              'name': 'Orla Test',
              'pid': 150,
              'frontmost': False,
              'activationPolicy': 'regular',
              'titledWindow': True,
              'textField': {'value': 'host text', 'selection': [0, 4]}},
     'lastUserApp': 'com.apple.TextEdit',
     'applications': [{'name': 'TextEdit',
                       'bundleIdentifier': 'com.apple.TextEdit',
                       'pid': 300,
                       'path': '/System/Applications/TextEdit.app',
                       'executablePath': '/System/Applications/TextEdit.app/Contents/MacOS/TextEdit',
                       'frontmost': True,
                       'hidden': False,
                       'activationPolicy': 'regular',
                       'launchDate': '2026-11-21T08:00:00',
                       'quit': 'asksToSave',
                       'refusesActivation': True,
                       'answersAppleEvents': False,
                       'textField': {'value': 'Dear 🙂 Ada',
                                     'selection': [5, 2],
                                     'selectionContent': [[{'type': 'public.png', 'base64': 'iVBORw0KGgo='}]]},
                       'accessible': True,
                       'menuBar': [{'title': 'File',
                                    'items': ['New',
                                              '-',
                                              {'title': 'Open Recent',
                                               'fillsWhenOpened': True,
                                               'items': ['notes.txt']},
                                              {'title': 'Save…', 'enabled': False},
                                              {'title': 'Wrap', 'mark': '✓'},
                                              {'title': 'Print…', 'actions': ['AXPick']}]}],
                       'windows': [{'title': 'Untitled',
                                    'frame': [100, 100, 800, 600],
                                    'minimized': False,
                                    'subrole': 'AXStandardWindow',
                                    'buttons': ['close', 'minimize', 'zoom', 'toolbar'],
                                    'toolbar': True,
                                    'movable': True,
                                    'resizable': True,
                                    'scrollBars': {'vertical': 0.25,
                                                   'horizontal': {'value': 0.5,
                                                                  'arrows': False,
                                                                  'pages': True}}}]},
                      {'name': 'Mail',
                       'bundleIdentifier': 'com.apple.mail',
                       'pid': 301,
                       'path': '/System/Applications/Mail.app',
                       'hidden': True,
                       'activationPolicy': 'accessory',
                       'quit': 'refuses'}],
     'installedApplications': [{'path': '/Applications/Safari.app',
                                'bundleIdentifier': 'com.apple.Safari',
                                'name': 'Safari',
                                'executablePath': '/Applications/Safari.app/Contents/MacOS/Safari',
                                'activationPolicy': 'regular',
                                'launchDelayMs': 800.5,
                                'quit': 'quits',
                                'opensDocuments': False},
                               {'path': '/Applications/Hang.app',
                                'bundleIdentifier': 'org.hang',
                                'name': 'Hang',
                                'activationPolicy': 'prohibited',
                                'launchDelayMs': None,
                                'quit': 'asksToSave'}],
     'menuChoices': ['Safari', None],
     'alertAnswers': ['Stop', '1'],
     'userDefaults': {'orKeepInDockAndAppSwitcher': True, 'count': 3, 'name': 'x'},
     'keychain': {'access': 'locked',
                  'items': [{'service': 'pro.orla.OrlaPro', 'account': 'a', 'password': 'p'}]},
     'appleShortcuts': [{'name': 'Translate', 'output': 'Bonjour', 'exitStatus': 1, 'errorOutput': 'oops'}],
     'shortcutsReachHelper': False,
     'missingPrograms': ['/usr/bin/lpr'],
     'systemSounds': ['Basso', 'Glass'],
     'screens': [{'frame': [0, 0, 1920, 1080], 'visibleFrame': [0, 25, 1920, 1055]},
                 {'frame': [1920, 0, 1280, 1024], 'visibleFrame': [1920, 0, 1280, 1024]}],
     'mainScreen': 1,
     'pointer': [960, 540],
     'urlHandlers': {'https': '/Applications/Firefox.app', 'gopher': '/Applications/Hang.app', 'http': None},
     'documentHandlers': {'pdf': '/Applications/Skim.app', 'txt': None},
     'recentDocuments': ['/Users/ada/Notes.txt', {'path': '/Users/ada/Plan.txt', 'name': 'The plan'}],
     'trashFolder': 'TRASH',
     'printers': ['Office', {'name': 'Home', 'accepting': False}],
     'defaultPrinter': 'Office',
     'printJobs': [{'printer': 'Office', 'document': '/Users/ada/Notes.pdf'}],
     'finder': {'selection': ['/Users/ada/Notes.txt'],
                'accessibilitySelection': ['/Users/ada/Plan.txt'],
                'windows': [{'target': '/Users/ada', 'view': 'list', 'bounds': [100, 100, 900, 700]}],
                'automationAllowed': False}}

# Lists whose order the desktop does not keep, with the field that names an entry.
# The speech synthesiser and the Focus modes.
EVERY_KEY.update({
    'voices': [{'identifier': 'com.example.ada', 'name': 'Ada', 'language': 'en-GB'},
               {'identifier': 'com.example.zoe', 'name': 'Zoé', 'language': 'fr-FR'}],
    'systemVoice': 'com.example.zoe',
    'speechStalls': True,
    'spoken': [{'text': 'Bonjour', 'voice': 'com.example.zoe', 'rate': 175.0, 'stopped': False}],
    'focus': {'modes': ['Do Not Disturb', 'Work', 'Sleep'], 'active': 'Sleep', 'switchDelayMs': 400,
              'refuses': False, 'needsAccessibility': False},
})

UNORDERED = {"scripts": "source", "installedApplications": "path"}


class StateFileTest(OrlaTestCase):
    def state_out(self, state, name="out.json"):
        out = self.tmp / name
        run = self.orla("--json", "--sim", self.write("in-" + name, state), "--state-out", out,
                        "validate", "OrlaShortcut")
        self.assertExit(run, 0)
        return json.loads(out.read_text(encoding="utf-8"))

    def assertContains(self, written, given, path=""):
        """Every key of `given` is in `written` with the same value; the desktop may add its defaults."""
        if isinstance(given, dict):
            self.assertIsInstance(written, dict, path)
            for key, value in given.items():
                self.assertIn(key, written, f"{path}/{key} was not written back")
                if key in UNORDERED and not path:
                    field = UNORDERED[key]
                    entries = {entry[field]: entry for entry in written[key]}
                    for entry in value:
                        self.assertIn(entry[field], entries, f"{path}/{key}: {entry[field]}")
                        self.assertContains(entries[entry[field]], entry, f"{path}/{key}/{entry[field]}")
                else:
                    self.assertContains(written[key], value, f"{path}/{key}")
        elif isinstance(given, list):
            self.assertIsInstance(written, list, path)
            self.assertEqual(len(written), len(given), path)
            for i, (w, g) in enumerate(zip(written, given)):
                self.assertContains(w, g, f"{path}/{i}")
        else:
            self.assertEqual(written, given, path)

    def round_trip(self, state):
        written = self.state_out(state)
        self.assertContains(written, state)
        self.assertEqual(self.state_out(written, "again.json"), written, "the written state reads back the same")

    def test_the_example_desktop_round_trips(self):
        state = json.loads((test_orla.EXAMPLES / "states" / "desktop.json").read_text(encoding="utf-8"))
        self.round_trip(state)

    def test_every_documented_key_round_trips(self):
        state = json.loads(json.dumps(EVERY_KEY).replace("TRASH", str(self.tmp / "Trash")))
        (self.tmp / "Trash").mkdir()
        self.round_trip(state)

    def test_a_switch_and_a_speech_land_in_the_written_state(self):
        state = {"focus": {"modes": ["Do Not Disturb", "Work"], "active": "Work", "switchDelayMs": 400}}
        (self.tmp / "in.json").write_text(json.dumps(state))
        out = self.tmp / "out.json"
        run = self.orla("--json", f"--sim={self.tmp / 'in.json'}", "--state-out", out, "run", "FocusModeAction",
                        json.dumps({"mode": "work", "state": "off"}))
        self.assertEqual(run.lines[0]["message"], "Turned “Work” off.")
        self.assertIsNone(json.loads(out.read_text())["focus"]["active"])
        run = self.orla("--json", f"--sim={out}", "--state-out", out, "run", "SpeechAction",
                        json.dumps({"text": "Read me", "voice": "daniel", "rate": 200}))
        self.assertEqual(run.lines[0]["message"], "Spoke 2 words with the voice “Daniel”.")
        self.assertEqual(json.loads(out.read_text())["spoken"],
                         [{"text": "Read me", "voice": "com.apple.voice.compact.en-GB.Daniel", "rate": 200.0,
                           "stopped": False}])

    def test_what_the_desktop_cannot_model_is_a_usage_error(self):
        def app(pid, **more):
            return {"name": f"App {pid}", "bundleIdentifier": f"org.app{pid}", "pid": pid, **more}

        def installed(path, **more):
            return {"path": path, **more}

        item = {"service": "pro.orla.OrlaPro", "account": "ada", "password": "x"}
        cases = [
            # (name, state, the whole message)
            ("two applications with one pid", {"applications": [app(300), app(300)]},
             "Simulated desktop state: two applications have the “pid” 300; each needs its own."),
            ("an application with the host's pid",
             {"host": {"pid": 100}, "applications": [app(100)]},
             "Simulated desktop state: an application has the host's “pid” 100; each needs its own."),
            ("the host given a running application's pid",
             {"applications": [app(300)], "host": {"pid": 300}},
             "Simulated desktop state: an application has the host's “pid” 300; each needs its own."),
            ("a pid past the largest", {"applications": [app(2**31)]},
             "Simulated desktop state: “pid” must be an integer from -2147483648 to 2147483647."),
            ("a pid far past the largest", {"applications": [app(2**64 - 1)]},
             "Simulated desktop state: “pid” must be an integer from -2147483648 to 2147483647."),
            ("a pid of 0", {"applications": [app(0)]},
             "Simulated desktop state: “pid” must be a process id from 1 to 4194304."),
            ("a pid no system hands out", {"applications": [app(2**31 - 1)]},
             "Simulated desktop state: “pid” must be a process id from 1 to 4194304."),
            ("a host pid of -1", {"host": {"pid": -1}},
             "Simulated desktop state: “pid” must be a process id from 1 to 4194304."),
            ("a selection whose length wraps around",
             {"applications": [app(300, textField={"value": "abc", "selection": [2, 2**64 - 1]})]},
             "Simulated desktop state: “selection” must be within the text field's value."),
            ("a selection past the end",
             {"applications": [app(300, textField={"value": "abc", "selection": [2, 2]})]},
             "Simulated desktop state: “selection” must be within the text field's value."),
            ("a delay finer than a microsecond",
             {"installedApplications": [installed("/Applications/A.app", launchDelayMs=0.0004)]},
             "Simulated desktop state: “launchDelayMs” must be a number of milliseconds from 0 to 10¹², "
             "in whole microseconds, or null."),
            ("a delay too long to keep",
             {"installedApplications": [installed("/Applications/A.app", launchDelayMs=1e300)]},
             "Simulated desktop state: “launchDelayMs” must be a number of milliseconds from 0 to 10¹², "
             "in whole microseconds, or null."),
            ("a negative delay",
             {"installedApplications": [installed("/Applications/A.app", launchDelayMs=-1)]},
             "Simulated desktop state: “launchDelayMs” must be a number of milliseconds from 0 to 10¹², "
             "in whole microseconds, or null."),
            ("one installed path twice",
             {"installedApplications": [installed("/Applications/A.app"), installed("/Applications/./A.app/")]},
             "Simulated desktop state: “installedApplications” lists “/Applications/A.app” twice; each path is "
             "one application."),
            ("opensDocuments a text",
             {"installedApplications": [installed("/Applications/A.app", opensDocuments="no")]},
             "Simulated desktop state: “opensDocuments” must be true or false."),
            ("one keychain item twice", {"keychain": {"items": [item, dict(item, password="y")]}},
             "Simulated desktop state: “keychain” items list the service “pro.orla.OrlaPro” with the account "
             "“ada” twice."),
            ("an exit status out of range", {"appleShortcuts": [{"name": "S", "exitStatus": 2**32}]},
             None),
            ("a Finder bound out of range",
             {"finder": {"windows": [{"target": "/", "bounds": [0, 0, 2**40, 10]}]}}, None),
        ]
        for name, state, message in cases:
            with self.subTest(name):
                run = self.orla("--json", "--sim", self.write("state.json", state), "validate", "OrlaShortcut")
                self.assertUsageError(run)
                if message:
                    self.assertEqual(run.stderr, "orla: " + message + "\n")

    def test_an_application_that_cannot_open_documents_says_so(self):
        (self.tmp / "notes.txt").write_text("n", encoding="utf-8")
        state = {"installedApplications": [
            {"path": "/Applications/Picky.app", "name": "Picky", "opensDocuments": False}]}
        cases = [
            ("DocumentShortcut", {"actionType": 2, "documentPath": str(self.tmp / "notes.txt"), "AppPath": "Picky"},
             'Picky could not open "notes.txt"'),
            ("URLShortcut", {"url": "https://example.com", "application": "/Applications/Picky.app"},
             "Picky could not open https://example.com"),
        ]
        for kind, params, message in cases:
            with self.subTest(kind):
                run = self.orla("--json", "--sim", self.write("state.json", state), "run", kind, json.dumps(params))
                self.assertExit(run, 1)
                self.assertEqual(run.lines[0]["message"], message)


if __name__ == "__main__":
    test_orla.main()
