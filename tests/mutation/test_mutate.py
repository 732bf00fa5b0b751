#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Which faults mutate.py makes of a text, and which tests it runs for a file. Builds and runs nothing."""

import contextlib
import io
import unittest

import mutate


def changes(line):
    """(operator, the line with the fault) of each fault of a line."""
    return [(fault.operator, mutate.with_fault(line, fault)) for fault in mutate.faults_of(line)]


class FaultsOfText(unittest.TestCase):
    def test_operators(self):
        for line, expected in [
                ("x = a <= b", ("comparison", "x = a < b")),
                ("x = a == b", ("comparison", "x = a != b")),
                ("x = a && b", ("boolean", "x = a || b")),
                ("x = true", ("boolean", "x = false")),
                ("x{9}", ("number", "x{10}")),
                ("wait(60s)", ("number", "wait(61s)")),
                ("    if (a(b) && c)", ("condition", "    if (!(a(b) && c))")),
                ("    return a.b(c);", ("return", "    return {};")),
                ("    Call(a, b(c));", ("statement", "    {}")),
                ("    a->b[1] += c;", ("statement", "    {}")),
                ('f("a\\"b")', ("text", 'f("a\\"b~")'))]:
            with self.subTest(line):
                self.assertIn(expected, changes(line))

    def test_leaves_alone(self):
        for line in ["// a == b, 5, true", "#include <a1.h>", "std::map<int, int> a", "0x10", "name2", "return {};",
                     "return nullptr;", "    int a = b;", "    Type a(b);", "    b));", "'\"' + '5'",
                     'R"(5 == "5")"', "/* 5\n 5 */"]:
            with self.subTest(line):
                self.assertEqual([], changes(line))

    def test_same_fault_once(self):
        self.assertEqual([("boolean", "    return false;")], changes("    return true;"))

    def test_place_after_comment(self):
        text = '/* "a"\n 1 */ f("b");  // "c"\ng(7)'

        self.assertEqual([(2, 8, '"b"'), (3, 2, "7")], [(f.line, f.column, f.old) for f in mutate.faults_of(text)])

    def test_seed_decides(self):
        sources = ["src/core/corvi.cpp", "src/core/corvi_dhcp.cpp"]

        self.assertEqual(mutate.chosen_faults(sources, 5, 20), mutate.chosen_faults(sources, 5, 20))
        self.assertNotEqual(mutate.chosen_faults(sources, 5, 20), mutate.chosen_faults(sources, 6, 20))


class TrialOfFault(unittest.TestCase):
    def test_test_that_always_fails_kills_nothing(self):
        class AlwaysRed(mutate.Trial):
            def is_good(self, test):
                return test != "tst_red"

            def run_once(self, source, fault):
                return ("killed", "tst_red") if "tst_red" in self.tests else ("survived", "")
        trial = AlwaysRed(["tst_red", "tst_green"], 1)

        with contextlib.redirect_stdout(io.StringIO()) as said:
            self.assertEqual(("survived", ""), trial.run("src/core/corvi.cpp", None))

        self.assertEqual(["tst_green"], trial.tests)
        self.assertIn("tst_red fails without a fault", said.getvalue())


class TestsOfSource(unittest.TestCase):
    def test_own_name_first(self):
        tests = ["tst_corvi_dhcp", "tst_corvi_carrier", "tst_corvi_bounce", "tst_modem", "tst_corvi_carrier_more"]

        self.assertEqual(["tst_corvi_carrier", "tst_corvi_carrier_more", "tst_corvi_bounce", "tst_corvi_dhcp"],
                         mutate.tests_of("src/core/corvi_carrier.cpp", tests))

    def test_table_names_files_and_tests(self):
        for name, patterns in mutate.MORE_TESTS.items():
            with self.subTest(name):
                self.assertTrue((mutate.TOP / name).is_dir() or (mutate.TOP / f"{name}.cpp").is_file())
                for pattern in patterns:
                    self.assertTrue(mutate.fnmatch.filter(mutate.unit_tests(), pattern), pattern)

    def test_each_source_has_tests(self):
        for pattern in ("src/*/*.cpp", "platform/*/*.cpp", "tools/*.cpp"):
            for path in mutate.TOP.glob(pattern):
                with self.subTest(path.name):
                    self.assertTrue(mutate.tests_of(str(path.relative_to(mutate.TOP)), mutate.unit_tests()))


if __name__ == "__main__":
    unittest.main()
