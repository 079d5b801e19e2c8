#!/usr/bin/env python3
"""The documentation cannot drift from the program:

- every ```console block of docs/*.md runs: each `$ orla ...` line is run
  (from the source folder, without a shell) and must print exactly the lines
  below it, then `[exit N]` when its exit status is not 0;
- the README's table of kinds lists exactly the kinds `orla list` knows, in
  its order, and says where each works as `orla --sim list` and, on an X
  display, `orla list` say;
- docs/state-file.md names every key the simulated desktop writes back, and
  only keys its loader reads;
- every subcommand and option `orla --help` shows is in docs/cli.md (the
  source of the man page) and in the bash and zsh completions, and the bash
  completion completes them and the kinds.

    python3 tests/cli/test_docs.py --orla build/dev/tools/orla/orla
    python3 tests/cli/test_docs.py --orla ... --update   # rewrites the outputs in docs/
"""
import argparse
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
ORLA = None
UPDATE = False
BLOCK = re.compile(r"^```console\n(.*?)^```\n", re.M | re.S)
EXIT = re.compile(r"^\[exit (\d+)\]$")


def run_command(line, cwd):
    argv = shlex.split(line)
    assert argv[0] == "orla", f"a documented command must start with orla: {line}"
    env = dict(os.environ, LC_ALL="C.UTF-8", TZ="UTC")
    done = subprocess.run([str(ORLA)] + argv[1:], cwd=cwd, env=env, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=60)
    out = done.stdout.splitlines()
    if done.returncode != 0:
        out.append(f"[exit {done.returncode}]")
    return out


def parse_block(body):
    """[(command, expected lines)] of one console block."""
    steps = []
    for line in body.splitlines():
        if line.startswith("$ "):
            steps.append((line[2:], []))
        elif steps:
            steps[-1][1].append(line)
    return steps


class DocumentedExamplesTest(unittest.TestCase):
    def test_every_console_example_prints_what_the_document_says(self):
        docs = sorted((REPO / "docs").glob("*.md"))
        ran = 0
        for doc in docs:
            text = doc.read_text(encoding="utf-8")
            updated = text
            for block in BLOCK.finditer(text):
                new_body = []
                for command, expected in parse_block(block.group(1)):
                    with tempfile.TemporaryDirectory() as scratch:
                        actual = run_command(command.replace("$SCRATCH", scratch), REPO)
                    actual = [line.replace(str(REPO) + "/", "") for line in actual]
                    ran += 1
                    new_body += ["$ " + command] + actual
                    if not UPDATE:
                        with self.subTest(doc=doc.name, command=command):
                            self.assertEqual(actual, expected)
                updated = updated.replace(block.group(0), "```console\n" + "\n".join(new_body) + "\n```\n", 1)
            if UPDATE and updated != text:
                doc.write_text(updated, encoding="utf-8")
        self.assertGreater(ran, 10, "the documents lost their examples")


class ReadmeKindsTest(unittest.TestCase):
    def table(self):
        text = (REPO / "README.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| `(\w+)` \| ([^|]+) \| ([^|]+) \| ([^|]+) \| ([^|]+) \|$", text, re.M)
        self.assertTrue(rows, "no table of kinds in README.md")
        return rows

    def listed(self):
        done = subprocess.run([str(ORLA), "--sim", "--json", "list"], capture_output=True, text=True, check=True)
        return [json.loads(line) for line in done.stdout.splitlines()]

    def test_the_table_lists_every_kind_of_the_registry_in_its_order(self):
        self.assertEqual([row[0] for row in self.table()], [kind["pluginClass"] for kind in self.listed()])

    def test_the_simulated_column_says_where_a_kind_works(self):
        works = {kind["pluginClass"]: kind["available"] for kind in self.listed()}
        for kind, _, simulated, _, _ in self.table():
            with self.subTest(kind=kind):
                self.assertEqual(simulated.strip() == "yes", works[kind],
                                 "README.md says otherwise than `orla --sim list`")

    def test_the_linux_column_says_where_a_kind_works_on_this_x_desktop(self):
        if not os.environ.get("DISPLAY"):
            self.skipTest("no X display: the Linux column is checked on the headless desktop")
        done = subprocess.run([str(ORLA), "--json", "list"], capture_output=True, text=True, check=True)
        works = {kind["pluginClass"]: kind["available"] for kind in map(json.loads, done.stdout.splitlines())}
        for kind, _, _, linux, _ in self.table():
            with self.subTest(kind=kind):
                says_yes = not linux.strip().startswith(("no", "when built"))
                self.assertEqual(says_yes, works[kind], "README.md says otherwise than `orla list` on X11")


class StateFileReferenceTest(unittest.TestCase):
    def documented(self):
        text = (REPO / "docs" / "state-file.md").read_text(encoding="utf-8")
        keys = set(re.findall(r"^\| `(\w+)` \|", text, re.M))
        self.assertGreater(len(keys), 40)
        return keys

    def loader_literals(self):
        literals = set()
        for source in (REPO / "platform" / "sim").glob("*.cpp"):
            literals |= set(re.findall(r'"(\w+)"', source.read_text(encoding="utf-8")))
        return literals

    # Objects whose keys are the user's own: variable names, preferences,
    # schemes and extensions.
    MAPS = {"environment", "userDefaults", "urlHandlers", "documentHandlers"}

    def written_keys(self, value, into):
        if isinstance(value, dict):
            for key, inner in value.items():
                into.add(key)
                if key not in self.MAPS:
                    self.written_keys(inner, into)
        elif isinstance(value, list):
            for inner in value:
                self.written_keys(inner, into)
        return into

    def test_every_documented_key_is_read_by_the_loader(self):
        literals = self.loader_literals()
        for key in sorted(self.documented()):
            with self.subTest(key=key):
                self.assertIn(key, literals, "documented but not in the simulated desktop's loader")

    def test_every_key_the_desktop_writes_back_is_documented(self):
        documented = self.documented()
        for state in sorted((REPO / "examples" / "states").glob("*.json")) + [REPO / "examples" / "demo" / "desktop.json"]:
            with tempfile.TemporaryDirectory() as scratch:
                out = Path(scratch) / "out.json"
                subprocess.run([str(ORLA), "--sim", str(state), "--state-out", str(out), "run", "OrlaShortcut",
                                '{"subAction": "openEditor"}'], capture_output=True, check=True)
                keys = self.written_keys(json.loads(out.read_text(encoding="utf-8")), set())
                keys |= self.written_keys(json.loads(state.read_text(encoding="utf-8")), set())
            for key in sorted(keys):
                with self.subTest(state=state.name, key=key):
                    self.assertIn(key, documented, "written or read by the simulated desktop, not in docs/state-file.md")


class HelpAndCompletionTest(unittest.TestCase):
    COMPLETIONS = REPO / "tools" / "orla" / "completions"

    def help_of(self, *subcommand):
        done = subprocess.run([str(ORLA), *subcommand, "--help"], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def words(self):
        top = self.help_of()
        subcommands = re.findall(r"^  (\w+)\s", top.split("Subcommands:", 1)[1], re.M)
        self.assertEqual(sorted(subcommands), ["daemon", "list", "run", "sequence", "validate"])
        options = set(re.findall(r"(--[a-z][a-z-]+)", top))
        for sub in subcommands:
            options |= set(re.findall(r"(--[a-z][a-z-]+)", self.help_of(sub)))
        options.discard("--sim-state")  # reached through --sim FILE, not shown
        return subcommands, sorted(options)

    def test_every_subcommand_and_option_is_documented_and_completed(self):
        subcommands, options = self.words()
        places = {"docs/cli.md": (REPO / "docs" / "cli.md").read_text(encoding="utf-8"),
                  "orla.bash": (self.COMPLETIONS / "orla.bash").read_text(encoding="utf-8"),
                  "_orla": (self.COMPLETIONS / "_orla").read_text(encoding="utf-8")}
        for word in subcommands + options:
            for name, text in places.items():
                with self.subTest(word=word, place=name):
                    self.assertRegex(text, r"(?<![\w-])" + re.escape(word) + r"(?![\w-])")

    def complete(self, *words):
        script = (f"source {shlex.quote(str(self.COMPLETIONS / 'orla.bash'))}\n"
                  f"COMP_WORDS=({' '.join(shlex.quote(w) for w in (str(ORLA),) + words)})\n"
                  f"COMP_CWORD={len(words)}\n_orla\nprintf '%s\\n' \"${{COMPREPLY[@]}}\"\n")
        done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, check=True)
        return sorted(line for line in done.stdout.splitlines() if line)

    def test_the_bash_completion_completes_subcommands_options_and_kinds(self):
        cases = [
            (("ru",), ["run"]),
            (("--st",), ["--state-out"]),
            (("run", "TextT"), ["TextTransformAction"]),
            (("--sim", "validate", "Cond"), ["ConditionalAction"]),
            (("sequence", "--k"), ["--keep-going"]),
            (("daemon", "--c"), ["--check"]),
            (("list", "--j"), ["--json"]),
        ]
        for words, expected in cases:
            with self.subTest(words=words):
                self.assertEqual(self.complete(*words), expected)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--orla", type=Path, required=True)
    parser.add_argument("--update", action="store_true", help="rewrite the documented outputs")
    options, rest = parser.parse_known_args()
    ORLA = options.orla.resolve()
    UPDATE = options.update
    unittest.main(argv=[sys.argv[0]] + rest)
