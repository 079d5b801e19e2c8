#!/usr/bin/env python3
"""End-to-end tests of `orla` on the Linux desktop itself (no --sim), against
the session services of the headless desktop that scripts/test starts: the
keyring, the sound server, the login manager's stand-in. Each test checks the
effect from the other side (secret-tool, pactl, the stand-in's log) and skips,
saying why, when its service is not running.

    python3 tests/cli/test_linux_session.py --orla build/dev/tools/orla/orla
"""

import json
import os
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import test_orla  # noqa: E402  (the runner and the loopback server)
from test_orla import LoopbackServer, OrlaTestCase, result  # noqa: E402

SERVICE = os.environ.get("ORLA_HOST_BUNDLE_ID", "pro.orla.OrlaPro")


def tool(*args, stdin=None):
    return subprocess.run(args, input=stdin, capture_output=True, text=True, timeout=20)


class KeyringTest(OrlaTestCase):
    KEY = "sk-linux-SECRET-19"

    def setUp(self):
        if not os.environ.get("ORLA_HARNESS_KEYRING_PASSWORD"):
            self.skipTest("no Secret Service: the headless desktop's keyring is not running")
        super().setUp()
        self.server = LoopbackServer()
        self.addCleanup(self.server.close)
        for provider in ("local", "openai"):
            self.addCleanup(self.clear, provider)
            self.clear(provider)

    def clear(self, provider):
        tool("secret-tool", "clear", "service", SERVICE, "account", f"ai-action-{provider}-api-key")

    def lookup(self, provider):
        return tool("secret-tool", "lookup", "service", SERVICE, "account", f"ai-action-{provider}-api-key").stdout

    def test_a_key_moves_into_the_keyring_on_the_first_run_and_is_read_from_it_after(self):
        self.server.replies["/api/chat"] = (200, json.dumps({"message": {"content": " Hi! "}}))
        params = {"provider": "local", "prompt": "Say hi", "endpoint": self.server.url("/api/chat")}
        first = self.orla("--json", "run", "AIAction", json.dumps({**params, "apiKey": self.KEY}))
        self.assertExit(first, 0)
        self.assertEqual(first.lines, [result("AIAction", "success", message="Hi!")])
        self.assertEqual(self.lookup("local"), self.KEY)
        second = self.orla("--json", "run", "AIAction", json.dumps({**params, "apiKey": "<keychain>"}))
        self.assertEqual(second.lines, [result("AIAction", "success", message="Hi!")])
        self.assertEqual(self.lookup("local"), self.KEY)
        for run in (first, second):
            self.assertNotIn(self.KEY, run.stdout + run.stderr)

    def test_a_key_set_with_secret_tool_is_the_one_an_action_finds(self):
        marked = json.dumps({"prompt": "hi", "apiKey": "<keychain>"})
        missing = {"kind": "AIAction", "valid": False, "message": "Enter an OpenAI API key."}
        self.assertEqual(self.orla("--json", "validate", "AIAction", marked).lines, [missing])
        stored = tool("secret-tool", "store", "--label=OpenAI", "service", SERVICE,
                      "account", "ai-action-openai-api-key", stdin=self.KEY)
        self.assertEqual(stored.returncode, 0, stored.stderr)
        run = self.orla("--json", "validate", "AIAction", marked)
        self.assertEqual(run.lines, [{"kind": "AIAction", "valid": True}])
        self.assertNotIn(self.KEY, run.stdout + run.stderr)


class SoundAndSystemTest(OrlaTestCase):
    def sink_percent(self):
        out = tool("pactl", "get-sink-volume", "@DEFAULT_SINK@").stdout
        return int(out.split("/")[1].strip().rstrip("%"))

    def test_a_volume_step_moves_the_sound_servers_default_output(self):
        if not os.environ.get("ORLA_HARNESS_SINK"):
            self.skipTest("no sound server: the headless desktop's PulseAudio is not running")
        self.assertEqual(tool("pactl", "set-sink-volume", "@DEFAULT_SINK@", "40%").returncode, 0)
        run = self.orla("--json", "run", "SoundShortcut", '{"subAction": "volumeUp"}')
        self.assertEqual(run.lines, [result("SoundShortcut", "success", message="Volume increased.")])
        self.assertEqual(self.sink_percent(), 50)
        run = self.orla("--json", "run", "SoundShortcut", '{"soundName": "Ping"}')
        self.assertEqual(run.lines, [result("SoundShortcut", "success", message="Played system sound “Ping”.")])

    def test_a_sleep_request_reaches_the_login_manager(self):
        log = os.environ.get("ORLA_HARNESS_LOGIND_LOG")
        if not log or not os.environ.get("DBUS_SYSTEM_BUS_ADDRESS"):
            self.skipTest("no login manager stand-in: never ask the real one")
        before = Path(log).read_text()
        run = self.orla("--json", "run", "SystemShortcut", '{"subAction": "sleep"}')
        self.assertEqual(run.lines, [result("SystemShortcut", "success", message="Putting the computer to sleep.")])
        self.assertIn("Suspend True", Path(log).read_text()[len(before):])


class SpeechAndFocusTest(OrlaTestCase):
    def speech_streams(self):
        return tool("pactl", "list", "sink-inputs").stdout.count("Orla speech")

    def test_a_spoken_sentence_plays_on_the_sound_server_until_its_end(self):
        if not os.environ.get("ORLA_HARNESS_SINK"):
            self.skipTest("no sound server: the headless desktop's PulseAudio is not running")
        text = " ".join(["speaking"] * 12)
        process = subprocess.Popen([str(test_orla.ORLA), "--json", "run", "SpeechAction",
                                    json.dumps({"text": text, "voice": "en_GB"})],
                                   cwd=self.cwd, stdout=subprocess.PIPE, text=True)
        seen = False
        while process.poll() is None and not seen:
            seen = self.speech_streams() > 0
        out, _ = process.communicate(timeout=20)
        self.assertTrue(seen, "the sound server never showed the speech's stream")
        line = json.loads(out.splitlines()[0])
        self.assertEqual(line["result"], "success")
        self.assertRegex(line["message"], r"^Spoke 12 words with the voice “English \(Great Britain\)”\.$")
        self.assertEqual(self.speech_streams(), 0)

    def test_a_shortcut_stops_the_speech_it_started(self):
        if not os.environ.get("ORLA_HARNESS_SINK"):
            self.skipTest("no sound server: the headless desktop's PulseAudio is not running")
        shortcut = self.tmp / "speak.json"
        shortcut.write_text(json.dumps({"name": "Speak and stop", "actions": [
            {"kind": "SpeechAction", "data": {"text": " ".join(["word"] * 300), "wait": False}},
            {"kind": "PauseShortcut", "data": {"seconds": 0.5}},
            {"kind": "SpeechAction", "data": {"subAction": "stop"}},
            {"kind": "SpeechAction", "data": {"subAction": "stop"}}]}))
        run = self.orla("--json", "sequence", shortcut)
        messages = [line.get("message") for line in run.lines if line.get("kind") == "SpeechAction"]
        self.assertEqual(messages, ["Speaking 300 words.", "Stopped speaking.", "Nothing was being spoken."])
        self.assertEqual(self.speech_streams(), 0)

    def test_do_not_disturb_is_the_desktops_notification_switch(self):
        if not os.environ.get("ORLA_DESKTOP_HARNESS") or not os.environ.get("DBUS_SESSION_BUS_ADDRESS"):
            self.skipTest("no private session bus: never change the real desktop's settings")
        key = ("org.gnome.desktop.notifications", "show-banners")
        if tool("gsettings", "set", *key, "true").returncode != 0:
            self.skipTest("GNOME's notification settings are not installed (gsettings-desktop-schemas)")
        self.addCleanup(tool, "gsettings", "reset", *key)
        steps = [({}, "success", "Turned “Do Not Disturb” on.", "false"),
                 ({"state": "on"}, "success", "“Do Not Disturb” is already on.", "false"),
                 ({"state": "toggle"}, "success", "Turned “Do Not Disturb” off.", "true"),
                 ({"mode": "Work"}, "failure", "There is no Focus mode named “Work”. Modes here: Do Not Disturb. "
                  "Check the name in the desktop's notification settings, then click Test again.", "true")]
        for data, outcome, message, banners in steps:
            run = self.orla("--json", "run", "FocusModeAction", json.dumps(data))
            self.assertEqual(run.lines, [result("FocusModeAction", outcome, message=message)])
            self.assertEqual(tool("gsettings", "get", *key).stdout.strip(), banners)


def main():
    test_orla.ORLA = None
    test_orla.run_suite("test_linux_session.py")


if __name__ == "__main__":
    main()
