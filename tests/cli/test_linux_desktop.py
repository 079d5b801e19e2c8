#!/usr/bin/env python3
"""`orla` end to end against real applications on the headless X11 desktop
(scripts/test starts it), each effect checked from the other side: the
file a program wrote, the X properties, the clipboard as xclip reads it.
Skips when there is no display or an application is not installed."""
import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

ORLA = None


def root_property(name):
    out = subprocess.run(["xprop", "-root", name], capture_output=True, text=True).stdout
    return out.split("#")[-1].strip() if "#" in out else ""


def active_window():
    value = root_property("_NET_ACTIVE_WINDOW")
    return int(value.split(",")[0], 16) if value.startswith("0x") else 0


def window_class(window):
    out = subprocess.run(["xprop", "-id", hex(window), "WM_CLASS"], capture_output=True, text=True).stdout
    return out


def wait_for(predicate, seconds=10.0):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if predicate():
            return True
        time.sleep(0.05)
    return predicate()


@unittest.skipUnless(os.environ.get("DISPLAY"), "no X display (scripts/test starts one)")
class DesktopTestCase(unittest.TestCase):
    def setUp(self):
        self._tmp = tempfile.TemporaryDirectory(prefix="orla-desktop-")
        self.tmp = Path(self._tmp.name)
        self.children = []

    def tearDown(self):
        for child in self.children:
            if child.poll() is None:
                child.terminate()
                try:
                    child.wait(5)
                except subprocess.TimeoutExpired:
                    child.kill()
        self._tmp.cleanup()

    def orla(self, *args, env=None):
        completed = subprocess.run([ORLA, "--json", *map(str, args)], capture_output=True, text=True,
                                   timeout=30, env=env)
        lines = [json.loads(line) for line in completed.stdout.splitlines()]
        return completed.returncode, lines, completed.stderr

    def start(self, *command):
        child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL, start_new_session=True)
        self.children.append(child)
        return child


class TerminalTest(DesktopTestCase):
    """⌘C and ⌘V reach a terminal as its own clipboard chords, never as the
    Ctrl+C that interrupts the program running in it."""

    def setUp(self):
        super().setUp()
        if not shutil.which("st"):
            self.skipTest("the st terminal is not installed (scripts/install-deps installs it)")
        self.interrupted = self.tmp / "interrupted"
        self.received = self.tmp / "received"
        script = f'trap "echo INT >> {self.interrupted}" INT; cat > {self.received}'
        self.terminal = self.start("st", "-t", "orla terminal test", "-e", "sh", "-c", script)
        self.assertTrue(wait_for(lambda: "st-256color" in window_class(active_window())),
                        "the terminal never became the active window")

    def key(self, keycode, **flags):
        return self.orla("run", "KeyShortcut", json.dumps({"keycode": keycode, "hasKey": True, **flags}))

    def test_copy_and_cut_do_not_interrupt_and_paste_pastes(self):
        # xclip stays behind to serve the clipboard: not on our output, which
        # a test runner waits to see closed.
        subprocess.run(["xclip", "-selection", "clipboard"], input="pasted from orla", text=True, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for keycode in (8, 7):  # ⌘C, ⌘X
            code, lines, _ = self.key(keycode, command=True)
            self.assertEqual((code, lines), (0, [{"kind": "KeyShortcut", "result": "silentSuccess"}]))
        code, _, _ = self.key(9, command=True)  # ⌘V
        self.assertEqual(code, 0)
        code, _, _ = self.key(36)  # Return ends the line for cat
        self.assertEqual(code, 0)
        self.assertTrue(wait_for(lambda: self.received.exists() and
                                 self.received.read_text() == "pasted from orla\n", 5),
                        self.received.read_text() if self.received.exists() else "nothing received")
        self.assertFalse(self.interrupted.exists(), "the terminal got Ctrl+C")
        # ⌃C is still the interrupt the user asked for.
        self.key(8, control=True)
        self.assertTrue(wait_for(self.interrupted.exists, 5), "⌃C did not reach the terminal")



class TerminalWithoutClipboardKeysTest(DesktopTestCase):
    """xterm as installed binds no key to the clipboard: ⌘C is refused with
    a sentence rather than sent as the Ctrl+C that interrupts."""

    def test_copy_is_refused_and_nothing_is_interrupted(self):
        if not shutil.which("xterm"):
            self.skipTest("xterm is not installed (scripts/install-deps installs it)")
        interrupted = self.tmp / "interrupted"
        self.start("xterm", "-T", "orla xterm test", "-e", "sh", "-c",
                   f'trap "echo INT >> {interrupted}" INT; sleep 60')
        self.assertTrue(wait_for(lambda: "XTerm" in window_class(active_window())),
                        "xterm never became the active window")
        code, lines, _ = self.orla("run", "KeyShortcut", '{"keycode": 8, "command": true}')
        self.assertEqual(code, 1)
        self.assertEqual(lines[0]["result"], "failure")
        # The key command words an event it could not post its own way.
        self.assertEqual(lines[0]["message"], "Failed to create key down event for keycode 8")
        time.sleep(0.3)
        self.assertFalse(interrupted.exists(), "xterm got Ctrl+C")


def windows_of_class(name):
    """The _NET_WM_PID of every managed window whose WM_CLASS names `name`."""
    listed = root_property("_NET_CLIENT_LIST")
    pids = []
    for window in [w.strip() for w in listed.split(",") if w.strip().startswith("0x")]:
        if f'"{name}"' in window_class(int(window, 16)):
            out = subprocess.run(["xprop", "-id", window, "_NET_WM_PID"], capture_output=True,
                                 text=True).stdout
            if "=" in out:
                pids.append(int(out.split("=")[-1]))
    return pids


class ApplicationActions:
    def app(self, action_type, **data):
        code, lines, err = self.orla("run", "ApplicationShortcut",
                                     json.dumps({"actionType": action_type, **data}))
        return code, lines[0] if lines else err

    def assertResult(self, answer, message):
        code, line = answer
        self.assertEqual((code, line), (0, {"kind": "ApplicationShortcut", "result": "success",
                                            "message": message}))


class ApplicationTest(ApplicationActions, DesktopTestCase):
    """Mousepad's entry is org.xfce.mousepad.desktop, its window class
    "mousepad", with no StartupWMClass: the entry is found by its program."""

    ENTRY = "/usr/share/applications/org.xfce.mousepad.desktop"

    def setUp(self):
        super().setUp()
        if not shutil.which("mousepad") or not os.path.exists(self.ENTRY):
            self.skipTest("mousepad is not installed (scripts/install-deps installs it)")
        self.addCleanup(self.end_mousepad)

    def end_mousepad(self):
        # Started through orla, not as our child: ended by the pid its window names.
        for pid in windows_of_class("mousepad"):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        wait_for(lambda: not windows_of_class("mousepad"), 5)

    def test_launch_by_id_and_switch_and_quit_by_every_name(self):
        started = time.monotonic()
        self.assertResult(self.app(1, applicationPath="org.xfce.mousepad"), "Launched Mousepad.")
        self.assertLess(time.monotonic() - started, 5, "the launch waited for its deadline")
        self.assertTrue(windows_of_class("mousepad"))
        # The launch gave it a startup-notification id, which GTK sets on
        # the client leader of its windows.
        listed = [w.strip() for w in root_property("_NET_CLIENT_LIST").split(",") if w.strip().startswith("0x")]
        leaders = {subprocess.run(["xprop", "-id", w, "WM_CLIENT_LEADER"], capture_output=True,
                                  text=True).stdout.split("#")[-1].strip()
                   for w in listed if '"mousepad"' in window_class(int(w, 16))}
        ids = [subprocess.run(["xprop", "-id", leader, "_NET_STARTUP_ID"], capture_output=True, text=True).stdout
               for leader in leaders if leader.startswith("0x")]
        self.assertTrue(any('"orla-' in text for text in ids), ids)
        for name in ("Mousepad", "mousepad", "org.xfce.mousepad", "org.xfce.mousepad.desktop"):
            with self.subTest(name):
                self.assertResult(self.app(6, appName=name), "Switched to Mousepad.")
                self.assertIn('"mousepad"', window_class(active_window()))
        self.assertResult(self.app(1, applicationPath=self.ENTRY), "Brought Mousepad to the front.")
        code, line = self.app(16, appName="mousepad")
        self.assertEqual(code, 0, line)
        self.assertTrue(wait_for(lambda: not windows_of_class("mousepad"), 5))

    def test_switching_to_an_installed_application_that_is_not_running_launches_it(self):
        self.assertFalse(windows_of_class("mousepad"))
        self.assertResult(self.app(6, appName="Mousepad"), "Launched Mousepad.")
        self.assertTrue(wait_for(lambda: '"mousepad"' in window_class(active_window()), 5))

    def test_next_application_cycles(self):
        if not shutil.which("st"):
            self.skipTest("the st terminal is not installed")
        self.assertResult(self.app(1, applicationPath="org.xfce.mousepad"), "Launched Mousepad.")
        self.start("st", "-t", "orla cycle test")
        self.assertTrue(wait_for(lambda: "st-256color" in window_class(active_window())))
        seen = []
        for _ in range(4):
            code, line = self.app(4)
            self.assertEqual(code, 0, line)
            seen.append("mousepad" if '"mousepad"' in window_class(active_window()) else "other")
        self.assertEqual(seen, [seen[0], seen[1]] * 2)
        self.assertNotEqual(seen[0], seen[1])


class WrappedApplicationTest(ApplicationActions, DesktopTestCase):
    """An entry whose command is a shell that starts st with a window class
    of its own, with no StartupWMClass: nothing of the window names the
    entry, and st's own entry names its program. The launch itself tells."""

    CASES = [
        # (what, window class, command)
        ("a wrapper that stays", "OrlaWrapped", 'sh -c "st -c OrlaWrapped -t wrapped; true"'),
        ("a wrapper that starts it and leaves", "OrlaDetached", 'sh -c "st -c OrlaDetached -t detached & exit 0"'),
    ]

    def setUp(self):
        super().setUp()
        if not shutil.which("st") or not os.environ.get("XDG_DATA_HOME"):
            self.skipTest("st and the headless desktop's data folder are needed")

    def entry(self, window_class, command):
        entries = Path(os.environ["XDG_DATA_HOME"]) / "applications"
        entries.mkdir(parents=True, exist_ok=True)
        path = entries / f"org.orla.{window_class}.desktop"
        path.write_text(f"[Desktop Entry]\nType=Application\nName=Orla {window_class} Terminal\nExec={command}\n")
        self.addCleanup(path.unlink)
        self.addCleanup(self.end, window_class)
        return path

    def end(self, window_class):
        for pid in windows_of_class(window_class):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        wait_for(lambda: not windows_of_class(window_class), 5)

    def test_the_launch_tells_the_entry_of_a_window_whose_class_does_not(self):
        for what, window_class, command in self.CASES:
            with self.subTest(what):
                path = self.entry(window_class, command)
                name = f"Orla {window_class} Terminal"
                started = time.monotonic()
                self.assertResult(self.app(1, applicationPath=str(path)), f"Launched {name}.")
                self.assertLess(time.monotonic() - started, 5, "the launch waited for its deadline")
                self.assertTrue(windows_of_class(window_class))
                # Another orla, which did not launch it, knows it too: by id
                # and by the entry's name.
                self.assertResult(self.app(1, applicationPath=f"org.orla.{window_class}"),
                                  f"Brought {name} to the front.")
                self.assertResult(self.app(6, appName=name), f"Switched to {name}.")
                self.assertIn(f'"{window_class}"', window_class_of_active())
                code, line = self.app(16, appName=name)
                self.assertEqual((code, line["message"]), (0, f"Quit {name}."), line)
                self.assertTrue(wait_for(lambda: not windows_of_class(window_class), 5))

    def test_launch_by_the_desktop_file_id_of_an_installed_entry(self):
        if not os.path.exists("/usr/share/applications/debian-xterm.desktop"):
            self.skipTest("xterm's entry is not installed")
        self.addCleanup(self.end, "XTerm")
        self.assertFalse(windows_of_class("XTerm"))
        self.assertResult(self.app(1, applicationPath="debian-xterm"), "Launched XTerm.")
        self.assertTrue(windows_of_class("XTerm"))
        self.assertResult(self.app(16, appName="debian-xterm.desktop"), "Quit XTerm.")
        self.assertTrue(wait_for(lambda: not windows_of_class("XTerm"), 5))


def window_class_of_active():
    return window_class(active_window())


def windows_named(class_name):
    out = subprocess.run(["xdotool", "search", "--onlyvisible", "--classname", class_name], capture_output=True,
                         text=True).stdout
    return [int(w) for w in out.split()]


class WhatTheUserActivatedTest(DesktopTestCase):
    """Activations made in the window manager, not through orla, count for
    the previous front application."""

    def setUp(self):
        super().setUp()
        if not shutil.which("xdotool") or not shutil.which("xterm") or not shutil.which("st"):
            self.skipTest("xdotool, xterm and st are needed (scripts/install-deps installs them)")

    def started(self, program, instance):
        self.assertFalse(windows_named(instance), f"{program} already runs")
        self.start(program)
        self.assertTrue(wait_for(lambda: windows_named(instance)), program)
        return windows_named(instance)[0]

    def activate(self, window):
        subprocess.run(["xdotool", "windowactivate", str(window)], check=True, capture_output=True)
        self.assertTrue(wait_for(lambda: active_window() == window, 5))

    def test_the_previous_front_application_is_the_one_the_user_left(self):
        xterm = self.started("xterm", "xterm")
        st = self.started("st", "st")
        self.activate(st)
        ready = self.tmp / "ready"
        sequence = self.tmp / "previous.json"
        # Noting the front application makes orla follow the activations;
        # the file says so, and the pause is the user's time to switch.
        sequence.write_text(json.dumps({"name": "Back", "actions": [
            {"kind": "ApplicationShortcut", "data": {"actionType": 20}},
            {"kind": "CommandShortcut", "data": {"command": f"touch {ready}"}},
            {"kind": "PauseShortcut", "data": {"seconds": 3}},
            {"kind": "ApplicationShortcut", "data": {"actionType": 22}},
        ]}))
        orla = subprocess.Popen([ORLA, "--json", "sequence", str(sequence)], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)
        self.children.append(orla)
        self.assertTrue(wait_for(ready.exists, 10), "orla did not start its sequence")
        self.activate(xterm)
        self.activate(st)
        out, err = orla.communicate(timeout=30)
        lines = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(orla.returncode, 0, (lines, err))
        self.assertEqual(lines[-1]["result"], "success", lines)
        self.assertTrue(wait_for(lambda: active_window() == xterm, 5),
                        "the previous front application (xterm) did not come back")


def frame_origin(window):
    """Where the window's frame is, from xwininfo and the frame extents."""
    info = subprocess.run(["xwininfo", "-id", hex(window)], capture_output=True, text=True).stdout
    x = int(info.split("Absolute upper-left X:")[1].split()[0])
    y = int(info.split("Absolute upper-left Y:")[1].split()[0])
    extents = subprocess.run(["xprop", "-id", hex(window), "_NET_FRAME_EXTENTS"], capture_output=True,
                             text=True).stdout
    left, _, top, _ = ([int(v) for v in extents.split("=")[1].split(",")] if "=" in extents else [0] * 4)
    return x - left, y - top


class WindowTest(DesktopTestCase):
    def setUp(self):
        super().setUp()
        if not shutil.which("st"):
            self.skipTest("the st terminal is not installed")
        self.start("st", "-t", "orla window test", "-g", "40x10+20+20")
        self.assertTrue(wait_for(lambda: "st-256color" in window_class(active_window())))
        self.window = active_window()

    def window_action(self, **data):
        started = time.monotonic()
        code, lines, err = self.orla("run", "WindowShortcut", json.dumps(data))
        return code, (lines[0] if lines else err), time.monotonic() - started

    def test_fractional_positions_and_centering_land_on_whole_pixels(self):
        code, line, took = self.window_action(subAction="move", x=101.5, y=80.25)
        self.assertEqual(code, 0, line)
        self.assertLess(took, 1.5, "the move waited for its deadline")
        self.assertEqual(frame_origin(self.window), (102, 80))
        code, line, took = self.window_action(subAction="center")
        self.assertEqual(code, 0, line)
        self.assertLess(took, 1.5, "centering waited for its deadline")

    def test_a_maximized_window_moves_back(self):
        before = frame_origin(self.window)
        code, line, _ = self.window_action(subAction="zoom")
        self.assertEqual(code, 0, line)
        self.assertTrue(wait_for(lambda: frame_origin(self.window) != before, 3))
        code, line, took = self.window_action(subAction="move", x=before[0], y=before[1])
        self.assertEqual(code, 0, line)
        self.assertLess(took, 3, "the move waited for its deadline")
        self.assertEqual(frame_origin(self.window), before)
        state = subprocess.run(["xprop", "-id", hex(self.window), "_NET_WM_STATE"], capture_output=True,
                               text=True).stdout
        self.assertNotIn("MAXIMIZED", state)


class NoActiveWindowTest(DesktopTestCase):
    """With no window active, typed text and keys would go nowhere."""

    def test_typing_and_keys_fail_with_the_typing_target_sentence(self):
        if root_property("_NET_CLIENT_LIST").strip(", "):
            self.skipTest("another application has a window on this desktop")
        # A window that comes and goes leaves the window manager's active
        # window pointing at nothing.
        child = self.start("st", "-t", "orla gone") if shutil.which("st") else None
        if child:
            wait_for(lambda: active_window() != 0)
            child.terminate()
            child.wait(5)
            wait_for(lambda: not root_property("_NET_CLIENT_LIST").strip(", "))
        code, lines, _ = self.orla("run", "KeyboardShortcut", '{"text": "lost words"}')
        self.assertEqual(code, 1)
        self.assertEqual(lines, [{"kind": "KeyboardShortcut", "result": "failure", "message":
                                  "No target app to type into. Click into the app where you want the text, "
                                  "then click Test again."}])
        code, lines, _ = self.orla("run", "KeyShortcut", '{"keycode": 9, "command": true}')
        self.assertEqual(code, 1)
        self.assertEqual(lines[0]["result"], "failure")
        self.assertTrue(lines[0]["message"].startswith("No target app to send ⌘V"), lines)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--orla", required=True)
    args, rest = parser.parse_known_args()
    ORLA = args.orla
    unittest.main(argv=[sys.argv[0], *rest])
