#!/usr/bin/env python3
"""End-to-end tests of the `orla` command, through its JSON output.

Every run uses the simulated desktop (`--sim`), so nothing on the real desktop
is touched. Fixture files live in temporary folders made by the tests; only the
shortcuts in the examples folder are read from the source tree.

    python3 tests/cli/test_orla.py --orla build/dev/tools/orla/orla --examples examples

Without --orla the newest build/*/tools/orla/orla is used (or $ORLA); any other
arguments go to unittest (for example -v, or a test name with -k).
"""

import argparse
import http.server
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
ORLA = None  # path of the binary under test, set by main()
EXAMPLES = None  # the examples folder, set by main()

NOTIFICATION = "orOrlaPluginAction"


# ---------------------------------------------------------------------------
# Running orla


class Run:
    def __init__(self, args, completed):
        self.args = args
        self.code = completed.returncode
        self.stdout = completed.stdout
        self.stderr = completed.stderr

    @property
    def lines(self):
        """The stdout lines of a --json run, each parsed."""
        out = []
        for line in self.stdout.splitlines():
            try:
                out.append(json.loads(line))
            except json.JSONDecodeError as e:
                raise AssertionError(f"not a JSON line: {line!r} ({e}) from {self.args}")
        return out

    def __repr__(self):
        return f"orla {self.args} -> {self.code}\nstdout:\n{self.stdout}stderr:\n{self.stderr}"


class OrlaTestCase(unittest.TestCase):
    """Runs orla in a private working folder and writes fixtures there."""

    maxDiff = None

    def setUp(self):
        self._tmp = tempfile.TemporaryDirectory(prefix="orla-cli-")
        self.tmp = Path(self._tmp.name)
        # A working folder of its own: `--sim WORD` reads WORD as a state file
        # when a file of that name exists, so the caller's folder must not matter.
        self.cwd = self.tmp / "cwd"
        self.cwd.mkdir()

    def tearDown(self):
        self._tmp.cleanup()

    def orla(self, *args, stdin=None, env=None):
        completed = subprocess.run(
            [str(ORLA), *map(str, args)],
            input=stdin,
            capture_output=True,
            text=True,
            encoding="utf-8",
            cwd=self.cwd,
            env=env,
            timeout=20,
        )
        return Run(list(args), completed)

    def sim(self, *args, state=None, **kwargs):
        """orla --json --sim[=STATE] ARGS; `state` is a dict written to a file."""
        sim = "--sim"
        if state is not None:
            sim = "--sim=" + str(self.write("state.json", state))
        return self.orla("--json", sim, *args, **kwargs)

    def write(self, name, content):
        path = self.tmp / name
        path.parent.mkdir(parents=True, exist_ok=True)
        text = content if isinstance(content, str) else json.dumps(content, ensure_ascii=False)
        path.write_text(text, encoding="utf-8")
        return path

    def write_shortcut(self, name, actions, folder=None, file_name=None):
        folder = self.tmp / (folder or "shortcuts")
        file_name = file_name or name.lower().replace(" ", "-") + ".json"
        return self.write(str((folder / file_name).relative_to(self.tmp)),
                          {"name": name, "actions": actions})

    def assertExit(self, run, code):
        self.assertEqual(run.code, code, repr(run))

    def assertUsageError(self, run, fragment=None):
        """Exit 2, nothing on stdout, one line on stderr."""
        self.assertExit(run, 2)
        self.assertEqual(run.stdout, "", repr(run))
        self.assertTrue(run.stderr.startswith("orla: "), repr(run))
        self.assertTrue(run.stderr.endswith("\n"), repr(run))
        self.assertEqual(run.stderr.count("\n"), 1, repr(run))
        if fragment:
            self.assertIn(fragment, run.stderr)


# Building blocks of shortcuts.

def action(kind, **data):
    return {"kind": kind, "data": data}


def control(**data):
    return action("OrlaShortcut", **data)


def condition(condition_type, **data):
    return action("ConditionalAction", conditionType=condition_type, **data)


OPEN_EDITOR = control(subAction="openEditor")
OPEN_PREFERENCES = control(subAction="openPreferences")
SHOW_REPORT = control(subAction="showReport")
TOGGLE_ENGINE = control(subAction="toggleEngine")
LAST_ACTION = control(subAction="lastAction")
QUIT = control(subAction="quit")
UNKNOWN_COMMAND = control(actionType=99)


def run_by_name(name):
    return control(subAction="runByName", shortcutName=name)


# Conditions with a known outcome on the state below.
TRUE = condition(4, envVar="ORLA_MODE", expected="demo")
FALSE = condition(4, envVar="ORLA_MODE", expected="live")
INVALID = condition(5, startHour=9, endHour=9)

STATE = {"environment": {"ORLA_MODE": "demo"}}

# Expected output lines.

def result(kind, name, **extra):
    return {"kind": kind, "result": name, **extra}


def cond_line(value):
    return result("ConditionalAction", "conditionResult", value=value)


def control_success(message):
    return result("OrlaShortcut", "success", message=message)


def skipped(kind="OrlaShortcut"):
    return {"kind": kind, "skipped": True}


def host(action_name, **extra):
    return {"host": action_name, **extra}


EDITOR_LINES = [control_success("Opened the editor."), host("openEditor")]
PREFERENCES_LINES = [control_success("Opened Preferences."), host("openPreferences")]
REPORT_LINES = [control_success("Opened the activity report."), host("showReport")]
ENGINE_LINES = [control_success("Toggled the engine (shortcuts pause or resume)."),
                host("toggleEngine")]
LAST_ACTION_LINES = [result("OrlaShortcut", "silentSuccess"), host("lastAction")]
QUIT_LINES = [control_success("Quitting Orla."), host("quit")]
UNKNOWN_LINES = [result("OrlaShortcut", "failure",
                        message="Unknown Orla Control command. Choose one from the menu.")]
INVALID_LINES = [result("ConditionalAction", "failure",
                        message="End hour must be different from the start hour.")]


def ran_by_name(name, **extra):
    return [result("OrlaShortcut", "silentSuccess"), host("runByName", shortcutName=name, **extra)]


# ---------------------------------------------------------------------------


class ListTest(OrlaTestCase):
    def test_lists_the_whole_plugin_table(self):
        run = self.orla("--sim", "list", "--json")
        self.assertExit(run, 0)
        lines = run.lines
        self.assertEqual(len(run.stdout.splitlines()), 31)
        for line in lines:
            self.assertEqual(set(line), {"pluginClass", "className", "available"}, line)
            self.assertIsInstance(line["available"], bool, line)
        classes = {line["pluginClass"]: line for line in lines}
        self.assertEqual(len(classes), 31, "plugin classes must be unique")
        for plugin_class, class_name in [("OrlaShortcut", "OrlaPlugin"),
                                         ("ConditionalAction", "ConditionalPlugin"),
                                         ("ApplicationShortcut", "ApplicationPlugin"),
                                         ("MessageShortcut", "MessagePlugin")]:
            self.assertEqual(classes[plugin_class]["className"], class_name)
            self.assertTrue(classes[plugin_class]["available"], plugin_class)
        # The two class strings that do not follow their class names.
        self.assertEqual(classes["KeyboardShortcut"]["className"], "TypeTextPlugin")
        self.assertEqual(classes["CommandShortcut"]["className"], "ShellCommandPlugin")

    def test_marks_what_works_on_the_desktop_it_runs_on(self):
        def available(*args):
            run = self.orla(*args, "list", "--json")
            self.assertExit(run, 0)
            return {line["pluginClass"]: line["available"] for line in run.lines}

        simulated = available("--sim")
        for kind in ("AppleScriptShortcut", "ShortcutsAppAction", "MenuShortcut", "MessageShortcut"):
            self.assertTrue(simulated[kind], kind)
        for kind in ("SpeechAction", "FocusModeAction"):
            self.assertTrue(simulated[kind], kind)
        # The simulated desktop has servers and network locations.
        self.assertTrue(simulated["NetworkShortcut"])
        if sys.platform.startswith("linux"):
            native = available()
            # No AppleScript and no Shortcuts app on Linux, whatever the display.
            self.assertFalse(native["AppleScriptShortcut"])
            self.assertFalse(native["ShortcutsAppAction"])
            self.assertTrue(native["CommandShortcut"])
            self.assertEqual(native["KeyShortcut"], bool(os.environ.get("DISPLAY")))
            # The folder menu needs pop-up menus, which need a display.
            self.assertEqual(native["FolderShortcut"], bool(os.environ.get("DISPLAY")))
            # Speech is espeak-ng's everywhere; do not disturb needs GNOME's
            # notification settings installed.
            self.assertTrue(native["SpeechAction"])
            schema = subprocess.run(["gsettings", "list-keys", "org.gnome.desktop.notifications"],
                                    capture_output=True, text=True)
            self.assertEqual(native["FocusModeAction"], "show-banners" in schema.stdout.split())
        run = self.orla("--sim", "list")
        self.assertIn("available", run.stdout)
        self.assertRegex(run.stdout, r"NetworkShortcut +NetworkPlugin +available")
        if sys.platform.startswith("linux"):
            self.assertRegex(self.orla("list").stdout,
                             r"AppleScriptShortcut +AppleScriptPlugin +not on this desktop")


class ValidateTest(OrlaTestCase):
    CASES = [
        # (name, kind, params, valid, message)
        ("empty control", "OrlaShortcut", {}, True, None),
        ("control by name", "OrlaShortcut", {"subAction": "report"}, True, None),
        ("run by name with a name", "OrlaShortcut",
         {"actionType": 9, "shortcutName": "Tidy up"}, True, None),
        ("run by name without a name", "OrlaShortcut",
         {"actionType": 9, "shortcutName": "   "}, False,
         "Enter the exact name of the shortcut to run."),
        ("unknown command", "OrlaShortcut", {"actionType": 10}, False,
         "Unknown Orla Control command. Choose one from the menu."),
        ("negative command", "OrlaShortcut", {"actionType": -1}, False,
         "Unknown Orla Control command. Choose one from the menu."),
        ("clipboard condition", "ConditionalAction", {"pattern": "x"}, True, None),
        ("clipboard condition without text", "ConditionalAction", {}, False,
         "Enter the text to look for on the clipboard."),
        ("bad regular expression", "ConditionalAction", {"conditionType": 1, "pattern": "("},
         False, "That regular expression is not valid."),
        ("equal hours", "ConditionalAction",
         {"conditionType": 5, "startHour": 9, "endHour": 9}, False,
         "End hour must be different from the start hour."),
        ("hour out of range", "ConditionalAction",
         {"conditionType": 5, "startHour": 25, "endHour": 25}, False,
         "Hours must be between 0 and 24."),
        ("unknown condition", "ConditionalAction", {"conditionType": 8}, False,
         "Unknown condition. Choose one from the menu."),
    ]

    def test_validate(self):
        for name, kind, params, valid, message in self.CASES:
            with self.subTest(name):
                run = self.sim("validate", kind, json.dumps(params))
                self.assertExit(run, 0 if valid else 1)
                expected = {"kind": kind, "valid": valid}
                if message:
                    expected["message"] = message
                self.assertEqual(run.lines, [expected])

    def test_kind_outside_this_build_is_invalid_not_a_usage_error(self):
        run = self.sim("validate", "KeyShortcut", "{}")
        self.assertExit(run, 1)
        [line] = run.lines
        self.assertEqual((line["kind"], line["valid"]), ("KeyShortcut", False))
        self.assertTrue(line["message"].endswith("."), line)

    def test_validate_does_not_run_the_action(self):
        run = self.sim("--trace", "validate", "OrlaShortcut", '{"subAction": "quit"}')
        self.assertExit(run, 0)
        self.assertEqual(run.lines, [{"kind": "OrlaShortcut", "valid": True}])


class RunTest(OrlaTestCase):
    CASES = [
        # (name, kind, params, exit status, lines)
        ("success with a message", "OrlaShortcut", {}, 0, EDITOR_LINES),
        ("name wins over number", "OrlaShortcut", {"subAction": "report", "actionType": 2}, 0,
         REPORT_LINES),
        ("silent success", "OrlaShortcut", {"subAction": "last"}, 0, LAST_ACTION_LINES),
        ("run by name without a library", "OrlaShortcut",
         {"subAction": "runShortcut", "shortcutName": " Tidy up "}, 0,
         ran_by_name("Tidy up",
                     error="no shortcut library; give `orla sequence` a folder")),
        ("condition true", "ConditionalAction",
         {"conditionType": 4, "envVar": "ORLA_MODE", "expected": "demo"}, 0, [cond_line(True)]),
        ("condition false still succeeds", "ConditionalAction",
         {"conditionType": 4, "envVar": "ORLA_MODE", "expected": "live"}, 0, [cond_line(False)]),
        ("negated condition", "ConditionalAction",
         {"conditionType": 4, "envVar": "ORLA_MODE", "expected": "live", "negate": 1}, 0,
         [cond_line(True)]),
        ("failure", "OrlaShortcut", {"actionType": 99}, 1, UNKNOWN_LINES),
        ("condition failure", "ConditionalAction",
         {"conditionType": 5, "startHour": 9, "endHour": 9}, 1, INVALID_LINES),
    ]

    def test_run(self):
        for name, kind, params, code, lines in self.CASES:
            with self.subTest(name):
                run = self.sim("run", kind, json.dumps(params), state=STATE)
                self.assertExit(run, code)
                self.assertEqual(run.lines, lines)

    def test_kind_outside_this_build_fails_with_a_sentence(self):
        run = self.sim("run", "KeyShortcut", "{}")
        self.assertExit(run, 1)
        [line] = run.lines
        self.assertEqual((line["kind"], line["result"]), ("KeyShortcut", "failure"))
        self.assertTrue(line["message"].endswith("."), line)

    def test_params_sources(self):
        params = {"subAction": "runByName", "shortcutName": "  Café “Tidy” …\n"}
        text = json.dumps(params, ensure_ascii=False)
        params_file = self.write("params.json", "\n" + text + "\n")
        expected = ran_by_name("Café “Tidy” …",
                               error="no shortcut library; give `orla sequence` a folder")
        name_file = self.write("name.txt", params["shortcutName"])
        by_file = json.dumps({"subAction": "runByName", "shortcutName": {"$file": str(name_file)}})
        relative = json.dumps({"subAction": "runByName", "shortcutName": {"$file": "../name.txt"}})
        cases = [
            ("inline", [text], None),
            ("@FILE", ["@" + str(params_file)], None),
            ("standard input", ["-"], text),
            ("a value from a file", [by_file], None),
            ("a value from a file, from standard input", ["-"], by_file),
            ("a value from a file named from the working folder", [relative], None),
        ]
        for name, args, stdin in cases:
            with self.subTest(name):
                run = self.sim("run", "OrlaShortcut", *args, stdin=stdin)
                self.assertExit(run, 0)
                self.assertEqual(run.lines, expected)
        with self.subTest("no PARAMS means {}"):
            run = self.sim("run", "OrlaShortcut")
            self.assertExit(run, 0)
            self.assertEqual(run.lines, EDITOR_LINES)

    def test_options_after_the_subcommand(self):
        run = self.orla("run", "--sim", "--json", "OrlaShortcut", '{"actionType": 2}')
        self.assertExit(run, 0)
        self.assertEqual(run.lines, PREFERENCES_LINES)


class UsageErrorTest(OrlaTestCase):
    def test_usage_errors(self):
        bad_json = self.write("bad.json", '{"subAction": ')
        missing = self.tmp / "missing.json"
        cases = [
            # (name, args, stdin, fragment of the message)
            ("unknown kind for run", ["run", "NoSuchShortcut", "{}"], None, "“NoSuchShortcut”"),
            ("unknown kind for validate", ["validate", "orlashortcut", "{}"], None,
             "“orlashortcut”"),
            ("malformed JSON", ["run", "OrlaShortcut", '{"actionType": 2'], None,
             "at line 1, column 17."),
            ("columns count characters", ["run", "OrlaShortcut", '{"ä": é'], None,
             "at line 1, column 7."),
            ("PARAMS a list", ["run", "OrlaShortcut", "[1, 2]"], None, None),
            ("PARAMS a text", ["run", "OrlaShortcut", '"openEditor"'], None, None),
            ("PARAMS a number", ["validate", "OrlaShortcut", "3"], None, None),
            ("unreadable @FILE", ["run", "OrlaShortcut", "@" + str(missing)], None,
             str(missing)),
            ("malformed @FILE", ["run", "OrlaShortcut", "@" + str(bad_json)], None, None),
            ("malformed standard input", ["run", "OrlaShortcut", "-"], "{nope", None),
            ("empty standard input", ["run", "OrlaShortcut", "-"], "", None),
            ("no subcommand", [], None, None),
            ("missing kind", ["run"], None, None),
            ("extra argument", ["run", "OrlaShortcut", "{}", "more"], None, None),
        ]
        for name, args, stdin, fragment in cases:
            with self.subTest(name):
                self.assertUsageError(self.sim(*args, stdin=stdin), fragment)

    def test_file_values_name_the_path_and_parameter_only(self):
        latin1 = self.tmp / "latin1.txt"
        latin1.write_bytes("café".encode("latin-1"))
        nul = self.tmp / "nul.txt"
        nul.write_bytes(b"a\0b")
        missing = self.tmp / "missing.txt"
        secret = "sk-do-not-echo-1234"
        cases = [
            # (name, path, fragments the sentence must hold)
            ("missing", missing, [str(missing), "“shortcutName”", "No such file"]),
            ("not UTF-8", latin1, [str(latin1), "“shortcutName”", "not UTF-8 text"]),
            ("a NUL", nul, ["“shortcutName”", "NUL character"]),
            ("a folder", self.tmp, [str(self.tmp), "“shortcutName”"]),
        ]
        for name, path, fragments in cases:
            with self.subTest(name):
                params = {"subAction": "runByName", "apiKey": secret, "shortcutName": {"$file": str(path)}}
                run = self.sim("run", "OrlaShortcut", json.dumps(params))
                self.assertUsageError(run)
                for fragment in fragments:
                    self.assertIn(fragment, run.stderr)
                self.assertNotIn(secret, run.stderr + run.stdout)

    def test_state_files_need_sim(self):
        out = self.tmp / "out.json"
        self.assertUsageError(self.orla("--json", "--state-out", out, "run", "OrlaShortcut"))
        self.assertFalse(out.exists())
        self.assertUsageError(self.orla("--json", "--trace", "run", "OrlaShortcut"), "--sim")

    def test_usage_error_writes_no_state_file(self):
        out = self.tmp / "out.json"
        for args in (["run", "NoSuchKind"], ["run", "OrlaShortcut", "{bad"],
                     ["sequence", self.tmp / "absent.json"]):
            with self.subTest(args=args):
                self.assertUsageError(self.sim("--state-out", out, *args))
                self.assertFalse(out.exists())

    def test_unwritable_state_out_stops_before_any_action(self):
        run = self.sim("--state-out", self.tmp / "absent" / "out.json", "run", "OrlaShortcut")
        self.assertUsageError(run, "cannot write")

    def test_sim_after_the_subcommand_takes_no_file(self):
        path = self.write_shortcut("one", [OPEN_EDITOR])
        run = self.orla("--json", "sequence", "--sim", path)
        self.assertEqual(run.code, 0, run.stderr)
        self.assertIn('"kind":"OrlaShortcut"', run.stdout.replace(" ", ""))

    def test_malformed_state_files(self):
        cases = [
            # (name, file content, fragment of the message)
            ("not JSON", '{"now": ', "not valid JSON"),
            ("not an object", "[]", None),
            ("clipboard a number", {"clipboard": 5}, "“clipboard”"),
            ("unknown time zone", {"timeZone": "Mars/Olympus_Mons"}, "“Mars/Olympus_Mons”"),
            ("now not a date", {"now": "tomorrow morning"}, "“now”"),
            ("applications an object", {"applications": {"name": "Finder"}}, "“applications”"),
            ("application name a number", {"applications": [{"name": 3}]}, "“name”"),
            ("environment value a number", {"environment": {"HOME": 1}}, "“environment”"),
            ("trusted a text", {"accessibilityTrusted": "yes"}, "“accessibilityTrusted”"),
        ]
        for name, content, fragment in cases:
            with self.subTest(name):
                path = self.write("state.json", content)
                run = self.orla("--json", "--sim", path, "run", "OrlaShortcut")
                self.assertUsageError(run, fragment)
        with self.subTest("missing state file"):
            run = self.orla("--json", "--sim", self.tmp / "none.json", "run", "OrlaShortcut")
            self.assertUsageError(run, "none.json")


class ConditionOnSimulatedDesktopTest(OrlaTestCase):
    """The desktop state a state file seeds is what the conditions see."""

    APPS = {"applications": [
        {"name": "Finder", "bundleIdentifier": "com.apple.finder"},
        {"name": "TextEdit", "bundleIdentifier": "com.apple.TextEdit", "frontmost": True},
    ]}

    def at(self, now, time_zone="Europe/Paris"):
        return {"now": now, "timeZone": time_zone}

    def cases(self):
        saturday_night = self.at("2026-11-21T23:30:00")
        return [
            # (name, state, condition params, expected value)
            ("hour in a range past midnight", saturday_night,
             {"conditionType": 5, "startHour": 22, "endHour": 6}, True),
            ("hour outside the working day", saturday_night,
             {"conditionType": 5, "startHour": 9, "endHour": 17}, False),
            ("last minute inside a wrapping range", self.at("2026-11-22T05:59:00"),
             {"conditionType": 5, "startHour": 22, "endHour": 6}, True),
            ("end hour is outside", self.at("2026-11-22T06:00:00"),
             {"conditionType": 5, "startHour": 22, "endHour": 6}, False),
            ("start hour is inside", self.at("2026-11-23T09:00:00", "America/New_York"),
             {"conditionType": 5, "startHour": 9, "endHour": 17}, True),
            ("whole day", saturday_night, {"conditionType": 5, "startHour": 0, "endHour": 24}, True),
            ("Saturday", saturday_night, {"conditionType": 6, "dayOfWeek": 7}, True),
            ("not Sunday", saturday_night, {"conditionType": 6, "dayOfWeek": 1}, False),
            ("app by name in lower case", self.APPS, {"conditionType": 3, "appName": "finder"}, True),
            ("app by bundle identifier in upper case", self.APPS,
             {"conditionType": 3, "appName": "COM.APPLE.TEXTEDIT"}, True),
            ("app not running", self.APPS, {"conditionType": 3, "appName": "Safari"}, False),
            ("no apps running", {"applications": []},
             {"conditionType": 3, "appName": "Finder"}, False),
            ("environment equal", STATE,
             {"conditionType": 4, "envVar": "ORLA_MODE", "expected": "demo"}, True),
            ("environment compared exactly", STATE,
             {"conditionType": 4, "envVar": "ORLA_MODE", "expected": "demo "}, False),
            ("environment variable not set", STATE,
             {"conditionType": 4, "envVar": "ORLA_NONE", "expected": ""}, False),
            ("environment variable not set, negated", STATE,
             {"conditionType": 4, "envVar": "ORLA_NONE", "expected": "", "negate": True}, True),
            # The real process has it (see test_conditions), the seeded desktop does not.
            ("seeded environment replaces the real one", STATE,
             {"conditionType": 4, "envVar": "ORLA_CLI_TEST_REAL", "expected": "1"}, False),
            ("clipboard contains", {"clipboard": "Grüße an “Ada” …"},
             {"conditionType": 0, "pattern": "“Ada”"}, True),
            ("clipboard contains is case-sensitive", {"clipboard": "Grüße an “Ada” …"},
             {"conditionType": 0, "pattern": "grüße"}, False),
            ("clipboard matches", {"clipboard": "https://example.com/a"},
             {"conditionType": 1, "pattern": r"^https?://\S+$"}, True),
            ("empty clipboard contains nothing", {"clipboard": None},
             {"conditionType": 0, "pattern": "a"}, False),
        ]

    def test_conditions(self):
        env = dict(os.environ, ORLA_CLI_TEST_REAL="1")
        for name, state, params, value in self.cases():
            with self.subTest(name):
                run = self.sim("run", "ConditionalAction", json.dumps(params), state=state, env=env)
                self.assertExit(run, 0)
                self.assertEqual(run.lines, [cond_line(value)])

    def test_unknown_state_keys_are_ignored(self):
        run = self.sim("run", "ConditionalAction", json.dumps(TRUE["data"]),
                       state={**STATE, "futureKey": {"anything": [1]}})
        self.assertExit(run, 0)
        self.assertEqual(run.lines, [cond_line(True)])


class SequenceTest(OrlaTestCase):
    CASES = [
        # (name, actions, exit status, lines)
        ("false condition skips the next action only",
         [FALSE, OPEN_EDITOR, OPEN_PREFERENCES], 0,
         [cond_line(False), skipped(), *PREFERENCES_LINES]),
        ("true condition runs the next action",
         [TRUE, OPEN_EDITOR], 0, [cond_line(True), *EDITOR_LINES]),
        ("negated false condition runs the next action",
         [condition(4, envVar="ORLA_MODE", expected="live", negate=True), OPEN_EDITOR], 0,
         [cond_line(True), *EDITOR_LINES]),
        ("a skipped condition decides nothing",
         [FALSE, FALSE, OPEN_EDITOR], 0,
         [cond_line(False), skipped("ConditionalAction"), *EDITOR_LINES]),
        ("a false condition at the end",
         [OPEN_EDITOR, FALSE], 0, [*EDITOR_LINES, cond_line(False)]),
        ("a failed condition stops the shortcut",
         [INVALID, OPEN_EDITOR], 1, INVALID_LINES),
        ("a failure in the middle stops the shortcut",
         [OPEN_EDITOR, UNKNOWN_COMMAND, OPEN_PREFERENCES], 1,
         [*EDITOR_LINES, *UNKNOWN_LINES]),
        ("quitting ends the shortcut",
         [QUIT, OPEN_EDITOR], 0, QUIT_LINES),
        ("a false condition skips a quit",
         [FALSE, QUIT, OPEN_EDITOR], 0, [cond_line(False), skipped(), *EDITOR_LINES]),
        ("an empty shortcut", [], 0, []),
    ]

    def test_sequences(self):
        for name, actions, code, lines in self.CASES:
            with self.subTest(name):
                path = self.write_shortcut(name, actions)
                run = self.sim("sequence", path, state=STATE)
                self.assertExit(run, code)
                self.assertEqual(run.lines, lines)

    def test_keep_going_runs_past_failures(self):
        cases = [
            ("a failed condition does not skip",
             [INVALID, OPEN_EDITOR], [*INVALID_LINES, *EDITOR_LINES]),
            ("a failure in the middle",
             [OPEN_EDITOR, UNKNOWN_COMMAND, OPEN_PREFERENCES],
             [*EDITOR_LINES, *UNKNOWN_LINES, *PREFERENCES_LINES]),
        ]
        for name, actions, lines in cases:
            with self.subTest(name):
                path = self.write_shortcut(name, actions)
                run = self.sim("sequence", "--keep-going", path, state=STATE)
                self.assertExit(run, 1)
                self.assertEqual(run.lines, lines)

    def test_previous_result(self):
        def contains(pattern, **data):
            return condition(7, pattern=pattern, **data)

        cases = [
            # (name, actions, value the last condition sees)
            ("message of the action before", [OPEN_EDITOR, contains("editor")], True),
            ("compared case-sensitively", [OPEN_EDITOR, contains("Editor")], False),
            ("a failure's message counts", [UNKNOWN_COMMAND, contains("Choose one")], True),
            ("silent success has no message", [LAST_ACTION, contains("last")], False),
            ("only the action just before", [OPEN_EDITOR, OPEN_PREFERENCES, contains("editor")],
             False),
            ("a condition has no message", [OPEN_EDITOR, contains("editor"), contains("editor")],
             False),
            ("the host's value wins over a stored one",
             [contains("editor", _previousResult="Opened the editor.")], False),
        ]
        for name, actions, value in cases:
            with self.subTest(name):
                # Past a failure only with --keep-going.
                run = self.sim("sequence", "--keep-going", self.write_shortcut(name, actions))
                self.assertEqual(run.lines[-1], cond_line(value), repr(run))

    def test_shortcut_file_errors(self):
        cases = [
            # (name, file content, fragment of the message)
            ("not JSON", '{"actions": [', "not valid JSON at line 1, column 14"),
            ("where it stops being JSON",
             '{\n  "actions": [\n    {"kind": "OrlaShortcut",}\n]}', "at line 3, column 29"),
            ("no actions", {"name": "x"}, '"actions"'),
            ("action without kind", {"actions": [{"data": {}}]}, "action 1"),
            ("unknown kind", {"actions": [OPEN_EDITOR, action("Nope")]}, "“Nope”"),
            ("data not an object", {"actions": [{"kind": "OrlaShortcut", "data": [1]}]},
             '"data"'),
        ]
        for name, content, fragment in cases:
            with self.subTest(name):
                path = self.write("bad-shortcut.json", content)
                self.assertUsageError(self.sim("sequence", path), fragment)
        with self.subTest("missing file"):
            self.assertUsageError(self.sim("sequence", self.tmp / "absent.json"), "absent.json")


class LibraryTest(OrlaTestCase):
    """`orla sequence FOLDER NAME` and the control plugin's "run by name"."""

    def setUp(self):
        super().setUp()
        self.library = self.tmp / "library"
        shortcuts = {
            "Outer": [OPEN_EDITOR, run_by_name("Inner"), OPEN_PREFERENCES],
            "Inner": [TOGGLE_ENGINE, run_by_name("Innermost"), FALSE],
            "Innermost": [LAST_ACTION],
            "Skip a call": [FALSE, run_by_name("Inner"), OPEN_EDITOR],
            "Quit inside": [run_by_name("Quitter"), OPEN_EDITOR],
            "Quitter": [QUIT, SHOW_REPORT],
            "Missing": [run_by_name("Nobody"), OPEN_EDITOR],
            "Loop": [run_by_name("Loop")],
            "Failing": [UNKNOWN_COMMAND],
            "Call a failure": [run_by_name("Failing"), OPEN_EDITOR],
        }
        for name, actions in shortcuts.items():
            self.write_shortcut(name, actions, folder="library")
        # Without "name" the file name (less ".json") is the shortcut's name.
        self.write("library/named-by-file.json", {"actions": [SHOW_REPORT]})
        # Only *.json files directly in the folder belong to the library.
        self.write("library/notes.txt", "not a shortcut")
        self.write("library/states/state.json", "not a shortcut either")

    def test_run_by_name(self):
        inner = [*ENGINE_LINES, *ran_by_name("Innermost"), *LAST_ACTION_LINES, cond_line(False)]
        cases = [
            # (name, exit status, lines)
            ("Outer", 0, [*EDITOR_LINES, *ran_by_name("Inner"), *inner, *PREFERENCES_LINES]),
            ("Skip a call", 0, [cond_line(False), skipped(), *EDITOR_LINES]),
            ("Quit inside", 0, [*ran_by_name("Quitter"), *QUIT_LINES]),
            ("Missing", 0, [*ran_by_name("Nobody", error="no shortcut has this name"),
                            *EDITOR_LINES]),
            ("named-by-file", 0, REPORT_LINES),
            ("Call a failure", 1, [*ran_by_name("Failing"), *UNKNOWN_LINES]),
        ]
        for name, code, lines in cases:
            with self.subTest(name):
                run = self.sim("sequence", self.library, name, state=STATE)
                self.assertExit(run, code)
                self.assertEqual(run.lines, lines)

    def test_self_recursion_is_cut_off(self):
        run = self.sim("sequence", self.library, "Loop")
        self.assertExit(run, 0)
        lines = run.lines
        calls = [line for line in lines if "host" in line]
        results = [line for line in lines if "kind" in line]
        self.assertEqual(len(lines), len(calls) + len(results))
        self.assertGreater(len(calls), 2, "a shortcut must be able to run another more than once deep")
        self.assertEqual(len(calls), len(results))
        for call in calls[:-1]:
            self.assertEqual(call, host("runByName", shortcutName="Loop"))
        self.assertEqual(calls[-1], host("runByName", shortcutName="Loop",
                                         error="shortcuts run each other too deeply"))
        self.assertEqual(lines[-1], calls[-1])

    def test_library_errors(self):
        empty = self.tmp / "empty"
        empty.mkdir()
        broken = self.tmp / "broken"
        self.write("broken/good.json", {"name": "Good", "actions": [OPEN_EDITOR]})
        self.write("broken/zz-bad.json", "{")
        twins = self.tmp / "twins"
        self.write("twins/a.json", {"name": "Same", "actions": [OPEN_EDITOR]})
        self.write("twins/b.json", {"name": "Same", "actions": [OPEN_EDITOR]})
        cases = [
            # (name, args, fragment of the message)
            ("no name", [self.library], None),
            ("unknown name", [self.library, "outer"], "“outer”"),
            ("empty folder", [empty, "Anything"], None),
            ("a broken file", [broken, "Good"], "zz-bad.json"),
            ("two shortcuts of one name", [twins, "Same"], "“Same”"),
        ]
        for name, args, fragment in cases:
            with self.subTest(name):
                self.assertUsageError(self.sim("sequence", *args), fragment)


class TraceTest(OrlaTestCase):
    def test_trace(self):
        editor_note = {"trace": "notification", "text": f"{NOTIFICATION} action=openEditor"}
        cases = [
            # (name, args, lines)
            ("control command", ["run", "OrlaShortcut"], [*EDITOR_LINES, editor_note]),
            ("run by name carries the name",
             ["run", "OrlaShortcut", '{"actionType": 9, "shortcutName": "Tidy up"}'],
             [*ran_by_name("Tidy up",
                           error="no shortcut library; give `orla sequence` a folder"),
              {"trace": "notification",
               "text": f"{NOTIFICATION} action=runByName shortcutName=Tidy up"}]),
            ("a condition posts nothing", ["run", "ConditionalAction", '{"pattern": "x"}'],
             [cond_line(False)]),
        ]
        for name, args, lines in cases:
            with self.subTest(name):
                run = self.sim("--trace", *args, state={"clipboard": "y"})
                self.assertExit(run, 0)
                self.assertEqual(run.lines, lines)

    def test_trace_follows_the_results_in_order(self):
        path = self.write_shortcut("Three", [OPEN_EDITOR, FALSE, SHOW_REPORT, OPEN_PREFERENCES])
        run = self.sim("--trace", "sequence", path, state=STATE)
        self.assertExit(run, 0)
        lines = run.lines
        first_trace = next(i for i, line in enumerate(lines) if "trace" in line)
        self.assertFalse(any("trace" not in line for line in lines[first_trace:]), repr(run))
        notes = [line["text"] for line in lines[first_trace:] if line["trace"] == "notification"]
        self.assertEqual(notes, [f"{NOTIFICATION} action=openEditor",
                                 f"{NOTIFICATION} action=openPreferences"])

    def test_no_trace_without_the_option(self):
        run = self.sim("run", "OrlaShortcut")
        self.assertEqual(run.lines, EDITOR_LINES)


class StateOutTest(OrlaTestCase):
    STATE = {
        "now": "2026-11-21T09:30:00",
        "timeZone": "Asia/Tokyo",
        "environment": {"HOME": "/Users/ada", "ORLA_MODE": "demo"},
        "clipboard": "Grüße, “Ada” … 🙂\nzweite Zeile",
        "applications": [
            {"name": "Finder", "bundleIdentifier": "com.apple.finder", "frontmost": True},
            {"name": "Mail", "bundleIdentifier": "com.apple.mail", "hidden": True},
        ],
    }

    def state_out(self, state, name):
        out = self.tmp / name
        run = self.sim("--state-out", out, "run", "OrlaShortcut", state=state)
        self.assertExit(run, 0)
        self.assertEqual(run.lines, EDITOR_LINES, "--state-out must not change the output")
        return json.loads(out.read_text(encoding="utf-8"))

    def test_writes_the_seeded_state(self):
        saved = self.state_out(self.STATE, "out.json")
        for key in ["now", "timeZone", "environment", "clipboard"]:
            with self.subTest(key):
                self.assertEqual(saved[key], self.STATE[key])
        with self.subTest("applications"):
            apps = {app["name"]: app for app in saved["applications"]}
            self.assertEqual(set(apps), {"Finder", "Mail"})
            self.assertEqual(apps["Finder"]["bundleIdentifier"], "com.apple.finder")
            self.assertTrue(apps["Finder"]["frontmost"])
            self.assertTrue(apps["Mail"]["hidden"])
        with self.subTest("the saved state reads back unchanged"):
            self.assertEqual(self.state_out(saved, "again.json"), saved)

    def test_clipboard_round_trips(self):
        for clipboard in ["plain", "", "Grüße “Ada” …\ttab\n", None]:
            with self.subTest(clipboard=clipboard):
                saved = self.state_out({"clipboard": clipboard}, "clip.json")
                self.assertEqual(saved["clipboard"], clipboard)

    def test_default_desktop(self):
        saved = self.state_out(None, "default.json")
        for key in ["accessibilityTrusted", "now", "timeZone", "locale", "environment",
                    "clipboard", "host", "applications"]:
            self.assertIn(key, saved)
        self.assertFalse(any(app.get("pid") == saved["host"]["pid"]
                             for app in saved["applications"]),
                         "the host is not listed among the applications")

    def test_a_run_ended_by_a_signal_leaves_no_fresh_file(self):
        out = self.tmp / "out.json"
        for sig in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=sig.name):
                out.write_text("the old state\n", encoding="utf-8")
                # A command that runs until it is stopped: the run is long
                # and the fresh file waits beside the target meanwhile.
                process = subprocess.Popen(
                    [str(ORLA), "--json", "--sim", "--state-out", str(out), "run", "CommandShortcut",
                     json.dumps({"command": "sleep 5"})],
                    cwd=self.cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                try:
                    deadline = time.monotonic() + 10
                    while not list(self.tmp.glob(".out.json.orla-*")) and time.monotonic() < deadline:
                        time.sleep(0.02)
                    self.assertTrue(list(self.tmp.glob(".out.json.orla-*")), "the run made its fresh file")
                    process.send_signal(sig)
                    self.assertEqual(process.wait(timeout=10), -sig, "the signal still ends orla")
                finally:
                    if process.poll() is None:
                        process.kill()
                        process.wait()
                self.assertEqual(sorted(p.name for p in self.tmp.iterdir()), ["cwd", "out.json"])
                self.assertEqual(out.read_text(encoding="utf-8"), "the old state\n")


class JavaScriptActionTest(OrlaTestCase):
    """The JavaScript action end to end: orla finds its worker beside itself."""

    def test_runs_scripts_in_the_worker_beside_orla(self):
        env = {k: v for k, v in os.environ.items() if k != "ORLA_JAVASCRIPT_WORKER"}
        out = self.tmp / "after.json"
        run = self.sim("--state-out", out, "run", "JavaScriptAction",
                       json.dumps({"script": "input.split(' ').reverse().join(' ')",
                                   "inputSource": 2, "output": 1}),
                       state={"clipboard": "one two three"}, env=env)
        self.assertExit(run, 0)
        self.assertEqual(run.lines, [result("JavaScriptAction", "success",
                                            message="JavaScript result (now on the clipboard):\nthree two one")])
        self.assertEqual(json.loads(out.read_text(encoding="utf-8"))["clipboard"], "three two one")

    def test_the_scene_forces_the_next_run_to_a_limit(self):
        for forced, message in [
                ("memory", "The script used more than 256 MB of memory and was stopped. "
                           "Make it use less memory, then click Test again."),
                ("timeLimit", "The script ran longer than its time limit of 5 seconds and was stopped. "
                              "Make it faster, or raise the time limit (at most 60 seconds).")]:
            with self.subTest(forced):
                run = self.sim("run", "JavaScriptAction", json.dumps({"script": "1"}),
                               state={"nextJavaScriptOutcome": forced})
                self.assertEqual(run.lines, [result("JavaScriptAction", "failure", message=message)])
        run = self.sim("run", "JavaScriptAction", "{}", state={"nextJavaScriptOutcome": "slow"})
        self.assertEqual(run.code, 2, repr(run))

    def test_a_runaway_script_ends_in_its_sentence(self):
        run = self.sim("run", "JavaScriptAction", json.dumps({"script": "for (;;) {}", "timeLimit": 0.2}))
        self.assertExit(run, 1)
        self.assertEqual(run.lines, [result(
            "JavaScriptAction", "failure",
            message="The script ran longer than its time limit of 0.2 seconds and was stopped. "
                    "Make it faster, or raise the time limit (at most 60 seconds).")])


class ClipboardActionsTest(OrlaTestCase):
    """The text actions on a seeded desktop, read back through --state-out."""

    USER_CLIPBOARD = [
        [{"type": "public.rtf", "text": "{\\rtf1 note}"}, {"type": "public.utf8-plain-text", "text": "note"}],
        [{"type": "public.png", "base64": "iVBORw0KGgo="}],
    ]

    def state(self, selection, value="hello world"):
        return {
            "clipboard": self.USER_CLIPBOARD,
            "applications": [{"name": "TextEdit", "bundleIdentifier": "com.apple.TextEdit", "frontmost": True,
                              "textField": {"value": value, "selection": selection}}],
        }

    def run_with_state(self, state, *args):
        out = self.tmp / "out.json"
        run = self.sim("--state-out", out, *args, state=state)
        return run, json.loads(out.read_text(encoding="utf-8"))

    def test_transform_replaces_the_selection_and_restores_the_clipboard(self):
        run, saved = self.run_with_state(
            self.state([0, 5]), "--trace", "run", "TextTransformAction",
            json.dumps({"transform": "Title Case", "writeToClipboard": False}))
        self.assertExit(run, 0)
        self.assertEqual([line for line in run.lines if "result" in line],
                         [result("TextTransformAction", "silentSuccess")])
        traced = [line["text"] for line in run.lines if line.get("trace") == "clipboard"]
        self.assertEqual(traced, ["copy selection", "setText 5 bytes", "restore 2 item(s)"])
        field = saved["applications"][0]["textField"]
        self.assertEqual(field["value"], "Hello world")
        self.assertEqual(saved["clipboard"], self.USER_CLIPBOARD)

    def test_nothing_selected_changes_nothing(self):
        state = self.state([5, 0])
        run, saved = self.run_with_state(state, "run", "TextTransformAction", '{"transform": "upper"}')
        self.assertExit(run, 1)
        self.assertTrue(run.lines[0]["message"].startswith("Nothing was copied."), run)
        self.assertEqual(saved["clipboard"], self.USER_CLIPBOARD)
        self.assertEqual(saved["applications"][0]["textField"]["value"], "hello world")

    def test_save_set_and_restore_in_one_sequence(self):
        shortcut = self.write_shortcut("Keep clipboard", [
            {"kind": "ClipboardShortcut", "data": {"actionType": 11}},
            {"kind": "ClipboardShortcut", "data": {"actionType": 1, "text": "temporary"}},
            {"kind": "ClipboardShortcut", "data": {"actionType": 12}},
        ])
        run, saved = self.run_with_state(self.state([0, 0]), "sequence", shortcut)
        self.assertExit(run, 0)
        self.assertEqual([line["result"] for line in run.lines], ["success"] * 3)
        self.assertEqual(run.lines[2]["message"],
                         "Clipboard restored to the saved contents:\nnote\n(+ 1 non-text item(s))")
        self.assertEqual(saved["clipboard"], self.USER_CLIPBOARD)

    def test_finder_paths_from_a_scripted_answer(self):
        # The script text is the plugin's own; the state answers whatever it is.
        run = self.sim("run", "ClipboardShortcut", '{"actionType": 10}', state={})
        self.assertExit(run, 1)
        self.assertEqual(run.lines[0]["message"],
                         "Could not read the Finder selection: The simulated desktop has no answer for this script.")
class FolderMenuOnSimulatedDesktopTest(OrlaTestCase):
    """The folder menu over real files, its choice from the state's
    "menuChoices", what it opened in the trace."""

    def test_the_choice_opens_with_the_application_of_its_kind(self):
        self.write("Work/Drafts/letter.txt", "Dear")
        self.write("Work/.cache", "")
        cases = [
            ("Drafts > letter.txt", 0, "Opened “letter.txt”.",
             ["pop up “Open “Work””, —, “Drafts” [“Open “Drafts””, —, “letter.txt”]", "chose “Drafts > letter.txt”"],
             [f"{self.tmp.resolve()}/Work/Drafts/letter.txt with /System/Applications/TextEdit.app"]),
            (None, 0, None, None, []),
        ]
        for choice, code, message, menu, opened in cases:
            with self.subTest(choice):
                run = self.sim("--trace", "run", "FolderShortcut", json.dumps({"folderPath": str(self.tmp / "Work")}),
                               state={"menuChoices": [choice]})
                self.assertExit(run, code)
                results = [line for line in run.lines if "result" in line]
                self.assertEqual(results[0].get("message"), message)
                traced = [line["text"] for line in run.lines if line.get("trace") == "menu"]
                if menu:
                    self.assertEqual(traced, menu)
                self.assertEqual([line["text"] for line in run.lines if line.get("trace") == "open"], opened)


@unittest.skipUnless(sys.platform.startswith("linux"), "the Linux desktop's own words")
class UnreadableFolderTest(OrlaTestCase):
    def test_a_folder_it_cannot_read_gets_its_sentence(self):
        outer = Path(tempfile.mkdtemp(prefix="orla-locked."))
        self.addCleanup(shutil.rmtree, outer, True)
        outer.chmod(0o755)
        locked = outer / "locked"
        locked.mkdir()
        (locked / "inside.txt").write_text("x")
        locked.chmod(0o700 if os.geteuid() == 0 else 0)
        self.addCleanup(locked.chmod, 0o700)
        command = [str(ORLA), "--json", "run", "FolderShortcut", json.dumps({"folderPath": str(locked)})]
        if os.geteuid() == 0:
            # Root reads every folder: ask as a user who cannot.
            if not shutil.which("setpriv"):
                self.skipTest("running as root without setpriv")
            command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *command]
        env = {k: v for k, v in os.environ.items() if k != "DISPLAY"}
        run = subprocess.run(command, capture_output=True, text=True, env=env, timeout=20)
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertEqual(json.loads(run.stdout.splitlines()[0])["message"],
                         f"Orla can't read the folder “{locked}”. Check its permissions, then click Test again.")


class LoopbackServer:
    """A web server on 127.0.0.1 that answers every POST and GET with the
    reply set for its path and records what it received."""

    def __init__(self):
        self.replies = {}
        self.received = []
        owner = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def answer(self):
                length = int(self.headers.get("Content-Length") or 0)
                owner.received.append({"method": self.command, "path": self.path,
                                       "headers": dict(self.headers),
                                       "body": self.rfile.read(length).decode("utf-8")})
                status, body = owner.replies.get(self.path.split("?")[0], (404, "not found"))
                data = body.encode("utf-8")
                self.send_response(status)
                self.send_header("Content-Length", str(len(data)))
                self.end_headers()
                self.wfile.write(data)

            do_GET = do_POST = answer

            def log_message(self, *args):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.thread = threading.Thread(target=self.server.serve_forever, daemon=True)
        self.thread.start()

    def url(self, path):
        return f"http://127.0.0.1:{self.server.server_address[1]}{path}"

    def close(self):
        self.server.shutdown()
        self.server.server_close()


class WebAndAITest(OrlaTestCase):
    """The web and AI actions over real HTTP, and the keychain in the state."""

    KEY = "sk-cli-SECRET-42"
    ACCOUNT = "ai-action-local-api-key"

    def setUp(self):
        super().setUp()
        self.server = LoopbackServer()
        self.addCleanup(self.server.close)

    def test_web_request(self):
        self.server.replies["/status"] = (200, "  all good\n")
        self.server.replies["/missing"] = (404, "no such page")
        cases = [
            ("success", "/status?token=t", 0, "success", "HTTP 200\nall good"),
            ("failure status", "/missing", 1, "failure", "HTTP 404\nno such page"),
        ]
        for name, path, code, kind, message in cases:
            with self.subTest(name):
                run = self.sim("--trace", "run", "WebAPIAction", json.dumps({"url": self.server.url(path)}))
                self.assertExit(run, code)
                self.assertEqual(run.lines, [result("WebAPIAction", kind, message=message),
                                             {"trace": "http", "text": "GET " + self.server.url(path.split("?")[0])}])

    def test_ai_action_moves_its_key_into_the_keychain_and_never_shows_it(self):
        self.server.replies["/api/chat"] = (200, json.dumps({"message": {"role": "assistant", "content": " Hi! "}}))
        out = self.tmp / "out.json"
        params = {"provider": "local", "prompt": "Say hi", "apiKey": self.KEY,
                  "endpoint": self.server.url("/api/chat")}
        run = self.sim("--trace", "--state-out", out, "run", "AIAction", json.dumps(params))
        self.assertExit(run, 0)
        self.assertEqual(run.lines[0], result("AIAction", "success", message="Hi!"))
        self.assertNotIn(self.KEY, run.stdout + run.stderr)
        [request] = self.server.received
        self.assertEqual(json.loads(request["body"])["messages"], [{"role": "user", "content": "Say hi"}])
        self.assertNotIn(self.KEY, json.dumps(request), "the local server never gets a key")
        saved = json.loads(out.read_text(encoding="utf-8"))
        self.assertEqual(saved["keychain"]["items"],
                         [{"service": "pro.orla.OrlaPro", "account": self.ACCOUNT, "password": self.KEY}])

    def test_keychain_in_the_state_decides_whether_a_key_is_there(self):
        item = {"service": "pro.orla.OrlaPro", "account": "ai-action-openai-api-key", "password": self.KEY}
        params = json.dumps({"prompt": "hi", "apiKey": "<keychain>"})
        missing = {"kind": "AIAction", "valid": False, "message": "Enter an OpenAI API key."}
        cases = [
            ("stored key", {"keychain": {"items": [item]}}, {"kind": "AIAction", "valid": True}),
            ("locked keychain", {"keychain": {"access": "locked", "items": [item]}}, missing),
            ("empty keychain", {}, missing),
        ]
        for name, state, line in cases:
            with self.subTest(name):
                run = self.sim("validate", "AIAction", params, state=state)
                self.assertEqual(run.lines, [line])
                self.assertNotIn(self.KEY, run.stdout)

    def test_keychain_round_trips_through_the_state_file(self):
        state = {"keychain": {"access": "denied", "items": [
            {"service": "pro.orla.OrlaPro", "account": self.ACCOUNT, "password": "k ✓"}]}}
        out = self.tmp / "out.json"
        run = self.sim("--state-out", out, "run", "OrlaShortcut", state=state)
        self.assertExit(run, 0)
        self.assertEqual(json.loads(out.read_text(encoding="utf-8"))["keychain"], state["keychain"])

    def test_bad_keychain_state_is_a_usage_error(self):
        self.assertUsageError(self.sim("run", "OrlaShortcut", state={"keychain": {"access": "open"}}),
                              "access must be")


class ExamplesTest(OrlaTestCase):
    def examples(self):
        files = sorted(EXAMPLES.glob("*.json"))
        self.assertTrue(files, f"no shortcut files in {EXAMPLES}")
        return files

    def states(self):
        states = sorted((EXAMPLES / "states").glob("*.json"))
        self.assertTrue(states, f"no state files in {EXAMPLES / 'states'}")
        return states

    def test_every_example_runs_on_every_state(self):
        for path in self.examples():
            name = json.loads(path.read_text(encoding="utf-8"))["name"]
            for state in self.states():
                with self.subTest(shortcut=name, state=state.name):
                    run = self.orla("--json", "--sim", state, "sequence", EXAMPLES, name)
                    self.assertExit(run, 0)
                    for line in run.lines:
                        self.assertNotIn("error", line)
                        self.assertNotEqual(line.get("result"), "failure", line)

    def test_morning_routine(self):
        state = EXAMPLES / "states" / "desktop.json"
        args = ["--sim", state, "--trace", "sequence", EXAMPLES, "Morning routine"]
        with self.subTest("as the README runs it"):
            run = self.orla(*args)
            self.assertExit(run, 0)
            self.assertIn("skipped", run.stdout)
            self.assertIn("trace: notification", run.stdout)
        run = self.orla("--json", *args)
        self.assertExit(run, 0)
        lines = run.lines
        self.assertIn(cond_line(True), lines)
        false_at = lines.index(cond_line(False))
        self.assertIn("skipped", lines[false_at + 1])
        calls = [line for line in lines if line.get("host") == "runByName"]
        self.assertTrue(calls)
        self.assertTrue(any(line.get("host") not in (None, "runByName") for line in lines))
        self.assertTrue(any(line.get("trace") == "notification" for line in lines))
        shortcut = json.loads((EXAMPLES / "morning-routine.json").read_text(encoding="utf-8"))
        self.assertEqual(shortcut["name"], "Morning routine")
        self.assertIn(7, [a["data"].get("conditionType") for a in shortcut["actions"]])


class ApplicationsTest(OrlaTestCase):
    """Applications and messages on a seeded desktop, through orla."""

    STATE = {
        "now": "2026-11-23T09:00:00",
        "timeZone": "Europe/Paris",
        "applications": [
            {"name": "Finder", "bundleIdentifier": "com.apple.finder", "pid": 200,
             "path": "/System/Library/CoreServices/Finder.app", "launchDate": "2026-11-23T08:00:00"},
            {"name": "Safari", "bundleIdentifier": "com.apple.Safari", "pid": 201,
             "path": "/Applications/Safari.app", "launchDate": "2026-11-23T08:10:00"},
            {"name": "TextEdit", "bundleIdentifier": "com.apple.TextEdit", "pid": 202,
             "path": "/Applications/TextEdit.app", "launchDate": "2026-11-23T08:20:00",
             "frontmost": True, "quit": "asksToSave"},
        ],
        "installedApplications": [
            {"path": "/Applications/Mail.app", "bundleIdentifier": "com.apple.mail",
             "name": "Mail", "launchDelayMs": 1200},
            {"path": "/Applications/Broken.app", "bundleIdentifier": "com.example.broken",
             "name": "Broken", "launchDelayMs": None},
        ],
    }

    def app(self, **data):
        return action("ApplicationShortcut", **data)

    def message(self, **data):
        return action("MessageShortcut", **data)

    def run_state(self, actions, state=None, out_name="out.json"):
        out = self.tmp / out_name
        path = self.write_shortcut("apps", actions)
        run = self.sim("--trace", "--state-out", out, "sequence", path, state=state or self.STATE)
        saved = json.loads(out.read_text(encoding="utf-8")) if out.exists() else None
        return run, saved

    def results(self, run):
        return [line for line in run.lines if "kind" in line]

    def test_commands_on_the_seeded_desktop(self):
        cases = [
            # (name, action data, result, message)
            ("next wraps to the oldest", {"actionType": 4}, "success", "Switched to Finder."),
            ("previous", {"actionType": 5}, "success", "Switched to Safari."),
            ("a launch that takes a while", {"actionType": 1, "applicationPath": "/Applications/Mail.app"},
             "success", "Launched Mail."),
            ("a launch that never shows up", {"actionType": 1, "applicationPath": "/Applications/Broken.app"},
             "failure", "Could not launch Broken.app"),
            ("a name that matches nothing", {"actionType": 6, "appName": "Nope.app"},
             "failure", "Application 'Nope' not found"),
            ("a quit that needs Force", {"actionType": 14}, "failure",
             "TextEdit did not quit (it may be asking to save documents). Turn on Force to quit without asking."),
            ("the same with Force", {"actionType": 14, "force": True}, "success", "Quit TextEdit."),
            ("hide the background", {"actionType": 12}, "success", "Hid Finder and Safari."),
            ("unknown command", {"actionType": 23}, "failure", "Unknown application action type: 23"),
        ]
        for name, data, kind, message in cases:
            with self.subTest(name):
                run = self.sim("run", "ApplicationShortcut", json.dumps(data), state=self.STATE)
                self.assertEqual(run.lines, [result("ApplicationShortcut", kind, message=message)], repr(run))
                self.assertExit(run, 0 if kind == "success" else 1)

    def test_waits_are_virtual_and_traced(self):
        run, saved = self.run_state([self.app(actionType=14)])
        sleeps = [line["text"] for line in run.lines if line.get("trace") == "sleep"]
        self.assertEqual(len(sleeps), 60, "twelve seconds of 0.2 s polls")
        self.assertIn({"trace": "quitEvent", "text": "pid=202 timeout=1000ms"}, run.lines)
        self.assertEqual(saved["now"], "2026-11-23T09:00:12")
        self.assertIn("TextEdit", [a["name"] for a in saved["applications"]])

    def test_state_out_shows_launched_and_quit_applications(self):
        run, saved = self.run_state([
            self.app(actionType=1, applicationPath="/Applications/Mail.app"),
            self.app(actionType=16, appName="Safari"),
        ])
        self.assertExit(run, 0)
        apps = {a["name"]: a for a in saved["applications"]}
        self.assertEqual(set(apps), {"Finder", "TextEdit", "Mail"})
        self.assertTrue(apps["Mail"]["frontmost"])
        self.assertEqual(apps["Mail"]["launchDate"], "2026-11-23T09:00:01")
        self.assertEqual(apps["TextEdit"]["quit"], "asksToSave")

    def test_menus_answer_the_scripted_choices(self):
        state = dict(self.STATE, menuChoices=["Safari", None, "Nothing like it"])
        run, saved = self.run_state([self.app(actionType=2), self.app(actionType=2, order=1),
                                     self.app(actionType=2)], state=state)
        self.assertEqual([line["result"] for line in self.results(run)],
                         ["success", "silentSuccess", "silentSuccess"])
        self.assertIn({"trace": "menu", "text": "pop up ✓“TextEdit”, “Safari”, “Finder”, “Orla Pro”"}, run.lines)
        self.assertIn({"trace": "menu", "text": "dismissed (no item “Nothing like it”)"}, run.lines)
        self.assertEqual(saved["menuChoices"], [])

    def test_a_stop_button_ends_the_sequence_quietly(self):
        stop = self.message(title="Quit Safari?", button1="Quit", button2="Not now", button2Action=1)
        quit_lines = [result("MessageShortcut", "success", message="Clicked Quit. The shortcut continues."),
                      result("ApplicationShortcut", "success", message="Quit Safari.")]
        cases = [
            # (answers, exit status, results)
            (["Not now"], 0, [{"kind": "MessageShortcut", "result": "stopSequence"}]),
            (["2"], 0, [{"kind": "MessageShortcut", "result": "stopSequence"}]),
            (["Quit"], 0, quit_lines),
            ([], 0, quit_lines),
        ]
        for answers, code, lines in cases:
            with self.subTest(answers=answers):
                run, saved = self.run_state([stop, self.app(actionType=16, appName="Safari")],
                                            state=dict(self.STATE, alertAnswers=answers))
                self.assertExit(run, code)
                self.assertEqual(self.results(run), lines)
                self.assertEqual(saved["alertAnswers"], [])

    def test_the_host_comes_forward_for_a_message(self):
        state = dict(self.STATE, host={"activationPolicy": "accessory"},
                     userDefaults={"orKeepInDockAndAppSwitcher": False})
        run, saved = self.run_state([self.message(message="Done")], state=state)
        hosts = [line["text"] for line in run.lines if line.get("trace") == "host"]
        self.assertEqual(hosts, ["activationPolicy accessory -> regular", "activationPolicy regular -> accessory"])
        self.assertEqual(saved["host"]["activationPolicy"], "accessory")
        self.assertEqual(saved["userDefaults"], {"orKeepInDockAndAppSwitcher": False})

    def test_malformed_application_state(self):
        cases = [
            ({"applications": [{"activationPolicy": 0}]}, "“activationPolicy”"),
            ({"applications": [{"quit": "later"}]}, "“quit”"),
            ({"installedApplications": [{"path": "/A.app", "launchDelayMs": "soon"}]}, "“launchDelayMs”"),
            ({"menuChoices": "Safari"}, "“menuChoices”"),
            ({"alertAnswers": [True]}, "“alertAnswers”"),
            ({"host": {"titledWindow": 1}}, "“titledWindow”"),
        ]
        for state, fragment in cases:
            with self.subTest(fragment):
                self.assertUsageError(self.sim("run", "MessageShortcut", state=state), fragment)


class ScriptsAndSystemTest(OrlaTestCase):
    """Shell commands (the real zsh), AppleScript, Apple shortcuts, sounds and
    system commands, through orla."""

    DOCK = ('tell application "System Events"\n    tell dock preferences\n'
            '        set autohide to not autohide\n    end tell\nend tell')
    STATE = {
        "appleShortcuts": [{"name": "Translate", "output": "Bonjour\n"},
                           {"name": "Broken", "exitStatus": 1, "errorOutput": "Error: The action failed."}],
        "systemSounds": ["Glass", "Ping"],
        "scripts": [{"source": 'return "42"', "result": "42"},
                    {"source": DOCK},
                    {"source": 'tell application "System Events" to start current screen saver',
                     "error": {"message": "Not authorized to send Apple events to System Events.",
                               "number": -1743}}],
        "installedApplications": [{"path": "/System/Library/CoreServices/ScreenSaverEngine.app",
                                   "name": "ScreenSaverEngine"}],
    }

    def traced(self, run, category):
        return [line["text"] for line in run.lines if line.get("trace") == category]

    def results(self, run):
        return [line for line in run.lines if "result" in line]

    def test_shell_commands_run_for_real(self):
        for args in [(), ("--sim",)]:
            with self.subTest(args):
                run = self.orla("--json", *args, "run", "CommandShortcut",
                                json.dumps({"command": "echo hello; echo warn >&2"}))
                self.assertExit(run, 0)
                self.assertEqual(run.lines, [result("CommandShortcut", "success", message="hello\nwarn")])
        run = self.orla("--json", "run", "CommandShortcut", '{"command": "echo no >&2; exit 3"}')
        self.assertExit(run, 1)
        self.assertEqual(run.lines, [result("CommandShortcut", "failure",
                                            message="The command exited with status 3.\nno")])
        run = self.sim("--trace", "run", "CommandShortcut", '{"command": "true"}')
        self.assertEqual(self.traced(run, "process"), ["run /bin/zsh -c true"])

    def test_scripts_shortcuts_sounds_and_system_on_the_simulated_desktop(self):
        cases = [
            ("AppleScriptShortcut", {"script": 'return "42"'}, "success", "42", {}),
            ("ShortcutsAppAction", {"name": "translate", "input": "Hello"}, "success", "Bonjour",
             {"shortcuts": ["list", "run “Translate” with input “Hello”"]}),
            ("ShortcutsAppAction", {"name": "Broken"}, "failure", "Error: The action failed.", {}),
            ("SoundShortcut", {"soundName": "ping"}, "success", "Played system sound “ping”.",
             {"sound": ["play system sound “Ping”"]}),
            ("SoundShortcut", {"soundName": "Basso"}, "failure", "System sound not found: Basso", {"sound": []}),
            ("SystemShortcut", {"subAction": "hideDock"}, "success", "Toggled Dock auto-hide.", {}),
            ("SystemShortcut", {"subAction": "screenSaver"}, "success", "Started the screen saver.",
             {"open": ["/System/Library/CoreServices/ScreenSaverEngine.app"]}),
        ]
        for kind, params, outcome, message, traces in cases:
            with self.subTest(kind=kind, params=params):
                run = self.sim("--trace", "run", kind, json.dumps(params, ensure_ascii=False), state=self.STATE)
                self.assertExit(run, 0 if outcome == "success" else 1)
                self.assertEqual(self.results(run), [result(kind, outcome, message=message)])
                for category, texts in traces.items():
                    self.assertEqual(self.traced(run, category), texts)

    def test_shortcuts_fall_back_to_the_app(self):
        state = dict(self.STATE, shortcutsReachHelper=False)
        run = self.sim("--trace", "run", "ShortcutsAppAction", '{"name": "Translate", "input": "Hi"}', state=state)
        self.assertExit(run, 0)
        self.assertEqual(self.results(run), [result("ShortcutsAppAction", "success",
                                                    message="Opened the Shortcuts app to run “Translate”.\nInput: Hi")])
        self.assertEqual(self.traced(run, "open"), ["shortcuts://run-shortcut?name=Translate&input=Hi"])
        # This machine has no Shortcuts tool and cannot open the address.
        run = self.orla("--json", "run", "ShortcutsAppAction", '{"name": "Translate"}')
        self.assertExit(run, 1)
        self.assertEqual(run.lines, [result("ShortcutsAppAction", "failure",
                                            message="Could not open Shortcuts to run “Translate”.")])

    def test_validate_asks_the_tool_for_the_names(self):
        run = self.sim("validate", "ShortcutsAppAction", '{"name": "Translat"}', state=self.STATE)
        self.assertExit(run, 1)
        self.assertEqual(run.lines, [{"kind": "ShortcutsAppAction", "valid": False,
                                      "message": "No shortcut named “Translat”. Pick one from the menu, "
                                                 "or check the name in the Shortcuts app."}])

    def test_programs_and_sounds_round_trip_through_the_state_file(self):
        out = self.tmp / "out.json"
        state = dict(self.STATE, missingPrograms=["/usr/bin/open"], shortcutsReachHelper=False)
        run = self.sim("--state-out", out, "run", "SoundShortcut", '{"soundName": "Glass"}', state=state)
        self.assertExit(run, 0)
        saved = json.loads(out.read_text(encoding="utf-8"))
        self.assertEqual(saved["systemSounds"], ["Glass", "Ping"])
        self.assertEqual(saved["missingPrograms"], ["/usr/bin/open"])
        self.assertEqual(saved["shortcutsReachHelper"], False)
        self.assertEqual(saved["appleShortcuts"][0], {"name": "Translate", "output": "Bonjour\n"})

    def test_malformed_program_and_sound_state(self):
        cases = [
            ({"appleShortcuts": {"name": "x"}}, "“appleShortcuts”"),
            ({"systemSounds": "Ping"}, "“systemSounds”"),
            ({"missingPrograms": [1]}, "“missingPrograms”"),
        ]
        for state, fragment in cases:
            with self.subTest(fragment):
                self.assertUsageError(self.sim("run", "SoundShortcut", state=state), fragment)


class InterfaceTest(OrlaTestCase):
    """Menus, windows and the mouse on a desktop seeded with an interface."""

    STATE = {
        "screens": [{"frame": [0, 0, 1440, 900], "visibleFrame": [0, 25, 1440, 875]},
                    {"frame": [1440, -180, 1920, 1080], "visibleFrame": [1520, -155, 1840, 1055]}],
        "mainScreen": 0,
        "pointer": [700, 400],
        "applications": [
            {"name": "Finder", "bundleIdentifier": "com.apple.finder", "pid": 200},
            {"name": "Notes", "bundleIdentifier": "com.apple.Notes", "pid": 201, "frontmost": True,
             "menuBar": [
                 {"title": "", "items": ["About This Mac"]},
                 {"title": "File", "items": [
                     "New Note", {"title": "Export", "items": ["PDF…", "Text"]},
                     {"title": "Recent", "fillsWhenOpened": True, "items": ["Groceries"]},
                     {"title": "Print…", "enabled": False}]},
                 {"title": "View", "items": [{"title": "Sort By", "items": [
                     {"title": "Date Edited", "mark": "✓"}, "Title"]}]}],
             "windows": [
                 {"title": "Groceries", "frame": [1600, 100, 600, 500],
                  "buttons": ["close", "minimize", "zoom"], "scrollBars": {"vertical": 0.5}},
                 {"title": "Ideas", "frame": [100, 100, 400, 300]}]},
        ],
    }

    def run_one(self, kind, data, state=None):
        out = self.tmp / "out.json"
        run = self.sim("--trace", "--state-out", out, "run", kind, json.dumps(data), state=state or self.STATE)
        saved = json.loads(out.read_text(encoding="utf-8"))
        return run, saved

    def results(self, run):
        return [line for line in run.lines if "kind" in line]

    def traced(self, run, category):
        return [line["text"] for line in run.lines if line.get("trace") == category]

    def notes(self, saved):
        return next(app for app in saved["applications"] if app["name"] == "Notes")

    def test_menu_clicks_open_what_fills_when_opened(self):
        run, saved = self.run_one("MenuShortcut", {"menuPath": "File > Recent > groceries"})
        self.assertExit(run, 0)
        self.assertEqual(self.results(run), [result("MenuShortcut", "silentSuccess")])
        self.assertEqual(self.traced(run, "axAction"),
                         ["AXPress “File” pid=201", "AXPress “File > Recent” pid=201",
                          "AXPress “File > Recent > Groceries” pid=201"])
        self.assertEqual(self.traced(run, "sleep"), ["150ms", "150ms"])
        self.assertEqual(self.notes(saved)["menuBar"], self.notes({"applications": self.STATE["applications"]})["menuBar"])

    def test_menu_failures_are_sentences(self):
        cases = [
            ({"menuPath": "File > Print..."},
             "“File > Print...” is disabled in Notes right now (greyed out), so nothing happened."),
            ({"menuPath": "Edit > Copy"},
             "Menu item “Edit > Copy” not found in Notes: no “Edit” in the menu bar. Items there: Apple, File, View."),
            ({"menuPath": "File > Recent > Taxes"},
             "Menu item “File > Recent > Taxes” not found in Notes: no “Taxes” in the Recent menu. "
             "Items there: Groceries."),
            ({"subAction": "submenu"}, "Enter the menu to show, one name per line, for example File or File > Export."),
        ]
        for data, message in cases:
            with self.subTest(message):
                run, _ = self.run_one("MenuShortcut", data)
                self.assertExit(run, 1)
                self.assertEqual(self.results(run), [result("MenuShortcut", "failure", message=message)])

    def test_menu_bar_pop_up_presses_the_scripted_choice(self):
        state = dict(self.STATE, menuChoices=["File > Export > Text"])
        run, saved = self.run_one("MenuShortcut", {"subAction": "fullBar"}, state=state)
        self.assertExit(run, 0)
        self.assertIn("pop up “Apple” [“About This Mac”], “File” [“New Note”, “Export” [“PDF…”, “Text”], "
                      "“Recent”, (disabled)“Print…”], “View” [“Sort By” [✓“Date Edited”, “Title”]]",
                      self.traced(run, "menu"))
        self.assertIn("AXPress “File > Export > Text” pid=201", self.traced(run, "axAction"))
        self.assertEqual(saved["menuChoices"], [])

    def test_ui_elements_act_wait_and_keep_their_state(self):
        controls = [
            {"role": "AXTextField", "label": "Item", "value": "", "identifier": "item"},
            {"role": "AXCheckBox", "title": "Done", "value": 0, "press": "toggle"},
            {"role": "AXGroup", "children": [
                {"role": "AXButton", "title": "Sync", "appearsAfter": 1, "press": "open", "opens": "Synced"}]},
        ]
        windows = [dict(self.STATE["applications"][1]["windows"][0], controls=controls)]
        apps = [self.STATE["applications"][0], dict(self.STATE["applications"][1], windows=windows)]
        state = dict(self.STATE, applications=apps)
        run, saved = self.run_one("InterfaceShortcut", {"subAction": "fill", "identifier": "item", "text": "Milk"},
                                  state=state)
        self.assertEqual(self.results(run), [result("InterfaceShortcut", "success",
                                                     message="Set the text of “Item”.")])
        self.assertEqual(self.traced(run, "axWrite"), ["AXFocused of AXTextField “Item” pid=201 = true",
                                                       "AXValue of AXTextField “Item” pid=201 = “Milk”"])
        kept = self.notes(saved)["windows"][0]["controls"]
        self.assertEqual(kept[0], dict(controls[0], value="Milk"))
        self.assertEqual(kept[1:], controls[1:])
        # The state written is the state read: the next run goes on from it.
        run, saved = self.run_one("InterfaceShortcut", {"subAction": "check", "title": "done"}, state=saved)
        self.assertEqual(self.results(run), [result("InterfaceShortcut", "success", message="Turned “Done” on.")])
        self.assertEqual(self.notes(saved)["windows"][0]["controls"][1]["value"], 1)
        run, saved = self.run_one("InterfaceShortcut", {"title": "Sync", "elementKind": 1}, state=saved)
        self.assertEqual(self.results(run), [result("InterfaceShortcut", "success", message="Pressed “Sync”.")])
        self.assertEqual(self.traced(run, "sleep"), ["250ms"] * 4)
        self.assertEqual([w["title"] for w in self.notes(saved)["windows"]], ["Synced", "Groceries"])
        self.assertNotIn("appearsAfter", self.notes(saved)["windows"][1]["controls"][2]["children"][0])

    def test_malformed_controls_are_refused(self):
        cases = [
            ({"role": "button"}, "“role”"),
            ({"press": "explode"}, "“press”"),
            ({"value": {"a": 1}}, "“value”"),
            ({"appearsAfter": -1}, "“appearsAfter”"),
            ({"children": {}}, "“children”"),
        ]
        for control, fragment in cases:
            with self.subTest(fragment):
                windows = [{"title": "W", "controls": [control]}]
                apps = [dict(self.STATE["applications"][1], windows=windows)]
                self.assertUsageError(self.sim("run", "InterfaceShortcut", '{"title":"x"}',
                                               state=dict(self.STATE, applications=apps)), fragment)

    def test_windows_tile_on_the_main_screen_and_keep_the_result(self):
        cases = [
            # (data, message, frame of the front window afterwards)
            ({"position": "right"}, "Tiled the front window in Notes.", [724, 33, 708, 859]),
            ({"subAction": "tile", "tile": "top left"}, "Tiled the front window in Notes.", [8, 33, 708, 425.5]),
            ({"subAction": "resize", "width": 10, "height": 10, "origin": 2}, "Resized the front window in Notes.",
             [2150, 550, 50, 50]),
            ({"actionType": 24}, "Resized the front window to the screen in Notes.", [0, 25, 1440, 875]),
        ]
        for data, message, frame in cases:
            with self.subTest(message=message, data=data):
                run, saved = self.run_one("WindowShortcut", data)
                self.assertEqual(self.results(run), [result("WindowShortcut", "success", message=message)])
                self.assertEqual(self.notes(saved)["windows"][0]["frame"], frame)
        state = dict(self.STATE, mainScreen=1)
        run, saved = self.run_one("WindowShortcut", {"position": "left"}, state=state)
        self.assertEqual(self.notes(saved)["windows"][0]["frame"], [1528, -147, 908, 1039])

    def test_window_switching_scrolling_and_closing(self):
        run, saved = self.run_one("WindowShortcut", {"subAction": "next"})
        self.assertEqual([w["title"] for w in self.notes(saved)["windows"]], ["Ideas", "Groceries"])
        run, saved = self.run_one("WindowShortcut", {"subAction": "scrollDown", "scrollCount": 2, "scrollUnit": 1})
        self.assertAlmostEqual(self.notes(saved)["windows"][0]["scrollBars"]["vertical"], 0.9)
        run, saved = self.run_one("WindowShortcut", {"subAction": "closeAll"})
        self.assertEqual(self.results(run), [result("WindowShortcut", "success", message="Closed every window in Notes.")])
        self.assertEqual(self.notes(saved)["windows"], [])
        # Not a command name: the command falls back to its number, and without
        # one to zoom.
        run, saved = self.run_one("WindowShortcut", {"subAction": "scrollLeftTo"})
        self.assertEqual(self.results(run), [result("WindowShortcut", "success",
                                                    message="Zoomed the front window in Notes.")])
        self.assertEqual(self.notes(saved)["windows"][0]["frame"], [1520, -155, 1840, 1055])

    def test_mouse_steps_are_traced_and_move_the_pointer(self):
        data = {"subAction": "window", "movements": [
            {"moveType": 0, "x": 10, "y": 20, "origin": "bottom/right"},
            {"moveType": 10, "x": 40, "y": 0, "pauseAfter": 0.25},
            {"moveType": 12, "wheel": 2},
        ]}
        run, saved = self.run_one("MouseShortcut", data)
        self.assertExit(run, 0)
        self.assertEqual(self.results(run), [result("MouseShortcut", "success",
                                                    message="Did 3 mouse movements on the front window.")])
        self.assertEqual(self.traced(run, "mouse"), [
            "moved (2190, 580)", "leftDown (2190, 580) click=1 button=0", "leftUp (2190, 580) click=1 button=0",
            "leftDragged (2190, 580)", "leftDragged (2230, 580)", "leftDragged (2230, 580)", "scroll -2 lines"])
        self.assertEqual(self.traced(run, "sleep"), ["50ms", "50ms", "20ms", "250ms", "50ms"])
        self.assertEqual(saved["pointer"], [2230, 580])

    def test_mouse_and_windows_without_permission(self):
        state = dict(self.STATE, accessibilityTrusted=False)
        run, _ = self.run_one("MouseShortcut", {"coordSystem": 3, "movements": [{"moveType": 5}]}, state=state)
        self.assertEqual(self.results(run), [result(
            "MouseShortcut", "failure",
            message="Accessibility permission is required for Window and Focus mouse actions. Enable Orla in "
                    "System Settings → Privacy & Security → Accessibility.")])
        run, _ = self.run_one("MouseShortcut", {"movements": [{"moveType": 5, "x": 1, "y": 2}]}, state=state)
        self.assertEqual(self.results(run), [result("MouseShortcut", "success",
                                                    message="Did 1 mouse movement on the screen.")])

    def test_malformed_interface_state(self):
        cases = [
            ({"screens": []}, "“screens”"),
            ({"pointer": "middle"}, "“pointer”"),
            ({"mainScreen": 2}, "“mainScreen”"),
            ({"applications": [{"windows": [{"frame": [0, 0, 10]}]}]}, "“frame”"),
            ({"applications": [{"windows": [{"buttons": ["fullScreen"]}]}]}, "“buttons”"),
            ({"applications": [{"menuBar": {"File": []}}]}, "“menuBar”"),
            ({"applications": [{"menuBar": [{"title": "File", "items": "New"}]}]}, "“items”"),
            ({"applications": [{"accessible": "yes"}]}, "“accessible”"),
        ]
        for state, fragment in cases:
            with self.subTest(fragment):
                self.assertUsageError(self.sim("run", "MenuShortcut", state=state), fragment)


class DocumentsAndFilesTest(OrlaTestCase):
    """Files, documents, addresses, Finder windows and printing through orla,
    on the real file system of the test's folder and the simulated desktop."""

    def traced(self, run, category):
        return [line["text"] for line in run.lines if line.get("trace") == category]

    def results(self, run):
        return [line for line in run.lines if "result" in line]

    def run_one(self, kind, data, state=None, out=None):
        args = ["--trace"]
        if out is not None:
            args += ["--state-out", out]
        return self.sim(*args, "run", kind, json.dumps(data, ensure_ascii=False),
                        state=state if state is not None else {})

    def test_copy_compress_and_decompress_for_real(self):
        src = self.write("work/report.txt", "quarterly")
        self.write("work/data/table.csv", "a,b")
        backup = self.tmp / "backup"
        backup.mkdir()
        run = self.run_one("FileOperationAction", {"source": str(src), "destination": str(backup)})
        self.assertEqual(self.results(run), [result("FileOperationAction", "success",
                                                    message=f"Copied {src} to {backup / 'report.txt'}")])
        self.assertEqual((backup / "report.txt").read_text(), "quarterly")

        run = self.run_one("FileOperationAction", {"subAction": "ZIP", "source": str(self.tmp / "work")})
        self.assertExit(run, 0)
        self.assertTrue(self.traced(run, "process")[0].startswith("run /usr/bin/zip -r -q "))
        run = self.run_one("FileOperationAction", {"subAction": "unzip", "source": str(self.tmp / "work.zip"),
                                                   "destination": str(self.tmp / "restored")})
        self.assertExit(run, 0)
        self.assertEqual((self.tmp / "restored/work/data/table.csv").read_text(), "a,b")

    def test_an_archive_that_climbs_out_is_refused_whole(self):
        import zipfile
        archive = self.tmp / "evil.zip"
        with zipfile.ZipFile(archive, "w") as z:
            z.writestr("fine.txt", "fine")
            z.writestr("../escaped.txt", "gotcha")
        target = self.tmp / "target"
        run = self.run_one("FileOperationAction", {"subAction": "decompress", "source": str(archive),
                                                   "destination": str(target)})
        self.assertEqual(self.results(run), [result("FileOperationAction", "failure",
                                                    message="Decompression blocked: unsafe path in archive "
                                                            "(../escaped.txt)")])
        self.assertFalse(target.exists())
        self.assertFalse((self.tmp / "escaped.txt").exists())

    def test_delete_goes_to_the_trash_folder_of_the_state(self):
        doc = self.write("old.txt", "old")
        out = self.tmp / "out.json"
        run = self.run_one("FileOperationAction", {"subAction": "trash", "source": str(doc)},
                           state={"trashFolder": str(self.tmp / "Trash")}, out=out)
        self.assertEqual(self.results(run), [result("FileOperationAction", "success",
                                                    message="Moved “old.txt” to the Trash.")])
        self.assertEqual((self.tmp / "Trash/old.txt").read_text(), "old")

    def test_addresses_open_with_the_handler_of_their_scheme(self):
        state = {"urlHandlers": {"https": "/Applications/Firefox.app"},
                 "installedApplications": [{"path": "/Applications/Firefox.app", "name": "Firefox",
                                            "bundleIdentifier": "org.mozilla.firefox"}]}
        cases = [
            ({"url": "https://example.com/a b"}, "success", "Opened https://example.com/a%20b in Firefox.",
             ["https://example.com/a%20b"]),
            ({"url": "example.com:8080"}, "failure",
             'The address "example.com:8080" has no scheme. Type the full address, for example '
             "https://example.com:8080", []),
            ({"subAction": "mail", "to": "a&b@example.com", "subject": "1 + 1 = 2?"}, "success",
             "Created an email to a&b@example.com in Mail.",
             ["mailto:a%26b@example.com?subject=1%20%2B%201%20%3D%202%3F"]),
        ]
        for data, outcome, message, opened in cases:
            with self.subTest(data):
                run = self.run_one("URLShortcut", data, state=state)
                self.assertEqual(self.results(run), [result("URLShortcut", outcome, message=message)])
                self.assertEqual(self.traced(run, "open"), opened)

    def test_finder_windows_and_the_selection_in_the_state(self):
        folder = self.tmp / 'say "hi"'
        folder.mkdir()
        out = self.tmp / "out.json"
        run = self.run_one("FinderWindowShortcut", {"path": str(folder), "viewType": 1}, out=out)
        self.assertEqual(self.results(run), [result("FinderWindowShortcut", "success",
                                                    message=f"Finder now shows {folder} (front window, list view).")])
        saved = json.loads(out.read_text(encoding="utf-8"))
        self.assertEqual(saved["finder"]["windows"],
                         [{"target": str(folder), "view": "list", "bounds": [100, 100, 900, 700]}])

        doc = self.write("picked.pdf", "%PDF")
        state = {"finder": {"selection": [str(doc)]}, "printers": ["Office"], "defaultPrinter": "Office"}
        run = self.run_one("PrintShortcut", {"subAction": "selection"}, state=state, out=out)
        self.assertEqual(self.results(run), [result("PrintShortcut", "success",
                                                    message="Sent 1 document to the printer.")])
        self.assertEqual(json.loads(out.read_text(encoding="utf-8"))["printJobs"],
                         [{"printer": "Office", "document": str(doc)}])

    def test_the_recent_documents_menu_opens_the_choice(self):
        first = self.write("docs/first.txt", "1")
        second = self.write("docs/second.pdf", "2")
        state = {"recentDocuments": [str(second), {"path": str(first), "name": "First"}],
                 "menuChoices": ["First"]}
        run = self.run_one("DocumentShortcut", {"actionType": 3, "order": 1}, state=state)
        self.assertEqual(self.results(run), [result("DocumentShortcut", "success", message="Opened First.")])
        self.assertEqual(self.traced(run, "menu"), ["pop up “First”, “second.pdf”", "chose “First”"])
        self.assertEqual(self.traced(run, "open"), [f"{first} with /System/Applications/TextEdit.app"])


# ---------------------------------------------------------------------------


def find_orla():
    if os.environ.get("ORLA"):
        return Path(os.environ["ORLA"])
    built = sorted(REPO.glob("build/*/tools/orla/orla"), key=lambda p: p.stat().st_mtime)
    return built[-1] if built else None


def run_suite(script):
    """Runs the calling test module against the orla given by --orla, or the
    newest one built; the other arguments go to unittest."""
    global ORLA
    args = sys.argv[1:]
    if "--orla" in args:
        i = args.index("--orla")
        ORLA = Path(args[i + 1]).resolve()
        del args[i:i + 2]
    ORLA = ORLA or find_orla()
    if ORLA is None or not ORLA.is_file():
        sys.exit(f"{script}: no orla binary (give --orla PATH)")
    unittest.main(module="__main__", argv=[sys.argv[0], *args])


def main():
    global ORLA, EXAMPLES
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--orla", type=Path, help="the orla binary to test")
    parser.add_argument("--examples", type=Path, default=REPO / "examples",
                        help="the examples folder")
    options, rest = parser.parse_known_args()
    ORLA = options.orla or find_orla()
    if ORLA is None or not ORLA.is_file():
        sys.exit(f"test_orla.py: no orla binary (give --orla PATH); tried {ORLA}")
    ORLA = ORLA.resolve()
    EXAMPLES = options.examples.resolve()
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
