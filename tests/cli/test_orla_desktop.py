#!/usr/bin/env python3
"""End-to-end tests of `orla` on the real (headless) desktop: messages and
pop-up menus shown by `orla` itself and worked from the outside by the desktop
driver (AT-SPI and XTest), and the effects checked on the other side (the
window that has the focus, the file a program wrote).

    python3 tests/cli/test_orla_desktop.py --orla build/dev/tools/orla/orla \
        --driver build/dev/tests/orla_desktop_driver --test-app build/dev/tests/orla_test_app \
        [--screenshots DIR]

They skip without the headless desktop of scripts/test (ORLA_DESKTOP_HARNESS).
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

ORLA = DRIVER = TEST_APP = None
SCREENSHOTS = None


def driver(*args, wait=True):
    process = subprocess.Popen([DRIVER, *map(str, args)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if not wait:
        return process
    out, err = process.communicate(timeout=30)
    return process.returncode, out.strip(), err.strip()


def screenshot(name):
    """The whole screen as a PNG in the screenshot folder, when asked for."""
    if not SCREENSHOTS or not shutil.which("xwd") or not shutil.which("convert"):
        return
    Path(SCREENSHOTS).mkdir(parents=True, exist_ok=True)
    dump = subprocess.run(["xwd", "-root", "-silent"], capture_output=True)
    subprocess.run(["convert", "xwd:-", str(Path(SCREENSHOTS) / f"{name}.png")], input=dump.stdout)


@unittest.skipUnless(os.environ.get("ORLA_DESKTOP_HARNESS"), "no headless desktop (scripts/test starts one)")
class DesktopTest(unittest.TestCase):
    def setUp(self):
        self.tmp = Path(tempfile.mkdtemp(prefix="orla-desktop-e2e."))
        self.env = dict(os.environ)
        self.children = []

    def tearDown(self):
        for child in self.children:
            child.terminate()
            child.wait()
        shutil.rmtree(self.tmp, ignore_errors=True)

    def start_orla(self, *args):
        process = subprocess.Popen([ORLA, "--json", *args], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True, env=self.env)
        self.children.append(process)
        return process

    def finish(self, process):
        out, err = process.communicate(timeout=30)
        self.children.remove(process)
        return [json.loads(line) for line in out.splitlines() if line.startswith("{")], err

    def shortcut(self, actions):
        path = self.tmp / "shortcut.json"
        path.write_text(json.dumps({"name": "Test", "actions": actions}))
        return path

    def test_stop_in_a_message_ends_the_sequence(self):
        marker = self.tmp / "ran-after"
        path = self.shortcut([
            {"kind": "MessageShortcut", "data": {"title": "Send the report now?", "message2": "It goes to the team.",
                                                 "button1": "Send", "button2": "Stop", "button2Action": 1}},
            {"kind": "CommandShortcut", "data": {"command": f"touch {marker}"}},
        ])
        orla = self.start_orla("sequence", str(path))
        self.assertEqual(driver("focus", orla.pid)[0], 0, "the message did not take the focus")
        screenshot("message")
        code, _, err = driver("button", orla.pid, "Stop")
        self.assertEqual(code, 0, err)
        lines, err = self.finish(orla)
        self.assertEqual(lines[0]["kind"], "MessageShortcut", err)
        self.assertEqual(lines[0]["result"], "stopSequence")
        self.assertFalse(marker.exists(), "the action after Stop ran")

    def test_the_first_button_lets_the_sequence_go_on(self):
        path = self.shortcut([
            {"kind": "MessageShortcut", "data": {"message": "Carry on?", "button1": "Go on", "button2": "Stop",
                                                 "button2Action": 1}},
        ])
        orla = self.start_orla("sequence", str(path))
        code, _, err = driver("keys", orla.pid, "Go on", "Return")
        self.assertEqual(code, 0, err)
        lines, _ = self.finish(orla)
        self.assertEqual(lines[0]["message"], "Clicked Go on. The shortcut continues.")

    def test_the_running_applications_menu_switches_to_the_application_chosen(self):
        entries = Path(self.env["XDG_DATA_HOME"]) / "applications"
        entries.mkdir(parents=True, exist_ok=True)
        (entries / "org.orla.E2eApplication.desktop").write_text(
            "[Desktop Entry]\nType=Application\nName=Orla Test Application\nIcon=accessories-text-editor\n"
            f"Exec={TEST_APP}\nStartupWMClass=OrlaTestApp\n")
        app = subprocess.Popen([TEST_APP])
        self.children.append(app)
        # Another window takes the focus from it: a message of a second orla,
        # which stays up until the end of the test.
        other = self.start_orla("run", "MessageShortcut", json.dumps({"title": "In the way"}))
        self.assertEqual(driver("focus", other.pid)[0], 0)
        orla = self.start_orla("run", "ApplicationShortcut", json.dumps({"actionType": 2}))
        self.assertEqual(driver("showing", orla.pid, "Orla Test Application")[0], 0)
        screenshot("running-applications-menu")
        code, _, err = driver("menu", orla.pid, "Orla Test Application")
        self.assertEqual(code, 0, err)
        lines, err = self.finish(orla)
        self.assertEqual(lines[0]["result"], "success", (lines, err))
        code, title, _ = driver("focus", app.pid)
        self.assertEqual(code, 0, "the application chosen did not get the focus")
        self.assertEqual(title, "Orla test application")
        driver("button", other.pid, "OK")
        self.finish(other)

    def test_a_settings_pane_starts_the_settings_program_with_the_pane(self):
        bin_dir = self.tmp / "bin"
        bin_dir.mkdir()
        record = self.tmp / "asked"
        program = bin_dir / "gnome-control-center"
        program.write_text(f"#!/bin/sh\nprintf '%s\\n' \"$@\" > {record}\n")
        program.chmod(0o755)
        self.env["PATH"] = f"{bin_dir}:{self.env['PATH']}"
        self.env["XDG_CURRENT_DESKTOP"] = "GNOME"
        orla = self.start_orla("run", "PreferenceShortcut", json.dumps({"pane": "Sound"}))
        lines, err = self.finish(orla)
        self.assertEqual(lines[0]["message"], "Opened the “Sound” settings.", err)
        for _ in range(100):
            if record.exists() and record.read_text():
                break
            time.sleep(0.05)
        self.assertEqual(record.read_text(), "sound\n")
        record.unlink()
        for bad in ["--help", "sound; rm -rf ~"]:
            lines, _ = self.finish(self.start_orla("run", "PreferenceShortcut", json.dumps({"pane": bad})))
            self.assertEqual(lines[0]["result"], "failure")
            self.assertIn("is not a settings pane Orla knows", lines[0]["message"])
        time.sleep(0.2)
        self.assertFalse(record.exists(), "a refused pane started the settings program")

    def recorder(self, mime_types):
        """A desktop entry, the default for these types, that writes what it
        was asked to open into the file it answers."""
        record = self.tmp / "opened"
        script = self.tmp / "recorder.sh"
        script.write_text(f"#!/bin/sh\nprintf '%s\\n' \"$@\" >> {record}\n")
        script.chmod(0o755)
        self.env["XDG_DATA_HOME"] = str(self.tmp / "data")
        self.env["XDG_CONFIG_HOME"] = str(self.tmp / "config")
        entries = self.tmp / "data" / "applications"
        entries.mkdir(parents=True)
        (entries / "org.orla.Recorder.desktop").write_text(
            "[Desktop Entry]\nType=Application\nName=Recorder\n"
            f"Exec={script} %f\nMimeType={';'.join(mime_types)};\n")
        (self.tmp / "config").mkdir()
        (self.tmp / "config" / "mimeapps.list").write_text(
            "[Default Applications]\n" + "".join(f"{t}=org.orla.Recorder.desktop\n" for t in mime_types))
        return record

    def wait_for_text(self, path):
        for _ in range(200):
            if path.exists() and path.read_text().endswith("\n"):
                return path.read_text()
            time.sleep(0.05)
        return path.read_text() if path.exists() else ""

    def test_a_folder_menu_opens_the_file_chosen_with_its_default_application(self):
        record = self.recorder(["text/plain", "inode/directory"])
        folder = self.tmp / "Projects"
        (folder / "Notes").mkdir(parents=True)
        (folder / "Notes" / "plan.txt").write_text("plan\n")
        (folder / "readme.txt").write_text("hello\n")
        # A link back to the folder itself: an entry, never an endless submenu.
        (folder / "Notes" / "back").symlink_to(folder)
        orla = self.start_orla("run", "FolderShortcut", json.dumps({"folderPath": str(folder)}))
        self.assertEqual(driver("showing", orla.pid, "readme.txt")[0], 0)
        screenshot("folder-menu")
        code, _, err = driver("menu", orla.pid, "Notes", "plan.txt")
        self.assertEqual(code, 0, err)
        lines, err = self.finish(orla)
        self.assertEqual(lines[0]["message"], "Opened “plan.txt”.", err)
        self.assertEqual(self.wait_for_text(record), f"{folder}/Notes/plan.txt\n")
        record.unlink()
        # The link, chosen, opens the folder it leads to in the file manager
        # (here the default application for folders).
        orla = self.start_orla("run", "FolderShortcut", json.dumps({"folderPath": str(folder)}))
        code, _, err = driver("menu", orla.pid, "Notes", "back")
        self.assertEqual(code, 0, err)
        lines, err = self.finish(orla)
        self.assertEqual(lines[0]["message"], "Opened the folder “back”.", err)
        self.assertEqual(self.wait_for_text(record), f"{folder}/Notes/back\n")

    def test_a_folder_menu_of_a_missing_folder_or_a_file_says_so(self):
        a_file = os.path.abspath(__file__)
        for given, message in [
                (str(self.tmp / "gone"), f"The folder “{self.tmp}/gone” can't be found. Choose it again with Browse…"),
                (a_file, f"“{a_file}” is a file, not a folder. Choose a folder with Browse…")]:
            lines, _ = self.finish(self.start_orla("run", "FolderShortcut", json.dumps({"folderPath": given})))
            self.assertEqual(lines[0]["message"], message)

    def test_without_a_display_messages_and_menus_say_they_are_not_available(self):
        for display in [None, ":97"]:
            if display is None:
                self.env.pop("DISPLAY", None)
            else:
                self.env["DISPLAY"] = display
            lines, err = self.finish(self.start_orla("run", "MessageShortcut", json.dumps({"title": "Hello"})))
            self.assertEqual(lines[0]["message"], "Messages are not available on this desktop in this build of Orla.")
            lines, _ = self.finish(self.start_orla("run", "DocumentShortcut", json.dumps({"actionType": 3})))
            self.assertEqual(lines[0]["message"],
                             "Pop-up menus are not available on this desktop in this build of Orla.")

    def test_gtk_is_loaded_only_for_a_message_or_a_menu(self):
        # The shell command's parent is orla itself: its memory map says
        # whether GTK is in.
        lines, err = self.finish(self.start_orla(
            "run", "CommandShortcut", json.dumps({"command": "grep -c libgtk-3 /proc/$PPID/maps || true"})))
        self.assertEqual(lines[0]["message"].strip(), "0", (lines, err))


def main():
    global ORLA, DRIVER, TEST_APP, SCREENSHOTS
    parser = argparse.ArgumentParser()
    parser.add_argument("--orla", required=True)
    parser.add_argument("--driver", required=True)
    parser.add_argument("--test-app", required=True)
    parser.add_argument("--screenshots")
    args, rest = parser.parse_known_args()
    ORLA, DRIVER, TEST_APP, SCREENSHOTS = args.orla, args.driver, args.test_app, args.screenshots
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
