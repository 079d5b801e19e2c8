#!/usr/bin/env python3
"""End-to-end tests of `orla` against hostile input: secrets in arguments,
state files that must survive, JSON nested without end, NUL characters,
names that are not UTF-8 and runs that would never end.

    python3 tests/cli/test_orla_hostile.py --orla build/dev/tools/orla/orla
"""

import json
import os
import stat
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import test_orla  # noqa: E402
from test_orla import OrlaTestCase, action, control  # noqa: E402


class SecretsTest(OrlaTestCase):
    def test_usage_errors_never_echo_what_was_typed(self):
        secret = "sk-live-0123456789abcdef"
        cases = [
            ("parameters in place of the kind", ["validate", json.dumps({"apiKey": secret})]),
            ("a key in place of the kind", ["run", secret, "{}"]),
            ("a stray argument", ["run", "OrlaShortcut", "{}", secret]),
            ("a stray option value", ["--sim", "run", "OrlaShortcut", "{}", "--" + secret]),
        ]
        for name, args in cases:
            with self.subTest(name):
                run = self.orla(*args)
                self.assertUsageError(run)
                self.assertNotIn(secret, run.stderr + run.stdout)

    def test_the_state_file_is_for_its_owner_alone_and_replaced_whole(self):
        out = self.tmp / "out.json"
        out.write_text("the old state\n")
        os.chmod(out, 0o644)
        state = {"keychain": {"access": "unlocked",
                              "items": [{"service": "svc", "account": "ada", "password": "hunter2"}]}}
        run = self.sim("--state-out", out, "run", "OrlaShortcut", "{}", state=state)
        self.assertExit(run, 0)
        self.assertEqual(stat.S_IMODE(out.stat().st_mode), 0o600)
        self.assertIn("hunter2", out.read_text())
        self.assertEqual(sorted(p.name for p in self.tmp.iterdir()), ["cwd", "out.json", "state.json"])

    def test_a_state_file_that_cannot_be_written_whole_is_exit_1_and_keeps_the_old_one(self):
        out = self.tmp / "state.json"
        out.write_text("the old state\n")
        # Files may not grow past 1 KB in this run; the signal is ignored, so
        # the write fails with an error instead of ending the process.
        script = f"trap '' XFSZ; ulimit -f 1; exec \"$0\" \"$@\""
        args = [str(test_orla.ORLA), "--json", "--sim", "--state-out", str(out), "run", "OrlaShortcut", "{}"]
        completed = subprocess.run(["bash", "-c", script, *args], capture_output=True, text=True,
                                   cwd=self.cwd, timeout=20)
        self.assertEqual(completed.returncode, 1, completed.stderr)
        self.assertIn("could not finish writing", completed.stderr)
        self.assertEqual(out.read_text(), "the old state\n")
        self.assertEqual(sorted(p.name for p in self.tmp.iterdir()), ["cwd", "state.json"])


class BoundsTest(OrlaTestCase):
    DEEP = "[" * 20000 + "]" * 20000

    def test_json_nested_without_end_is_refused_wherever_it_enters(self):
        deep_params = '{"a": ' + self.DEEP + "}"
        deep_shortcut = self.write("deep.json", '{"name": "x", "actions": [{"kind": "OrlaShortcut", "data": {"a": '
                                   + self.DEEP + "}}]}")
        deep_state = self.write("state.json", '{"clipboard": ' + self.DEEP + "}")
        menu = {"title": "m"}
        for _ in range(40):
            menu = {"title": "m", "items": [menu]}
        deep_menu = self.write("menu.json", {"applications": [{"name": "App", "menuBar": [menu]}]})
        cases = [
            ("parameters", ["--sim", "run", "OrlaShortcut", deep_params], "nests deeper than 512 levels"),
            ("parameters from a file", ["--sim", "run", "OrlaShortcut", "@" + str(self.write("p.json", deep_params))],
             "nests deeper than 512 levels"),
            ("a shortcut file", ["--sim", "sequence", deep_shortcut], "nests deeper than 512 levels"),
            ("a state file", ["--sim=" + str(deep_state), "run", "OrlaShortcut", "{}"], "nests deeper than 512 levels"),
            ("menus of a state file", ["--sim=" + str(deep_menu), "run", "OrlaShortcut", "{}"], "deeper than 32"),
        ]
        for name, args, fragment in cases:
            with self.subTest(name):
                self.assertUsageError(self.orla(*args), fragment)

    def test_reading_an_endless_file_stops_at_the_limit(self):
        run = self.orla("--sim", "run", "OrlaShortcut", "@/dev/zero")
        self.assertUsageError(run, "larger than 64 MB")

    def test_a_shortcut_that_runs_itself_stops_at_the_action_limit(self):
        calls = [control(subAction="runByName", shortcutName="Loop") for _ in range(10)]
        self.write_shortcut("Loop", calls)
        run = self.orla("--json", "--sim", "sequence", self.tmp / "shortcuts", "Loop")
        self.assertExit(run, 1)
        lines = run.lines
        self.assertLessEqual(len(lines), 3 * 10001)
        self.assertIn("the most one run may", run.stdout)


class TextAtTheBoundaryTest(OrlaTestCase):
    def test_a_nul_in_a_command_a_path_or_a_condition_is_refused(self):
        target = self.tmp / "kept.txt"
        target.write_text("kept")
        cases = [
            ("a command", "CommandShortcut", {"command": "echo a\u0000; rm " + str(target)}),
            ("a path", "FileOperationAction", {"subAction": "delete", "source": str(target) + "\u0000/x"}),
            ("a condition", "ConditionalAction", {"conditionType": 2, "path": "/etc/passwd\u0000/x"}),
        ]
        for name, kind, params in cases:
            with self.subTest(name):
                self.assertUsageError(self.sim("run", kind, json.dumps(params)), "holds a NUL character")
        self.assertEqual(target.read_text(), "kept")

    def test_a_file_name_that_is_not_utf8_still_gives_json_lines(self):
        folder = self.tmp / "files"
        folder.mkdir()
        odd = os.fsencode(str(folder)) + b"/caf\xe9.txt"
        with open(odd, "wb") as f:
            f.write(b"x")
        out = self.tmp / "state.json"
        run = self.sim("--state-out", out, "run", "FileOperationAction",
                       json.dumps({"subAction": "info", "source": str(folder)}))
        run.lines  # each line parses
        self.assertExit(run, 0)
        json.loads(out.read_text())


# Runs `script` with sh in a mount namespace of its own, where it may mount a
# small file system as a second volume (gone with the namespace); as the
# namespace's root when the caller is not root. ORLA and the given variables
# are in its environment.
def in_private_mounts(script, **variables):
    env = dict(os.environ, ORLA=str(test_orla.ORLA), **{k: str(v) for k, v in variables.items()})
    return subprocess.run(["unshare", "--map-root-user", "--mount", "--propagation", "private",
                           "sh", "-euc", script],
                          capture_output=True, text=True, env=env, timeout=30)


class MoveBetweenVolumesTest(OrlaTestCase):
    """A move to another volume that fails keeps the source and the target
    whole. Permissions do not bind the superuser (who runs CI), so the
    failures come from the volumes themselves: one that fills up, and one
    mounted read-only."""

    def setUp(self):
        super().setUp()
        probe = in_private_mounts('mount -t tmpfs orla-probe "$VOL"', VOL=self.tmp)
        if probe.returncode != 0:
            self.skipTest("no private mount namespace here to make a second volume in: " + probe.stderr.strip())
        self.volume = self.tmp / "volume"
        self.volume.mkdir()

    def move(self, source, destination):
        return json.dumps({"subAction": "move", "source": str(source), "destination": str(destination)})

    def test_a_copy_that_fills_the_other_volume_keeps_the_source_and_the_target(self):
        source = self.tmp / "source"
        (source / "sub").mkdir(parents=True)
        big = os.urandom(256 * 1024)
        (source / "big.bin").write_bytes(big)
        (source / "sub" / "note.txt").write_text("keep me")
        # The 64 KiB volume holds the target; the copy runs out of room there.
        done = in_private_mounts(
            'mount -t tmpfs -o size=64k orla-small "$VOL"\n'
            'printf "the user\'s target" > "$VOL/target"\n'
            'code=0; "$ORLA" --json --sim run FileOperationAction "$PARAMS" || code=$?\n'
            'echo "exit $code"; ls -A "$VOL"; cat "$VOL/target"',
            VOL=self.volume, PARAMS=self.move(source, self.volume / "target"))
        self.assertEqual(done.returncode, 0, done.stderr)
        lines = done.stdout.splitlines()
        result = json.loads(lines[0])
        self.assertEqual(result["result"], "failure", lines[0])
        self.assertEqual(lines[1:], ["exit 1", "target", "the user's target"],
                         "the target is kept and nothing half-copied is left on the full volume")
        self.assertEqual((source / "big.bin").read_bytes(), big)
        self.assertEqual((source / "sub" / "note.txt").read_text(), "keep me")

    def test_a_source_that_cannot_be_let_go_of_keeps_the_target(self):
        target = self.tmp / "target.txt"
        target.write_text("the user's target")
        # The source's folder is read-only, so the copy succeeds and only
        # letting go of the source fails.
        done = in_private_mounts(
            'mount -t tmpfs orla-other "$VOL"\n'
            'mkdir "$VOL/locked"; printf source > "$VOL/locked/item.txt"\n'
            'mount --bind "$VOL/locked" "$VOL/locked"; mount -o remount,bind,ro "$VOL/locked"\n'
            'code=0; "$ORLA" --json --sim run FileOperationAction "$PARAMS" || code=$?\n'
            'echo "exit $code"; ls -A "$VOL/locked"; cat "$VOL/locked/item.txt"',
            VOL=self.volume, PARAMS=self.move(self.volume / "locked" / "item.txt", target))
        self.assertEqual(done.returncode, 0, done.stderr)
        lines = done.stdout.splitlines()
        self.assertEqual(json.loads(lines[0])["result"], "failure", lines[0])
        self.assertEqual(lines[1:], ["exit 1", "item.txt", "source"])
        self.assertEqual(target.read_text(), "the user's target")
        self.assertEqual(sorted(p.name for p in self.tmp.iterdir()), ["cwd", "target.txt", "volume"],
                         "no copy is left beside the target")


if __name__ == "__main__":
    test_orla.main()
