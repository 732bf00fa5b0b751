# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Whether the tests that docs/recovery.md names are there."""

import re
import unittest
from pathlib import Path

SOURCE_DIR = Path(__file__).resolve().parents[2]
FOLDERS = {"test_": ("tests/system", ".py", "def test_{}("), "tst_": ("tests/unit", ".cpp", "::{}()"),
           "vm/": ("tests/vm/scenarios", ".py", "def test_{}(")}


def named_tests():
    """Each file that a row names, with the tests of it that follow after a colon."""
    rows = [line for line in (SOURCE_DIR / "docs/recovery.md").read_text(encoding="utf-8").splitlines()
            if line.startswith("| ")]
    for row in rows:
        for name, tests in re.findall(r"`((?:test_|tst_|vm/)\w+)`(?:: ([\w, ]+))?", row.split(" | ")[-1]):
            yield name, [test.strip() for test in tests.split(",") if test.strip()]


class NamedTests(unittest.TestCase):
    def test_are_there(self):
        found = list(named_tests())
        self.assertGreater(len(found), 50)
        for name, tests in found:
            folder, suffix, form = next(FOLDERS[prefix] for prefix in FOLDERS if name.startswith(prefix))
            base = name.rsplit("/", 1)[-1] + suffix
            source = next((SOURCE_DIR / each / base for each in (folder, "tests/system")
                           if (SOURCE_DIR / each / base).exists()), None)
            self.assertTrue(source, f"no file of {name}")
            text = source.read_text(encoding="utf-8")
            for test in tests:
                self.assertTrue(form.format(test) in text, f"no {test} in {name}")


if __name__ == "__main__":
    unittest.main()
