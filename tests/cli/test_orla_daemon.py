#!/usr/bin/env python3
"""`orla daemon` end to end on the headless desktop: hotkeys pressed with
XTest, and every effect seen from the other side (a window that writes down
what reaches it, the clipboard as xclip reads it, a notification server
stand-in on a private session bus, a stand-in text editor, another X client
that holds a combination first).

    python3 tests/cli/test_orla_daemon.py --orla build/dev/tools/orla/orla \
        --driver build/dev/tests/orla_hotkey_driver --desktop-driver build/dev/tests/orla_desktop_driver

They skip without the headless desktop of scripts/test (ORLA_DESKTOP_HARNESS).
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

ORLA = DRIVER = DESKTOP_DRIVER = None
# python3-dbusmock is installed for Debian's own python3.
SYSTEM_PYTHON = "/usr/bin/python3"


def wait_for(predicate, seconds=5.0):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if predicate():
            return True
        time.sleep(0.05)
    return predicate()


@unittest.skipUnless(os.environ.get("ORLA_DESKTOP_HARNESS") and os.environ.get("DISPLAY"),
                     "no headless desktop (scripts/test starts one)")
class DaemonTest(unittest.TestCase):
    def setUp(self):
        self._tmp = tempfile.TemporaryDirectory(prefix="orla-daemon-")
        self.tmp = Path(self._tmp.name)
        self.folder = self.tmp / "shortcuts"
        self.folder.mkdir()
        self.children = []
        self.env = dict(os.environ)
        self.typed = self.tmp / "typed"
        self.typed.write_text("")
        self.log_lines = []

    def tearDown(self):
        for child in reversed(self.children):
            if child.poll() is None:
                child.terminate()
                try:
                    child.wait(5)
                except subprocess.TimeoutExpired:
                    child.kill()
                    child.wait()
            for stream in (child.stdout, child.stderr):
                if stream:
                    stream.close()
        self._tmp.cleanup()

    # ---- the other side ----

    def start(self, *command, env=None, stdout=subprocess.DEVNULL):
        child = subprocess.Popen([str(c) for c in command], stdin=subprocess.DEVNULL, stdout=stdout,
                                 stderr=subprocess.DEVNULL, env=env or self.env, text=True)
        self.children.append(child)
        return child

    def start_ready(self, *command):
        """A driver child that prints "ready" once in place."""
        child = self.start(DRIVER, *command, stdout=subprocess.PIPE)
        self.assertEqual(child.stdout.readline().strip(), "ready", f"{command[0]} never got ready")
        return child

    def window(self, selection=""):
        return self.start_ready("window", self.typed, selection)

    def press(self, *keysyms):
        subprocess.run([DRIVER, "press", *keysyms], check=True, timeout=10)

    def private_notification_server(self):
        """A notification server stand-in on a bus of its own; answers its log."""
        if not shutil.which("dbus-daemon") or not Path(SYSTEM_PYTHON).exists():
            self.skipTest("dbus-daemon or Debian's python3 is missing")
        bus = self.start("dbus-daemon", "--session", "--nofork", "--print-address=1", stdout=subprocess.PIPE)
        address = bus.stdout.readline().strip()
        self.env["DBUS_SESSION_BUS_ADDRESS"] = address
        log = self.tmp / "notifications.log"
        self.start(SYSTEM_PYTHON, "-m", "dbusmock", "--template", "notification_daemon", "-l", log)
        check = ["gdbus", "call", "--session", "--dest", "org.freedesktop.Notifications", "--object-path",
                 "/org/freedesktop/Notifications", "--method", "org.freedesktop.Notifications.GetServerInformation"]
        self.assertTrue(wait_for(lambda: subprocess.run(check, env=self.env, capture_output=True).returncode == 0),
                        "the notification server stand-in never answered")
        return log

    # ---- the daemon ----

    def shortcut(self, file, name, hotkey, *actions, enabled=True):
        (self.folder / file).write_text(json.dumps(
            {"name": name, "hotkey": hotkey, "enabled": enabled, "actions": list(actions)}))

    def start_daemon(self):
        daemon = subprocess.Popen([ORLA, "daemon", self.folder], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, env=self.env)
        self.children.append(daemon)

        def read():
            for line in daemon.stderr:
                self.log_lines.append(line.rstrip("\n"))
        threading.Thread(target=read, daemon=True).start()
        self.assertTrue(wait_for(lambda: any("watching" in line for line in self.log_lines)),
                        f"the daemon never started: {self.log_lines}")
        return daemon

    def logged(self, text):
        return wait_for(lambda: any(text in line for line in self.log_lines))

    def typed_text(self):
        return self.typed.read_text()

    # ---- the tests ----

    def test_hotkeys_type_into_the_window_and_transform_the_selection(self):
        self.shortcut("greet.json", "Greet", "ctrl+alt+u", {"kind": "KeyboardShortcut", "data": {"text": "hello"}})
        self.shortcut("upper.json", "Upper", "⌃⌥K", {"kind": "ClipboardShortcut", "data": {"actionType": 6}})
        self.window(selection="quiet words")
        self.start_daemon()
        self.press("Control_L", "Alt_L", "u")
        self.assertTrue(wait_for(lambda: self.typed_text() == "hello"), self.typed_text())
        # With Caps Lock and Num Lock on, the same combination still works
        # (what it types then is the typing's business, not the hotkey's).
        self.press("Caps_Lock")
        self.press("Num_Lock")
        try:
            self.press("Control_L", "Alt_L", "u")
            self.assertTrue(wait_for(lambda: self.typed_text().lower() == "hellohello"), self.typed_text())
        finally:
            self.press("Caps_Lock")
            self.press("Num_Lock")
        self.press("Control_L", "Alt_L", "k")
        self.assertTrue(wait_for(lambda: "[pasted QUIET WORDS]" in self.typed_text()), self.typed_text())
        clipboard = subprocess.run(["xclip", "-o", "-selection", "clipboard"], capture_output=True, text=True,
                                   timeout=10).stdout
        self.assertEqual(clipboard, "QUIET WORDS")

    def test_a_run_waits_for_the_hotkeys_modifiers_to_be_let_go_of(self):
        # The window takes no key typed with Control down: a run that did not
        # wait would type nothing into it.
        self.shortcut("greet.json", "Greet", "ctrl+alt+u", {"kind": "KeyboardShortcut", "data": {"text": "late"}})
        self.window()
        self.start_daemon()
        subprocess.run([DRIVER, "linger", "400", "Control_L", "Alt_L", "u"], check=True, timeout=10)
        self.assertTrue(wait_for(lambda: self.typed_text() == "late"), self.typed_text())
        self.assertTrue(self.logged("“Greet” ran (⌃⌥U)"), self.log_lines)
        # Held past the limit, the run goes ahead and says so.
        subprocess.run([DRIVER, "linger", "1300", "Control_L", "Alt_L", "u"], check=True, timeout=10)
        self.assertTrue(self.logged("the keys of ⌃⌥U are still held; “Greet” runs anyway"), self.log_lines)

    def test_a_message_shown_by_a_hotkey_run_is_answered_and_the_run_goes_on(self):
        if not DESKTOP_DRIVER:
            self.skipTest("no desktop driver given")
        marker = self.tmp / "sent"
        self.shortcut("ask.json", "Ask", "ctrl+alt+m",
                      {"kind": "MessageShortcut", "data": {"title": "Send the report now?", "button1": "Send",
                                                           "button2": "Stop", "button2Action": 1}},
                      {"kind": "CommandShortcut", "data": {"command": f"touch {marker}"}})
        daemon = self.start_daemon()
        self.press("Control_L", "Alt_L", "m")
        # The message is the daemon's own window, worked from outside over
        # the accessibility bus.
        pressed = subprocess.run([DESKTOP_DRIVER, "button", str(daemon.pid), "Send"], capture_output=True,
                                 text=True, timeout=30, env=self.env)
        self.assertEqual(pressed.returncode, 0, pressed.stderr + "\n".join(self.log_lines))
        self.assertTrue(wait_for(marker.exists), self.log_lines)
        self.assertTrue(self.logged("“Ask” ran (⌃⌥M)"), self.log_lines)

    def test_a_failure_is_a_notice_with_the_actions_sentence_and_a_log_line(self):
        notices = self.private_notification_server()
        sentence = "Nothing has been saved yet. Run a Save Clipboard command first, then Restore Clipboard."
        self.shortcut("restore.json", "Restore", "ctrl+alt+r", {"kind": "ClipboardShortcut", "data": {"actionType": 12}},
                      {"kind": "KeyboardShortcut", "data": {"text": "not typed"}})
        self.window()
        self.start_daemon()
        self.press("Control_L", "Alt_L", "r")
        self.assertTrue(wait_for(lambda: notices.exists() and sentence in notices.read_text()),
                        notices.read_text() if notices.exists() else "no notice")
        self.assertIn('"Restore failed"', notices.read_text())
        self.assertTrue(self.logged(f"“Restore” failed at ClipboardShortcut: {sentence}"), self.log_lines)
        # The run stopped there.
        self.assertEqual(self.typed_text(), "")

    def reloaded_within_a_second(self, change):
        """Makes `change` to the folder and waits until the daemon has read it again."""
        before = sum("watching" in line for line in self.log_lines)
        start = time.monotonic()
        change()
        self.assertTrue(wait_for(lambda: sum("watching" in line for line in self.log_lines) > before),
                        f"the change was never read: {self.log_lines}")
        self.assertLess(time.monotonic() - start, 1.0, "the change took more than a second to be read")

    def test_changes_to_the_folder_take_effect_within_a_second(self):
        self.shortcut("greet.json", "Greet", "ctrl+alt+u", {"kind": "KeyboardShortcut", "data": {"text": "a"}})
        self.window()
        self.start_daemon()

        # A new file, a changed hotkey: both work, the old combination no longer does.
        def add_and_change():
            self.shortcut("new.json", "New", "ctrl+alt+n", {"kind": "KeyboardShortcut", "data": {"text": "n"}})
            self.shortcut("greet.json", "Greet", "ctrl+alt+g", {"kind": "KeyboardShortcut", "data": {"text": "g"}})
        self.reloaded_within_a_second(add_and_change)
        self.press("Control_L", "Alt_L", "n")
        self.assertTrue(wait_for(lambda: self.typed_text() == "n"), self.typed_text())
        self.press("Control_L", "Alt_L", "u")
        self.press("Control_L", "Alt_L", "g")
        self.assertTrue(wait_for(lambda: self.typed_text() == "ng"), self.typed_text())
        # A file saved with a mistake keeps its last good version, and says so.
        self.reloaded_within_a_second(lambda: (self.folder / "new.json").write_text(
            '{"name": "New", "hotkey": "ctrl+alt+n", "actions": ['))
        self.press("Control_L", "Alt_L", "n")
        self.assertTrue(wait_for(lambda: self.typed_text() == "ngn"), self.typed_text())
        self.assertTrue(self.logged("new.json: not valid JSON"), self.log_lines)
        self.assertTrue(self.logged("its last good version stays in use"), self.log_lines)
        # A removed file gives its hotkey back.
        self.reloaded_within_a_second((self.folder / "new.json").unlink)
        self.press("Control_L", "Alt_L", "n")
        self.press("Control_L", "Alt_L", "g")
        self.assertTrue(wait_for(lambda: self.typed_text() == "ngng"), self.typed_text())

    def test_a_combination_another_program_holds_is_named_and_the_rest_work(self):
        self.start_ready("hold", "u", "control+mod1")
        self.shortcut("greet.json", "Greet", "ctrl+alt+u", {"kind": "KeyboardShortcut", "data": {"text": "u"}})
        self.shortcut("other.json", "Other", "ctrl+alt+o", {"kind": "KeyboardShortcut", "data": {"text": "o"}})
        self.shortcut("same.json", "Same", "⌃⌥O", {"kind": "KeyboardShortcut", "data": {"text": "x"}})
        self.window()
        self.start_daemon()
        self.assertTrue(self.logged("⌃⌥U is held by another program, so “Greet” has no hotkey; "
                                    "choose another combination or free it there."), self.log_lines)
        self.assertTrue(self.logged("same.json: the hotkey ⌃⌥O is already the hotkey of “Other”, which keeps it"),
                        self.log_lines)
        self.press("Control_L", "Alt_L", "o")
        self.assertTrue(wait_for(lambda: self.typed_text() == "o"), self.typed_text())

    def test_pause_stops_the_hotkeys_until_resumed(self):
        self.shortcut("greet.json", "Greet", "ctrl+alt+u", {"kind": "KeyboardShortcut", "data": {"text": "u"}})
        self.shortcut("pause.json", "Pause", "ctrl+alt+p", {"kind": "OrlaShortcut", "data": {"subAction": "pause"}})
        self.window()
        self.start_daemon()
        self.press("Control_L", "Alt_L", "p")
        self.assertTrue(self.logged("hotkeys paused"), self.log_lines)
        self.press("Control_L", "Alt_L", "u")
        time.sleep(0.5)
        self.assertEqual(self.typed_text(), "")
        self.press("Control_L", "Alt_L", "p")
        self.assertTrue(self.logged("hotkeys resumed"), self.log_lines)
        self.press("Control_L", "Alt_L", "u")
        self.assertTrue(wait_for(lambda: self.typed_text() == "u"), self.typed_text())

    def test_open_editor_hands_the_file_to_the_text_editor_and_quit_ends_the_daemon(self):
        marker = self.tmp / "edited"
        editor = self.tmp / "editor.sh"
        editor.write_text(f'#!/bin/sh\necho "$1" >> {marker}\n')
        editor.chmod(0o755)
        data, config = self.tmp / "data", self.tmp / "config"
        (data / "applications").mkdir(parents=True)
        config.mkdir()
        (data / "applications" / "orla-test-editor.desktop").write_text(
            f"[Desktop Entry]\nType=Application\nName=Test editor\nExec={editor} %f\nMimeType=text/plain;\n")
        (config / "mimeapps.list").write_text("[Default Applications]\ntext/plain=orla-test-editor.desktop\n")
        self.env.update(XDG_DATA_HOME=str(data), XDG_CONFIG_HOME=str(config))
        self.shortcut("edit.json", "Edit", "ctrl+alt+e", {"kind": "OrlaShortcut", "data": {"subAction": "editor"}})
        self.shortcut("quit.json", "Quit", "ctrl+alt+q", {"kind": "OrlaShortcut", "data": {"subAction": "quit"}})
        daemon = self.start_daemon()
        self.press("Control_L", "Alt_L", "e")
        self.assertTrue(wait_for(lambda: marker.exists() and marker.read_text().strip() == str(self.folder / "edit.json")),
                        marker.read_text() if marker.exists() else "the editor never ran")
        self.press("Control_L", "Alt_L", "q")
        self.assertEqual(daemon.wait(10), 0)

    def test_check_lists_each_problem_and_no_display_is_said(self):
        self.shortcut("a.json", "A", "ctrl+alt", {"kind": "KeyboardShortcut", "data": {"text": "a"}})
        self.shortcut("b.json", "B", "ctrl+alt+b", {"kind": "KeyboardShortcut", "data": {}})
        self.shortcut("c.json", "C", "ctrl+alt+c", {"kind": "KeyboardShortcut", "data": {"text": "c"}})
        checked = subprocess.run([ORLA, "daemon", "--check", self.folder], capture_output=True, text=True, timeout=30)
        self.assertEqual(checked.returncode, 1, checked.stderr)
        lines = checked.stdout.splitlines()
        self.assertEqual(len(lines), 2, lines)
        self.assertEqual(lines[0], f"{self.folder / 'b.json'}: action 1 (KeyboardShortcut): " + lines[0].split(": ", 2)[2])
        self.assertEqual(lines[1], f"{self.folder / 'a.json'}: the hotkey “ctrl+alt” has no key")
        (self.folder / "a.json").unlink()
        (self.folder / "b.json").unlink()
        checked = subprocess.run([ORLA, "daemon", "--check", self.folder], capture_output=True, text=True, timeout=30)
        self.assertEqual((checked.returncode, checked.stdout), (0, "1 shortcut, 1 hotkey: no problems\n"))
        env = {k: v for k, v in self.env.items() if k != "DISPLAY"}
        headless = subprocess.run([ORLA, "daemon", self.folder], capture_output=True, text=True, timeout=30, env=env)
        self.assertEqual(headless.returncode, 2)
        self.assertIn("There is no X display to take hotkeys from (DISPLAY is not set).", headless.stderr)
        # Started by systemd, its standard error is the journal's stream and
        # each line carries the journal's priority.
        journal = self.tmp / "journal"
        with open(journal, "w") as stream:
            status = os.fstat(stream.fileno())
            env["JOURNAL_STREAM"] = f"{status.st_dev}:{status.st_ino}"
            code = subprocess.run([ORLA, "daemon", self.folder], stderr=stream, env=env, timeout=30).returncode
        self.assertEqual(code, 2)
        self.assertTrue(journal.read_text().startswith("<3>There is no X display"), journal.read_text())


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--orla", required=True)
    parser.add_argument("--driver", required=True)
    parser.add_argument("--desktop-driver")
    args, rest = parser.parse_known_args()
    ORLA, DRIVER, DESKTOP_DRIVER = args.orla, args.driver, args.desktop_driver
    unittest.main(argv=[sys.argv[0], *rest])
