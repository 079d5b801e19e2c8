#!/usr/bin/env python3
"""The installed headers: everything under include/orla is self-contained
(it includes only other public headers and system headers), exported from a
shared library, and nothing that belongs there was left behind in the
source folders (a header added under models/, at the top of platform/ or
in plugins/framework/ after the move).

    python3 tests/cli/test_public_headers.py --root .
"""
import argparse
import re
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
GENERATED = {"orla/version.h"}


class PublicHeadersTest(unittest.TestCase):
    def public_headers(self):
        headers = sorted((ROOT / "include" / "orla").rglob("*.h"))
        self.assertTrue(headers, "no public headers")
        return headers

    def test_public_headers_include_only_public_or_system_headers(self):
        for header in self.public_headers():
            for quote, name in INCLUDE.findall(header.read_text(encoding="utf-8")):
                with self.subTest(header=str(header.relative_to(ROOT)), include=name):
                    self.assertEqual(quote, "<", "a public header includes a private header")
                    if name.startswith("orla/") and name not in GENERATED:
                        self.assertTrue((ROOT / "include" / name).is_file(), "no such public header")
                    for private in ("models/", "platform/", "plugins/", "tools/", "tests/"):
                        self.assertFalse(name.startswith(private), "an include outside orla/")

    def test_public_headers_export_what_they_declare(self):
        for header in self.public_headers():
            if header.name == "export.h":
                continue
            text = header.read_text(encoding="utf-8")
            with self.subTest(header=str(header.relative_to(ROOT))):
                self.assertIn("#include <orla/export.h>", text)
                self.assertNotRegex(text, r"(?m)^namespace orla(::\w+)? \{",
                                    "opens namespace orla without ORLA_EXPORT")

    def test_no_public_header_was_left_in_the_source_folders(self):
        left = [p for p in (ROOT / "models").rglob("*.h")]
        left += [p for p in (ROOT / "platform").glob("*.h")]
        left += [p for p in (ROOT / "plugins" / "framework").glob("*.h")]
        self.assertEqual([str(p.relative_to(ROOT)) for p in left], [],
                         "headers of the public folders outside include/orla: run header-move.sh on the tree")


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, default=ROOT)
    options, rest = parser.parse_known_args()
    ROOT = options.root.resolve()
    unittest.main(argv=[sys.argv[0]] + rest)
